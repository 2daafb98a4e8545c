// What the VM list shows: the VMs of the library and their statuses, kept up to date.
#pragma once

#include "app/model/LibraryReader.h"
#include "app/model/StatusPoller.h"

#include <QMap>
#include <QObject>
#include <QTimer>

class VirtualMachinesController;

// Reads the library and the statuses off the main thread and merges what arrives into the table's
// model. It never removes a VM. Nothing here knows of a window.
class ListContents : public QObject
{
    Q_OBJECT

public:
    explicit ListContents(QObject *parent = nullptr);

    VirtualMachinesController *machines() const { return m_machines; }
    // VMs that can't be read, by identifier, with the reason.
    const QMap<QString, QString> &problems() const { return m_problems; }

    // Reads the library again. It returns at once; `reloaded` follows.
    void reload();
    // Something changed: reloads, at once when nothing changed lately. However many changes follow,
    // they share the next reload.
    void reloadSoon();
    // Asks for all statuses again.
    void readStatuses();
    // The statuses of some VMs, fresh where these answer in time; see StatusPoller::gather.
    void gatherStatuses(const QStringList &vmids, StatusPoller::Done done);

Q_SIGNALS:
    // A pass over the library has been merged.
    void reloaded();
    // VMs were added, or others can or can't be read.
    void changed();

private:
    void takeLibrary(const QList<LibraryRecord> &records);
    void takeLateRecord(const LibraryRecord &record);
    void merge(const QList<LibraryRecord> &records);

    VirtualMachinesController *m_machines;
    LibraryReader m_library;
    StatusPoller m_statuses;
    QTimer m_changesGather; // runs for a while after a reload that a change caused
    bool m_changed = false; // a change came while it ran
    QMap<QString, QString> m_problems;
};
