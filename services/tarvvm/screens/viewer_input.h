// What one viewer presses and moves, and what it holds down.
#pragma once

#include "services/tarvvm/screens/guest_input.h"
#include "tarvhv/cli2/display_protocol.h"

#include <bitset>
#include <cstdint>

// Several viewers may press keys of one guest. Each is known what it holds, so that nothing stays
// pressed when it goes, however it goes.
class ViewerInput
{
public:
    static constexpr uint32_t KEY_MAX = 0xff;
    static constexpr uint32_t BUTTON_COUNT = 7;

    explicit ViewerInput(GuestInput &guest) : m_guest(guest) {}

    static bool takes(uint32_t packet_type);
    // Passes a packet on, of a type that it takes. False when it breaks the rules.
    bool handle(const display_packet &packet);
    void releaseAll();

private:
    bool handleKey(int32_t number, bool down);
    void setButtons(uint32_t wanted);
    void turnWheel(int32_t vertical);

    GuestInput &m_guest;
    std::bitset<KEY_MAX + 1> m_keys; // held down
    uint32_t m_buttons = 0;          // bit N: button N is held down
};
