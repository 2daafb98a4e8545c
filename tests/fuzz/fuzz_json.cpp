// Parses a text; what parses must print, parse again and print as the same text.
#include "policy/owners.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const JsonOwner tree(json_parse(text.data(), text.size()));
    json_find(tree.get(), text.c_str());
    if (!tree)
        return 0;
    const std::string printed = json_print(tree.get());
    const JsonOwner again(json_parse(printed.data(), printed.size()));
    if (!again || json_print(again.get()) != printed)
        abort();
    for (const json *child = json_first_child(tree.get()); child; child = json_next(child))
        json_find_int64(tree.get(), json_name(child), 0);
    return 0;
}
