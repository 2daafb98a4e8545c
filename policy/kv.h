// Key/value trees: the documents of the VM store and the answers of its services, held in memory
// and loaded from and saved to YAML.
//
// A node has a type, at most one key (its name in the mapping that holds it) and either children
// (mapping, list) or a value. Whoever makes or detaches a node frees it with kv_free; a node that
// was put into a tree belongs to the tree. Functions return 0 on success and -1 with errno set on
// failure, or null where they answer a node. No function throws.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>

// Node types. The numbers are part of the interface.
enum : uint32_t
{
    KV_NONE = 0,   // null: a key without a value
    KV_MAP = 1,    // mapping, in the order of the document
    KV_LIST = 2,   // sequence
    KV_STRING = 3, // text, copied into the node
    KV_CONST = 4,  // text, not copied: it must outlive the node
    KV_INT = 6,    // signed 64-bit integer
    KV_BOOL = 7,   // truth value
    KV_DATE = 8,   // seconds since the epoch
};

struct kv;

// A new node of a type, empty: no children, "", 0 or false. Null with ENOMEM or EINVAL.
struct kv *kv_new_type(uint32_t type);
// A new node with a value. Text types take a text (null counts as ""), KV_INT, KV_BOOL and
// KV_DATE a number; anything else is EINVAL.
struct kv *kv_new_type(uint32_t type, const char *text);
struct kv *kv_new_type(uint32_t type, int64_t number);
template <std::integral T>
struct kv *kv_new_type(uint32_t type, T number)
{
    return kv_new_type(type, static_cast<int64_t>(number));
}
// Frees a node and everything below it; null is accepted. A node in a tree is taken out of it.
void kv_free(struct kv *kv);

// Puts `value` into a mapping or list under `key`, taking it over, also when it fails (a value that
// is in a tree already is refused with EINVAL and left there). A value already under that key is
// freed and its place in the order kept. A null key appends a child without a key; a mapping that
// holds one can't be saved.
int kv_set(struct kv *kv, const char *key, struct kv *value);
// The same with a new node of `type` made from a text or a number.
int kv_set_type(struct kv *kv, const char *key, const char *text, uint32_t type);
int kv_set_number(struct kv *kv, const char *key, int64_t number, uint32_t type);
template <std::integral T>
int kv_set_type(struct kv *kv, const char *key, T number, uint32_t type)
{
    return kv_set_number(kv, key, static_cast<int64_t>(number), type);
}

// What a node is. A null node has type KV_NONE, no key and no children.
uint32_t kv_type(const struct kv *kv);
const char *kv_key(const struct kv *kv);
size_t kv_count(const struct kv *kv);

// Children in order: for (kv *child = kv_first(tree); child; child = kv_next(child)).
struct kv *kv_first(const struct kv *kv);
struct kv *kv_next(const struct kv *kv);

// The child under exactly this key, or null.
struct kv *kv_get(const struct kv *kv, const char *key);
// The node at a dotted path with indexes, "hard_drives[0].file", or null.
struct kv *kv_find(const struct kv *kv, const char *path);
// Takes the child under `key` out of the tree and hands it to the caller; null when absent.
struct kv *kv_detach(struct kv *kv, const char *key);
// Takes `child` out of the tree that holds it. The caller owns it.
struct kv *kv_detach_node(struct kv *child);

// A node's own value. The text of a text node or of a scalar read from a document; the number of
// a number, truth value or date. Otherwise the default. The text lives as long as the node.
const char *kv_str(const struct kv *kv, const char *missing);
int64_t kv_int(const struct kv *kv, int64_t missing);
// The value at a key, or at a dotted path where no such key exists.
const char *kv_get_str(const struct kv *kv, const char *key, const char *missing);
int64_t kv_get_int(const struct kv *kv, const char *key, int64_t missing);

// Reads one YAML document into an empty mapping. The document must be a mapping (an empty file is
// an empty one). Anchors are resolved: what an alias stands for is copied. Errors: EINVAL (not
// YAML, not a mapping, a key twice, a key that is no text, a second document), EFBIG (past 4 MiB),
// E2BIG (more than 64 levels or 200,000 values, or aliases that grow it by more than 10,000), or
// the stream's error; the mapping is then left empty.
int kv_load_yaml(struct kv *kv, FILE *stream);
// Writes a mapping as YAML: order, scalar styles and the comment lines at the top of the file are
// those it was loaded with; texts that would read back as something else are quoted. EINVAL for a
// tree that YAML can't hold (a text that is not UTF-8, a mapping's child without a key), or the
// stream's error.
int kv_save_yaml(const struct kv *kv, FILE *stream);
// The message of the last failed load or save on this thread ("line 3: …"), "" when the last one
// succeeded.
const char *kv_yaml_error();
