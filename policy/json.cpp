#include "policy/json.h"

#include "policy/guard.h"
#include "policy/path.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

struct json
{
    explicit json(int of_kind) : kind(of_kind) {}

    int kind;
    bool truth = false;
    double number = 0;
    std::string text;
    std::string name;
    json *parent = nullptr;
    size_t index = 0; // among the parent's children
    std::vector<std::unique_ptr<json>> children;
};

namespace {
constexpr size_t max_levels = 64;

using Owner = std::unique_ptr<json>;

bool is_container(const json *node)
{
    return node && (node->kind == JSON_ARRAY || node->kind == JSON_OBJECT);
}

json *adopt(json *tree, Owner node)
{
    node->parent = tree;
    node->index = tree->children.size();
    tree->children.push_back(std::move(node));
    return tree->children.back().get();
}

// Builds the tree from the parser's events. The parser keeps no stack of its own calls, so that the
// levels are counted here alone. The names of the events are the parser's.
class Builder : public nlohmann::json_sax<nlohmann::json>
{
public:
    Owner take() { return std::move(m_root); }
    bool tooDeep() const { return m_too_deep; }

    bool null() override { return add(JSON_NULL) != nullptr; }
    bool boolean(bool value) override
    {
        add(JSON_BOOL)->truth = value;
        return true;
    }
    bool number_integer(number_integer_t value) override { return addNumber(double(value)); }
    bool number_unsigned(number_unsigned_t value) override { return addNumber(double(value)); }
    bool number_float(number_float_t value, const string_t &) override { return addNumber(value); }
    bool string(string_t &value) override
    {
        add(JSON_STRING)->text = std::move(value);
        return true;
    }
    bool binary(binary_t &) override { return false; }
    bool start_object(size_t) override { return open(JSON_OBJECT); }
    bool start_array(size_t) override { return open(JSON_ARRAY); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t &value) override
    {
        m_key = std::move(value);
        return true;
    }
    bool parse_error(size_t, const std::string &, const nlohmann::json::exception &) override
    {
        return false;
    }

private:
    json *add(int kind)
    {
        Owner node = std::make_unique<json>(kind);
        if (m_open.empty()) {
            m_root = std::move(node);
            return m_root.get();
        }
        if (m_open.back()->kind == JSON_OBJECT)
            node->name = std::move(m_key);
        return adopt(m_open.back(), std::move(node));
    }
    bool addNumber(double value)
    {
        add(JSON_NUMBER)->number = value;
        return true;
    }
    bool open(int kind)
    {
        m_too_deep = m_open.size() == max_levels;
        if (!m_too_deep)
            m_open.push_back(add(kind));
        return !m_too_deep;
    }
    bool close()
    {
        m_open.pop_back();
        return true;
    }

