// A VM on screen with the real programs: pixels, keys, scaling, and a viewer that stands still.
#include "tests/e2e/EndToEnd.h"

#include "tests/support/scratch.h"

#include <QDir>

#include <csignal>
#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

bool barsAreExact(const QImage &picture, QPoint origin)
{
    for (int y = 0; y < GUEST_BARS_SIZE.height; ++y) {
        for (int x = 0; x < GUEST_BARS_SIZE.width; ++x)
            if ((picture.pixel(origin.x() + x, origin.y() + y) & 0xffffff) !=
                guest_bar_colour(GUEST_BARS_SIZE.width, x))
                return false;
    }
    return true;
}

bool blockIsShown(const QImage &picture, QPoint origin, uint8_t code, int count)
{
    const int x = origin.x() + guest_block_x(GUEST_BARS_SIZE, count);
    const int y = origin.y() + guest_block_y(GUEST_BARS_SIZE, count);
    const uint32_t colour = guest_block_colour(code, count);
    return (picture.pixel(x, y) & 0xffffff) == colour &&
           (picture.pixel(x + GUEST_BLOCK_SIZE - 1, y + GUEST_BLOCK_SIZE - 1) & 0xffffff) == colour;
}

int frameNumber(const QImage &picture, QPoint origin)
{
    int number = 0;
    for (int bit = 0; bit < GUEST_COUNTER_BITS; ++bit) {
        const QRgb pixel =
            picture.pixel(origin + QPoint(bit * GUEST_COUNTER_STEP + GUEST_COUNTER_BLOCK / 2,
                                          GUEST_COUNTER_BLOCK / 2));
        number |= (qRed(pixel) > 127) << bit;
    }
    return number;
}

} // namespace

class Screen : public EndToEnd
{
};

TEST_F(Screen, showsTheGuestPixelForPixelTakesKeysAndScales)
{
    const QString id = desktop->addVM(u"bars"_s, QStringLiteral(GUEST_DIR "/bars.img"));
    desktop->startTarv();
    const QString list = waitForWindow(u"^Virtual Machines$"_s);
    ASSERT_FALSE(list.isEmpty()) << log("tarv");
    ASSERT_TRUE(desktop->doubleClickVM(list, id)) << log("tarv");
    const QString guest = waitForWindow(u"^bars$"_s);
    ASSERT_FALSE(guest.isEmpty()) << log("tarv");

    const QPoint origin(0, viewTop(guest, GUEST_BARS_SIZE));
    ASSERT_TRUE(waitUntil(90s, [&] { return barsAreExact(desktop->picture(guest), origin); }));

    desktop->xdotool({u"windowfocus"_s, u"--sync"_s, guest});
    desktop->xdotool({u"key"_s, u"a"_s});
    EXPECT_TRUE(waitUntil(30s, [&] {
        const QImage picture = desktop->picture(guest);
        return blockIsShown(picture, origin, 0x1e, 0) && blockIsShown(picture, origin, 0x9e, 1);
    })) << "the letter a did not reach the guest";
    desktop->xdotool({u"key"_s, u"105"_s});
    EXPECT_TRUE(waitUntil(30s, [&] {
        const QImage picture = desktop->picture(guest);
        return blockIsShown(picture, origin, 0xe0, 2) && blockIsShown(picture, origin, 0x1d, 3);
    })) << "the right control key did not reach the guest as itself";

    // Half as large: the bars must stand at half the places.
    const QRect frame = desktop->geometry(guest);
    const QSize size(GUEST_BARS_SIZE.width / 2, GUEST_BARS_SIZE.height / 2 + origin.y());
    desktop->xdotool(
        {u"windowsize"_s, guest, QString::number(size.width()), QString::number(size.height())});
    EXPECT_TRUE(waitUntil(30s, [&] {
        const QImage picture = desktop->picture(guest);
        if (picture.size() == frame.size() || picture.isNull()) {
            return false;
        }
        const double scale =
            std::min(picture.width() / double(GUEST_BARS_SIZE.width),
                     (picture.height() - origin.y()) / double(GUEST_BARS_SIZE.height));
        const double left = (picture.width() - GUEST_BARS_SIZE.width * scale) / 2;
        const double top =
            origin.y() + (picture.height() - origin.y() - GUEST_BARS_SIZE.height * scale) / 2;
        for (int bar = 0; bar < GUEST_BAR_COUNT; ++bar) {
            const double centre = (bar + 0.5) * GUEST_BARS_SIZE.width / GUEST_BAR_COUNT;
            const QRgb pixel = picture.pixel(int(left + centre * scale), int(top + 100 * scale));
            if ((pixel & 0xffffff) != GUEST_BARS[bar]) {
                return false;
            }
        }
        return true;
    })) << "a resized window does not show the whole guest scaled";

    EXPECT_EQ(desktop->tarvctl({u"stop"_s, u"--force"_s, id}).status, 0);
    EXPECT_TRUE(waitUntil(20s, [&] { return desktop->window(u"^bars$"_s).isEmpty(); }))
        << "the window outlives its VM";
}

