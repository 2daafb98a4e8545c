#include "app/shell/EntryPoint.h"

#include "app/agreement/TarvCLI.h"
#include "app/kit/AppLog.h"
#include "app/kit/Appearance.h"
#include "app/kit/BackgroundWork.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/Translations.h"
#include "app/shell/AppDelegate.h"
#include "app/shell/Arguments.h"
#include "app/shell/QuitSignals.h"
#include "app/shell/SessionBus.h"
#include "app/shell/SingleInstance.h"
#include "app/shell/TarvApplication.h"
#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "tarvhv/tarvhv.h"

#include <QFile>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr size_t LOG_PATH_MAX = 1023;

int openLogFile()
{
    const char *directory = config_get_path("log_dir");
    if (!directory)
        return -1;
    const std::string path = std::string(directory) + "/tarv.log";
    if (path.size() > LOG_PATH_MAX)
        return -1;
    return openx(path.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
}

void appendPath(std::string *list, const char *path)
{
    if (!path || list->find(path) != std::string::npos)
        return;
    if (!list->empty())
        *list += ':';
    *list += path;
}

// Starts the launch service where there is none; the list then asks again how its VMs ended.
BackgroundWork::Continuation startServices()
{
    if (!TarvCLI::ensureLaunchService())
        return {};
    return [] {
        NotificationCenter::defaultCenter().post(
            QStringLiteral("com.quelda.tarvhv.notification.change"));
    };
}

// VMs that run in the application's own care: who supervises them, and what is told of them.
void takeVMsIntoCare()
{
    const char *setting = config_get_path("supervisor_executable");
    const QByteArray beside =
        QFile::encodeName(QCoreApplication::applicationDirPath() + QStringLiteral("/tarvvm"));
    tarvhv_set_supervisor(setting ? setting : beside.constData());
    tarvhv_set_observer([](const char *name, const std::string &id, bool failed) {
        QVariantMap information;
        if (failed)
            information.insert(QStringLiteral("Error"), true);
        NotificationCenter::defaultCenter().post(QString::fromUtf8(name),
                                                 QString::fromStdString(id), information);
    });
}

Appearance::Scheme wantedScheme()
{
    const QString name = QString::fromUtf8(config_get_str("appearance"));
    const auto scheme = Appearance::schemeNamed(name);
    if (!scheme && !name.isEmpty())
        appLog("tarv",
               QStringLiteral("setting appearance: \"%1\" is not auto, light or dark").arg(name));
    return scheme.value_or(Appearance::Scheme::automatic);
}

int runApplication(TarvApplication &application, const StartArguments &arguments,
                   AppParts (*parts)())
{
    const SessionBus bus;
    SingleInstance instance(bus.connection());
    QObject::connect(&bus, &SessionBus::reconnected, &instance,
                     [&bus, &instance] { instance.use(bus.connection()); });
    if (instance.claim() == SingleInstance::Role::second) {
        QString error;
        if (instance.handOver(arguments.open, &error))
            return EXIT_SUCCESS;
        if (instance.claim() == SingleInstance::Role::second) { // else it has just quit
            fprintf(stderr, "tarv: the running Tarv does not answer: %s\n",
                    error.toLocal8Bit().data());
            return EXIT_FAILURE;
        }
    }
    const Appearance appearance(wantedScheme());
    takeVMsIntoCare();
    BackgroundWork::shared().run(BackgroundWork::Lane::launchService, startServices);
    AppDelegate delegate(parts());
    application.setDelegate(&delegate);
    const QuitSignals quitSignals;
    QObject::connect(&quitSignals, &QuitSignals::received, &delegate, &AppDelegate::terminateNow);
    delegate.applicationWillFinishLaunching(&instance);
    delegate.applicationDidFinishLaunching();
    delegate.launch(arguments.open);
    return QApplication::exec();
}

} // namespace

void openLog()
{
    if (isatty(log_fd)) {
        log_level = 2;
        config_find("log_dir"); // builds the table of settings
    } else {
        log_fd = openLogFile();
    }
}

void exportImagePath()
{
    std::string list;
    appendPath(&list, config_get_str("img_path"));
    for (const char *key : {"img_lib_dir", "state_lib_dir", "tag_lib_dir"})
        appendPath(&list, config_get_path(key));
    if (!list.empty())
        setenv("TARV_IMG_PATH", list.c_str(), /*overwrite=*/1);
}

int tarvMain(int argc, char **argv, AppParts (*parts)())
{
    int status = 0;
    if (answerAtOnce(argc, argv, &status))
        return status;
    openLog();
    tarvhv_set_log_fd(log_fd);
    exportImagePath();

    TarvApplication application(argc, argv);
    installTranslations(&application);
    StartArguments arguments;
    QString error;
    if (!parseArguments(QApplication::arguments(), &arguments, &error)) {
        fprintf(stderr, "tarv: %s\n", error.toLocal8Bit().data());
        return 2;
    }
    return runApplication(application, arguments, parts);
}
