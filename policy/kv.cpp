#include "policy/kv.h"

#include "policy/guard.h"
#include "policy/kv_node.h"
#include "policy/path.h"

#include <iterator>

namespace {
using Owner = kv::Owner;

// A value that a caller hands over. One that is in a tree is not the caller's to give.
Owner take_over(kv *value, const kv *tree)
{
    if (!value || value->parent)
        return nullptr;
    for (const kv *node = tree; node; node = node->parent)
        if (node == value)
            return nullptr;
    return Owner(value);
}

Owner release(kv *child)
{
    kv *const parent = child->parent;
    if (child->key && parent->index)
        parent->index->erase(*child->key);
    Owner owner = std::move(*child->place);
    parent->children.erase(child->place);
    owner->parent = nullptr;
    return owner;
}

kv *find_key(const kv *tree, std::string_view key)
{
    if (!tree)
        return nullptr;
    if (tree->index) {
        const auto found = tree->index->find(key);
        return found != tree->index->end() ? found->second : nullptr;
    }
    for (const Owner &child : tree->children)
        if (child->key == key)
            return child.get();
    return nullptr;
}

kv *child_at(const kv *tree, size_t index)
{
    if (index >= tree->children.size())
        return nullptr;
    return std::next(tree->children.begin(), static_cast<ptrdiff_t>(index))->get();
}

// The node at a key, or at a dotted path where no such key exists.
const kv *find_either(const kv *tree, const char *key)
{
    const kv *const node = kv_get(tree, key);
    return node ? node : kv_find(tree, key);
}

int put(kv *tree, const char *key, Owner value)
{
    kv *const old = key ? find_key(tree, key) : nullptr;
    // The key may be the value's own.
    std::optional<std::string> name;
    if (key)
        name = key;
    value->key = std::move(name);
    if (!old) {
        kv_adopt(tree, std::move(value));
        return 0;
    }
    value->form.key_style = old->form.key_style;
    value->parent = tree;
    value->place = old->place;
    if (tree->index) {
        tree->index->erase(*old->key);
        tree->index->emplace(*value->key, value.get());
    }
    *value->place = std::move(value);
    return 0;
}

// A mapping with fewer members is searched as fast without an index.
constexpr size_t INDEX_FROM = 32;

void add_to_index(kv *tree, kv *child)
{
    if (tree->index && child->key)
        tree->index->emplace(*child->key, child);
    if (tree->index || tree->children.size() < INDEX_FROM)
        return;
    auto index = std::make_unique<std::unordered_map<std::string_view, kv *>>();
    for (const Owner &each : tree->children)
        if (each->key)
            index->emplace(*each->key, each.get());
    tree->index = std::move(index);
}

kv *invalid()
{
    errno = EINVAL;
    return nullptr;
}
} // namespace

kv *kv_adopt(kv *tree, kv::Owner node)
{
    kv *const child = node.get();
    tree->children.push_back(std::move(node));
    child->parent = tree;
    child->place = std::prev(tree->children.end());
    if (tree->type == KV_MAP)
        add_to_index(tree, child);
    return child;
}

struct kv *kv_new_type(uint32_t type)
{
    if (type > KV_DATE || type == KV_CONST + 1)
        return invalid();
    return policy_guard<kv *>(nullptr, [&] { return new kv(type); });
}

struct kv *kv_new_type(uint32_t type, const char *text)
{
    if (type != KV_STRING && type != KV_CONST)
        return invalid();
    return policy_guard<kv *>(nullptr, [&] {
        Owner node = std::make_unique<kv>(type);
        if (type == KV_CONST)
            node->constant = text;
        else
            node->text = text ? text : "";
        return node.release();
    });
}

struct kv *kv_new_type(uint32_t type, int64_t number)
{
    if (type != KV_INT && type != KV_BOOL && type != KV_DATE)
        return invalid();
    kv *const node = kv_new_type(type);
    if (node)
        node->number = type == KV_BOOL ? number != 0 : number;
    return node;
}

void kv_free(struct kv *kv)
{
    delete kv_detach_node(kv);
}

int kv_set(struct kv *kv, const char *key, struct kv *value)
{
    Owner owner = take_over(value, kv);
    if (!owner || !kv || !kv->isContainer()) {
        errno = EINVAL;
        return -1;
    }
    return policy_guard(-1, [&] { return put(kv, key, std::move(owner)); });
}

int kv_set_type(struct kv *kv, const char *key, const char *text, uint32_t type)
{
    struct kv *const value = kv_new_type(type, text);
    return value ? kv_set(kv, key, value) : -1;
}

int kv_set_number(struct kv *kv, const char *key, int64_t number, uint32_t type)
{
    struct kv *const value = kv_new_type(type, number);
    return value ? kv_set(kv, key, value) : -1;
}

uint32_t kv_type(const struct kv *kv)
{
    return kv ? kv->type : uint32_t{KV_NONE};
}

const char *kv_key(const struct kv *kv)
{
    return kv && kv->key ? kv->key->c_str() : nullptr;
}

size_t kv_count(const struct kv *kv)
{
    return kv ? kv->children.size() : 0;
}

struct kv *kv_first(const struct kv *kv)
{
    return kv_count(kv) ? kv->children.front().get() : nullptr;
}

struct kv *kv_next(const struct kv *kv)
{
    if (!kv || !kv->parent)
        return nullptr;
    const auto next = std::next(kv->place);
    return next == kv->parent->children.end() ? nullptr : next->get();
}

struct kv *kv_get(const struct kv *kv, const char *key)
{
    return key ? find_key(kv, key) : nullptr;
}

struct kv *kv_find(const struct kv *kv, const char *path)
{
    if (!path)
        return nullptr;
    return path_walk(const_cast<struct kv *>(kv), path, find_key, child_at);
}

struct kv *kv_detach(struct kv *kv, const char *key)
{
    return kv_detach_node(kv_get(kv, key));
}

struct kv *kv_detach_node(struct kv *child)
{
    if (child && child->parent)
        return release(child).release();
    return child;
}

const char *kv_str(const struct kv *kv, const char *missing)
{
    if (!kv || kv->type == KV_NONE)
        return missing;
    if (kv->text)
        return kv->text->c_str();
    if (!kv->isText())
        return missing;
    return kv->constant ? kv->constant : "";
}

int64_t kv_int(const struct kv *kv, int64_t missing)
{
    const uint32_t type = kv_type(kv);
    return type == KV_INT || type == KV_BOOL || type == KV_DATE ? kv->number : missing;
}

const char *kv_get_str(const struct kv *kv, const char *key, const char *missing)
{
    return kv_str(find_either(kv, key), missing);
}

int64_t kv_get_int(const struct kv *kv, const char *key, int64_t missing)
{
    return kv_int(find_either(kv, key), missing);
}
