// Moves the machine's whole state through a descriptor: out of QEMU, or into one that waits for it.
#pragma once

#include "services/failure.h"
#include "services/loop/event.h"
#include "services/tarvvm/machine/qmp.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

class Migration
{
public:
    using Done = std::function<void(const ServiceFailure &failure)>;

    // A QEMU that neither answers nor reads on for so long will not come to an end.
    static constexpr uint64_t SILENCE_MS = 60000;

    Migration(sd_event *loop, Qmp &qmp, uint64_t silence_ms = SILENCE_MS)
        : m_loop(loop), m_qmp(qmp), m_silence_ms(silence_ms)
    {
    }
    Migration(const Migration &) = delete;
    Migration &operator=(const Migration &) = delete;

    // Halts the machine and writes its state; the machine stays halted. The descriptor is
    // duplicated. One migration at a time.
    void save(int file, Done done);
    // Reads a state into a machine that was started to wait for one. A failure may come as QEMU's
    // end instead, and then `done` is told that it is gone. However long it takes, progress counts:
    // a large state on a slow disk is read to its end, a silent QEMU is given up.
    void load(int file, Done done);
    // Percent of the memory that was written; while one is being saved.
    std::optional<int64_t> progress() const { return m_progress; }
    // `done` is not called any more. QEMU is not told: it is about to be ended.
    void cancel();

private:
    void begin(const char *command, int file, Done done);
    void poll();
    void judge(const json *result, const std::string &error);
    void watchSilence();
    void finish(const std::string &error);

    sd_event *m_loop;
    Qmp &m_qmp;
    uint64_t m_silence_ms;
    EventSource m_poll, m_silence;
    UniqueFd m_file;      // while it is read: its offset is QEMU's
    off_t m_offset = 0;   // at the last look
    bool m_heard = false; // something was answered since
    Done m_done;
    std::optional<int64_t> m_progress;
};
