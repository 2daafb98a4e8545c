#include "app/model/StatusReader.h"

#include "app/model/TarvVM.h"

#include <QElapsedTimer>
#include <QTimer>

#include <utility>

using namespace Qt::StringLiterals;

namespace {
// A supervisor that took longer than this is asked last the next time.
constexpr int slow_ms = 500;
constexpr int gather_ms = 1000;
} // namespace

StatusReader::StatusReader(QObject *parent) : QObject(parent) {}

void StatusReader::ask(const QString &vmid)
{
    Question &question = m_questions[vmid];
    if (std::exchange(question.underWay, true)) {
        question.again = true;
        return;
    }
    askService(vmid);
}

void StatusReader::askService(const QString &vmid)
{
    m_work.run(
        BackgroundWork::Lane::supervisors,
        [this, vmid]() -> BackgroundWork::Continuation {
            QElapsedTimer timer;
            timer.start();
            const QString status = TarvVM::serviceStatus(vmid);
            return [this, vmid, status, slow = timer.elapsed() > slow_ms] {
                m_questions[vmid].slow = slow;
                status.isNull() ? askLaunchService(vmid) : answer(vmid, status);
            };
        },
        m_questions[vmid].slow ? -1 : 0);
}

void StatusReader::askLaunchService(const QString &vmid)
{
    m_work.run(BackgroundWork::Lane::launchService, [this, vmid]() -> BackgroundWork::Continuation {
        const QString status = TarvVM::hasFailed(vmid) ? u"failed"_s : QString();
        return [this, vmid, status] { answer(vmid, status); };
    });
}

void StatusReader::answer(const QString &vmid, const QString &status)
{
    Question &question = m_questions[vmid];
    question.underWay = false;
    const bool again = std::exchange(question.again, false);
    Q_EMIT statusRead(vmid, status);
    settle(vmid);
    if (again)
        ask(vmid);
}

void StatusReader::gather(const QStringList &vmids, Done done)
{
    if (vmids.isEmpty())
        return done({});
    const auto gathering = std::make_shared<Gathering>();
    gathering->missing = QSet<QString>(vmids.begin(), vmids.end());
    gathering->done = std::move(done);
    m_gatherings.append(gathering);
    QTimer::singleShot(gather_ms, this, [this, gathering] { finish(gathering); });
    for (const QString &vmid : vmids)
        ask(vmid);
}

void StatusReader::settle(const QString &vmid)
{
    const QList<std::shared_ptr<Gathering>> gatherings = m_gatherings;
    for (const auto &gathering : gatherings)
        if (gathering->missing.remove(vmid) && gathering->missing.isEmpty())
            finish(gathering);
}

void StatusReader::finish(const std::shared_ptr<Gathering> &gathering)
{
    if (m_gatherings.removeOne(gathering))
        gathering->done(gathering->missing);
}
