#include "hostlib/utils/utils.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// The next part of a dotted version. `text` becomes null where the version ends.
long next_part(const char *&text)
{
    if (text == nullptr)
        return 0;
    char *end;
    const long number = std::strtol(text, &end, 10);
    text = *end == '.' ? end + 1 : nullptr;
    return number;
}

// Each thread's copy of the text it scans; it only ever grows with the request.
class ScanBuffer
{
public:
    ScanBuffer() = default;
    ScanBuffer(const ScanBuffer &) = delete;
    ScanBuffer &operator=(const ScanBuffer &) = delete;
    ~ScanBuffer() { std::free(m_text); }

    // A NUL-terminated copy of at most `length` bytes; null with errno set.
    const char *copy(const char *text, size_t length)
    {
        if (length == SIZE_MAX) {
            errno = ENOMEM;
            return nullptr;
        }
        char *grown = static_cast<char *>(std::realloc(m_text, length + 1));
        if (grown == nullptr)
            return nullptr;
        m_text = grown;
        const size_t used = strnlen(text, length);
        std::memcpy(m_text, text, used);
        m_text[used] = '\0';
        return m_text;
    }

private:
    char *m_text = nullptr;
};

} // namespace

int vercmp(const char *a, const char *b)
{
    while (a != nullptr || b != nullptr) {
        const long first = next_part(a);
        const long second = next_part(b);
        if (first != second)
            return int(static_cast<unsigned long>(first) - static_cast<unsigned long>(second));
    }
    return 0;
}

int snscanf(const char *text, size_t length, const char *format, ...)
{
    static thread_local ScanBuffer tmp;
    const char *copy = tmp.copy(text, length);
    if (copy == nullptr)
        return EOF;
    va_list outputs;
    va_start(outputs, format);
    const int count = std::vsscanf(copy, format, outputs);
    va_end(outputs);
    return count;
}

uint64_t atover(const char *text, size_t length)
{
    unsigned long major = 0, minor = 0, patch = 0, build = 0;
    if (snscanf(text, length, " %lu.%lu.%lu.%lu ", &major, &minor, &patch, &build) < 1)
        return 0;
    // A part that needs more than its 16 bits runs over into the next one up.
    return (uint64_t(major) << 48) + (uint64_t(minor) << 32) + (uint64_t(patch) << 16) + build;
}

char *vertoa(uint64_t)
{
    return nullptr;
}
