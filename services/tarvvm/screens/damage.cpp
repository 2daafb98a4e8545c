#include "services/tarvvm/screens/damage.h"

#include <algorithm>

bool Rect::contains(const Rect &other) const
{
    return other.x >= x && other.y >= y && other.x + other.width <= x + width &&
           other.y + other.height <= y + height;
}

Rect Rect::united(const Rect &other) const
{
    const int32_t left = std::min(x, other.x);
    const int32_t top = std::min(y, other.y);
    return {left, top, std::max(x + width, other.x + other.width) - left,
            std::max(y + height, other.y + other.height) - top};
}

Rect Rect::intersected(const Rect &other) const
{
    const int32_t left = std::max(x, other.x);
    const int32_t top = std::max(y, other.y);
    return {left, top, std::min(x + width, other.x + other.width) - left,
            std::min(y + height, other.y + other.height) - top};
}

void Damage::add(Rect rect)
{
    if (rect.empty())
        return;
    // Two rectangles become one where the box around them holds nothing else. The grown one may
    // fit others, so it starts anew.
    for (auto it = m_rects.begin(); it != m_rects.end();) {
        const Rect box = it->united(rect);
        if (box.area() >
            it->area() + rect.area() - std::max<int64_t>(it->intersected(rect).area(), 0)) {
            ++it;
            continue;
        }
        rect = box;
        m_rects.erase(it);
        it = m_rects.begin();
    }
    m_rects.push_back(rect);
    if (m_rects.size() <= MAX)
        return;
    for (const Rect &other : m_rects)
        rect = rect.united(other);
    m_rects.assign(1, rect);
}

void Damage::add(const Damage &other)
{
    for (const Rect &rect : other.m_rects)
        add(rect);
}

void Damage::clip(uint32_t width, uint32_t height)
{
    const Rect screen{0, 0, int32_t(width), int32_t(height)};
    for (Rect &rect : m_rects)
        rect = rect.intersected(screen);
    std::erase_if(m_rects, [](const Rect &rect) { return rect.empty(); });
}
