// Trees from and to texts, for tests and the fuzz target.
#pragma once

#include "policy/owners.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

using Stream = std::unique_ptr<FILE, decltype(&fclose)>;

// The tree of a text, or null with errno. A failed load that leaves something ends the process.
inline KvOwner load_yaml(std::string text)
{
    const Stream stream(fmemopen(text.data(), text.size(), "r"), fclose);
    KvOwner tree(kv_new_type(KV_MAP));
    if (kv_load_yaml(tree.get(), stream.get()) == 0)
        return tree;
    if (kv_count(tree.get()) != 0)
        abort();
    return nullptr;
}

inline std::string save_yaml(const kv *tree)
{
    char *text = nullptr;
    size_t size = 0;
    Stream stream(open_memstream(&text, &size), fclose);
    const int result = kv_save_yaml(tree, stream.get());
    stream.reset();
    const std::string saved(text, size);
    free(text);
    return result == 0 ? saved : "error: " + std::string(kv_yaml_error());
}
