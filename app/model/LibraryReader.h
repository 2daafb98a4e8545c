// Reads the VM library off the main thread.
#pragma once

#include "app/kit/BackgroundWork.h"

#include <QByteArrayList>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

#include <optional>
#include <vector>

struct vmlib;

// What the library says about one VM.
struct LibraryRecord
{
    QString id;
    QString name;          // "" when the configuration has none
    QString status;        // "suspended", or null
    QString version;       // null when there is none
    QString problem;       // why the VM can't be read, for the user; null when it can
    bool vanished = false; // deleted since the library was listed
};

// Reads one VM of a library (null: one that is gone). Blocks while another program writes the VM's
// files.
LibraryRecord readLibraryRecord(vmlib *library, const QByteArray &id);

// Passes over the library, one at a time. A VM whose files are locked for long does not hold up the
// pass: it is reported as a problem, and read when the lock is gone.
class LibraryReader : public QObject
{
    Q_OBJECT

public:
    explicit LibraryReader(QObject *parent = nullptr);

    // Starts a pass. During one, it asks for another after it, however often it is called.
    void read();

Q_SIGNALS:
    // A pass is done: every VM of the library, in directory order.
    void libraryRead(const QList<LibraryRecord> &records);
    // A VM that an earlier pass did not wait for.
    void lateRecordRead(const LibraryRecord &record);

private:
    void startPass();
    void readRecords(const QByteArrayList &ids);
    void take(size_t place, unsigned pass, const LibraryRecord &record);
    void finishPass();

    BackgroundWork m_work;
    QByteArrayList m_ids;                                // of this pass
    std::vector<std::optional<LibraryRecord>> m_records; // by place in m_ids
    QSet<QByteArray> m_underWay;                         // being read, for whichever pass
    QTimer m_patience;                                   // restarted by each record
    size_t m_missing = 0;                                // records that this pass waits for
    unsigned m_pass = 0;
    bool m_reading = false;
    bool m_again = false;
};
