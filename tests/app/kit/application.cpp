#include "tests/app/kit/application.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>

namespace {

QTemporaryDir *g_home = nullptr;

class HomeEnvironment : public testing::Environment
{
public:
    void SetUp() override
    {
        g_home = new QTemporaryDir;
        ASSERT_TRUE(g_home->isValid());
        const QByteArray home = g_home->path().toLocal8Bit();
        qputenv("HOME", home);
        qputenv("XDG_CONFIG_HOME", home + "/config");
        qputenv("QT_QPA_PLATFORM", "offscreen");
        // No test talks to the user's own session.
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home + "/no-bus");
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, g_home->path());
    }
    void TearDown() override
    {
        delete qApp;
        delete g_home;
    }
};

const auto *const g_environment = testing::AddGlobalTestEnvironment(new HomeEnvironment);

} // namespace

QApplication *(*testApplicationMaker)(int &argc, char **argv) = nullptr;

QDir privateHome()
{
    return QDir(g_home->path());
}

QApplication &testApplication()
{
    static int argc = 1;
    static char name[] = "test";
    static char *argv[] = {name, nullptr};
    static auto *application =
        testApplicationMaker ? testApplicationMaker(argc, argv) : new QApplication(argc, argv);
    application->setQuitOnLastWindowClosed(false);
    return *application;
}

bool waitUntil(const std::function<bool()> &condition, int deadline_ms)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > deadline_ms)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::usleep(500);
    }
    return true;
}
