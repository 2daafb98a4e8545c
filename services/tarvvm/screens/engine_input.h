// The way of one screen's keys and pointer to QEMU.
#pragma once

#include "services/tarvvm/screens/desktop.h"
#include "services/tarvvm/screens/display_bus.h"
#include "services/tarvvm/screens/guest_input.h"
#include "services/tarvvm/screens/input_gate.h"

class EngineInput : public GuestInput
{
public:
    // All of them outlive this. `desktop` is null where `console` is the guest's only screen.
    EngineInput(DisplayBus &bus, const Console &console, Desktop *desktop, InputGate &gate)
        : m_bus(bus), m_console(console), m_desktop(desktop), m_gate(gate)
    {
    }

    void key(uint32_t number, bool down) override;
    void button(uint32_t number, bool down) override;
    void moveTo(int32_t x, int32_t y) override;
    void moveBy(int32_t dx, int32_t dy) override;

private:
    // Counts a message that goes out now; to be called when it is answered.
    DisplayBus::Done counted();

    DisplayBus &m_bus;
    const Console &m_console; // as it is at present
    Desktop *m_desktop;
    InputGate &m_gate;
};
