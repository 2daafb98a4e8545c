#include "tests/hostlib/vm/home.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"

namespace fs = std::filesystem;

Home &Home::get()
{
    static Home home;
    return home;
}

Home::Home()
{
    for (const fs::path &each : {vms, images, logs})
        fs::create_directory(each);
    write_file(dir / "settings.ini", "[tarv]\nvm_lib_dir = " + vms.string() + "\nimg_lib_dir = " +
                                         images.string() + "\nlog_dir = " + logs.string() +
                                         "\nvlaunch_sock = " + (dir / "vlaunchd").string() +
                                         "\ndelete_logs = 0\nfvutil_executable =\n"
                                         "tarv_image_maker_executable =\n");
    setenv("TARV_CONFIG_PATH", (dir / "settings.ini").c_str(), 1);
    setenv("TARV_HOST_ARM64", "0", 0);
    log_fd = open((dir / "log").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    config_find(nullptr);
}

std::string Home::takeLog()
{
    const std::string text = read_file(dir / "log");
    fs::resize_file(dir / "log", 0);
    return text;
}

void Home::clear()
{
    for (const fs::path &each : {vms, images, logs})
        for (const fs::directory_entry &entry : fs::directory_iterator(each))
            fs::remove_all(entry);
    config_set_path("fvutil_executable", nullptr);
    config_set_path("tarv_image_maker_executable", nullptr);
    config_find("delete_logs")->value[0] = '0';
    takeLog();
}

void Home::setTool(const char *key, const std::string &script)
{
    const fs::path path = dir / key;
    write_file(path, "#!/bin/sh\n" + script);
    fs::permissions(path, fs::perms::owner_all);
    config_set_path(key, path.c_str());
}
