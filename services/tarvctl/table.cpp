#include "services/tarvctl/table.h"

#include <algorithm>
#include <cstdlib>

#include <unistd.h>

namespace {

// Characters on the screen: UTF-8 continuation bytes and colour sequences take no place.
size_t width(const std::string &text)
{
    size_t count = 0;
    for (size_t at = 0; at < text.size(); ++at)
        if (text[at] == '\033')
            at = std::min(text.find('m', at), text.size() - 1);
        else
            count += (static_cast<unsigned char>(text[at]) & 0xc0) != 0x80;
    return count;
}

} // namespace

bool has_colours()
{
    static const bool result = isatty(STDOUT_FILENO) && !getenv("NO_COLOR");
    return result;
}

std::string coloured(const std::string &text, int code)
{
    return has_colours() ? "\033[" + std::to_string(code) + "m" + text + "\033[0m" : text;
}

std::string printable(const std::string &text)
{
    std::string result = text;
    std::replace_if(
        result.begin(), result.end(), [](unsigned char byte) { return byte < 32 || byte == 127; },
        '?');
    return result;
}

std::string Table::text() const
{
    if (m_rows.empty())
        return "";
    std::vector<size_t> widths(m_head.size());
    auto measure = [&](const std::vector<std::string> &row) {
        for (size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], width(row[column]));
    };
    measure(m_head);
    for (const auto &row : m_rows)
        measure(row);
    auto line = [&](const std::vector<std::string> &row, bool head) {
        std::string result;
        for (size_t column = 0; column < row.size(); ++column) {
            result += head ? coloured(row[column], 1) : row[column];
            if (column + 1 < row.size())
                result.append(widths[column] - width(row[column]) + 2, ' ');
        }
        return result + "\n";
    };
    std::string result = line(m_head, true);
    for (const auto &row : m_rows)
        result += line(row, false);
    return result;
}
