#include "services/tarvctl/sizes.h"

#include "services/tarvctl/answer.h"

#include <charconv>
#include <cstdio>
#include <string_view>

namespace {

[[noreturn]] void refuse(const std::string &what, const std::string &why)
{
    throw Failure(ExitStatus::input, what + ": " + why);
}

// 0 when the suffix is none.
uint64_t multiplier(std::string_view suffix)
{
    if (suffix.empty() || suffix == "B")
        return 1;
    const std::string_view rest = suffix.substr(1);
    if (!rest.empty() && rest != "B" && rest != "iB" && rest != "i")
        return 0;
    switch (suffix.front()) {
    case 'k':
    case 'K':
        return KIB;
    case 'M':
        return MIB;
    case 'G':
        return GIB;
    case 'T':
        return TIB;
    default:
        return 0;
    }
}

} // namespace

uint64_t parse_bytes(const std::string &what, const std::string &text, uint64_t least,
                     uint64_t most)
{
    uint64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const uint64_t unit = error == std::errc::invalid_argument ? 0 : multiplier({rest, end});
    if (unit == 0)
        refuse(what, "\"" + text + "\" is not a number of bytes");
    uint64_t bytes = 0;
    if (error != std::errc() || __builtin_mul_overflow(number, unit, &bytes) || bytes > most)
        refuse(what, text + " is more than " + bytes_text(most));
    if (bytes < least)
        refuse(what, text + " is less than " + bytes_text(least));
    return bytes;
}

uint64_t parse_number(const std::string &what, const std::string &text, uint64_t least,
                      uint64_t most)
{
    uint64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end)
        refuse(what, "\"" + text + "\" is not a number");
    if (number < least || number > most)
        refuse(what,
               text + " is not between " + std::to_string(least) + " and " + std::to_string(most));
    return number;
}

std::string bytes_text(uint64_t bytes)
{
    static constexpr const char *units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    double value = static_cast<double>(bytes);
    for (; value >= 1024 && unit + 1 < std::size(units); ++unit)
        value /= 1024;
    char text[32];
    const bool whole = value == static_cast<double>(static_cast<uint64_t>(value));
    snprintf(text, sizeof text, whole ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text;
}
