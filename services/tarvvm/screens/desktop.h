// The pointer of a guest that has several screens. Its tablet spans all of them, so a place on one
// is a place on the whole: the screens side by side, left to right, as guests lay them out.
#pragma once

#include "services/tarvvm/machine/qmp.h"
#include "services/tarvvm/screens/input_gate.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// Pixels; 0 x 0 while the guest does not use the screen.
struct DesktopScreen
{
    uint32_t width = 0;
    uint32_t height = 0;
};

// A place on the tablet, 0 to DESKTOP_FAR in both directions.
struct DesktopPlace
{
    int32_t x = 0;
    int32_t y = 0;
    bool operator==(const DesktopPlace &) const = default;
};
inline constexpr int32_t DESKTOP_FAR = 0x7fff;

// Where a pixel of a screen lies.
DesktopPlace desktop_place(const std::vector<DesktopScreen> &screens, size_t screen, int32_t x,
                           int32_t y);

// Sends positions and buttons through QEMU's monitor: on its display connection a position is one
// of a single screen. Both go the same way, so that a click is where the pointer went before.
class Desktop
{
public:
    // Both outlive this.
    Desktop(Qmp &qmp, InputGate &gate, size_t screens)
        : m_qmp(qmp), m_gate(gate), m_screens(screens)
    {
    }

    void setSize(size_t screen, uint32_t width, uint32_t height);
    void moveTo(size_t screen, int32_t x, int32_t y);
    // `number` as on the display connection: 0 left, 1 middle …
    void button(uint32_t number, bool down);

private:
    void send(const char *type, JsonTree data, JsonTree more = nullptr);

    Qmp &m_qmp;
    InputGate &m_gate;
    std::vector<DesktopScreen> m_screens;
};
