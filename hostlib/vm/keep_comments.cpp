#include "hostlib/vm/keep_comments.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace {

using Lines = std::vector<std::string_view>;

// The table of the comparison below has this many entries at most.
constexpr size_t TABLE_MAX = size_t(4) << 20;

Lines lines_of(std::string_view text)
{
    Lines lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return lines;
}

// Whether a line of the file is nothing to the reader, unless it stands in a text of several lines.
bool is_remark(std::string_view line)
{
    const size_t first = line.find_first_not_of(" \t\r\n");
    return first == line.npos || line[first] == '#';
}

// A line of the file and the remarks above it.
struct Passage
{
    std::string remarks;
    std::string_view line;
};

struct Passages
{
    std::vector<Passage> lines;
    std::string last; // the remarks below the last line
};

Passages passages_of(std::string_view text)
{
    Passages result;
    std::string remarks;
    for (const std::string_view line : lines_of(text)) {
        if (is_remark(line)) {
            remarks += line;
            continue;
        }
        result.lines.push_back({std::move(remarks), line});
        remarks.clear();
    }
    result.last = std::move(remarks);
    return result;
}

// For each line of `after` the number of the same line of `before`, or -1: the longest common
// subsequence, which leaves the fewest lines to be written anew.
std::vector<int> matches(const Lines &before, const Lines &after)
{
    const size_t columns = after.size() + 1;
    std::vector<unsigned> length((before.size() + 1) * columns);
    for (size_t i = before.size(); i-- > 0;)
        for (size_t j = after.size(); j-- > 0;)
            length[i * columns + j] =
                before[i] == after[j]
                    ? length[(i + 1) * columns + j + 1] + 1
                    : std::max(length[(i + 1) * columns + j], length[i * columns + j + 1]);
    std::vector<int> result(after.size(), -1);
    for (size_t i = 0, j = 0; i < before.size() && j < after.size();)
        if (before[i] == after[j])
            result[j++] = static_cast<int>(i++);
        else if (length[(i + 1) * columns + j] >= length[i * columns + j + 1])
            ++i;
        else
            ++j;
    return result;
}

enum class Layout
{
    of_the_file,
    of_the_writer
};

// The lines of `after` in their order; before each that stands in the file come the remarks above
// it, and above the lines that went from there.
std::string merge(const Passages &file, const Lines &after, const std::vector<int> &same,
                  Layout layout)
{
    std::string text;
    size_t next = 0; // passage whose remarks have not been written
    for (size_t j = 0; j < after.size(); ++j) {
        const bool known = same[j] >= 0;
        // A line that is new takes the place of the one that went, if one did.
        const bool replaces = !known && next < file.lines.size() &&
                              std::find(same.begin(), same.end(), int(next)) == same.end();
        const size_t end = known ? size_t(same[j]) + 1 : next + (replaces ? 1 : 0);
        for (; next < end; ++next)
            text += file.lines[next].remarks;
        text +=
            known && layout == Layout::of_the_file ? file.lines[size_t(same[j])].line : after[j];
        if (text.back() != '\n')
            text += '\n';
    }
    for (; next < file.lines.size(); ++next)
        text += file.lines[next].remarks;
    return text + file.last;
}

} // namespace

std::string keep_comments(const ConfigTexts &texts,
                          const std::function<bool(const std::string &)> &means)
{
    const Passages file = passages_of(texts.file);
    Lines before = lines_of(texts.before), after = lines_of(texts.after);
    // The writer does know the comments above the first key: others there were meant to be others.
    const auto heads = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
    if (std::all_of(before.begin(), heads.first, is_remark) &&
        ((heads.first != before.end() && is_remark(*heads.first)) ||
         (heads.second != after.end() && is_remark(*heads.second))))
        return texts.after;
    std::erase_if(before, is_remark);
    std::erase_if(after, is_remark);
    // Where a value of the file spreads over other lines than the writer's, or a text of several
    // lines has one that looks like a remark, the lines can't be told from each other.
    if (file.lines.size() != before.size() || before.size() * after.size() > TABLE_MAX)
        return texts.after;
    const std::vector<int> same = matches(before, after);
    for (const Layout layout : {Layout::of_the_file, Layout::of_the_writer})
        if (std::string text = merge(file, after, same, layout); means(text))
            return text;
    return texts.after;
}
