#include "policy/guard.h"
#include "policy/json_node.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace {
void print_text(std::string &out, const std::string &text)
{
    using nlohmann::json;
    out += json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

void print_number(std::string &out, double number)
{
    // A whole number prints as one: readers of identifiers and sizes want no ".0".
    constexpr double limit = 9223372036854775808.0;
    if (std::trunc(number) == number && number >= -limit && number < limit)
        out += std::to_string(static_cast<int64_t>(number));
    else
        out += nlohmann::json(number).dump();
}

void print(std::string &out, const json *node);

void print_children(std::string &out, const json *node)
{
    const bool object = node->kind == JSON_OBJECT;
    out += object ? '{' : '[';
    for (const json::Owner &child : node->children) {
        if (child->index)
            out += ',';
        if (object) {
            print_text(out, child->name);
            out += ':';
        }
        print(out, child.get());
    }
    out += object ? '}' : ']';
}

void print(std::string &out, const json *node)
{
    switch (json_kind(node)) {
    case JSON_BOOL:
        out += node->truth ? "true" : "false";
        break;
    case JSON_STRING:
        print_text(out, node->text);
        break;
    case JSON_NUMBER:
        print_number(out, node->number);
        break;
    case JSON_ARRAY:
    case JSON_OBJECT:
        print_children(out, node);
        break;
    default:
        out += "null";
    }
}
} // namespace

std::string json_print(const struct json *tree)
{
    return policy_guard(std::string(), [&] {
        std::string out;
        print(out, tree);
        return out;
    });
}
