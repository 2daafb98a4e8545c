#include "tarvhv/cli2/damage.h"

#include <algorithm>
#include <utility>

namespace {

bool is_empty(const ScreenRect &rect)
{
    return rect.width <= 0 || rect.height <= 0;
}

int64_t area(const ScreenRect &rect)
{
    return is_empty(rect) ? 0 : int64_t{rect.width} * rect.height;
}

// The part of a span that lies between 0 and `limit`. A peer's numbers may add up to more than 32
// bits hold.
std::pair<int32_t, int32_t> clip(int32_t start, int32_t length, int32_t limit)
{
    const int64_t from = std::clamp<int64_t>(start, 0, limit);
    const int64_t to = std::clamp<int64_t>(int64_t{start} + length, from, limit);
    return {int32_t(from), int32_t(to - from)};
}

ScreenRect box_around(const ScreenRect &a, const ScreenRect &b)
{
    const int32_t left = std::min(a.x, b.x);
    const int32_t top = std::min(a.y, b.y);
    return {left, top, std::max(a.x + a.width, b.x + b.width) - left,
            std::max(a.y + a.height, b.y + b.height) - top};
}

ScreenRect overlap(const ScreenRect &a, const ScreenRect &b)
{
    const int32_t left = std::max(a.x, b.x);
    const int32_t top = std::max(a.y, b.y);
    return {left, top, std::min(a.x + a.width, b.x + b.width) - left,
            std::min(a.y + a.height, b.y + b.height) - top};
}

bool fill_their_box(const ScreenRect &a, const ScreenRect &b)
{
    return area(box_around(a, b)) <= area(a) + area(b) - area(overlap(a, b));
}

} // namespace

void Damage::reset(uint32_t width, uint32_t height)
{
    m_picture = {0, 0, int32_t(width), int32_t(height)};
    m_rects.clear();
}

void Damage::add(const ScreenRect &added)
{
    const auto [x, width] = clip(added.x, added.width, m_picture.width);
    const auto [y, height] = clip(added.y, added.height, m_picture.height);
    ScreenRect rect{x, y, width, height};
    if (is_empty(rect))
        return;
    for (auto it = m_rects.begin(); it != m_rects.end();) {
        if (!fill_their_box(*it, rect)) {
            ++it;
            continue;
        }
        // The grown rectangle may fit others that it passed by: it starts anew.
        rect = box_around(*it, rect);
        m_rects.erase(it);
        it = m_rects.begin();
    }
    m_rects.push_back(rect);
    if (m_rects.size() <= MAX)
        return;
    for (const ScreenRect &each : m_rects)
        rect = box_around(rect, each);
    m_rects.assign(1, rect);
}

void Damage::add(const Damage &other)
{
    for (const ScreenRect &rect : other.m_rects)
        add(rect);
}

Damage Damage::take()
{
    Damage taken = *this;
    m_rects.clear();
    return taken;
}