TEST_F(Screen, aStoppedViewerNeitherBloatsNorStallsTheGuest)
{
    const QString id = desktop->addVM(u"repaint"_s, QStringLiteral(GUEST_DIR "/repaint20.img"));
    QProcess *tarv = desktop->startTarv();
    ASSERT_FALSE(waitForWindow(u"^Virtual Machines$"_s).isEmpty()) << log("tarv");
    const Answer started = desktop->tarvctl({u"start"_s, u"-v"_s, id});
    ASSERT_EQ(started.status, 0) << started.message.toStdString();
    const QString guest = waitForWindow(u"^repaint$"_s);
    ASSERT_FALSE(guest.isEmpty()) << log("tarv");
    const QPoint origin(0, viewTop(guest, GUEST_REPAINT_SIZE));
    ASSERT_TRUE(waitUntil(90s, [&] { return frameNumber(desktop->picture(guest), origin) > 20; }))
        << "the guest's frames do not arrive";

    const std::vector<pid_t> supervisors = desktop->processes(u"tarvvm"_s);
    const std::vector<pid_t> engines = desktop->processes(u"qemu-system-x86_64"_s);
    ASSERT_EQ(supervisors.size(), 1u);
    ASSERT_EQ(engines.size(), 1u);
    const qint64 supervisorBefore = residentBytes(supervisors[0]);
    const qint64 engineBefore = residentBytes(engines[0]);
    const int frameBefore = frameNumber(desktop->picture(guest), origin);

    kill(pid_t(tarv->processId()), SIGSTOP);
    waitUntil(10s, [] { return false; });
    constexpr qint64 Allowance = 20 * 1024 * 1024;
    EXPECT_LT(residentBytes(supervisors[0]) - supervisorBefore, Allowance);
    EXPECT_LT(residentBytes(engines[0]) - engineBefore, Allowance);
    kill(pid_t(tarv->processId()), SIGCONT);

    // The first new frames must be those of now, not those of ten seconds ago one by one.
    int frame = 0;
    EXPECT_TRUE(waitUntil(5s,
                          [&] {
                              frame = frameNumber(desktop->picture(guest), origin);
                              return frame > frameBefore + 40;
                          }))
        << "after 10 s the window shows frame " << frame << " where it had shown " << frameBefore;
}

TEST_F(Screen, keepsItsShapeWhileTheUserDragsAnEdge)
{
    const QString id = desktop->addVM(u"bars"_s, QStringLiteral(GUEST_DIR "/bars.img"));
    desktop->startTarv();
    ASSERT_FALSE(waitForWindow(u"^Virtual Machines$"_s).isEmpty()) << log("tarv");
    ASSERT_EQ(desktop->tarvctl({u"start"_s, u"-v"_s, id}).status, 0);
    const QString guest = waitForWindow(u"^bars$"_s);
    ASSERT_FALSE(guest.isEmpty()) << log("tarv");
    const QPoint origin(0, viewTop(guest, GUEST_BARS_SIZE));
    ASSERT_TRUE(waitUntil(90s, [&] { return barsAreExact(desktop->picture(guest), origin); }));
    const QRect whole = desktop->geometry(guest);
    const QPoint corner = whole.bottomRight() - QPoint(20, 20);
    desktop->xdotool({u"windowfocus"_s, u"--sync"_s, guest});
    desktop->xdotool({u"mousemove"_s, QString::number(corner.x()), QString::number(corner.y()),
                      u"keydown"_s, u"alt"_s, u"mousedown"_s, u"3"_s});
    // Of every size on the way, not only of the one that it comes to rest at.
    QRect held = whole;
    for (int step = 0; step < 20; step++) {
        desktop->xdotool({u"mousemove_relative"_s, u"--"_s, u"-12"_s, u"-2"_s});
        held = desktop->geometry(guest);
        const double height = held.width() * double(GUEST_BARS_SIZE.height) / GUEST_BARS_SIZE.width;
        EXPECT_NEAR(held.height() - origin.y(), height, 2) << held.width();
    }
    EXPECT_LT(held.width(), whole.width() - 100);
    for (int step = 0; step < 16; step++)
        desktop->xdotool({u"mousemove_relative"_s, u"30"_s, u"30"_s});
    EXPECT_TRUE(waitUntil(30s, [&] { return desktop->geometry(guest).size() == whole.size(); }))
        << "it is no larger than its guest";
    desktop->xdotool({u"mouseup"_s, u"3"_s, u"keyup"_s, u"alt"_s});
}

