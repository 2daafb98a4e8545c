#include "policy/path.h"

#include <charconv>

std::optional<PathStep> PathReader::fail()
{
    m_failed = true;
    m_rest = {};
    return std::nullopt;
}

std::optional<PathStep> PathReader::nextName()
{
    const std::string_view name = m_rest.substr(0, m_rest.find_first_of(".["));
    if (name.empty())
        return fail();
    m_rest.remove_prefix(name.size());
    return PathStep{.name = name, .index = 0, .by_index = false};
}

std::optional<PathStep> PathReader::nextIndex()
{
    const size_t close = m_rest.find(']');
    if (close == std::string_view::npos)
        return fail();
    PathStep step;
    step.by_index = true;
    const char *const end = m_rest.data() + close;
    const auto [stop, error] = std::from_chars(m_rest.data() + 1, end, step.index);
    if (error != std::errc() || stop != end)
        return fail();
    m_rest.remove_prefix(close + 1);
    return step;
}

std::optional<PathStep> PathReader::next()
{
    const bool start = m_start;
    m_start = false;
    if (m_rest.empty())
        return start ? fail() : std::nullopt;
    if (m_rest.front() == '[')
        return nextIndex();
    if (start)
        return nextName();
    if (m_rest.front() != '.')
        return fail();
    m_rest.remove_prefix(1);
    return nextName();
}
