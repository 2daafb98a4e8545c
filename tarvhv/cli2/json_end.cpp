#include "tarvhv/cli2/json_end.h"

#include "tarvhv/cli2.h"

size_t JsonEnd::feed(const char *bytes, size_t length)
{
    size_t taken = 0;
    while (taken < length && (m_state == State::before || m_state == State::inside)) {
        const char byte = bytes[taken++];
        if (m_state == State::before)
            begin(byte);
        else
            follow(byte);
    }
    return taken;
}

void JsonEnd::begin(char byte)
{
    if (byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n')
        return;
    m_depth = byte == '{' ? 1 : 0;
    m_text = byte == '"' && m_start == JsonStart::object_or_text;
    m_state = m_depth > 0 || m_text ? State::inside : State::garbage;
}

void JsonEnd::follow(char byte)
{
    if (m_text) {
        if (m_escape)
            m_escape = false;
        else if (byte == '\\')
            m_escape = true;
        else if (byte == '"')
            m_text = false;
    } else if (byte == '"') {
        m_text = true;
    } else if (byte == '{' || byte == '[') {
        if (++m_depth > CLI2_DEPTH_MAX)
            m_state = State::too_deep;
    } else if (byte == '}' || byte == ']') {
        --m_depth;
    }
    if (m_state == State::inside && m_depth == 0 && !m_text)
        m_state = State::done;
}
