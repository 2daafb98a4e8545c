// Lines of QEMU's machine protocol, cut anywhere.
#include "services/tarvvm/machine/qmp.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t step = data[0] + size_t{1};
    std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    QmpLines lines;
    std::vector<JsonTree> objects;
    while (!rest.empty() && lines.feed(rest.substr(0, step), &objects))
        rest.remove_prefix(std::min(step, rest.size()));
    for (const JsonTree &object : objects)
        json_find_str(object.get(), "error.desc", "");
    return 0;
}
