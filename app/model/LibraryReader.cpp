#include "app/model/LibraryReader.h"

#include "app/model/statusWord.h"
#include "hostlib/vm/owners.h"
#include "policy/owners.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {
// How long a pass waits for the next record before it does without those that are missing.
constexpr int PATIENCE_MS = 300;

// Why the last read failed, from errno as that read left it.
QString reason(int error)
{
    const QString text = QString::fromLocal8Bit(std::strerror(error));
    const QString detail = QString::fromUtf8(kv_yaml_error());
    const bool malformed = error == EINVAL || error == EFBIG || error == E2BIG;
    return malformed && !detail.isEmpty() ? detail : text;
}

QByteArrayList libraryIdentifiers()
{
    const VmlibOwner library(vmlib_open(nullptr));
    QByteArrayList ids;
    while (const char *id = library ? vmlib_next(library.get()) : nullptr)
        ids.append(id);
    return ids;
}
} // namespace

LibraryRecord readLibraryRecord(vmlib *library, const QByteArray &id)
{
    LibraryRecord result;
    result.id = QFile::decodeName(id);
    errno = ENOENT; // stays so where the library itself is gone
    const VmOwner record(library ? vmlib_get(library, id.constData(), nullptr) : nullptr);
    if (!record) {
        result.vanished = errno == ENOENT;
        result.problem = reason(errno);
        return result;
    }
    const KvOwner config(vm_read_config(record.get()));
    if (!config) {
        result.problem = QFile::decodeName(vm_config_path(record.get())) + u": "_s + reason(errno);
        return result;
    }
    result.name = QString::fromUtf8(kv_get_str(config.get(), "name", ""));
    if (kv_get(config.get(), "state_file"))
        result.status = statusWord(VmStatus::suspended);
    if (const KvOwner version(vm_read_version(record.get()));
        version && kv_type(version.get()) == KV_MAP)
        result.version = QString::fromUtf8(kv_get_str(version.get(), "tag", ""));
    return result;
}

LibraryReader::LibraryReader(QObject *parent) : QObject(parent)
{
    m_patience.setSingleShot(true);
    m_patience.setInterval(PATIENCE_MS);
    connect(&m_patience, &QTimer::timeout, this, &LibraryReader::finishPass);
}

void LibraryReader::read()
{
    if (m_reading) {
        m_again = true;
        return;
    }
    startPass();
}

void LibraryReader::startPass()
{
    m_reading = true;
    m_again = false;
    m_work.run(BackgroundWork::Lane::records, [this]() -> BackgroundWork::Continuation {
        return [this, ids = libraryIdentifiers()] { readRecords(ids); };
    });
}

void LibraryReader::readRecords(const QByteArrayList &ids)
{
    m_pass++;
    m_ids = ids;
    m_records.assign(static_cast<size_t>(ids.size()), std::nullopt);
    m_missing = 0;
    for (size_t place = 0; place < m_records.size(); place++) {
        const QByteArray &id = ids.at(static_cast<qsizetype>(place));
        if (m_underWay.contains(id))
            continue; // its read of an earlier pass still waits and will see what it waits for
        m_underWay.insert(id);
        m_missing++;
        m_work.run(BackgroundWork::Lane::records,
                   [this, id, place, pass = m_pass]() -> BackgroundWork::Continuation {
                       const VmlibOwner library(vmlib_open(nullptr));
                       const LibraryRecord record = readLibraryRecord(library.get(), id);
                       return [this, place, pass, record] { take(place, pass, record); };
                   });
    }
    m_missing == 0 ? finishPass() : m_patience.start();
}

void LibraryReader::take(size_t place, unsigned pass, const LibraryRecord &record)
{
    m_underWay.remove(QFile::encodeName(record.id));
    if (pass != m_pass || !m_reading) {
        Q_EMIT lateRecordRead(record);
        return;
    }
    m_records.at(place) = record;
    m_missing--;
    m_missing == 0 ? finishPass() : m_patience.start();
}

void LibraryReader::finishPass()
{
    m_patience.stop();
    QList<LibraryRecord> records;
    records.reserve(m_ids.size());
    for (size_t place = 0; place < m_records.size(); place++) {
        if (const auto record = std::exchange(m_records.at(place), std::nullopt)) {
            if (!record->vanished)
                records.append(*record);
            continue;
        }
        LibraryRecord missing;
        missing.id = QFile::decodeName(m_ids.at(static_cast<qsizetype>(place)));
        missing.problem = tr("Another program keeps its files locked.");
        records.append(missing);
    }
    m_reading = false;
    Q_EMIT libraryRead(records);
    if (m_again)
        read();
}
