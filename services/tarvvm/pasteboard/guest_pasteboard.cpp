#include "services/tarvvm/pasteboard/guest_pasteboard.h"

#include "services/tarvvm/pasteboard/pasteboard_text.h"
#include "tarvhv/cli2/display_protocol.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

// A guest may give that little for long: it is given up only when nothing came in the meantime.
constexpr uint64_t PATIENCE_MS = 10000;
constexpr std::chrono::seconds EAGER{2};
constexpr unsigned LINES_MAX = 200; // what a guest can make this side log in all
constexpr uint32_t USEFUL_KINDS = 1u << AGENT_TEXT | 1u << AGENT_PNG;

} // namespace

GuestPasteboard::GuestPasteboard(sd_event *loop, UniqueFd socket, UniqueFd unread, Log log)
    : m_loop(loop),
      m_log(std::move(log)),
      m_lines_left(LINES_MAX),
      m_port(loop, std::move(socket), std::move(unread), *this,
             [this](const std::string &line) { this->log(line); })
{
}

void GuestPasteboard::log(const std::string &line)
{
    if (m_lines_left == 0)
        return;
    m_lines_left--;
    m_log(m_lines_left == 0 ? line + " (no more is told of the guest's pasteboard)" : line);
}

void GuestPasteboard::add(PasteboardReader *reader)
{
    reader->m_seen = m_generation; // what was copied before it came is not news to it
    m_readers.push_back(reader);
}

void GuestPasteboard::remove(PasteboardReader *reader)
{
    std::erase(m_readers, reader);
}

uint32_t GuestPasteboard::caps() const
{
    return m_told_caps;
}

// ---- the guest's agent --------------------------------------------------------------------------

void GuestPasteboard::agentCame(bool anew)
{
    if (anew) {
        m_host_text.reset();
        log(m_port.link().ready() ? "the guest's agent is there: pasteboards are shared"
                                  : "the guest's agent shares no pasteboard");
        m_owed = 0;
        forgetGuests();
        offer();
    }
    tellCaps();
}

void GuestPasteboard::agentLeft()
{
    log("the guest's agent is gone");
    m_owed = 0;
    forgetGuests();
    tellCaps();
}

void GuestPasteboard::tellCaps()
{
    const uint32_t caps = m_port.link().ready() ? DISPLAY_CAP_COPY | DISPLAY_CAP_PASTE : 0;
    if (std::exchange(m_told_caps, caps) == caps)
        return;
    for (PasteboardReader *reader : m_readers)
        reader->pasteboardCapsChanged(caps);
}

// ---- from the guest -----------------------------------------------------------------------------

void GuestPasteboard::agentGrabbed(uint32_t kinds)
{
    forgetGuests();
    m_generation++;
    m_offered = kinds & USEFUL_KINDS;
    m_host.reset();
    m_host_text.reset();
    const auto now = std::chrono::steady_clock::now();
    for (PasteboardReader *reader : m_readers)
        reader->m_asking = m_offered != 0 && reader->m_eager_until > now;
    if (std::any_of(m_readers.begin(), m_readers.end(), [](auto each) { return each->m_asking; }))
        startFetch();
}

void GuestPasteboard::agentReleased()
{
    forgetGuests();
}

// The guest has nothing now. An answer that it still owes is of no use when it comes.
void GuestPasteboard::forgetGuests()
{
    if (m_fetch == Fetch::running && m_port.link().known())
        m_owed++;
    m_port.link().endRequest();
    m_patience.reset();
    m_fetch = Fetch::none;
    m_fetched = {};
    m_held.reset();
    m_offered = 0;
    for (PasteboardReader *reader : m_readers)
        reader->m_asking = false;
}

void GuestPasteboard::ask(PasteboardReader *reader, bool polling)
{
    if (!polling)
        reader->m_eager_until = std::chrono::steady_clock::now() + EAGER;
    if (m_offered == 0 || (polling && reader->m_seen == m_generation))
        return;
    reader->m_asking = true;
    if (m_fetch == Fetch::done && (m_held || polling))
        deliver();
    else if (m_fetch != Fetch::running)
        startFetch();
}

void GuestPasteboard::startFetch()
{
    m_fetch = Fetch::running;
    m_fetched = {};
    m_wanted = m_offered;
    fetchNext();
    m_port.flush();
}

void GuestPasteboard::fetchNext()
{
    const AgentKind kind = m_wanted & 1u << AGENT_TEXT ? AGENT_TEXT : AGENT_PNG;
    if (m_wanted == 0) {
        finishFetch();
        return;
    }
    m_wanted &= ~(1u << kind);
    m_fetching = kind;
    m_port.link().request(kind, PASTEBOARD_CONTENTS_MAX - m_fetched.text.size());
    watchFetch();
}

void GuestPasteboard::watchFetch()
{
    m_received = m_port.received();
    m_patience = event_timer(m_loop, PATIENCE_MS, [this] {
        if (m_received != m_port.received()) {
            watchFetch();
            return;
        }
        log("the guest does not give what it copied");
        finishFetch();
    });
}

