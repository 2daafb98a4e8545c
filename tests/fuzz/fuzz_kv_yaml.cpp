// Loads a document; what loads must save, load again as the same tree and save as the same text.
#include "policy/kv.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {
using Tree = std::unique_ptr<kv, decltype(&kv_free)>;
using Stream = std::unique_ptr<FILE, decltype(&fclose)>;

void require(bool met)
{
    if (!met)
        abort();
}

Tree load(const std::string &text)
{
    Tree tree(kv_new_type(KV_MAP), kv_free);
    std::string bytes = text;
    const Stream stream(fmemopen(bytes.data(), bytes.size(), "r"), fclose);
    require(stream != nullptr);
    if (kv_load_yaml(tree.get(), stream.get()) != 0)
        tree.reset();
    return tree;
}

std::string save(const kv *tree)
{
    char *text = nullptr;
    size_t size = 0;
    Stream stream(open_memstream(&text, &size), fclose);
    require(kv_save_yaml(tree, stream.get()) == 0);
    stream.reset();
    const std::string saved(text, size);
    free(text);
    return saved;
}

std::string text_or(const char *text)
{
    return text ? text : "(none)";
}

bool same(const kv *a, const kv *b)
{
    if (kv_type(a) != kv_type(b) || kv_count(a) != kv_count(b) ||
        text_or(kv_key(a)) != text_or(kv_key(b)) || kv_int(a, 0) != kv_int(b, 0) ||
        text_or(kv_str(a, nullptr)) != text_or(kv_str(b, nullptr)))
        return false;
    const kv *other = kv_first(b);
    for (const kv *child = kv_first(a); child; child = kv_next(child), other = kv_next(other))
        if (!same(child, other))
            return false;
    return true;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const Tree tree = load(std::string(reinterpret_cast<const char *>(data), size));
    if (!tree)
        return 0;
    const std::string saved = save(tree.get());
    const Tree again = load(saved);
    require(again && same(tree.get(), again.get()));
    require(save(again.get()) == saved);
    return 0;
}
