// What one viewer presses and moves, and what it holds down.
#pragma once

#include "services/tarvvm/screens/guest_input.h"
#include "services/tarvvm/screens/input_gate.h"
#include "tarvhv/cli2/display_protocol.h"

#include <bitset>
#include <cstdint>
#include <deque>
#include <functional>

// Several viewers may press keys of one guest. Of each it is known what it holds, so that nothing
// stays pressed when it goes, however it goes.
//
// What the gate has no room for waits here: motions and steps join, keys and clicks keep their
// order and none is left out. When too many wait, the viewer is to be read no further, so that it
// merges on its own side.
class ViewerInput : private InputGate::Waiter
{
public:
    static constexpr uint32_t KEY_MAX = 0xff;
    static constexpr uint32_t BUTTON_COUNT = 7;
    static constexpr size_t WAITING_MAX = 64;
    static constexpr int32_t WHEEL_STEPS_MAX =
        32; // that wait: a wheel that was let go of stops soon

    // `roomCame` is told when it is not full any more.
    ViewerInput(GuestInput &guest, InputGate &gate, std::function<void()> roomCame);
    ~ViewerInput() override;
    ViewerInput(const ViewerInput &) = delete;
    ViewerInput &operator=(const ViewerInput &) = delete;

    static bool takes(uint32_t packet_type);
    // Takes a packet of such a type. False when it breaks the rules.
    bool handle(const display_packet &packet);
    bool full() const { return m_waiting.size() >= WAITING_MAX; }
    // Releases what it holds, whatever the gate says, and forgets what waits.
    void releaseAll();

private:
    bool sendNext() override;
    void sendKey(uint32_t number, bool down);
    void setButtons(uint32_t wanted);
    bool turnWheel(int32_t *steps);

    GuestInput &m_guest;
    InputGate &m_gate;
    std::function<void()> m_room_came;
    std::deque<display_packet> m_waiting;
    std::bitset<KEY_MAX + 1> m_keys; // that the guest was told are down
    uint32_t m_buttons = 0;          // bit N: button N is
};
