#include "app/kit/AppLog.h"
#include "app/shell/EntryPoint.h"
#include "hostlib/utils/utils.h"
#include "platform/unique_fd.h"
#include "tests/app/fixtures/shell_fixture.h"

#include <QFile>

#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class EntryPointTest : public ShellTest
{
protected:
    const int ownLog = log_fd;
    ~EntryPointTest() override
    {
        if (log_fd != ownLog && log_fd > 2)
            close(log_fd);
        log_fd = ownLog;
        log_level = 0;
    }
};

} // namespace

TEST_F(EntryPointTest, logsIntoTheLogFolderMakingIt)
{
    setSettings(u"log_dir = %1/new/logs"_s.arg(privateHome().path()));
    openLog();
    appLog("tarv", u"hello"_s);
    QFile file(path(u"new/logs/tarv.log"_s));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString line = QString::fromUtf8(file.readAll());
    EXPECT_EQ(line.mid(19), u" tarv: hello\r\n"_s);
    EXPECT_EQ(log_level, 0);
}

TEST_F(EntryPointTest, keepsToATerminal)
{
    setSettings(u"log_dir = %1/unused"_s.arg(privateHome().path()));
    const UniqueFd terminal(posix_openpt(O_RDWR | O_NOCTTY));
    log_fd = terminal.get();
    openLog();
    EXPECT_EQ(std::exchange(log_fd, ownLog), terminal.get());
    EXPECT_EQ(log_level, 2);
    EXPECT_FALSE(QFile::exists(path(u"unused"_s)));
}

TEST_F(EntryPointTest, startsWithoutALogThatCanNotBeOpened)
{
    for (const QString &lines : {QString(), u"log_dir = /proc/none"_s,
                                 u"log_dir = /tmp/"_s + QString(1020, QLatin1Char('x'))}) {
        setSettings(lines);
        log_fd = ownLog;
        openLog();
        EXPECT_LT(log_fd, 0);
        appLog("tarv", u"unheard"_s);
    }
}

TEST_F(EntryPointTest, joinsTheImagePathsOnceEach)
{
    struct
    {
        const char *settings;
        const char *expected;
    } const cases[] = {
        {"img_path = /a\nimg_lib_dir = /a\n", "/a"},
        {"img_path = /a\nimg_lib_dir = /a/b\n", "/a:/a/b"},
        {"img_path = /a/b\nimg_lib_dir = /a\n", "/a/b"},
        {"tag_lib_dir = /t\nstate_lib_dir = /s\nimg_lib_dir = /i\nimg_path = ~/x:/y\n",
         "~/x:/y:/i:/s:/t"},
        {"", nullptr},
    };
    for (const auto &each : cases) {
        unsetenv("TARV_IMG_PATH"); // it would stand for the setting "img_path"
        setSettings(QLatin1String(each.settings));
        exportImagePath();
        EXPECT_STREQ(getenv("TARV_IMG_PATH"), each.expected) << each.settings;
    }
}
