// The signals that ask a program to end, as a request that the event loop sees.
#pragma once

#include "platform/unique_fd.h"

#include <QObject>
#include <QSocketNotifier>

#include <memory>

// While it lives, SIGTERM, SIGINT and SIGHUP do not end the process (those that it was started to
// ignore stay ignored). One at a time; children start without it.
class QuitSignals : public QObject
{
    Q_OBJECT

public:
    explicit QuitSignals(QObject *parent = nullptr);
    ~QuitSignals() override;

Q_SIGNALS:
    void received();

private:
    UniqueFd m_read;
    UniqueFd m_write;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
