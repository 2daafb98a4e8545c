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

QByteArray png_of(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    image.save(&buffer, "PNG");
    return bytes;
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
    if (data->hasImage())
        items.append({Type::png, png_of(qvariant_cast<QImage>(data->imageData()))});
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
            data->setImageData(QImage::fromData(item.data, "PNG"));
            break;
        }
    }
    if (!urls.isEmpty())
        data->setUrls(urls);
    m_writing = true; // the clipboard may tell of this at once, or not at all
    QGuiApplication::clipboard()->setMimeData(data.release());
    m_writing = false;
    m_changeCount++;
    return true;
}
