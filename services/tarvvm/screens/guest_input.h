// Keys and pointer of one screen, as its guest gets them.
#pragma once

#include <cstdint>

class GuestInput
{
public:
    virtual ~GuestInput() = default;
    // XT set 1 numbers with 0x80 for the E0 keys.
    virtual void key(uint32_t number, bool down) = 0;
    // 0 left, 1 middle, 2 right, 3 wheel up, 4 wheel down, 5 back, 6 forward.
    virtual void button(uint32_t number, bool down) = 0;
    // Pixels of the screen. Dropped while the guest takes the other kind of position.
    virtual void moveTo(int32_t x, int32_t y) = 0;
    virtual void moveBy(int32_t dx, int32_t dy) = 0;
};
