#include "services/tarvvm/screens/dbus_wire.h"

#include <cstring>

namespace {

constexpr uint8_t FLAG_NO_REPLY = 1;

// Codes of header fields.
enum : uint8_t
{
    FIELD_PATH = 1,
    FIELD_INTERFACE = 2,
    FIELD_MEMBER = 3,
    FIELD_ERROR_NAME = 4,
    FIELD_REPLY_SERIAL = 5,
    FIELD_SIGNATURE = 8
};

size_t aligned(size_t offset, size_t to)
{
    return (offset + to - 1) / to * to;
}

// Walks over the header fields with every step checked against the end.
class FieldReader
{
public:
    FieldReader(const uint8_t *bytes, size_t offset, size_t end)
        : m_bytes(bytes), m_offset(offset), m_end(end)
    {
    }

    bool atEnd() const { return m_offset >= m_end; }
    bool align(size_t to)
    {
        m_offset = aligned(m_offset, to);
        return m_offset <= m_end;
    }
    bool readByte(uint8_t *value)
    {
        if (m_offset >= m_end)
            return false;
        *value = m_bytes[m_offset++];
        return true;
    }
    bool readU32(uint32_t *value)
    {
        if (!align(4) || m_end - m_offset < 4)
            return false;
        *value = dbus_u32(m_bytes + m_offset);
        m_offset += 4;
        return true;
    }
    // A text of a known length and the zero behind it.
    bool readText(size_t length, std::string *text)
    {
        if (m_offset > m_end || m_end - m_offset <= length || m_bytes[m_offset + length] != 0)
            return false;
        text->assign(reinterpret_cast<const char *>(m_bytes) + m_offset, length);
        m_offset += length + 1;
        return true;
    }
    bool readSignature(std::string *text)
    {
        uint8_t length = 0;
        return readByte(&length) && readText(length, text);
    }
    bool readString(std::string *text)
    {
        uint32_t length = 0;
        return readU32(&length) && readText(length, text);
    }

private:
    const uint8_t *m_bytes;
    size_t m_offset;
    size_t m_end;
};

bool read_field(FieldReader &reader, DbusHeader *header)
{
    uint8_t code = 0;
    std::string kind;
    std::string text;
    uint32_t number = 0;
    if (!reader.align(8) || !reader.readByte(&code) || !reader.readSignature(&kind))
        return false;
    if (kind == "s" || kind == "o" ? !reader.readString(&text)
        : kind == "g"              ? !reader.readSignature(&text)
        : kind == "u"              ? !reader.readU32(&number)
                                   : true)
        return false;
    switch (code) {
    case FIELD_PATH:
        header->path = text;
        break;
    case FIELD_INTERFACE:
        header->interface = text;
        break;
    case FIELD_MEMBER:
        header->member = text;
        break;
    case FIELD_SIGNATURE:
        header->signature = text;
        break;
    default:
        break;
    }
    return true;
}

void put_u32(std::string *bytes, uint32_t value)
{
    for (int i = 0; i < 4; i++, value >>= 8)
        bytes->push_back(char(value & 0xff));
}

void put_padding(std::string *bytes, size_t to)
{
    bytes->resize(aligned(bytes->size(), to), '\0');
}

void put_field_start(std::string *bytes, uint8_t code, char kind)
{
    put_padding(bytes, 8);
    bytes->append({char(code), 1, kind, 0});
}

void put_signature(std::string *bytes, const std::string &signature)
{
    put_field_start(bytes, FIELD_SIGNATURE, 'g');
    bytes->push_back(char(signature.size()));
    bytes->append(signature.c_str(), signature.size() + 1);
}

void put_string(std::string *bytes, const std::string &text)
{
    put_u32(bytes, uint32_t(text.size()));
    bytes->append(text.c_str(), text.size() + 1);
}

} // namespace

uint32_t dbus_u32(const uint8_t *bytes)
{
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

std::optional<size_t> dbus_header_length(const uint8_t *start)
{
    const uint32_t fields = dbus_u32(start + 12);
    const uint32_t body = dbus_u32(start + 4);
    if (start[0] != 'l' || start[3] != 1 || fields > DBUS_FIELDS_MAX || body > DBUS_MESSAGE_MAX)
        return std::nullopt;
    return aligned(DBUS_HEADER_START + fields, 8);
}

std::optional<DbusHeader> dbus_parse_header(const uint8_t *bytes, size_t length)
{
    if (length < DBUS_HEADER_START || dbus_header_length(bytes) != length)
        return std::nullopt;
    DbusHeader header;
    header.type = bytes[1];
    header.wants_reply = header.type == DBUS_CALL && (bytes[2] & FLAG_NO_REPLY) == 0;
    header.body_length = dbus_u32(bytes + 4);
    header.serial = dbus_u32(bytes + 8);
    FieldReader reader(bytes, DBUS_HEADER_START, DBUS_HEADER_START + dbus_u32(bytes + 12));
    while (!reader.atEnd())
        if (!read_field(reader, &header))
            return std::nullopt;
    return header;
}

std::string dbus_make_reply(const DbusHeader &call, uint32_t serial, DbusReply reply)
{
    std::string fields;
    put_field_start(&fields, FIELD_REPLY_SERIAL, 'u');
    put_u32(&fields, call.serial);
    std::string body;
    if (reply == DbusReply::unknownMethod) {
        put_field_start(&fields, FIELD_ERROR_NAME, 's');
        put_string(&fields, "org.freedesktop.DBus.Error.UnknownMethod");
    } else if (reply == DbusReply::emptyProperties) {
        put_signature(&fields, "a{sv}");
        put_u32(&body, 0);
        put_padding(&body, 8); // the entries of a dictionary start at a multiple of 8
    }
    const uint8_t type = reply == DbusReply::unknownMethod ? DBUS_ERROR : DBUS_RETURN;
    std::string bytes = {'l', char(type), char(FLAG_NO_REPLY), 1};
    put_u32(&bytes, uint32_t(body.size()));
    put_u32(&bytes, serial);
    put_u32(&bytes, uint32_t(fields.size()));
    bytes += fields;
    put_padding(&bytes, 8);
    return bytes + body;
}
