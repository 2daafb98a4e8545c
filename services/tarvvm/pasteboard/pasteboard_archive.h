// The pasteboard as it travels between a supervisor and its viewers: what of it a guest can take,
// and what a guest gave. The format is in docs/formats.md.
#pragma once

#include "tarvhv/cli2/display_protocol.h"

#include <cstddef>
#include <string>
#include <string_view>

struct PasteboardContents
{
    std::string text; // UTF-8; without a text of its own, the URLs, one a line
    std::string png;  // a PNG file
    bool empty() const { return text.empty() && png.empty(); }
    bool operator==(const PasteboardContents &) const = default;
};

// Bytes of text and picture together that an archive of both has room for.
inline constexpr size_t PASTEBOARD_CONTENTS_MAX = DISPLAY_PASTEBOARD_MAX - 64;

// Reads an archive. False when it is none. Of several items of a kind the first counts; items that
// a guest can't take are left out.
bool pasteboard_archive_read(std::string_view archive, PasteboardContents *contents);
std::string pasteboard_archive_write(const PasteboardContents &contents);
