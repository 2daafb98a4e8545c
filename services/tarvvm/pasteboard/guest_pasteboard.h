// The pasteboard that a guest shares with the viewers of its screens. The guest's contents are
// fetched when a viewer asks, and asked for once a change; a viewer's contents are offered to the
// guest, and given when the guest asks. No contents are logged.
//
//   guest grabs    -> offered; a viewer asks -> fetching -> held, or found to be nothing
//   viewer sends   -> the guest is offered the viewer's; what the guest had is void
//   agent restarts -> what the guest had is void, the viewer's is offered anew
#pragma once

#include "services/tarvvm/pasteboard/agent_port.h"
#include "services/tarvvm/pasteboard/pasteboard_archive.h"

#include "platform/memory.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// Somebody who may see the guest's pasteboard and give it another: a viewer.
class PasteboardReader
{
public:
    virtual ~PasteboardReader() = default;
    virtual void pasteboardCapsChanged(uint32_t caps) = 0; // DISPLAY_CAP_*
    virtual void pasteboardArrived(std::shared_ptr<const SealedMemory> archive) = 0;

private:
    friend class GuestPasteboard;
    uint64_t m_seen = 0;   // the guest's contents that it has, or that were there before it
    bool m_asking = false; // waits for the contents that are being fetched
    std::chrono::steady_clock::time_point m_eager_until; // it takes what the guest copies by then
};

class GuestPasteboard : private AgentListener
{
public:
    using Log = AgentPort::Log;

    // `socket` and `unread` are those of an AgentPort.
    GuestPasteboard(sd_event *loop, UniqueFd socket, UniqueFd unread, Log log);

    // A reader must be removed before it goes.
    void add(PasteboardReader *reader);
    void remove(PasteboardReader *reader);

    uint32_t caps() const;
    void setPortOpen(bool open) { m_port.setOpen(open); }
    // A reader asks for the guest's contents: when polling, only for what it has not seen; else
    // for what is there, and for what comes a little later.
    void ask(PasteboardReader *reader, bool polling);
    // A reader's contents for the guest, an archive of `size` bytes. False when the memory is not
    // what it is said to be; an archive that can't be used is logged.
    bool give(UniqueFd memory, size_t size);

private:
    enum class Fetch
    {
        none,
        running,
        done // m_held, or null: there was nothing
    };

    void agentCame(bool anew) override;
    void agentLeft() override;
    void agentGrabbed(uint32_t kinds) override;
    void agentReleased() override;
    void agentAsked(uint32_t kind) override;
    void agentAnswered(uint32_t kind, std::string contents, uint32_t size) override;

    void tellCaps();
    void forgetGuests();
    void startFetch();
    void fetchNext();
    void finishFetch();
    void hold(const std::string &archive);
    void watchFetch();
    void deliver();
    bool isKnown(const PasteboardContents &contents) const;
    void offer();
    AgentEncoder::Contents hostText();
    void log(const std::string &line);

    sd_event *m_loop;
    Log m_log;
    unsigned m_lines_left;
    std::vector<PasteboardReader *> m_readers;
    uint32_t m_told_caps = 0;

    uint64_t m_generation = 1; // of the guest's contents
    uint32_t m_offered = 0;    // kinds that the guest has, bits as of agentGrabbed
    uint32_t m_wanted = 0;     // of them, those still to be fetched
    AgentKind m_fetching = AGENT_NONE;
    unsigned m_owed = 0; // answers that are no longer of use
    Fetch m_fetch = Fetch::none;
    PasteboardContents m_fetched;
    std::shared_ptr<const SealedMemory> m_held;
    EventSource m_patience;
    uint64_t m_received = 0; // bytes of the port when the patience began

    std::shared_ptr<const PasteboardContents> m_host; // what a viewer gave, while it counts
    AgentEncoder::Contents m_host_text;               // its text as the guest's lines end

    AgentPort m_port; // calls back
};
