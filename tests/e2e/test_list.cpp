// The VM list as a person uses it, by keyboard and by mouse, with the real engine and with a
// controller that hangs or fails.
#include "tests/e2e/EndToEnd.h"
#include "tests/support/scratch.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>

#include <csignal>
#include <map>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// The colours of the dots before the statuses.
const std::map<QRgb, QString> dots = {{0x2ea44f, u"running"_s},
                                      {0xd69a1c, u"suspended"_s},
                                      {0xd9483b, u"failed"_s},
                                      {0x8a8f98, u"stopped"_s}};

} // namespace

class List : public EndToEnd
{
protected:
    void open()
    {
        desktop->startTarv();
        m_list = waitForWindow(u"^Virtual Machines$"_s);
        ASSERT_FALSE(m_list.isEmpty()) << log("tarv");
    }
    void raise() { desktop->xdotool({u"windowactivate"_s, u"--sync"_s, m_list}); }
    void press(const QStringList &keys)
    {
        desktop->xdotool(QStringList{u"key"_s, u"--delay"_s, u"80"_s} + keys);
    }
    void type(const QString &text) { desktop->xdotool({u"type"_s, u"--delay"_s, u"20"_s, text}); }

    // What the rows say, from top to bottom; notes where they are.
    QStringList rows()
    {
        const QImage picture = desktop->picture(m_list);
        QStringList statuses;
        m_rowTops.clear();
        for (int y = 100; y < picture.height() - 50; y++) {
            for (int x = picture.width() / 2; x < picture.width(); x++) {
                const auto dot = dots.find(picture.pixel(x, y) & 0xffffff);
                if (dot != dots.end()) {
                    statuses << dot->second;
                    m_rowTops.push_back(y);
                    y += 16;
                    break;
                }
            }
        }
        return statuses;
    }
    // No sheet is left that would take the next key.
    bool listIsActive() { return desktop->activeWindow() == m_list; }
    void expectRows(const QStringList &expected)
    {
        QStringList shown;
        EXPECT_TRUE(waitUntil(60s, [&] { return (shown = rows()) == expected && listIsActive(); }))
            << shown.join(u' ').toStdString() << " instead of " << expected.join(u' ').toStdString()
            << "\n"
            << log("data/logs/tarv");
    }
    // After a start: the VM's screen comes up, and the list is brought back.
    void expectScreen(const QString &name)
    {
        EXPECT_FALSE(waitForWindow(u"^%1$"_s.arg(name)).isEmpty()) << log("data/logs/tarv");
        raise();
    }
    void expectLibrary(QStringList expected)
    {
        QStringList names;
        EXPECT_TRUE(waitUntil(60s, [&] {
            names.clear();
            for (const QJsonValue &vm : desktop->tarvctl({u"list"_s}).body.toArray())
                names << vm.toObject().value("name"_L1).toString();
            names.sort();
            return names == expected && desktop->processes(u"tarvctl"_s).empty() && listIsActive();
        })) << names.join(u' ').toStdString();
    }

    void click(int x, int y, const QStringList &more = {})
    {
        const QRect frame = desktop->geometry(m_list);
        desktop->xdotool(QStringList{u"mousemove"_s, QString::number(frame.x() + x),
                                     QString::number(frame.y() + y), u"click"_s} +
                         more + QStringList{u"1"_s});
    }
    void clickRow(size_t row, const QStringList &more = {})
    {
        ASSERT_LT(row, m_rowTops.size());
        click(60, m_rowTops[row] + 4, more);
    }

    // The guests of these tests do not know the power button.
    void dismissRefusedStop()
    {
        ASSERT_FALSE(waitForWindow(u"^Tarv$"_s).isEmpty()) << "nobody says that the guest runs on";
        press({u"Return"_s});
        EXPECT_TRUE(waitUntil(30s, [&] { return desktop->window(u"^Tarv$"_s).isEmpty(); }));
        raise();
    }

    QString m_list;
    std::vector<int> m_rowTops;
};

TEST_F(List, doesEverythingByKeyboard)
{
    desktop->addVM(u"bars"_s, QStringLiteral(GUEST_DIR "/bars.img"));
    open();
    expectRows({u"stopped"_s});
    press({u"Down"_s, u"Return"_s});
    expectScreen(u"bars"_s);
    expectRows({u"running"_s});
    press({u"Return"_s});
    EXPECT_TRUE(waitUntil(30s, [&] {
        return desktop->activeWindow() == desktop->window(u"^bars$"_s);
    })) << "the screen of a running VM does not come forward";
    raise();
    press({u"alt+v"_s, u"u"_s}); // suspend
    expectRows({u"suspended"_s});
    press({u"alt+v"_s, u"s"_s}); // start: resumes
    expectScreen(u"bars"_s);
    expectRows({u"running"_s});
    press({u"alt+v"_s, u"b"_s}); // reboot
    expectRows({u"suspended"_s});
    press({u"alt+v"_s, u"o"_s}); // force stop
    expectRows({u"stopped"_s});
    press({u"ctrl+shift+o"_s}); // force start
    expectScreen(u"bars"_s);
    expectRows({u"running"_s});
    press({u"alt+v"_s, u"t"_s}); // stop, which this guest never hears
    dismissRefusedStop();
    expectRows({u"running"_s});
    press({u"alt+v"_s, u"o"_s});
    expectRows({u"stopped"_s});

    press({u"F2"_s});
    type(u"vm"_s);
    press({u"Return"_s});
    expectLibrary({u"vm"_s});
    press({u"alt+v"_s, u"c"_s}); // clone
    expectRows({u"stopped"_s, u"stopped"_s});
    press({u"alt+v"_s, u"p"_s}); // copy
    expectRows({u"stopped"_s, u"stopped"_s, u"stopped"_s});
    expectLibrary({u"vm"_s, u"vm_copy"_s, u"vm_copy2"_s});
    press({u"End"_s, u"Delete"_s});
    ASSERT_FALSE(waitForWindow(u"^Tarv$"_s).isEmpty()) << "it is not asked first";
    press({u"Escape"_s});
    EXPECT_TRUE(waitUntil(30s, [&] { return desktop->window(u"^Tarv$"_s).isEmpty(); }));
    press({u"Delete"_s});
    ASSERT_FALSE(waitForWindow(u"^Tarv$"_s).isEmpty());
    press({u"Return"_s});
    expectLibrary({u"vm"_s, u"vm_copy"_s});
    press({u"Home"_s, u"shift+Down"_s, u"Delete"_s});
    ASSERT_FALSE(waitForWindow(u"^Tarv$"_s).isEmpty());
    press({u"Return"_s});
    expectLibrary({});
}

