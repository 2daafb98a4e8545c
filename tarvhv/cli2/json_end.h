// Finds where a JSON value ends by its own syntax, however its bytes arrive.
#pragma once

#include <cstddef>

// Which values a message may consist of.
enum class JsonStart
{
    object,
    object_or_text
};

// Follows one value byte by byte. It looks at strings and brackets only; whether the rest is JSON
// is for the parser to say once the end is known.
class JsonEnd
{
public:
    enum class State
    {
        before, // white space only so far
        inside,
        done,
        garbage, // does not begin like the value asked for
        too_deep // more than CLI2_DEPTH_MAX levels
    };

    explicit JsonEnd(JsonStart start = JsonStart::object) : m_start(start) {}
    // Takes bytes up to the end of the value; the number taken.
    size_t feed(const char *bytes, size_t length);
    State state() const { return m_state; }

private:
    void begin(char byte);
    void follow(char byte);

    JsonStart m_start;
    State m_state = State::before;
    unsigned m_depth = 0;
    bool m_text = false;   // between quotes
    bool m_escape = false; // after a backslash between quotes
};
