// Text tables for people.
#pragma once

#include <string>
#include <vector>

// Whether standard output takes colours: a terminal, and NO_COLOR is not set.
bool has_colours();

class Table
{
public:
    explicit Table(std::vector<std::string> head) : m_head(std::move(head)) {}
    void add_row(std::vector<std::string> row) { m_rows.push_back(std::move(row)); }
    // Columns as wide as their widest text; a bold head on a terminal. "" without rows.
    std::string text() const;

private:
    std::vector<std::string> m_head;
    std::vector<std::vector<std::string>> m_rows;
};

// The text in a colour (an SGR code) on a terminal, else as it is; colours don't count as width.
std::string coloured(const std::string &text, int code);
// The text without control characters, which a terminal could obey.
std::string printable(const std::string &text);
