// Screenshots of guests as PNG files on the user's desktop.
#pragma once

#include <QDateTime>
#include <QImage>
#include <QString>

namespace Screenshot {

// Where a VM's screenshot of that time goes. The name is percent-encoded as in the path of a URL,
// so that a slash in it stays one.
QString path(const QString &name, const QDateTime &time);
// The image as a PNG file that says how large it is in points.
QByteArray encode(QImage image);
// Writes the file at once or not at all, off the main thread. A failure is not reported.
void save(const QImage &image, const QString &path);

} // namespace Screenshot
