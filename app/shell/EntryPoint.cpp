#include "app/shell/EntryPoint.h"

#include "app/shell/AppDelegate.h"
#include "app/shell/AppLog.h"
#include "app/shell/Arguments.h"
#include "app/shell/SingleInstance.h"
#include "app/shell/TarvApplication.h"
#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "tarvhv/tarvhv.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr size_t logPathMax = 1023;

int openLogFile()
{
    const char *directory = config_get_path("log_dir");
    if (!directory)
        return -1;
    const std::string path = std::string(directory) + "/tarv.log";
    if (path.size() > logPathMax)
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

int runApplication(TarvApplication &application, const Arguments &arguments, AppParts (*parts)())
{
    SingleInstance instance;
    if (instance.claim() == SingleInstance::Role::second) {
        QString error;
        if (instance.handOver(arguments.open, &error))
            return EXIT_SUCCESS;
        fprintf(stderr, "tarv: the running Tarv does not answer: %s\n", error.toLocal8Bit().data());
        return EXIT_FAILURE;
    }
    AppDelegate delegate(parts());
    application.setDelegate(&delegate);
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
    Arguments arguments;
    QString error;
    if (!parseArguments(QApplication::arguments(), &arguments, &error)) {
        fprintf(stderr, "tarv: %s\n", error.toLocal8Bit().data());
        return 2;
    }
    return runApplication(application, arguments, parts);
}
