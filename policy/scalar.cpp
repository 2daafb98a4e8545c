#include "policy/scalar.h"

#include "policy/kv.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <optional>
#include <strings.h>

namespace {
bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

template <size_t N>
bool is_word(std::string_view text, const std::array<std::string_view, N> &words)
{
    return std::any_of(words.begin(), words.end(), [&](std::string_view word) {
        return word.size() == text.size() &&
               strncasecmp(word.data(), text.data(), text.size()) == 0;
    });
}

constexpr std::array<std::string_view, 3> NULL_WORDS{"", "~", "null"};
constexpr std::array<std::string_view, 3> TRUE_WORDS{"true", "yes", "on"};
constexpr std::array<std::string_view, 3> FALSE_WORDS{"false", "no", "off"};
// Further words that some readers do not take for texts.
constexpr std::array<std::string_view, 8> OTHER_WORDS{"y",    "n",    "<<",    "=",
                                                      ".nan", ".inf", "-.inf", "+.inf"};

template <typename Number>
std::optional<Number> whole_number(std::string_view text, int base)
{
    Number number{};
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    if (text.empty() || error != std::errc() || stop != end)
        return std::nullopt;
    return number;
}

std::optional<int64_t> resolve_int(std::string_view text)
{
    if (text.starts_with("0x") && text.size() > 2 && text[2] != '-')
        return whole_number<int64_t>(text.substr(2), 16);
    if (text.starts_with('+') && text.size() > 1 && is_digit(text[1]))
        text.remove_prefix(1);
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    if (digits.size() > 1 && digits.front() == '0')
        return std::nullopt;
    return whole_number<int64_t>(text, 10);
}

// Takes `width` digits and then `end` (0: nothing) off the front of a text.
std::optional<int> take_field(std::string_view &text, size_t width, char end)
{
    if (text.size() < width + (end != 0) || (end && text[width] != end))
        return std::nullopt;
    const auto number = whole_number<int>(text.substr(0, width), 10);
    if (!number || !is_digit(text.front()))
        return std::nullopt;
    text.remove_prefix(width + (end != 0));
    return number;
}

std::optional<int64_t> resolve_zone(std::string_view text)
{
    if (text.empty() || text == "Z")
        return 0;
    const int sign = text.front() == '-' ? -1 : 1;
    if (text.front() != '+' && text.front() != '-')
        return std::nullopt;
    text.remove_prefix(1);
    const auto hours = take_field(text, 2, text.size() > 2 ? ':' : 0);
    const auto minutes = text.empty() ? 0 : take_field(text, 2, 0);
    if (!hours || !minutes || *hours > 23 || *minutes > 59 || !text.empty())
        return std::nullopt;
    return sign * (*hours * 3600 + *minutes * 60);
}

std::optional<int64_t> resolve_day(std::string_view text)
{
    const auto year = take_field(text, 4, '-');
    const auto month = year ? take_field(text, 2, '-') : year;
    const auto day = month ? take_field(text, 2, 0) : month;
    if (!day)
        return std::nullopt;
    using namespace std::chrono;
    const year_month_day date(std::chrono::year(*year),
                              std::chrono::month(static_cast<unsigned>(*month)),
                              std::chrono::day(static_cast<unsigned>(*day)));
    if (!date.ok())
        return std::nullopt;
    return int64_t{sys_days(date).time_since_epoch().count()} * 86400;
}

// "2026-11-21", or that with "T09:18:31", a fraction that is dropped, and "Z" or "+01:00".
std::optional<int64_t> resolve_date(std::string_view text)
{
    const auto day = resolve_day(text.substr(0, 10));
    if (!day || text.size() <= 10)
        return day;
    if (text[10] != 'T' && text[10] != 't' && text[10] != ' ')
        return std::nullopt;
    text.remove_prefix(11);
    const auto hour = take_field(text, 2, ':');
    const auto minute = hour ? take_field(text, 2, ':') : hour;
    const auto second = minute ? take_field(text, 2, 0) : minute;
    if (!second || *hour > 23 || *minute > 59 || *second > 60)
        return std::nullopt;
    if (text.size() > 1 && text.front() == '.' && is_digit(text[1]))
        text.remove_prefix(std::min(text.find_first_not_of("0123456789", 1), text.size()));
    const auto zone = resolve_zone(text);
    if (!zone)
        return std::nullopt;
    return *day + *hour * 3600 + *minute * 60 + *second - *zone;
}
} // namespace

Scalar scalar_resolve(std::string_view text)
{
    if (is_word(text, NULL_WORDS))
        return {KV_NONE};
    if (is_word(text, TRUE_WORDS))
        return {KV_BOOL, 1};
    if (is_word(text, FALSE_WORDS))
        return {KV_BOOL, 0};
    if (const auto number = resolve_int(text))
        return {KV_INT, *number};
    if (text.size() >= 10)
        if (const auto date = resolve_date(text))
            return {KV_DATE, *date};
    return {KV_STRING};
}

bool scalar_is_ambiguous(std::string_view text)
{
    if (scalar_resolve(text).type != KV_STRING || is_word(text, OTHER_WORDS))
        return true;
    std::string_view rest = text;
    if (rest.front() == '+' || rest.front() == '-')
        rest.remove_prefix(1);
    if (rest.starts_with("0x") || rest.starts_with("0X"))
        return rest.find_first_not_of("0123456789abcdefABCDEF_", 2) == rest.npos;
    // Whatever a number, a time of the day or a date could be made of.
    if (rest.starts_with('.'))
        rest.remove_prefix(1);
    return !rest.empty() && is_digit(rest.front()) &&
           rest.find_first_not_of("0123456789_+-.:eEobTtZz ") == rest.npos;
}

std::string scalar_date(int64_t seconds)
{
    constexpr int64_t first_year = -62167219200, past_year_9999 = 253402300800;
    if (seconds < first_year || seconds >= past_year_9999)
        return std::to_string(seconds);
    using namespace std::chrono;
    const sys_seconds time{std::chrono::seconds(seconds)};
    const sys_days day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    char text[64];
    snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", int(date.year()),
             unsigned(date.month()), unsigned(date.day()), int(clock.hours().count()),
             int(clock.minutes().count()), int(clock.seconds().count()));
    return text;
}
