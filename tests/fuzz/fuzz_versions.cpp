// Version texts: the first line against the second, and every slice of the whole.
#include "hostlib/utils/utils.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const size_t end = text.find('\n');
    const std::string a = text.substr(0, end);
    const std::string b = end == text.npos ? "" : text.substr(end + 1);
    // The other way round the sign turns; the smallest 32-bit number alone has no opposite.
    const int64_t both = int64_t(vercmp(a.c_str(), b.c_str())) + vercmp(b.c_str(), a.c_str());
    if (vercmp(a.c_str(), a.c_str()) != 0 || (both != 0 && both != 2 * int64_t(INT32_MIN)))
        std::abort();
    vercmp(a.c_str(), nullptr);
    // An exact allocation: a byte read past the slice is found.
    const std::unique_ptr<char[]> slice(new char[size]);
    std::copy(text.begin(), text.end(), slice.get());
    unsigned long number = 0;
    char word[16] = "";
    for (size_t length = 0; length <= size && length < 64; length++) {
        atover(slice.get(), length);
        snscanf(slice.get(), length, "%*x %15s %lu", word, &number);
    }
    atover(slice.get(), size);
    return 0;
}