    Owner m_root;
    std::vector<json *> m_open;
    std::string m_key;
    bool m_too_deep = false;
};

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
    for (const Owner &child : node->children) {
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

json *new_node(int kind)
{
    return policy_guard<json *>(nullptr, [&] { return new json(kind); });
}

json *member(const json *node, std::string_view name)
{
    if (!node || node->kind != JSON_OBJECT)
        return nullptr;
    for (const Owner &child : node->children)
        if (child->name == name)
            return child.get();
    return nullptr;
}

// Whether `tree` is `node` or stands above it.
bool holds(const json *tree, const json *node)
{
    while (node && node != tree)
        node = node->parent;
    return node != nullptr;
}

json *child_at(const json *node, size_t index)
{
    return index < node->children.size() ? node->children[index].get() : nullptr;
}
} // namespace

struct json *json_parse(const char *text, size_t length)
{
    if (!text) {
        errno = EINVAL;
        return nullptr;
    }
    return policy_guard<json *>(nullptr, [&]() -> json * {
        Builder builder;
        if (nlohmann::json::sax_parse(text, text + length, &builder))
            return builder.take().release();
        errno = builder.tooDeep() ? E2BIG : EINVAL;
        return nullptr;
    });
}

std::string json_print(const struct json *tree)
{
    return policy_guard(std::string(), [&] {
        std::string out;
        print(out, tree);
        return out;
    });
}

void json_delete(struct json *tree)
{
    delete tree;
}

struct json *json_mkobject()
{
    return new_node(JSON_OBJECT);
}

struct json *json_mkarray()
{
    return new_node(JSON_ARRAY);
}

struct json *json_mkstr(const char *text)
{
    return policy_guard<json *>(nullptr, [&] {
        Owner node = std::make_unique<json>(JSON_STRING);
        node->text = text ? text : "";
        return node.release();
    });
}

struct json *json_mknumber(double number)
{
    json *const node = new_node(JSON_NUMBER);
    if (node)
        node->number = number;
    return node;
}

struct json *json_mkbool(bool value)
{
    json *const node = new_node(JSON_BOOL);
    if (node)
        node->truth = value;
    return node;
}

int json_append(struct json *tree, const char *name, struct json *value)
{
    if (!value || value->parent || holds(value, tree)) {
        errno = EINVAL;
        return -1;
    }
    Owner owner(value);
    if (!is_container(tree) || (tree->kind == JSON_OBJECT && !name)) {
        errno = EINVAL;
        return -1;
    }
    return policy_guard(-1, [&] {
        if (tree->kind == JSON_OBJECT)
            owner->name = name;
        adopt(tree, std::move(owner));
        return 0;
    });
}

int json_append_str(struct json *tree, const char *name, const char *text)
{
    json *const value = json_mkstr(text);
    return value ? json_append(tree, name, value) : -1;
}

int json_append_int64(struct json *tree, const char *name, int64_t number)
{
    json *const value = json_mknumber(static_cast<double>(number));
    return value ? json_append(tree, name, value) : -1;
}

int json_append_bool(struct json *tree, const char *name, bool value)
{
    json *const node = json_mkbool(value);
    return node ? json_append(tree, name, node) : -1;
}

int json_kind(const struct json *node)
{
    return node ? node->kind : JSON_NULL;
}

const char *json_name(const struct json *node)
{
    if (!node || !node->parent || node->parent->kind != JSON_OBJECT)
        return nullptr;
    return node->name.c_str();
}

const char *json_str(const struct json *node)
{
    return json_kind(node) == JSON_STRING ? node->text.c_str() : "";
}

double json_number(const struct json *node)
{
    return json_kind(node) == JSON_NUMBER ? node->number : 0;
}

bool json_bool(const struct json *node)
{
    return json_kind(node) == JSON_BOOL && node->truth;
}

struct json *json_first_child(const struct json *node)
{
    return is_container(node) ? child_at(node, 0) : nullptr;
}

struct json *json_next(const struct json *node)
{
    return node && node->parent ? child_at(node->parent, node->index + 1) : nullptr;
}

struct json *json_find_member(const struct json *tree, const char *name)
{
    return name ? member(tree, name) : nullptr;
}

struct json *json_find(const struct json *tree, const char *path)
{
    if (!path)
        return nullptr;
    return path_walk(const_cast<json *>(tree), path, member, child_at);
}

const char *json_find_str(const struct json *tree, const char *path, const char *missing)
{
    const json *const node = json_find(tree, path);
    return json_kind(node) == JSON_STRING ? node->text.c_str() : missing;
}

int64_t json_find_int64(const struct json *tree, const char *path, int64_t missing)
{
    const json *const node = json_find(tree, path);
    if (json_kind(node) != JSON_NUMBER || std::isnan(node->number))
        return missing;
    using Limits = std::numeric_limits<int64_t>;
    if (node->number >= static_cast<double>(Limits::max()))
        return Limits::max();
    if (node->number <= static_cast<double>(Limits::min()))
        return Limits::min();
    return static_cast<int64_t>(node->number);
}

bool json_find_bool(const struct json *tree, const char *path, bool missing)
{
    const json *const node = json_find(tree, path);
    return json_kind(node) == JSON_BOOL ? node->truth : missing;
}
