// Lines of a stream, as bytes.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

// The longest line that is kept; what goes beyond is read and dropped.
inline constexpr size_t LINE_MAX_BYTES = 65536;

// Reads the next line with its line end, if it has one; NULs are bytes like others. The number of
// bytes read, 0 at the end of the stream.
size_t line_read(FILE *stream, std::string *line);
