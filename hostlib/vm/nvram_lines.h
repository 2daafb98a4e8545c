// What the firmware-variable tool prints.
#pragma once

#include "hostlib/vm/owners.h"

#include <string>
#include <string_view>
#include <vector>

// Collects the tool's lines; the context of vm_read_nvram_cb.
struct nvram_lines
{
    FileOwner stream; // on the output, made on first use
    std::vector<std::string> lines;
};
// The most lines that are kept.
inline constexpr size_t NVRAM_LINES_MAX = 4096;

// A line without the white space at both ends.
std::string_view nvram_trim(std::string_view line);
// The variable's name in a line of the listing: the text after its third space. Empty when the
// line has fewer.
std::string_view nvram_name(std::string_view line);
