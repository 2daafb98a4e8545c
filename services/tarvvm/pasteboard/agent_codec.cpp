#include "services/tarvvm/pasteboard/agent_codec.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr uint32_t PROTOCOL = 1;
constexpr uint32_t PORT_CLIENT = 1; // messages of the guest's agent and of whoever looks at the VM
constexpr uint32_t PORT_SERVER = 2; // messages about the virtual machine itself, of no use here
constexpr size_t CHUNK_HEAD = 8;
constexpr size_t MESSAGE_HEAD = 20;

uint32_t number_at(const std::string &bytes, size_t offset)
{
    uint32_t value = 0;
    for (size_t i = 0; i < sizeof value; i++)
        value |= uint32_t(uint8_t(bytes[offset + i])) << (8 * i);
    return value;
}

// Moves bytes until `to` has `size`. How many were taken.
size_t fill(std::string *to, size_t size, std::string_view from)
{
    const size_t count = std::min(size - to->size(), from.size());
    to->append(from.substr(0, count));
    return count;
}

// The most that a message of this type can hold and still be one.
size_t size_max(uint32_t type)
{
    switch (type) {
    case AGENT_CAPABILITIES:
    case AGENT_GRAB:
    case AGENT_REQUEST:
    case AGENT_RELEASE:
        return AGENT_CONTROL_MAX;
    default:
        return AGENT_PASSED_OVER_MAX;
    }
}

} // namespace

bool AgentDecoder::feed(std::string_view bytes, std::vector<AgentMessage> *messages)
{
    while (!bytes.empty()) {
        if (m_chunk_left == 0) {
            bytes.remove_prefix(fill(&m_chunk_head, CHUNK_HEAD, bytes));
            if (m_chunk_head.size() == CHUNK_HEAD && !beginChunk())
                return false;
            continue;
        }
        const std::string_view part = bytes.substr(0, m_chunk_left);
        const size_t taken = m_chunk_is_ours ? takeMessage(part, messages) : part.size();
        if (taken == 0)
            return false;
        bytes.remove_prefix(taken);
        m_chunk_left -= uint32_t(taken);
    }
    return true;
}

void AgentDecoder::reset()
{
    const size_t contents_max = m_contents_max;
    *this = AgentDecoder();
    m_contents_max = contents_max;
}

bool AgentDecoder::inside() const
{
    return m_chunk_left != 0 || m_in_message || !m_chunk_head.empty() || !m_message_head.empty();
}

bool AgentDecoder::beginChunk()
{
    const uint32_t port = number_at(m_chunk_head, 0);
    m_chunk_left = number_at(m_chunk_head, 4);
    m_chunk_head.clear();
    m_chunk_is_ours = port == PORT_CLIENT;
    if (port != PORT_CLIENT && port != PORT_SERVER)
        return refuse("a chunk for no port");
    if (m_chunk_left == 0 || m_chunk_left > MESSAGE_HEAD + AGENT_PASSED_OVER_MAX)
        return refuse("a chunk of an impossible size");
    return true;
}

bool AgentDecoder::beginMessage()
{
    m_message = {number_at(m_message_head, 4), number_at(m_message_head, 16), {}};
    if (number_at(m_message_head, 0) != PROTOCOL)
        return refuse("a message of another protocol");
    if (m_message.size > size_max(m_message.type))
        return refuse("a message of an impossible size");
    m_message_head.clear();
    m_message_left = m_message.size;
    m_in_message = true;
    m_keep = m_message.type == AGENT_CLIPBOARD ? m_message.size <= m_contents_max
                                               : m_message.size <= AGENT_CONTROL_MAX;
    if (m_keep)
        m_message.body.reserve(m_message.size);
    return true;
}

bool AgentDecoder::refuse(const char *what)
{
    m_what = what;
    return false;
}

// How many of the bytes, of one chunk, are done with; 0 for garbage.
size_t AgentDecoder::takeMessage(std::string_view bytes, std::vector<AgentMessage> *messages)
{
    size_t taken = 0;
    if (!m_in_message) {
        taken = fill(&m_message_head, MESSAGE_HEAD, bytes);
        if (m_message_head.size() < MESSAGE_HEAD)
            return taken;
        if (!beginMessage())
            return 0;
    }
    const std::string_view part = bytes.substr(taken, m_message_left);
    const size_t place =
        m_keep ? m_message.size : std::min<size_t>(m_message.size, AGENT_HEAD_KEPT);
    fill(&m_message.body, place, part);
    m_message_left -= uint32_t(part.size());
    if (m_message_left == 0) {
        m_in_message = false;
        messages->push_back(std::exchange(m_message, {}));
    }
    return taken + part.size();
}

void AgentEncoder::add(AgentType type, const std::string &head, Contents contents)
{
    const size_t size = head.size() + (contents ? contents->size() : 0);
    std::string start = agent_number(PROTOCOL) + agent_number(type) + agent_number(0) +
                        agent_number(0) + agent_number(uint32_t(size));
    m_messages.push_back({type, start + head, std::move(contents)});
}

size_t AgentEncoder::drop(AgentType type)
{
    return std::erase_if(m_messages,
                         [&](const Message &each) { return each.type == type && each.done == 0; });
}

bool AgentEncoder::next(std::string *bytes)
{
    if (m_messages.empty())
        return false;
    Message &message = m_messages.front();
    const size_t head = message.head.size();
    const size_t total = head + (message.contents ? message.contents->size() : 0);
    const size_t size = std::min(total - message.done, AGENT_CHUNK_MAX);
    *bytes += agent_number(PORT_CLIENT) + agent_number(uint32_t(size));
    const size_t end = message.done + size;
    if (message.done < head)
        bytes->append(message.head, message.done, std::min(end, head) - message.done);
    if (end > head) {
        const size_t from = std::max(message.done, head);
        bytes->append(*message.contents, from - head, end - from);
    }
    message.done = end;
    if (end == total)
        m_messages.pop_front();
    return true;
}

std::string agent_number(uint32_t value)
{
    std::string bytes(sizeof value, '\0');
    for (size_t i = 0; i < sizeof value; i++)
        bytes[i] = char(uint8_t(value >> (8 * i)));
    return bytes;
}

bool agent_take_number(std::string_view *bytes, uint32_t *value)
{
    if (bytes->size() < sizeof *value)
        return false;
    *value = number_at(std::string(bytes->substr(0, sizeof *value)), 0);
    bytes->remove_prefix(sizeof *value);
    return true;
}
