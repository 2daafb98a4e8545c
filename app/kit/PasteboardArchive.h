// The pasteboard as it travels between host and guest.
//
// One CBOR document (RFC 8949): the map {"version": 1, "items": [[type, content] ...]}. The type is
// one of the texts "text", "url", "html", "png"; the content is a text string, for "png" a byte
// string with a PNG file. At most 64 items and 32 MiB in all.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

struct PasteboardItem
{
    enum class Type
    {
        text,
        url,
        html,
        png
    };
    Type type = Type::text;
    QByteArray data; // UTF-8, or a PNG file

    bool operator==(const PasteboardItem &) const = default;
};

namespace PasteboardArchive {

// Empty when the items are past the caps.
QByteArray write(const QList<PasteboardItem> &items);
// The items in their order. Items of a type not known here are left out; anything else that is not
// an archive gives an empty list, with the reason in `error`.
QList<PasteboardItem> read(const QByteArray &archive, QString *error = nullptr);

} // namespace PasteboardArchive
