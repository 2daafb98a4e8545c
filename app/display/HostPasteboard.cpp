#include "app/display/HostPasteboard.h"

#include "app/kit/PasteboardArchive.h"

#include <QBuffer>
#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <QUrl>

#include <memory>

namespace {

const QString PNG_FORMAT = QStringLiteral("image/png");

// A picture as its program gave it, where that is a PNG file.
QByteArray pngOf(const QMimeData &data)
{
    QByteArray bytes = data.data(PNG_FORMAT);
    if (!bytes.isEmpty())
        return bytes;
    QBuffer buffer(&bytes);
    qvariant_cast<QImage>(data.imageData()).save(&buffer, "PNG");
    return bytes;
}

void addPng(QMimeData &data, const QByteArray &png)
{
    const QImage image = QImage::fromData(png, "PNG");
    if (image.isNull())
        return;
    data.setImageData(image);
    data.setData(PNG_FORMAT, png);
}

} // namespace

HostPasteboard &HostPasteboard::general()
{
    static HostPasteboard pasteboard;
    return pasteboard;
}

HostPasteboard::HostPasteboard()
{
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this, [this] {
        if (!m_writing)
            m_changeCount++;
    });
}

QByteArray HostPasteboard::archive() const
{
    using Type = PasteboardItem::Type;
    const QMimeData *data = QGuiApplication::clipboard()->mimeData();
    QList<PasteboardItem> items;
    if (!data)
        return {};
    if (data->hasText())
        items.append({Type::text, data->text().toUtf8()});
    if (data->hasUrls())
        for (const QUrl &url : data->urls())
            items.append({Type::url, url.toEncoded()});
    if (data->hasHtml())
        items.append({Type::html, data->html().toUtf8()});
    if (data->hasImage() || data->hasFormat(PNG_FORMAT))
        items.append({Type::png, pngOf(*data)});
    items.removeIf([](const PasteboardItem &item) { return item.data.isEmpty(); });
    if (items.isEmpty())
        return {};
    QByteArray archive = PasteboardArchive::write(items);
    if (!archive.isEmpty())
        return archive;
    // A picture that is too large is no reason to keep the text back.
    items.removeIf([](const PasteboardItem &item) { return item.type == Type::png; });
    return items.isEmpty() ? QByteArray() : PasteboardArchive::write(items);
}

bool HostPasteboard::setArchive(const QByteArray &archive)
{
    const QList<PasteboardItem> items = PasteboardArchive::read(archive);
    if (items.isEmpty())
        return false;
    auto data = std::make_unique<QMimeData>();
    QList<QUrl> urls;
    for (const PasteboardItem &item : items) {
        switch (item.type) {
        case PasteboardItem::Type::text:
            data->setText(QString::fromUtf8(item.data));
            break;
        case PasteboardItem::Type::url:
            urls.append(QUrl::fromEncoded(item.data));
            break;
        case PasteboardItem::Type::html:
            data->setHtml(QString::fromUtf8(item.data));
            break;
        case PasteboardItem::Type::png:
            addPng(*data, item.data);
            break;
        }
    }
    if (!urls.isEmpty())
        data->setUrls(urls);
    if (data->formats().isEmpty())
        return false;
    m_writing = true; // the clipboard may tell of this at once, or not at all
    QGuiApplication::clipboard()->setMimeData(data.release());
    m_writing = false;
    m_changeCount++;
    return true;
}
