// Opens a screen over the event loop.
#pragma once

#include "tarvhv/display/TarvDisplay.h"
#include "tarvhv/display/handshake.h"

#include <QSocketNotifier>
#include <QTimer>

// Runs one handshake, calls its handler once and goes. Destroyed before, it calls nobody.
class DisplayConnector : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<void(std::unique_ptr<TarvDisplay>, int error)>;

    DisplayConnector(const QString &path, unsigned index, QObject *parent, Handler handler);

private:
    void advance();
    void waitFor(QSocketNotifier::Type type);
    void finish(std::unique_ptr<TarvDisplay> display, int error);

    QString m_path;
    DisplayHandshake m_handshake;
    Handler m_handler;
    QTimer m_wake; // a deadline, or another try
    std::unique_ptr<QSocketNotifier> m_notifier;
};
