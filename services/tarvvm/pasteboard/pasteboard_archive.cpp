#include "services/tarvvm/pasteboard/pasteboard_archive.h"

#include <cstdint>

namespace {

constexpr int DEPTH_MAX = 16;
constexpr int ITEMS_MAX = 64;
constexpr uint64_t VERSION = 1;

enum Major : uint8_t
{
    UNSIGNED = 0,
    BYTES = 2,
    TEXT = 3,
    ARRAY = 4,
    MAP = 5,
    TAG = 6,
    SIMPLE = 7
};

// A value's first bytes: what it is, and how many bytes or values it holds.
struct Head
{
    uint8_t major;
    uint64_t number;
    bool indefinite; // ends with a break
};

// Walks through a CBOR document (RFC 8949). Every call fails at the end of the bytes.
class Cbor
{
public:
    explicit Cbor(std::string_view bytes) : m_rest(bytes) {}

    bool head(Head *head)
    {
        if (m_rest.empty())
            return false;
        const uint8_t first = uint8_t(m_rest.front());
        m_rest.remove_prefix(1);
        const uint8_t info = first & 31;
        *head = {uint8_t(first >> 5), info, info == 31};
        const size_t count = info < 24 || info == 31 ? 0 : size_t{1} << (info - 24);
        if ((info > 27 && info < 31) || m_rest.size() < count)
            return false;
        if (count != 0)
            head->number = 0;
        for (size_t i = 0; i < count; i++)
            head->number = head->number << 8 | uint8_t(m_rest[i]);
        m_rest.remove_prefix(count);
        return true;
    }
    // Whether the break of an indefinite value is next; takes it.
    bool atBreak()
    {
        const bool found = !m_rest.empty() && uint8_t(m_rest.front()) == 0xff;
        m_rest.remove_prefix(found);
        return found;
    }
    // The bytes of a text or byte string, in one piece or several; null to pass over them.
    bool string(const Head &start, std::string *bytes)
    {
        if (!start.indefinite)
            return piece(start.number, bytes);
        while (!atBreak()) {
            Head next;
            if (!head(&next) || next.major != start.major || next.indefinite ||
                !piece(next.number, bytes))
                return false;
        }
        return true;
    }
    // What follows a value's head, whatever it is.
    bool skip(const Head &start, int depth = 0)
    {
        if (start.major == BYTES || start.major == TEXT)
            return string(start, nullptr);
        if (start.major != ARRAY && start.major != MAP && start.major != TAG)
            return !start.indefinite;
        if (depth == DEPTH_MAX || (start.major == TAG && start.indefinite))
            return false;
        // A map's pairs count twice; a number that would overflow so is past the bytes anyway.
        const uint64_t each = start.major == MAP ? 2 : 1;
        const uint64_t count = start.major == TAG ? 1 : start.number;
        if (!start.indefinite && count > m_rest.size())
            return false;
        for (uint64_t i = 0; start.indefinite ? !atBreak() : i < count * each; i++) {
            Head next;
            if (!head(&next) || !skip(next, depth + 1))
                return false;
        }
        return true;
    }
    bool empty() const { return m_rest.empty(); }

private:
    bool piece(uint64_t size, std::string *bytes)
    {
        if (size > m_rest.size())
            return false;
        if (bytes)
            bytes->append(m_rest.substr(0, size_t(size)));
        m_rest.remove_prefix(size_t(size));
        return true;
    }

    std::string_view m_rest;
};

bool read_text(Cbor &cbor, std::string *text)
{
    Head head;
    return cbor.head(&head) && head.major == TEXT && cbor.string(head, text);
}

// One [kind, contents] pair.
bool read_item(Cbor &cbor, PasteboardContents *contents, std::string *urls)
{
    Head head;
    std::string kind;
    if (!cbor.head(&head) || head.major != ARRAY || head.indefinite || head.number != 2 ||
        !read_text(cbor, &kind) || !cbor.head(&head))
        return false;
    const bool is_png = kind == "png";
    if (!is_png && kind != "text" && kind != "url")
        return cbor.skip(head);
    std::string bytes;
    if (head.major != (is_png ? BYTES : TEXT) || !cbor.string(head, &bytes))
        return false;
    if (kind == "url")
        *urls += (urls->empty() ? "" : "\n") + bytes;
    std::string &place = is_png ? contents->png : contents->text;
    if (kind != "url" && place.empty())
        place = std::move(bytes);
    return true;
}

bool read_items(Cbor &cbor, const Head &array, PasteboardContents *contents)
{
    if (array.major != ARRAY)
        return false;
    std::string urls;
    for (uint64_t i = 0; array.indefinite ? !cbor.atBreak() : i < array.number; i++)
        if (i == ITEMS_MAX || !read_item(cbor, contents, &urls))
            return false;
    if (contents->text.empty())
        contents->text = std::move(urls);
    return true;
}

void append_head(std::string *bytes, Major major, uint64_t number)
{
    const int size = number < 24 ? 0 : number < 0x100 ? 1 : number < 0x10000 ? 2 : 4;
    const uint8_t info = size == 0 ? uint8_t(number) : size == 1 ? 24 : size == 2 ? 25 : 26;
    *bytes += char(uint8_t(major << 5 | info));
    for (int i = size - 1; i >= 0; i--)
        *bytes += char(uint8_t(number >> (8 * i)));
}

void append_string(std::string *bytes, Major major, std::string_view string)
{
    append_head(bytes, major, string.size());
    *bytes += string;
}

} // namespace

bool pasteboard_archive_read(std::string_view archive, PasteboardContents *contents)
{
    *contents = {};
    Cbor cbor(archive);
    Head map;
    if (!cbor.head(&map) || map.major != MAP)
        return false;
    uint64_t version = 0;
    for (uint64_t i = 0; map.indefinite ? !cbor.atBreak() : i < map.number; i++) {
        std::string key;
        Head value;
        if (!read_text(cbor, &key) || !cbor.head(&value))
            return false;
        if (key == "items") {
            if (!read_items(cbor, value, contents))
                return false;
        } else if (!cbor.skip(value)) {
            return false;
        } else if (key == "version" && value.major == UNSIGNED) {
            version = value.number;
        }
    }
    return cbor.empty() && version == VERSION;
}

std::string pasteboard_archive_write(const PasteboardContents &contents)
{
    std::string bytes;
    bytes.reserve(contents.text.size() + contents.png.size() + DISPLAY_PASTEBOARD_MAX -
                  PASTEBOARD_CONTENTS_MAX);
    append_head(&bytes, MAP, 2);
    append_string(&bytes, TEXT, "version");
    append_head(&bytes, UNSIGNED, VERSION);
    append_string(&bytes, TEXT, "items");
    append_head(&bytes, ARRAY, uint64_t(!contents.text.empty()) + !contents.png.empty());
    if (!contents.text.empty()) {
        append_head(&bytes, ARRAY, 2);
        append_string(&bytes, TEXT, "text");
        append_string(&bytes, TEXT, contents.text);
    }
    if (!contents.png.empty()) {
        append_head(&bytes, ARRAY, 2);
        append_string(&bytes, TEXT, "png");
        append_string(&bytes, BYTES, contents.png);
    }
    return bytes;
}
