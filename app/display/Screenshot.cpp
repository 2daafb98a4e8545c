#include "app/display/Screenshot.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QLocale>
#include <QSaveFile>
#include <QStandardPaths>
#include <QThreadPool>
#include <QUrl>

namespace {

constexpr double POINTS_PER_METRE = 72 / 0.0254;

} // namespace

QString Screenshot::path(const QString &name, const QDateTime &time)
{
    const QString directory = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    const QString encoded =
        QString::fromLatin1(QUrl::toPercentEncoding(name, QByteArrayLiteral("!$&'()*+,/:;=@")));
    const QString stamp = QLocale().toString(
        time, QCoreApplication::translate("Screenshot", "d MMM yyyy' at 'HH.mm.ss"));
    return QStringLiteral("%1/%2 %3.png").arg(directory, encoded, stamp);
}

QByteArray Screenshot::encode(QImage image)
{
    const int density = qRound(POINTS_PER_METRE * image.devicePixelRatio());
    image.setDotsPerMeterX(density);
    image.setDotsPerMeterY(density);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    image.save(&buffer, "PNG");
    return bytes;
}

void Screenshot::save(const QImage &image, const QString &path)
{
    if (image.isNull())
        return;
    QThreadPool::globalInstance()->start([image, path] {
        QSaveFile file(path);
        if (file.open(QIODevice::WriteOnly) && file.write(encode(image)) > 0)
            file.commit();
    });
}
