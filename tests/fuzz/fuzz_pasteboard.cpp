// Pasteboard archives of viewers, and what guests call texts.
#include "services/tarvvm/pasteboard/pasteboard_archive.h"
#include "services/tarvvm/pasteboard/pasteboard_text.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    PasteboardContents contents, again;
    if (pasteboard_archive_read(bytes, &contents) &&
        (!pasteboard_archive_read(pasteboard_archive_write(contents), &again) || again != contents))
        abort();
    const std::string text = pasteboard_text(std::string(bytes));
    if (pasteboard_text(text) != text ||
        pasteboard_without_crlf(pasteboard_with_crlf(text)).size() > text.size())
        abort();
    return 0;
}
