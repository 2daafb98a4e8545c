// Decodes boot sectors; what decodes says what a second reading of the bytes says.
#include "hostlib/utils/utils.h"
#include "hostlib/vm/pyver.h"
#include "policy/kv.h"
#include "policy/owners.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <string>

namespace {

using Sector = std::array<uint8_t, PYVER_SECTOR_SIZE>;

uint64_t number(const Sector &sector, size_t from, size_t size)
{
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i)
        value += uint64_t(sector[from + i]) << 8 * (size - 1 - i);
    return value;
}

void check(bool holds)
{
    if (!holds)
        abort();
}

std::string expected_version(const Sector &sector)
{
    std::string text;
    for (const auto &[from, size] :
         {std::pair<size_t, size_t>{368, 1}, {369, 1}, {370, 2}, {372, 4}})
        text += (text.empty() ? "" : ".") + std::to_string(number(sector, from, size));
    const uint64_t second = number(sector, 376, 4);
    return second ? text + "." + std::to_string(second) : text;
}

void compare(const kv *record, const Sector &sector)
{
    check(kv_count(record) == 7);
    const auto is = [&](const char *key, uint64_t value) {
        check(uint64_t(kv_get_int(record, key, -1)) == value);
    };
    is("major", sector[368]);
    is("minor", sector[369]);
    is("revision", number(sector, 370, 2));
    is("build", number(sector, 372, 8));
    is("compat", number(sector, 380, 8));
    check(kv_get_str(record, "version", "") == expected_version(sector));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    log_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Sector sector{};
    std::copy_n(data, std::min(size, sector.size()), sector.begin());
    const bool signed_sector = number(sector, 510, 2) == 0x55AA;
    const KvOwner record(pyver_decode(sector.data()));
    check(bool(record) == (signed_sector && number(sector, 364, 4) == 0x54564552)); // "TVER"
    if (record)
        compare(record.get(), sector);
    return 0;
}
