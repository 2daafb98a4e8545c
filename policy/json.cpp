#include "policy/json.h"

#include "policy/guard.h"
#include "policy/json_node.h"
#include "policy/path.h"

#include <cmath>
#include <limits>
#include <string_view>

namespace {
using Owner = json::Owner;

bool is_container(const json *node)
{
    return node && (node->kind == JSON_ARRAY || node->kind == JSON_OBJECT);
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

json *json_adopt(json *tree, json::Owner node)
{
    node->parent = tree;
    node->index = tree->children.size();
    tree->children.push_back(std::move(node));
    return tree->children.back().get();
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
        json_adopt(tree, std::move(owner));
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
