// The few bytes of the D-Bus wire protocol that a display listener needs, for a connection whose
// peer is QEMU itself: little-endian, without a bus in between.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// Every header starts with this many bytes, which tell the length of the rest.
inline constexpr size_t DBUS_HEADER_START = 16;
inline constexpr size_t DBUS_FIELDS_MAX = 64 * 1024;
inline constexpr size_t DBUS_MESSAGE_MAX = 128 * 1024 * 1024;

enum : uint8_t
{
    DBUS_CALL = 1,
    DBUS_RETURN = 2,
    DBUS_ERROR = 3,
    DBUS_SIGNAL = 4
};

struct DbusHeader
{
    uint8_t type = 0;
    bool wants_reply = false;
    uint32_t serial = 0;
    uint32_t body_length = 0;
    std::string path;
    std::string interface;
    std::string member;
    std::string signature;
};

// The length of the whole header, its padding included, from its first DBUS_HEADER_START bytes.
// None for bytes that can't start a message of ours: big-endian, another version, past the caps.
std::optional<size_t> dbus_header_length(const uint8_t *start);
// Reads a header of exactly that length. None when it is malformed.
std::optional<DbusHeader> dbus_parse_header(const uint8_t *bytes, size_t length);

// The answer to a call: without a value, with an empty a{sv}, or an error of a name.
enum class DbusReply
{
    nothing,
    emptyProperties,
    unknownMethod
};
std::string dbus_make_reply(const DbusHeader &call, uint32_t serial, DbusReply reply);

// A 32-bit value of a body, which the caller knows to be long enough.
uint32_t dbus_u32(const uint8_t *bytes);
