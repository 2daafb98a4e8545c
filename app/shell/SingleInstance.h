// One running application: its name on the session bus, and what a second start hands to it.
#pragma once

#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

// Serves org.freedesktop.Application under the name com.quelda.Tarv.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    enum class Role
    {
        first,  // this one owns the name
        second, // another does
        alone   // there is no session bus (logged): nobody can be asked
    };

    explicit SingleInstance(QDBusConnection bus = QDBusConnection::sessionBus(),
                            QObject *parent = nullptr);
    ~SingleInstance() override;

    Role claim();
    QDBusConnection connection() const { return m_bus; }
    // Goes on with another connection, after the bus was lost: claims the name there.
    void use(const QDBusConnection &bus);
    // Gives the name up: the next start is a first one.
    void release();
    // Asks the running application to open these, or to come to the front when there are none.
    // Waits for its answer. False with a reason.
    bool handOver(const QList<QUrl> &urls, QString *error);

Q_SIGNALS:
    // Another connection is in use; signals have to be connected to anew.
    void connectionChanged();
    void activationRequested();
    void openRequested(const QList<QUrl> &urls);
    // An action of the desktop entry.
    void actionRequested(const QString &name);

private:
    QDBusConnection m_bus;
    bool m_owner = false;
};
