#include "services/tarvvm/pasteboard/agent_link.h"

#include "services/tarvvm/pasteboard/pasteboard_archive.h"

#include <utility>
#include <vector>

namespace {

constexpr uint32_t SELECTION_CLIPBOARD = 0; // in the low byte of the four
constexpr uint32_t OUR_CAPABILITIES = AGENT_CAP_BY_DEMAND | AGENT_CAP_SELECTION | AGENT_CAP_REGRAB;

} // namespace

bool AgentLink::feed(std::string_view bytes)
{
    std::vector<AgentMessage> messages;
    const bool sound = m_decoder.feed(bytes, &messages);
    for (AgentMessage &message : messages)
        if (!handle(message))
            return false;
    return sound || refuse(m_decoder.what());
}

void AgentLink::reset()
{
    m_decoder.reset();
    m_decoder.setContentsMax(0);
    m_encoder.clear();
    m_capabilities = 0;
    m_asked = false;
    if (std::exchange(m_known, false))
        m_listener.agentLeft();
}

void AgentLink::announce()
{
    m_asked = true;
    sendCapabilities(/*ask=*/true);
}

void AgentLink::grab(uint32_t kinds)
{
    std::string body = selection();
    for (const AgentKind kind : {AGENT_TEXT, AGENT_PNG})
        if (kinds & 1u << kind)
            body += agent_number(kind);
    // Viewers may copy faster than the guest reads. Only the last offer counts, and answers from
    // what was offered before are empty, so that no more than two contents are held for the guest.
    m_encoder.drop(AGENT_GRAB);
    for (size_t left = m_encoder.drop(AGENT_CLIPBOARD); left > 0; left--)
        answer(AGENT_NONE, nullptr);
    m_encoder.add(AGENT_GRAB, body);
}

void AgentLink::request(AgentKind kind, size_t contents_max)
{
    constexpr size_t head = 2 * sizeof(uint32_t);
    m_decoder.setContentsMax(head + contents_max);
    m_encoder.add(AGENT_REQUEST, selection() + agent_number(kind));
}

void AgentLink::answer(AgentKind kind, AgentEncoder::Contents contents)
{
    m_encoder.add(AGENT_CLIPBOARD, selection() + agent_number(kind), std::move(contents));
}

std::string AgentLink::selection() const
{
    return m_capabilities & AGENT_CAP_SELECTION ? agent_number(SELECTION_CLIPBOARD) : "";
}

void AgentLink::sendCapabilities(bool ask)
{
    m_encoder.add(AGENT_CAPABILITIES, agent_number(ask) + agent_number(OUR_CAPABILITIES));
}

bool AgentLink::refuse(const char *what)
{
    m_what = what;
    return false;
}

bool AgentLink::handle(AgentMessage &message)
{
    std::string_view body = message.body;
    if (message.type == AGENT_CAPABILITIES)
        return handleCapabilities(body);
    if (message.type != AGENT_CLIPBOARD && message.type != AGENT_GRAB &&
        message.type != AGENT_REQUEST && message.type != AGENT_RELEASE)
        return true;
    uint32_t selection = SELECTION_CLIPBOARD;
    if (m_capabilities & AGENT_CAP_SELECTION && !agent_take_number(&body, &selection))
        return refuse("a clipboard message without its selection");
    // Other selections, such as what is marked with the mouse, stay the guest's own.
    if (!ready() || (selection & 0xff) != SELECTION_CLIPBOARD)
        return true;
    uint32_t kind = AGENT_NONE;
    switch (message.type) {
    case AGENT_CLIPBOARD:
        return handleContents(message, body);
    case AGENT_REQUEST:
        if (!agent_take_number(&body, &kind))
            return refuse("a request without its kind");
        if (m_encoder.waiting() >= WAITING_MAX)
            return refuse("more requests than it takes answers to");
        m_listener.agentAsked(kind);
        return true;
    case AGENT_RELEASE:
        m_listener.agentReleased();
        return true;
    default: {
        uint32_t kinds = 0;
        for (size_t count = 0; count < AGENT_TYPES_MAX && agent_take_number(&body, &kind); count++)
            kinds |= kind < 32 ? 1u << kind : 0;
        m_listener.agentGrabbed(kinds);
        return true;
    }
    }
}

bool AgentLink::handleCapabilities(std::string_view body)
{
    uint32_t asks = 0;
    uint32_t capabilities = 0;
    if (!agent_take_number(&body, &asks))
        return refuse("capabilities without their head");
    agent_take_number(&body, &capabilities); // an agent without any sends none
    // One that asks has just come: what waits was meant for another.
    const bool anew = asks != 0 || !m_known;
    m_known = true;
    m_capabilities = capabilities;
    if (asks != 0) {
        m_encoder.clear();
        m_decoder.setContentsMax(0);
        sendCapabilities(/*ask=*/!m_asked);
    }
    m_asked = asks != 0 && !m_asked;
    if (anew && m_capabilities & AGENT_CAP_MAX_CLIPBOARD)
        m_encoder.add(AGENT_MAX_CLIPBOARD, agent_number(uint32_t(PASTEBOARD_CONTENTS_MAX)));
    m_listener.agentCame(anew);
    return true;
}

bool AgentLink::handleContents(AgentMessage &message, std::string_view body)
{
    uint32_t kind = AGENT_NONE;
    if (!agent_take_number(&body, &kind))
        return refuse("contents without their kind");
    const size_t head = message.body.size() - body.size();
    message.body.erase(0, head);
    m_listener.agentAnswered(kind, std::move(message.body), message.size - uint32_t(head));
    return true;
}
