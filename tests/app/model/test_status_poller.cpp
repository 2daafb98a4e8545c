#include "app/model/StatusPoller.h"
#include "platform/unique_fd.h"
#include "tarvhv/cli2.h"
#include "tests/app/fixtures/list_fixture.h"

#include <QDir>
#include <QFile>

#include <vector>

using namespace Qt::StringLiterals;

namespace {

qsizetype threads()
{
    return QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

} // namespace

using StatusPolling = ListTest;

TEST_F(StatusPolling, asksAHundredFromOneThreadAndNoneWaitsForSilentOnes)
{
    startLaunchService();
    const QString running = randomId(), stopped = randomId();
    supervise(running);
    QStringList all;
    std::vector<UniqueFd> silent;
    for (int i = 0; i < 100; i++) {
        all.append(randomId());
        silent.emplace_back(cli2_listen(qPrintable(supervisorPath(all.last()))));
        ASSERT_TRUE(silent.back());
    }
    const QStringList mute = all;
    all << running << stopped;

    StatusPoller poller;
    QHash<QString, QString> statuses;
    QObject::connect(&poller, &StatusPoller::statusRead,
                     [&](const QString &vmid, const QString &status) { statuses[vmid] = status; });
    const qsizetype before = threads();
    QSet<QString> late;
    poller.gather(all, [&](const QSet<QString> &missing) { late = missing; });
    EXPECT_TRUE(waitUntil([&] { return statuses.size() == 2; }));
    EXPECT_EQ(statuses.value(running), u"running"_s);
    EXPECT_TRUE(statuses.value(stopped).isNull());
    EXPECT_LE(threads(), before + 1);
    EXPECT_TRUE(waitUntil([&] { return !late.isEmpty(); }));
    EXPECT_EQ(late, QSet<QString>(mute.begin(), mute.end()));
    for (const QString &id : mute)
        poller.ask(id); // again: each once, after the question that is under way
    EXPECT_TRUE(waitUntil([&] { return statuses.size() == all.size(); }));
    EXPECT_EQ(statuses.value(mute.first()), u"malfunction"_s);
    for (const QString &id : mute)
        QFile::remove(supervisorPath(id));
}
