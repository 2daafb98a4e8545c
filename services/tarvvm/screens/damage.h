// The parts of a screen that changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct Rect
{
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;

    bool empty() const { return width <= 0 || height <= 0; }
    int64_t area() const { return empty() ? 0 : int64_t(width) * height; }
    bool contains(const Rect &other) const;
    Rect united(const Rect &other) const;
    Rect intersected(const Rect &other) const;
    bool operator==(const Rect &) const = default;
};

// Changed rectangles, merged as they come: a few exact ones, else the box around all.
class Damage
{
public:
    static constexpr size_t MAX = 8;

    void add(Rect rect);
    void add(const Damage &other);
    void clear() { m_rects.clear(); }
    bool empty() const { return m_rects.empty(); }
    const std::vector<Rect> &rects() const { return m_rects; }
    // Cuts off what lies outside a screen of this size.
    void clip(uint32_t width, uint32_t height);

private:
    std::vector<Rect> m_rects;
};
