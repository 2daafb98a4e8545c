// Loads a document; what loads must save, load again as the same tree and save as the same text.
#include "tests/policy/yaml_text.h"

#include <cstdint>

namespace {
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
    const KvOwner tree = load_yaml({reinterpret_cast<const char *>(data), size});
    if (!tree)
        return 0;
    const std::string saved = save_yaml(tree.get());
    const KvOwner again = load_yaml(saved);
    if (!again || !same(tree.get(), again.get()) || save_yaml(again.get()) != saved)
        abort();
    return 0;
}
