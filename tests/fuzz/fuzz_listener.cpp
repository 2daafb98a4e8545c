// What QEMU's display sends: whatever the bytes say, nothing is written outside the picture.
#include "tests/services/tarvvm/wire.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MemoryInput input(std::string(reinterpret_cast<const char *>(data), size));
    static MemoryScreen screen; // large: made once
    screen.rects.clear();
    screen.cursors.clear();
    ListenerReader reader(input, screen);
    while (reader.readMessage())
        ;
    return 0;
}
