// The session bus, taken up again when it was lost.
#pragma once

#include "app/kit/BackgroundWork.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QTimer>

// A bus that restarts leaves its old connections dead for good: a new one is tried for until there
// is one, off the main thread, since a bus may accept and not answer. Losing the bus costs no
// window and no VM; changes made elsewhere are not seen meanwhile.
class SessionBus : public QObject
{
    Q_OBJECT

public:
    // At an address, or (empty) the session's own.
    explicit SessionBus(const QString &address = {}, QObject *parent = nullptr);
    ~SessionBus() override;

    // The present one; perhaps not connected.
    QDBusConnection connection() const { return QDBusConnection(m_name); }

Q_SIGNALS:
    // There is another connection. Names and signals have to be asked for again.
    void reconnected();

private:
    void watch();
    void retry();
    Q_SLOT void disconnected();

    const QString m_address;
    QString m_name; // of the connection
    QTimer m_due;
    BackgroundWork m_work;
};