// Among other programs' windows, under a window manager that has keys of its own.
class Keyboard : public Screen
{
protected:
    void SetUp() override
    {
        Screen::SetUp();
        if (HasFatalFailure())
            return;
        QDir().mkpath(desktop->path(u"config/Quelda"_s));
        write_file(desktop->path(u"config/Quelda/Tarv.conf"_s).toStdString(),
                   "[General]\nlockKeyboard=true\nliveResize=true\n");
        const QString id = desktop->addVM(u"bars"_s, QStringLiteral(GUEST_DIR "/bars.img"));
        desktop->startTarv();
        ASSERT_FALSE(waitForWindow(u"^Virtual Machines$"_s).isEmpty()) << log("tarv");
        const Answer started = desktop->tarvctl({u"start"_s, u"-v"_s, id});
        ASSERT_EQ(started.status, 0) << started.message.toStdString();
        m_guest = waitForWindow(u"^bars"_s);
        ASSERT_FALSE(m_guest.isEmpty()) << log("tarv");
        m_top = viewTop(m_guest, GUEST_BARS_SIZE);
        ASSERT_TRUE(waitUntil(
            90s, [&] { return barsAreExact(desktop->picture(m_guest), QPoint(0, m_top)); }));
        desktop->xdotool({u"windowfocus"_s, u"--sync"_s, m_guest});
    }
    bool isTitled(const QString &pattern)
    {
        return waitUntil(30s, [&] { return desktop->window(pattern) == m_guest; });
    }

    QString m_guest;
    int m_top = 0;
};

TEST_F(Keyboard, takesTheKeysOfTheDesktopUntilTheWayOutIsPressed)
{
    ASSERT_TRUE(isTitled(u"^bars - Control and Alt release the keyboard$"_s));
    desktop->xdotool({u"key"_s, u"alt+Tab"_s}); // changes to another window here
    EXPECT_TRUE(waitUntil(30s, [&] {
        const QImage picture = desktop->picture(m_guest);
        return blockIsShown(picture, QPoint(0, m_top), 0x38, 0) &&
               blockIsShown(picture, QPoint(0, m_top), 0x0f, 1);
    })) << "the keys did not reach the guest";
    desktop->xdotool({u"keydown"_s, u"ctrl"_s, u"keydown"_s, u"alt"_s, u"keyup"_s, u"alt"_s,
                      u"keyup"_s, u"ctrl"_s});
    ASSERT_TRUE(isTitled(u"^bars$"_s));
    desktop->xdotool({u"key"_s, u"alt+F4"_s});
    EXPECT_TRUE(waitUntil(30s, [&] { return desktop->window(u"^bars"_s).isEmpty(); }))
        << "the window manager does not have its keys back";
}

TEST_F(Keyboard, entersAndLeavesFullScreenByTheKeyboardAlone)
{
    const QRect before = desktop->geometry(m_guest);
    const auto chooseFullScreen = [&](int wayOut) {
        for (int time = 0; time < wayOut; time++)
            desktop->xdotool({u"keydown"_s, u"ctrl"_s, u"keydown"_s, u"alt"_s, u"keyup"_s, u"alt"_s,
                              u"keyup"_s, u"ctrl"_s});
        desktop->xdotool({u"key"_s, u"--delay"_s, u"100"_s, u"Right"_s, u"Right"_s, u"Right"_s,
                          u"Right"_s, u"Up"_s, u"Return"_s});
    };
    chooseFullScreen(2); // frees the keyboard, then opens the menu
    ASSERT_TRUE(waitUntil(30s, [&] { return desktop->geometry(m_guest) == desktop->screen(); }));
    chooseFullScreen(1); // it is free still
    EXPECT_TRUE(waitUntil(30s, [&] { return desktop->geometry(m_guest) == before; }));
}