TEST_F(List, isUsedByMouse)
{
    desktop->addVM(u"a"_s, QStringLiteral(GUEST_DIR "/bars.img"));
    desktop->addVM(u"b"_s, QStringLiteral(GUEST_DIR "/bars.img"));
    open();
    expectRows({u"stopped"_s, u"stopped"_s});
    const QRect frame = desktop->geometry(m_list);
    for (const size_t row : {0, 1}) {
        clickRow(row, {u"--repeat"_s, u"2"_s, u"--delay"_s, u"60"_s});
        expectScreen(row == 0 ? u"a"_s : u"b"_s);
    }
    expectRows({u"running"_s, u"running"_s});
    clickRow(0);
    desktop->xdotool({u"keydown"_s, u"ctrl"_s});
    clickRow(1);
    desktop->xdotool({u"keyup"_s, u"ctrl"_s});
    click(frame.width() - 120, frame.height() - 24); // the button that stops
    dismissRefusedStop();
    expectRows({u"running"_s, u"running"_s});
    press({u"alt+v"_s, u"o"_s});
    expectRows({u"stopped"_s, u"stopped"_s});

    clickRow(0);
    press({u"F2"_s});
    type(u"A"_s);
    clickRow(1); // ends the editing
    expectLibrary({u"A"_s, u"b"_s});
    click(frame.width() - 22, 44); // the close button, there under the pointer
    EXPECT_TRUE(waitUntil(30s, [&] { return desktop->processes(u"tarv"_s).empty(); }));
}

TEST_F(List, aCommandIsCancelledSentToTheBackgroundOrFails)
{
    const QString folder = desktop->path(u"fake/"_s);
    QDir().mkpath(folder);
    QFile::link(QStringLiteral(CONTROLLER_RECORDER), folder + u"tarvctl"_s);
    const QString id = desktop->addVM(u"bars"_s, QStringLiteral(GUEST_DIR "/bars.img"));
    EXPECT_EQ(desktop->tarvctl({u"start"_s, id}).status, 0);
    desktop->setVariable(u"TARV_TARVCTL_EXECUTABLE"_s, folder + u"tarvctl"_s);
    open();
    expectRows({u"running"_s});
    clickRow(0);

    // Runs a command that behaves in this way, and waits for its sheet.
    pid_t command = -1;
    const auto stop = [&](const char *mode) {
        QFile::remove(folder + u"record"_s);
        write_file((folder + u"mode"_s).toStdString(), mode);
        press({u"alt+v"_s, u"t"_s});
        ASSERT_TRUE(waitUntil(60s, [&] { return QFile::exists(folder + u"record"_s); }));
        const std::vector<pid_t> running = desktop->processes(u"controller_recorder"_s);
        command = running.empty() ? -1 : running.front();
    };
    const auto sheetIsOpen = [&] { return !desktop->window(u"^Stopping"_s).isEmpty(); };
    const auto dismissAlert = [&](const char *inLog) {
        ASSERT_FALSE(waitForWindow(u"^Tarv$"_s).isEmpty()) << inLog;
        EXPECT_THAT(log("data/logs/tarv"), testing::HasSubstr(inLog));
        press({u"Return"_s});
        EXPECT_TRUE(waitUntil(30s, [&] { return desktop->window(u"^Tarv$"_s).isEmpty(); }));
        EXPECT_FALSE(sheetIsOpen());
    };

    stop("hang\n");
    ASSERT_TRUE(waitUntil(30s, sheetIsOpen));
    press({u"Escape"_s});
    dismissAlert("stop command failed with status 143: (null)");
    EXPECT_FALSE(processRuns(command));

    stop("ignore-term\nhang\n");
    ASSERT_TRUE(waitUntil(30s, sheetIsOpen));
    press({u"Tab"_s, u"space"_s}); // to the button that cancels
    EXPECT_TRUE(waitUntil(30s, [&] { return !sheetIsOpen(); }));
    EXPECT_TRUE(processRuns(command)) << "it ignores the signal";
    dismissAlert("stop command failed with status 134: (null)");
    EXPECT_FALSE(processRuns(command));

    stop("hang\n");
    ASSERT_TRUE(waitUntil(30s, sheetIsOpen));
    press({u"alt+b"_s});
    EXPECT_TRUE(waitUntil(30s, [&] { return !sheetIsOpen(); }));
    EXPECT_TRUE(processRuns(command));
    kill(command, SIGKILL);

    stop("print {\"message\": \"the disk is full\"}\nexit 5\n");
    dismissAlert("stop command failed with status 5: the disk is full");
    EXPECT_THAT(log("data/logs/tarv"), testing::Not(testing::HasSubstr("status 137")));
    EXPECT_EQ(desktop->status(id), u"running"_s);
}
