// The real programs killed, and given wrong input: nothing is left behind, and each says what is
// wrong.
#include "tests/e2e/EndToEnd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <csignal>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

QString socketPath(const QString &id)
{
    return QStringLiteral("/tmp/com.quelda.tarvhv.%1.%2.sock").arg(id).arg(getuid());
}

void writeFile(const QString &path, const QByteArray &text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
}

} // namespace

class Faults : public EndToEnd
{
protected:
    void expectEngineGone(const QString &id)
    {
        EXPECT_TRUE(waitUntil(20s, [this] {
            return desktop->processes(QStringLiteral("tarvvm")).empty() &&
                   desktop->processes(QStringLiteral("qemu-system-x86_64")).empty();
        })) << "processes are left behind";
        EXPECT_NE(desktop->status(id), QStringLiteral("running"));
    }
    void startAgain(const QString &id)
    {
        const Answer answer = desktop->tarvctl({QStringLiteral("start"), id});
        EXPECT_EQ(answer.status, 0) << answer.message.toStdString();
        EXPECT_EQ(desktop->status(id), QStringLiteral("running"));
        EXPECT_EQ(desktop->processes(QStringLiteral("qemu-system-x86_64")).size(), 1u);
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
        EXPECT_GT(answer.status, 0) << arguments.join(QLatin1Char(' ')).toStdString();
        return answer.message.toStdString();
    }
};

TEST_F(Faults, anyOfTheProgramsMayBeKilledWhileAVMRuns)
{
    const QString id =
        desktop->addVM(QStringLiteral("bars"), QStringLiteral(GUEST_DIR "/bars.img"));
    desktop->startTarv();
    ASSERT_FALSE(waitForWindow(QStringLiteral("^Virtual Machines$")).isEmpty()) << log("tarv");
    EXPECT_TRUE(waitUntil(20s, [this] {
        return !desktop->processes(QStringLiteral("vlaunchd")).empty();
    })) << "the list has no launch service to ask";
    startAgain(id);

    // The application: the VM runs on, and the next one shows it.
    killAll("tarv");
    EXPECT_EQ(desktop->status(id), QStringLiteral("running"));
    desktop->startTarv();
    const QString list = waitForWindow(QStringLiteral("^Virtual Machines$"));
    ASSERT_FALSE(list.isEmpty());
    EXPECT_TRUE(desktop->doubleClickVM(
        list, [this] { return !desktop->window(QStringLiteral("^bars$")).isEmpty(); }));

    // The supervisor: QEMU goes with it, the window closes, the socket does not block.
    killAll("tarvvm");
    expectEngineGone(id);
    EXPECT_EQ(desktop->status(id), QStringLiteral("failed"));
    EXPECT_TRUE(
        waitUntil(10s, [&] { return desktop->window(QStringLiteral("^bars$")).isEmpty(); }));
    startAgain(id);

    // The engine: its supervisor says so and ends.
    killAll("qemu-system-x86_64");
    expectEngineGone(id);
    EXPECT_EQ(desktop->status(id), QStringLiteral("failed"));
    startAgain(id);

    // The launch service: the VM runs on and the next service knows it.
    killAll("vlaunchd");
    EXPECT_EQ(desktop->status(id), QStringLiteral("running"));
    const Answer twice = desktop->tarvctl({QStringLiteral("start"), id});
    EXPECT_EQ(desktop->processes(QStringLiteral("tarvvm")).size(), 1u)
        << twice.message.toStdString();
    const Answer stopped = desktop->tarvctl({QStringLiteral("stop"), id});
    EXPECT_EQ(stopped.status, 0) << stopped.message.toStdString();
    expectEngineGone(id);
    EXPECT_EQ(desktop->status(id), QStringLiteral("stopped"));
    EXPECT_FALSE(QFileInfo::exists(socketPath(id)));
}

TEST_F(Faults, aVMInTheApplicationsCareEndsWithIt)
{
    desktop->setVariable(QStringLiteral("TARV_HOST_ARM64"), QStringLiteral("1"));
    const QString id =
        desktop->addVM(QStringLiteral("bars"), QStringLiteral(GUEST_DIR "/bars.img"));
    desktop->startTarv();
    const QString list = waitForWindow(QStringLiteral("^Virtual Machines$"));
    ASSERT_FALSE(list.isEmpty()) << log("tarv");
    ASSERT_TRUE(desktop->doubleClickVM(list, id));
    EXPECT_FALSE(waitForWindow(QStringLiteral("^bars$")).isEmpty());
    EXPECT_EQ(desktop->processes(QStringLiteral("tarvvm")).size(), 1u);
    killAll("tarv");
    expectEngineGone(id);
}

TEST_F(Faults, wrongInputIsNamedAndNothingIsLost)
{
    const QString guest = QStringLiteral(GUEST_DIR "/bars.img");
    const QStringList start = {QStringLiteral("start")};

    const QString noDisk = desktop->addVM(QStringLiteral("no disk"), guest);
    QFile::remove(desktop->path(QStringLiteral("data/images/%1.qcow2").arg(noDisk)));
    EXPECT_THAT(failureOf(start + QStringList{noDisk}), HasSubstr(noDisk.toStdString() + ".qcow2"));

    const QString noYaml = desktop->addVM(QStringLiteral("no yaml"), guest);
    const QString record = desktop->path(QStringLiteral("data/vms/%1/config.yaml").arg(noYaml));
    writeFile(record, "name: [unclosed\n");
    EXPECT_THAT(failureOf(start + QStringList{noYaml}), HasSubstr("config.yaml"));
    QFile kept(record);
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), "name: [unclosed\n");

    const QString taken = desktop->addVM(QStringLiteral("taken"), guest);
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

    EXPECT_THAT(failureOf(start + QStringList{QStringLiteral("nobody")}), HasSubstr("nobody"));
    EXPECT_THAT(failureOf({QStringLiteral("create"), QStringLiteral("new"),
                           desktop->path(QStringLiteral("missing.iso"))}),
                HasSubstr("missing.iso"));
    EXPECT_EQ(desktop->tarvctl({QStringLiteral("list")}).body.toArray().size(), 3)
        << "the three VMs, the unreadable one too, and no new one";
}

TEST_F(Faults, anEngineThatCannotRunIsNamed)
{
    const QString id =
        desktop->addVM(QStringLiteral("bars"), QStringLiteral(GUEST_DIR "/bars.img"));
    desktop->setVariable(QStringLiteral("TARV_ENGINE_ACCEL"), QStringLiteral("kvm"));
    if (access("/dev/kvm", R_OK | W_OK) != 0) {
        EXPECT_THAT(failureOf({QStringLiteral("start"), id}), HasSubstr("kvm"));
    }
    desktop->setVariable(QStringLiteral("TARV_ENGINE_ACCEL"), QStringLiteral("tcg"));
    desktop->addSetting(QStringLiteral("qemu_executable"), QStringLiteral("/nonexistent/qemu"));
    EXPECT_THAT(failureOf({QStringLiteral("start"), id}), HasSubstr("/nonexistent/qemu"));
    expectEngineGone(id);
}
