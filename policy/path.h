// Dotted paths into trees: "hard_drives[0].file" is the member "hard_drives", its first child and
// that child's member "file".
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

// One step of a path: to the member of a name, or to the child at an index.
struct PathStep
{
    std::string_view name;
    size_t index = 0;
    bool by_index = false;
};

// Takes a path apart from its start. A malformed path (an empty name, an index that is not closed
// or not a number) ends it with failed().
class PathReader
{
public:
    explicit PathReader(std::string_view path) : m_rest(path) {}

    std::optional<PathStep> next();
    bool failed() const { return m_failed; }

private:
    std::optional<PathStep> nextName();
    std::optional<PathStep> nextIndex();
    std::optional<PathStep> fail();

    std::string_view m_rest;
    bool m_start = true;
    bool m_failed = false;
};

// The node that a path leads to from `node`, or null. `member(node, name)` and `child(node, index)`
// answer a node or null.
template <typename Node, typename Member, typename Child>
Node *path_walk(Node *node, std::string_view path, Member member, Child child)
{
    PathReader reader(path);
    while (node) {
        const std::optional<PathStep> step = reader.next();
        if (!step)
            return reader.failed() ? nullptr : node;
        node = step->by_index ? child(node, step->index) : member(node, step->name);
    }
    return nullptr;
}
