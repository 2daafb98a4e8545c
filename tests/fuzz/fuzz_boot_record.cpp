// Decodes boot sectors; what decodes has all its keys.
#include "hostlib/utils/utils.h"
#include "hostlib/vm/pyver.h"
#include "policy/owners.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    log_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::array<uint8_t, PYVER_SECTOR_SIZE> sector{};
    std::copy_n(data, std::min(size, sector.size()), sector.begin());
    const KvOwner record(pyver_decode(sector.data()));
    if (record && kv_count(record.get()) != 7)
        abort();
    return 0;
}
