#include "app/kit/PasteboardArchive.h"

#include "tarvhv/cli2/display_protocol.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborStreamReader>
#include <QCborStreamWriter>

#include <iterator>

namespace {

constexpr qint64 VERSION_WRITTEN = 1;
constexpr qsizetype ITEMS_MAX = 64;
constexpr qsizetype BYTES_MAX = qsizetype(DISPLAY_PASTEBOARD_MAX);
constexpr const char *TYPE_NAMES[] = {"text", "url", "html", "png"};

bool fail(QString *error, const char *reason)
{
    if (error)
        *error = QString::fromLatin1(reason);
    return false;
}

bool readText(QCborStreamReader &reader, QByteArray *text)
{
    if (!reader.isString())
        return false;
    auto part = reader.readString();
    while (part.status == QCborStreamReader::Ok) {
        text->append(part.data.toUtf8());
        part = reader.readString();
    }
    return part.status == QCborStreamReader::EndOfString;
}

bool readBytes(QCborStreamReader &reader, QByteArray *bytes)
{
    if (!reader.isByteArray())
        return false;
    auto part = reader.readByteArray();
    while (part.status == QCborStreamReader::Ok) {
        bytes->append(part.data);
        part = reader.readByteArray();
    }
    return part.status == QCborStreamReader::EndOfString;
}

// One [type, content] pair.
bool readItem(QCborStreamReader &reader, QList<PasteboardItem> *items)
{
    QByteArray type;
    if (!reader.isArray() || !reader.isLengthKnown() || reader.length() != 2 ||
        !reader.enterContainer() || !readText(reader, &type))
        return false;
    const auto *known = std::find(std::begin(TYPE_NAMES), std::end(TYPE_NAMES), type);
    if (known == std::end(TYPE_NAMES)) {
        if (!reader.next())
            return false;
    } else {
        PasteboardItem item{PasteboardItem::Type(known - TYPE_NAMES), {}};
        const bool read = item.type == PasteboardItem::Type::png ? readBytes(reader, &item.data)
                                                                 : readText(reader, &item.data);
        if (!read)
            return false;
        items->append(item);
    }
    return reader.leaveContainer();
}

bool readItems(QCborStreamReader &reader, QList<PasteboardItem> *items)
{
    if (!reader.isArray() || !reader.enterContainer())
        return false;
    for (qsizetype count = 0; reader.hasNext(); ++count)
        if (count == ITEMS_MAX || !readItem(reader, items))
            return false;
    return reader.leaveContainer();
}

bool readDocument(QCborStreamReader &reader, QList<PasteboardItem> *items, QString *error)
{
    if (!reader.isMap() || !reader.enterContainer())
        return fail(error, "not a pasteboard archive");
    qint64 version = 0;
    while (reader.hasNext()) {
        QByteArray key;
        if (!readText(reader, &key))
            return fail(error, "a key is not a text");
        if (key == "version" && reader.isInteger()) {
            version = reader.toInteger();
            reader.next();
        } else if (key == "items") {
            if (!readItems(reader, items))
                return fail(error, "the items are malformed");
        } else if (!reader.next()) {
            return fail(error, "malformed");
        }
    }
    if (!reader.leaveContainer() || reader.lastError() != QCborError::NoError)
        return fail(error, "cut off or malformed");
    return version == VERSION_WRITTEN || fail(error, "of another version");
}

} // namespace

QByteArray PasteboardArchive::write(const QList<PasteboardItem> &items)
{
    qsizetype size = 0;
    for (const PasteboardItem &item : items)
        size += item.data.size() + 32;
    if (items.size() > ITEMS_MAX || size + 64 > BYTES_MAX)
        return {};
    QByteArray archive;
    QCborStreamWriter writer(&archive);
    writer.startMap(2);
    writer.append(QLatin1String("version"));
    writer.append(VERSION_WRITTEN);
    writer.append(QLatin1String("items"));
    writer.startArray(quint64(items.size()));
    for (const PasteboardItem &item : items) {
        writer.startArray(2);
        writer.append(QLatin1String(TYPE_NAMES[int(item.type)]));
        if (item.type == PasteboardItem::Type::png)
            writer.append(item.data);
        else
            writer.appendTextString(item.data.constData(), item.data.size());
        writer.endArray();
    }
    writer.endArray();
    writer.endMap();
    return archive;
}

QList<PasteboardItem> PasteboardArchive::read(const QByteArray &archive, QString *error)
{
    if (error)
        error->clear();
    if (archive.size() > BYTES_MAX) {
        fail(error, "too large");
        return {};
    }
    QCborStreamReader reader(archive);
    QList<PasteboardItem> items;
    if (!readDocument(reader, &items, error))
        return {};
    return items;
}
