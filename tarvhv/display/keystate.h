// The keys that a guest holds pressed on our behalf.
#pragma once

#include <cstdint>
#include <functional>
#include <set>

class KeyState
{
public:
    using Send = std::function<void(uint32_t number, bool down)>;

    // A press, also a repeated one, is always passed on; a release only of a key that was pressed.
    void press(uint32_t number, const Send &send);
    void release(uint32_t number, const Send &send);
    void releaseAll(const Send &send);
    bool holds(uint32_t number) const { return m_pressed.count(number) != 0; }

private:
    std::set<uint32_t> m_pressed;
};
