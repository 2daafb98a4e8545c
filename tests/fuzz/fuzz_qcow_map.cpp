// Reads the tables of a qcow2 image and asks for the kind of clusters all over the disk.
#include "vdsk/qcow_map.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FILE *const stream = tmpfile();
    if (!stream || fwrite(data, 1, size, stream) != size || fflush(stream) != 0)
        abort();
    try {
        const ImageFile file("/dev/fd/" + std::to_string(fileno(stream)));
        QcowMap map(file);
        for (uint64_t part = 0; part < 64 && map.size(); ++part)
            map.kindAt(map.size() / 64 * part + (map.size() - 1) % 64);
        if (map.size())
            map.kindAt(map.size() - 1);
    } catch (const DiskError &) {
    }
    fclose(stream);
    return 0;
}
