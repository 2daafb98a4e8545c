// How much input may be on its way to QEMU.
#pragma once

#include "services/loop/event.h"
#include "services/loop/rate.h"

#include <deque>

// QEMU reads all that it is sent and queues it in its own memory, and each message costs its main
// loop time that the guest's processors wait for. So a viewer could make a VM slow and deaf with
// input alone: a single packet may ask for dozens of clicks. This gate is closed while QEMU owes
// answers, and past a rate that no hand reaches. Whoever has input then waits, in turns with
// others, and merges meanwhile.
//
// One gate serves a VM: all its screens, and both ways to QEMU.
class InputGate
{
public:
    // Messages that QEMU has not answered. Enough to hide the time of an answer; what waits in QEMU
    // when a guest stands still is done in a moment when it goes on.
    static constexpr unsigned UNANSWERED_MAX = 32;
    // A mouse moves a thousand times a second at most, and keys are few. At this rate input takes
    // some hundredths of the guest's speed under emulation.
    static constexpr double MESSAGES_PER_SECOND = 2000;
    static constexpr double MESSAGES_AT_ONCE = 64;

    class Waiter
    {
    public:
        virtual ~Waiter() = default;
        // Sends a little of what waits. Whether there is more.
        virtual bool sendNext() = 0;
    };

    explicit InputGate(sd_event *loop);
    InputGate(const InputGate &) = delete;
    InputGate &operator=(const InputGate &) = delete;

    // Calls the waiter as soon and as often as the gate is open, until it has no more or is
    // forgotten.
    void wait(Waiter *waiter);
    void forget(Waiter *waiter);

    // A message went out; QEMU has dealt with one, or is gone.
    void sent();
    void answered();

private:
    bool isOpen();
    void serve();

    sd_event *m_loop;
    std::deque<Waiter *> m_waiters;
    unsigned m_unanswered = 0;
    Rate m_rate{MESSAGES_PER_SECOND, MESSAGES_AT_ONCE};
    EventSource m_refill;
    bool m_serving = false;
};
