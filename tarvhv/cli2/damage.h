// The parts of a screen that changed and that the next one on the way to the viewer's eyes has not
// been told of.
//
// A change passes through three of these, one at each place where its maker may not wait for its
// taker: from the thread that receives pixels to the supervisor's loop, from there to each viewer
// at that viewer's own pace, and in the viewer's process from its channel to its next paint. Pixels
// are not queued anywhere: whoever reads a rectangle reads what is in the frame buffer by then, so
// that merging loses nothing, and a taker that is slow costs a few rectangles of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Pixels of a guest's screen.
struct ScreenRect
{
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;
    bool operator==(const ScreenRect &) const = default;
};

// The rule, which is the same at each place: a rectangle is cut off at the edges of the picture, as
// the sizes of a picture and its damage may come from a peer; then it joins those whose common box
// with it holds nothing else; and where more than MAX are left, the box around all takes their
// place.
class Damage
{
public:
    // What fits one turn of a display channel. More exact rectangles cost more to send and to paint
    // than the pixels between them.
    static constexpr size_t MAX = 8;

    Damage() = default; // of a picture without pixels
    Damage(uint32_t width, uint32_t height) { reset(width, height); }

    // Another picture takes the place of the present one: nothing of it is damaged yet.
    void reset(uint32_t width, uint32_t height);
    void add(const ScreenRect &rect);
    void add(const Damage &other);
    void addAll() { add(m_picture); }

    bool empty() const { return m_rects.empty(); }
    // Whether the whole picture is damaged.
    bool all() const { return m_rects.size() == 1 && m_rects.front() == m_picture; }
    const std::vector<ScreenRect> &rects() const { return m_rects; }
    // The first rectangle has been passed on.
    void dropFirst() { m_rects.erase(m_rects.begin()); }
    // All of it; there is none then.
    Damage take();

private:
    ScreenRect m_picture;
    std::vector<ScreenRect> m_rects; // within the picture
};
