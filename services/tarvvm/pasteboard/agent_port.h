// The guest's agent port: the socket to QEMU's character device and what goes wrong on it. A guest
// that does not read, or that sends garbage, costs the loop nothing but a bounded turn.
#pragma once

#include "services/loop/event.h"
#include "services/tarvvm/pasteboard/agent_link.h"

#include "platform/unique_fd.h"

#include <cstdint>
#include <functional>
#include <string>

class AgentPort
{
public:
    using Log = std::function<void(const std::string &)>;

    // `socket` does not block. `unread`, which may be none, is QEMU's end of it: what an agent left
    // there when it went is taken back, so that the next one does not begin in the middle.
    AgentPort(sd_event *loop, UniqueFd socket, UniqueFd unread, AgentListener &listener, Log log);
    AgentPort(const AgentPort &) = delete;
    AgentPort &operator=(const AgentPort &) = delete;

    // To be followed by a flush, once all is said.
    AgentLink &link() { return m_link; }
    void flush();
    // A program of the guest opened the port or closed it, as far as QEMU says so: it merges what
    // happens within a second.
    void setOpen(bool open);
    // Bytes that came so far.
    uint64_t received() const { return m_received; }

private:
    void onReady(uint32_t events);
    void receive();
    void giveUp(const char *why);
    void startAnew();
    void hangUp();

    sd_event *m_loop;
    UniqueFd m_socket, m_unread;
    Log m_log;
    AgentLink m_link;
    EventSource m_source, m_retry;
    std::string m_out; // what is left of the chunk under way
    uint64_t m_received = 0;
    bool m_deaf = false; // the stream makes no sense: it is read and dropped
};
