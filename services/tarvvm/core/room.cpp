#include "services/tarvvm/core/room.h"

#include <string_view>

namespace {

constexpr uint64_t RETRY_MS = 5000;
// A guest that goes on for so long without another error has found room.
constexpr uint64_t SETTLED_MS = 1000;

} // namespace

void RoomWait::onDiskError(const json *data)
{
    const bool paused = std::string_view(json_find_str(data, "action", "")) == "stop";
    std::string trouble = std::string("disk ") + json_find_str(data, "device", "") + ": " +
                          json_find_str(data, "reason", "input or output error");
    if (paused)
        trouble += ": the guest waits";
    if (trouble != m_run.reason()) // told once, however often it is tried
        m_log.line(trouble);
    if (!paused || !m_run.step(RunEvent::roomMissing, trouble))
        return;
    m_settled.reset();
    m_retry = event_timer(m_loop, RETRY_MS, [this] { retry(); });
}

// The guest can't be asked whether there is room. It is let run, and pauses again if there is none.
void RoomWait::retry()
{
    if (m_run.state() != RunState::waitingForRoom)
        return;
    m_qmp.execute("cont");
    m_settled = event_timer(m_loop, SETTLED_MS, [this] {
        if (m_run.step(RunEvent::roomFound))
            m_log.line("there is room on the disk again: the guest goes on");
    });
}
