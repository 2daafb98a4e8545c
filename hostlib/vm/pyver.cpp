#include "hostlib/vm/pyver.h"

#include "hostlib/utils/utils.h"
#include "hostlib/vm/addons.h"
#include "policy/owners.h"
#include "vdsk/vdsk.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

// The compatibility level of this program.
constexpr uint64_t COMPAT_LEVEL = 10;

struct VdskClose
{
    void operator()(struct vdsk *disk) const { vdsk_close(disk); }
};

uint64_t big_endian(const uint8_t *bytes, size_t size)
{
    uint64_t number = 0;
    for (size_t i = 0; i < size; ++i)
        number = number << 8 | bytes[i];
    return number;
}

std::nullptr_t failed(int error, const char *message)
{
    dprintf(log_fd, "pyver: %s\r\n", message);
    errno = error;
    return nullptr;
}

struct Record
{
    unsigned major, minor, revision;
    uint64_t build, compat;
};

void version_text(const Record &record, char *text, size_t size)
{
    const unsigned long long first = record.build >> 32, second = record.build & 0xFFFFFFFF;
    if (second)
        snprintf(text, size, "%u.%u.%u.%llu.%llu", record.major, record.minor, record.revision,
                 first, second);
    else
        snprintf(text, size, "%u.%u.%u.%llu", record.major, record.minor, record.revision, first);
}

struct kv *as_mapping(const Record &record)
{
    char version[63];
    version_text(record, version, sizeof version);
    KvOwner tree(kv_new_type(KV_MAP));
    struct kv *kv = tree.get();
    if (!kv || kv_set_type(kv, "major", record.major, KV_INT) != 0 ||
        kv_set_type(kv, "minor", record.minor, KV_INT) != 0 ||
        kv_set_type(kv, "revision", record.revision, KV_INT) != 0 ||
        kv_set_type(kv, "build", record.build, KV_INT) != 0 ||
        kv_set_type(kv, "compat", record.compat, KV_INT) != 0 ||
        kv_set_type(kv, "match", record.compat == COMPAT_LEVEL, KV_BOOL) != 0 ||
        kv_set_type(kv, "version", version, KV_STRING) != 0)
        return nullptr;
    return tree.release();
}

} // namespace

struct kv *pyver_decode(const uint8_t *sector)
{
    if (sector[510] != 0x55 || sector[511] != 0xAA)
        return failed(EINVAL, "disk contains no MBR partitions");
    if (memcmp(sector + 364, "TVER", 4) != 0)
        return failed(ENOENT, "disk contains no version information");
    return as_mapping({sector[368], sector[369], static_cast<unsigned>(big_endian(sector + 370, 2)),
                       big_endian(sector + 372, 8), big_endian(sector + 380, 8)});
}

struct kv *pyver_read(const char *image)
{
    const std::unique_ptr<struct vdsk, VdskClose> disk(vdsk_open(image));
    if (!disk) {
        const int error = errno;
        dprintf(log_fd, "pyver: failed to open %s\r\n", image);
        errno = error;
        return nullptr;
    }
    if (vdsk_sectorsize(disk.get()) != PYVER_SECTOR_SIZE)
        return failed(EINVAL, "sector size != 512");
    // The disk library must not end the process for want of a base image.
    setenv("TARV_DO_NOT_EXIT_ON_BASE_MISS", "1", /*overwrite=*/0);
    uint8_t sector[PYVER_SECTOR_SIZE];
    if (vdsk_read(disk.get(), sector, 0, 1) != 1)
        return failed(EIO, "failed to read MBR");
    return pyver_decode(sector);
}
