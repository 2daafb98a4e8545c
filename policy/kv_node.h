// The nodes of a key/value tree, for the library's own files.
#pragma once

#include "policy/kv.h"

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

// How a node was written in the document it was loaded from. The styles are libyaml's numbers; 0
// leaves the choice to the writer.
struct KvForm
{
    int style = 0;
    int key_style = 0;
    std::string tag;    // "" when the node had none
    std::string header; // of a document's mapping: the comment lines above its first key
};

struct kv
{
    using Owner = std::unique_ptr<kv>;
    using Children = std::list<Owner>;

    explicit kv(uint32_t of_type) : type(of_type) {}

    bool isContainer() const { return type == KV_MAP || type == KV_LIST; }
    bool isText() const { return type == KV_STRING || type == KV_CONST; }

    uint32_t type;
    std::optional<std::string> key;
    std::optional<std::string> text; // of a text, or of a scalar as the document has it
    const char *constant = nullptr;  // the text of KV_CONST
    int64_t number = 0;
    KvForm form;

    // The children of a large mapping by their keys, which stand in the children. It is kept by
    // those who change the tree, so that threads can look up at once.
    std::unique_ptr<std::unordered_map<std::string_view, kv *>> index; // null while it is small

    kv *parent = nullptr;
    Children::iterator place; // among the parent's children
    Children children;
};

// Appends a node that is in no tree.
kv *kv_adopt(kv *tree, kv::Owner node);
