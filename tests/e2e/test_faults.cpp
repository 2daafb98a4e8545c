// The real programs killed, and given wrong input: nothing is left behind, and each says what is
// wrong.
#include "tests/e2e/EndToEnd.h"
#include "tests/support/scratch.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <csignal>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

QString socketPath(const QString &id)
{
    return u"/tmp/com.quelda.tarvhv.%1.%2.sock"_s.arg(id).arg(getuid());
}

} // namespace

class Faults : public EndToEnd
{
protected:
    void expectEngineGone(const QString &id)
    {
        EXPECT_TRUE(waitUntil(20s, [this] {
            return desktop->processes(u"tarvvm"_s).empty() &&
                   desktop->processes(u"qemu-system-x86_64"_s).empty();
        })) << "processes are left behind";
        EXPECT_NE(desktop->status(id), u"running"_s);
    }
    void startAgain(const QString &id)
    {
        const Answer answer = desktop->tarvctl({u"start"_s, id});
        EXPECT_EQ(answer.status, 0) << answer.message.toStdString();
        EXPECT_EQ(desktop->status(id), u"running"_s);
        EXPECT_EQ(desktop->processes(u"qemu-system-x86_64"_s).size(), 1u);
    }
    void killAll(const char *program)
    {
        const std::vector<pid_t> pids = desktop->processes(QLatin1String(program));
        ASSERT_FALSE(pids.empty()) << program;
        for (pid_t pid : pids) {
            kill(pid, SIGKILL);
            ASSERT_TRUE(waitUntil(10s, [pid] { return !processRuns(pid); })) << program;
        }
    }
    std::string failureOf(const QStringList &arguments)
    {
        const Answer answer = desktop->tarvctl(arguments);
        EXPECT_GT(answer.status, 0) << arguments.join(u' ').toStdString();
        return answer.message.toStdString();
    }
};

TEST_F(Faults, anyOfTheProgramsMayBeKilledWhileAVMRuns)
{
    const QString id = desktop->addVM(u"bars"_s, QStringLiteral(GUEST_DIR "/bars.img"));
    desktop->startTarv();
    ASSERT_FALSE(waitForWindow(u"^Virtual Machines$"_s).isEmpty()) << log("tarv");
    EXPECT_TRUE(waitUntil(20s, [this] { return !desktop->processes(u"vlaunchd"_s).empty(); }))
        << "the list has no launch service to ask";
    startAgain(id);

    // The application: the VM runs on, and the next one shows it.
    killAll("tarv");
    EXPECT_EQ(desktop->status(id), u"running"_s);
    EXPECT_TRUE(waitUntil(10s, [this] {
        return desktop->window(u"^Virtual Machines$"_s).isEmpty();
    })) << "the screen still has the window of the one that was killed";
    desktop->startTarv();
    const QString list = waitForWindow(u"^Virtual Machines$"_s);
    ASSERT_FALSE(list.isEmpty());
    EXPECT_TRUE(
        desktop->doubleClickVM(list, [this] { return !desktop->window(u"^bars$"_s).isEmpty(); }));

    // The supervisor: QEMU goes with it, the window closes, the socket does not block.
    killAll("tarvvm");
    expectEngineGone(id);
    EXPECT_EQ(desktop->status(id), u"failed"_s);
    EXPECT_TRUE(waitUntil(10s, [&] { return desktop->window(u"^bars$"_s).isEmpty(); }));
    startAgain(id);

    // The engine: its supervisor says so and ends.
    killAll("qemu-system-x86_64");
    expectEngineGone(id);
    EXPECT_EQ(desktop->status(id), u"failed"_s);
    startAgain(id);

    // The launch service: the VM runs on and the next service knows it.
    killAll("vlaunchd");
    EXPECT_EQ(desktop->status(id), u"running"_s);
    const Answer twice = desktop->tarvctl({u"start"_s, id});
    EXPECT_EQ(desktop->processes(u"tarvvm"_s).size(), 1u) << twice.message.toStdString();
    const Answer stopped = desktop->tarvctl({u"stop"_s, u"--force"_s, id});
    EXPECT_EQ(stopped.status, 0) << stopped.message.toStdString();
    expectEngineGone(id);
    EXPECT_EQ(desktop->status(id), u"stopped"_s);
    EXPECT_FALSE(QFileInfo::exists(socketPath(id)));
}

TEST_F(Faults, wrongInputIsNamedAndNothingIsLost)
{
    const QString guest = QStringLiteral(GUEST_DIR "/bars.img");
    const QStringList start = {u"start"_s};

    const QString noDisk = desktop->addVM(u"no disk"_s, guest);
    QFile::remove(desktop->path(u"data/images/%1.qcow2"_s.arg(noDisk)));
    EXPECT_THAT(failureOf(start + QStringList{noDisk}), HasSubstr(noDisk.toStdString() + ".qcow2"));

    const QString noYaml = desktop->addVM(u"no yaml"_s, guest);
    const std::string record =
        desktop->path(u"data/vms/%1/config.yaml"_s.arg(noYaml)).toStdString();
    write_file(record, "name: [unclosed\n");
    EXPECT_THAT(failureOf(start + QStringList{noYaml}), HasSubstr("config.yaml"));
    EXPECT_EQ(read_file(record), "name: [unclosed\n");

    const QString taken = desktop->addVM(u"taken"_s, guest);
    const int squatter = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, qPrintable(socketPath(taken)), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(squatter, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(squatter, 4), 0);
    EXPECT_THAT(failureOf(start + QStringList{taken}), HasSubstr(socketPath(taken).toStdString()));
    EXPECT_TRUE(QFileInfo::exists(socketPath(taken)));
    close(squatter);
    unlink(qPrintable(socketPath(taken)));

    EXPECT_THAT(failureOf(start + QStringList{u"nobody"_s}), HasSubstr("nobody"));
    EXPECT_THAT(failureOf({u"create"_s, u"new"_s, desktop->path(u"missing.iso"_s)}),
                HasSubstr("missing.iso"));
    EXPECT_EQ(desktop->tarvctl({u"list"_s}).body.toArray().size(), 3)
        << "the three VMs, the unreadable one too, and no new one";
}