void GuestPasteboard::agentAnswered(uint32_t kind, std::string contents, uint32_t size)
{
    if (m_owed > 0) {
        m_owed--;
        return;
    }
    if (m_fetch != Fetch::running || (kind != m_fetching && kind != AGENT_NONE))
        return;
    if (contents.size() != size) {
        log("what the guest copied is too large: " + std::to_string(size) + " bytes");
    } else if (kind == AGENT_TEXT) {
        m_fetched.text = pasteboard_text(std::move(contents));
        if (m_port.link().linesEndWithCrLf())
            m_fetched.text = pasteboard_without_crlf(m_fetched.text);
        if (m_fetched.text.size() > PASTEBOARD_CONTENTS_MAX)
            m_fetched.text.clear();
    } else if (kind == AGENT_PNG && pasteboard_is_png(contents)) {
        m_fetched.png = std::move(contents);
    }
    fetchNext();
}

void GuestPasteboard::finishFetch()
{
    m_patience.reset();
    m_port.link().endRequest();
    m_fetch = Fetch::done;
    const PasteboardContents contents = std::exchange(m_fetched, {});
    if (contents.empty())
        log("the guest copied nothing that can be taken over");
    else
        hold(pasteboard_archive_write(contents));
    deliver();
}

void GuestPasteboard::hold(const std::string &archive)
{
    SealedMemory memory = platform_memory_of("tarv-pasteboard", archive);
    if (memory)
        m_held = std::make_shared<SealedMemory>(std::move(memory));
    else
        log(std::string("no memory for the guest's pasteboard: ") + std::strerror(errno));
}

void GuestPasteboard::deliver()
{
    for (PasteboardReader *reader : m_readers) {
        if (!std::exchange(reader->m_asking, false))
            continue;
        reader->m_seen = m_generation;
        if (m_held)
            reader->pasteboardArrived(m_held);
    }
}

// ---- to the guest -------------------------------------------------------------------------------

bool GuestPasteboard::give(UniqueFd memory, size_t size)
{
    const int64_t there = platform_memory_size(memory.get(), /*sealed=*/true);
    if (size > DISPLAY_PASTEBOARD_MAX || there < 0 || uint64_t(there) < size)
        return false;
    auto contents = std::make_shared<PasteboardContents>();
    // The viewer may still write what it gave: each byte is looked at once.
    const MappedMemory mapping(memory.get(), size);
    if (size != 0 && !mapping)
        log(std::string("a viewer's pasteboard: ") + std::strerror(errno));
    else if (!pasteboard_archive_read(mapping.text(), contents.get()))
        log("a viewer's pasteboard of " + std::to_string(size) + " bytes is no archive");
    else if (!contents->empty() && m_port.link().ready() && !isKnown(*contents)) {
        forgetGuests();
        m_host = std::move(contents);
        m_host_text.reset();
        offer();
    }
    m_port.flush();
    return true;
}

// Whether the guest has or is offered the same. A viewer gives the same on each press and release
// of its shortcut: a new offer would end the paste that the first is for. What the guest copied
// comes back when a viewer's host can't tell whose it is: an offer would take it from the guest's
// program, with all the kinds that are not carried here.
bool GuestPasteboard::isKnown(const PasteboardContents &contents) const
{
    if (m_host && *m_host == contents)
        return true;
    if (!m_held || m_offered == 0 || m_held->size < contents.text.size() + contents.png.size())
        return false;
    const MappedMemory mapping(m_held->fd.get(), m_held->size);
    PasteboardContents guests;
    return mapping && pasteboard_archive_read(mapping.text(), &guests) && guests == contents;
}

void GuestPasteboard::offer()
{
    if (!m_host || !m_port.link().ready())
        return;
    m_port.link().grab((m_host->text.empty() ? 0 : 1u << AGENT_TEXT) |
                       (m_host->png.empty() ? 0 : 1u << AGENT_PNG));
}

void GuestPasteboard::agentAsked(uint32_t kind)
{
    AgentEncoder::Contents contents;
    if (m_host && kind == AGENT_TEXT)
        contents = hostText();
    else if (m_host && kind == AGENT_PNG)
        contents = AgentEncoder::Contents(m_host, &m_host->png);
    const bool there = contents && !contents->empty();
    m_port.link().answer(there ? AgentKind(kind) : AGENT_NONE, there ? contents : nullptr);
}

// Made once for all that ask for it, however often they do.
AgentEncoder::Contents GuestPasteboard::hostText()
{
    if (!m_host_text && m_port.link().linesEndWithCrLf())
        m_host_text = std::make_shared<const std::string>(pasteboard_with_crlf(m_host->text));
    else if (!m_host_text)
        m_host_text = AgentEncoder::Contents(m_host, &m_host->text);
    return m_host_text;
}
