// One VM as the list shows it: identifier, name, version, and a status asked for on every read.
#pragma once

#include "tarvhv/cli2/start_mode.h"

#include <QIcon>
#include <QObject>
#include <QString>
#include <QVariant>

#include <cstdint>
#include <functional>

// Used on the main thread, apart from the class operations marked otherwise.
class TarvVM : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString uuid READ uuid CONSTANT)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QString version READ version WRITE setVersion NOTIFY versionChanged)
    Q_PROPERTY(QString status READ status WRITE setStatus NOTIFY statusChanged)
    Q_PROPERTY(
        bool policyEnabled READ policyEnabled WRITE setPolicyEnabled NOTIFY policyEnabledChanged)
    Q_PROPERTY(QString displayName READ displayName NOTIFY displayNameChanged)
    Q_PROPERTY(QString displayStatus READ displayStatus NOTIFY displayStatusChanged)
    Q_PROPERTY(QIcon displayIcon READ displayIcon)

public:
    explicit TarvVM(const QString &vmid, QObject *parent = nullptr);
    // A null status is none: the VM is then "stopped" when it neither runs nor failed.
    TarvVM(const QString &vmid, const QString &name, const QString &status,
           QObject *parent = nullptr);

    // Records how a VM's last run in this process's care ended: 0 cleanly, 1 with an error.
    static void setVM(const QString &vmid, int32_t status);

    const QString &uuid() const { return m_uuid; }
    const QString &name() const { return m_name; }
    // Renames the VM through the controller; the name changes once that succeeded.
    void setName(const QString &name);
    // The version label as stored, a line end included; null when there is none.
    const QString &version() const { return m_version; }
    void setVersion(const QString &version);
    // The same on one line, for people.
    QString shownVersion() const { return m_version.simplified(); }
    bool policyEnabled() const { return m_policyEnabled; }
    void setPolicyEnabled(bool enabled);

    // "running", "malfunction", "failed", the stored status or "stopped". Asks the VM's supervisor
    // and the launch service, so it can block for 5 s and more.
    QString status() const;
    // Sets the stored status: the one of a VM that neither runs nor failed. Null: none.
    void setStatus(const QString &status);

    // "name (version)", or the name alone; on one line as far as the version goes.
    QString displayName() const;
    // The status as a title. Blocks as `status` does.
    QString displayStatus() const;
    // A lock where a policy holds, else none. Blocks as `status` does.
    QIcon displayIcon() const;

    // The three derived values for a status that is known already.
    QString restingStatus() const; // of a VM that neither runs nor failed
    static QString displayStatusOf(const QString &status);
    QIcon displayIconFor(const QString &status) const;

    // What the VM's supervisor says; null when it does not run. Any thread; up to 5 s.
    static QString serviceStatus(const QString &vmid);
    // Whether its last run in this process's care ended badly. Any thread.
    static bool hasFailedHere(const QString &vmid);

    // The same object, or an equal identifier, ignoring case: a text, a QUuid or another TarvVM.
    bool isEqual(const QVariant &object) const;
    bool isEqual(const TarvVM *other) const;

    // Starts the VM (the number of a start mode) and opens its screen; of a running VM, opens its
    // screen. Does not wait: it goes on when the supervisor has said whether the VM runs, also
    // if this object is gone by then.
    Q_INVOKABLE void start(int32_t options) { start(start_mode_nearest(options)); }
    void start(StartMode mode);
    // The same at once, with a status that has been read already.
    void start(StartMode mode, const QString &status);

    // Who opens a display window, or brings it forward. Without one such requests are dropped.
    using DisplayOpener = std::function<void(const QString &path, int index)>;
    static void setDisplayOpener(DisplayOpener opener);

Q_SIGNALS:
    void nameChanged();
    void versionChanged();
    void statusChanged();
    void policyEnabledChanged();
    void displayNameChanged();
    void displayStatusChanged();

private:
    const QString m_uuid;
    QString m_name;
    QString m_version;
    QString m_storedStatus;
    bool m_policyEnabled = false;
};
