// The host's general pasteboard, as the guests share it.
#pragma once

#include <QByteArray>
#include <QObject>

class QMimeData;

class HostPasteboard : public QObject
{
    Q_OBJECT

public:
    // The one of the application; main thread.
    static HostPasteboard &general();

    // Grows with every change of the host's contents.
    qint64 changeCount() const { return m_changeCount; }
    // What it holds as an archive; empty when it holds nothing that a guest can take.
    QByteArray archive() const;
    // Puts an archive's contents on it. False, and nothing changed, when it is none. The change is
    // counted when this returns.
    bool setArchive(const QByteArray &archive);

private:
    HostPasteboard();

    qint64 m_changeCount = 0;
    bool m_writing = false;
};
