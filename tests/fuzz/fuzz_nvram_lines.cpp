// Collects the lines of the firmware-variable tool and takes the names from them.
#include "hostlib/vm/addons.h"
#include "hostlib/vm/nvram_lines.h"
#include "platform/unique_fd.h"

#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const UniqueFd output(memfd_create("output", MFD_CLOEXEC));
    if (write(output.get(), data, size) != static_cast<ssize_t>(size))
        abort();
    lseek(output.get(), 0, SEEK_SET);
    nvram_lines collector;
    if (vm_read_nvram_cb(&collector, output.get(), -1) != static_cast<ssize_t>(size))
        abort();
    for (const std::string &line : collector.lines)
        if (nvram_trim(line) != line || nvram_name(line).size() > line.size())
            abort();
    return 0;
}
