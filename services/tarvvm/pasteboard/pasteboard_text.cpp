#include "services/tarvvm/pasteboard/pasteboard_text.h"

#include <cstdint>
#include <cstring>

namespace {

// The length of the well-formed character that bytes begin with; 0 for none.
size_t utf8_length(std::string_view bytes)
{
    const auto at = [&](size_t i) { return i < bytes.size() ? uint8_t(bytes[i]) : uint8_t(0); };
    const auto tail = [&](size_t i) { return (at(i) & 0xc0) == 0x80; };
    const uint8_t first = at(0);
    if (first < 0x80)
        return 1;
    if (first >= 0xc2 && first <= 0xdf)
        return tail(1) ? 2 : 0;
    if (first >= 0xe0 && first <= 0xef) {
        const bool overlong = first == 0xe0 && at(1) < 0xa0;
        const bool surrogate = first == 0xed && at(1) > 0x9f;
        return tail(1) && tail(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (first >= 0xf0 && first <= 0xf4) {
        const bool outside = (first == 0xf0 && at(1) < 0x90) || (first == 0xf4 && at(1) > 0x8f);
        return tail(1) && tail(2) && tail(3) && !outside ? 4 : 0;
    }
    return 0;
}

// How many bytes at the front are well-formed.
size_t utf8_prefix(std::string_view bytes)
{
    constexpr uint64_t not_ascii = 0x8080808080808080;
    size_t done = 0;
    for (;;) {
        uint64_t eight = not_ascii;
        if (bytes.size() - done >= sizeof eight)
            std::memcpy(&eight, bytes.data() + done, sizeof eight);
        if ((eight & not_ascii) == 0) {
            done += sizeof eight;
            continue;
        }
        const size_t length = done < bytes.size() ? utf8_length(bytes.substr(done, 4)) : 0;
        if (length == 0)
            return done;
        done += length;
    }
}

} // namespace

std::string pasteboard_text(std::string bytes)
{
    bytes.erase(bytes.find_last_not_of('\0') + 1);
    std::string_view rest = bytes;
    size_t good = utf8_prefix(rest);
    if (good == rest.size())
        return bytes;
    std::string text;
    text.reserve(bytes.size());
    while (!rest.empty()) {
        text += rest.substr(0, good);
        rest.remove_prefix(good);
        if (!rest.empty()) {
            text += "\xef\xbf\xbd";
            rest.remove_prefix(1);
        }
        good = utf8_prefix(rest);
    }
    return text;
}

bool pasteboard_is_png(std::string_view bytes)
{
    return bytes.starts_with("\x89PNG\r\n\x1a\n");
}

std::string pasteboard_with_crlf(std::string_view text)
{
    std::string result;
    for (size_t end; (end = text.find('\n')) != std::string_view::npos;) {
        result += text.substr(0, end);
        result += result.ends_with('\r') ? "\n" : "\r\n";
        text.remove_prefix(end + 1);
    }
    return result.append(text);
}

std::string pasteboard_without_crlf(std::string_view text)
{
    std::string result;
    for (size_t end; (end = text.find("\r\n")) != std::string_view::npos;) {
        result += text.substr(0, end);
        result += '\n';
        text.remove_prefix(end + 2);
    }
    return result.append(text);
}
