// What a guest calls a text or a picture, and how its system ends lines.
#pragma once

#include <string>
#include <string_view>

// Well-formed UTF-8 of a text that a guest calls so: without the zero bytes that some end with, and
// with U+FFFD for what is none.
std::string pasteboard_text(std::string bytes);
// Whether bytes begin as a PNG file.
bool pasteboard_is_png(std::string_view bytes);
// Line ends of a text: LF to CR LF, where there is no CR yet, and back.
std::string pasteboard_with_crlf(std::string_view text);
std::string pasteboard_without_crlf(std::string_view text);
