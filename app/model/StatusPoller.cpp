#include "app/model/StatusPoller.h"

#include "app/model/StatusAsker.h"

#include <QTimer>

#include <chrono>
#include <utility>

namespace {
// A supervisor that took longer than this is asked last the next time.
constexpr std::chrono::milliseconds SLOW{500};
constexpr std::chrono::milliseconds GATHERING{1000};
} // namespace

StatusPoller::StatusPoller(QObject *parent) : QObject(parent) {}

void StatusPoller::ask(const QString &vmid)
{
    Question &question = m_questions[vmid];
    if (std::exchange(question.underWay, true)) {
        question.again = true;
        return;
    }
    const auto started = std::chrono::steady_clock::now();
    const auto told = [this, post = m_work.poster(), vmid, started](const QString &status) {
        post([this, vmid, status, started] {
            m_questions[vmid].slow = std::chrono::steady_clock::now() - started > SLOW;
            answer(vmid, status);
        });
    };
    askStatus(vmid, question.slow ? -1 : 0, told);
}

void StatusPoller::answer(const QString &vmid, const QString &status)
{
    Question &question = m_questions[vmid];
    question.underWay = false;
    const bool again = std::exchange(question.again, false);
    Q_EMIT statusRead(vmid, status);
    settle(vmid);
    if (again)
        ask(vmid);
}

void StatusPoller::gather(const QStringList &vmids, Done done)
{
    if (vmids.isEmpty())
        return done({});
    const auto gathering = std::make_shared<Gathering>();
    gathering->missing = QSet<QString>(vmids.begin(), vmids.end());
    gathering->done = std::move(done);
    m_gatherings.append(gathering);
    QTimer::singleShot(GATHERING, this, [this, gathering] { finish(gathering); });
    for (const QString &vmid : vmids)
        ask(vmid);
}

void StatusPoller::settle(const QString &vmid)
{
    const QList<std::shared_ptr<Gathering>> gatherings = m_gatherings;
    for (const auto &gathering : gatherings)
        if (gathering->missing.remove(vmid) && gathering->missing.isEmpty())
            finish(gathering);
}

void StatusPoller::finish(const std::shared_ptr<Gathering> &gathering)
{
    if (m_gatherings.removeOne(gathering))
        gathering->done(gathering->missing);
}
