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

    Migration(sd_event *loop, Qmp &qmp) : m_loop(loop), m_qmp(qmp) {}
    Migration(const Migration &) = delete;
    Migration &operator=(const Migration &) = delete;

    // Halts the machine and writes its state; the machine stays halted. The descriptor is
    // duplicated. One migration at a time.
    void save(int file, Done done);
    // Reads a state into a machine that was started to wait for one. A failure may come as QEMU's
    // end instead, and then `done` is told that it is gone.
    void load(int file, Done done);
    // Percent of the memory that was written; while one is being saved.
    std::optional<int64_t> progress() const { return m_progress; }
    // `done` is not called any more. QEMU is not told: it is about to be ended.
    void cancel();

private:
    void begin(const char *command, int file, Done done);
    void poll();
    void judge(const json *result, const std::string &error);
    void finish(const std::string &error);

    sd_event *m_loop;
    Qmp &m_qmp;
    EventSource m_poll;
    Done m_done;
    std::optional<int64_t> m_progress;
};
