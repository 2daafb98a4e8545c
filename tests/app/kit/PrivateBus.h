// A message bus of a test's own.
#pragma once

#include <QProcess>

// The bus ends with the object, or with the test's process.
class PrivateBus
{
public:
    PrivateBus();
    ~PrivateBus();
    QString address() const { return m_address; } // empty when there is no bus

    void stop();
    // At the same address.
    void startAgain();

private:
    void start(const QStringList &more);

    QProcess m_daemon;
    QString m_address;
};
