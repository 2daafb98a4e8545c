// The whole way of the pasteboard: from a program on the host's screen through the window, the
// supervisor and QEMU's port to the agents that Debian gives its guests and a program on their
// screen, and back.
#include "tests/e2e/EndToEnd.h"

#include <QBuffer>
#include <QFile>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr const char *TEXT = "UTF8_STRING";
constexpr const char *PICTURE = "image/png";
constexpr qsizetype CONTENTS_MAX = 32 * 1024 * 1024 - 64;

QByteArray picture(QRgb colour)
{
    QImage image(300, 200, QImage::Format_RGB32);
    image.fill(colour);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    image.save(&buffer, "PNG");
    return bytes;
}

} // namespace

class Pasteboard : public EndToEnd
{
protected:
    // The guest's window, which has the keyboard before the guest's agents come up.
    void openGuest()
    {
        desktop->addSetting(u"qemu_executable"_s, QStringLiteral(QEMU_WITH_AGENT));
        const QString id = desktop->addVM(u"bars"_s, QStringLiteral(GUEST_DIR "/bars.img"));
        desktop->startTarv();
        list = waitForWindow(u"^Virtual Machines$"_s);
        desktop->tarvctl({u"start"_s, u"-v"_s, id});
        window = waitForWindow(u"^bars$"_s);
        focus(window);
        const QString port = desktop->path(u"agent-port"_s);
        const QString session = guest.path(u"session"_s);
        guest.start(
            u"daemon"_s, u"/usr/sbin/spice-vdagentd"_s,
            {u"-xXfd"_s, u"-s"_s, port, u"-S"_s, session, u"-u"_s, guest.path(u"settings.ini"_s)});
        guest.start(u"agent"_s, u"spice-vdagent"_s, {u"-xd"_s, u"-s"_s, port, u"-S"_s, session});
        EXPECT_TRUE(daemonSays("Set max clipboard"));
    }
    bool daemonSays(const char *words)
    {
        return waitUntil(60s,
                         [&] { return guest.log(u"daemon"_s).contains(QLatin1String(words)); });
    }
    void focus(const QString &target) { desktop->xdotool({u"windowfocus"_s, u"--sync"_s, target}); }
    bool toHost(const char *target, const QByteArray &bytes)
    {
        guest.copy(target, bytes);
        return waitUntil(60s, [&] { return desktop->paste(target) == bytes; });
    }
    // Copied while another window has the keyboard.
    bool toGuest(const char *target, const QByteArray &bytes)
    {
        focus(list);
        desktop->copy(target, bytes);
        waitUntil(60s, [&] { return desktop->paste(target) == bytes; });
        focus(window);
        return waitUntil(60s, [&] { return guest.paste(target) == bytes; });
    }

    Desktop guest;
    QString list, window;
};

TEST_F(Pasteboard, goesFromTheHostsProgramsToTheGuestsAndBack)
{
    if (!QFile::exists(u"/usr/sbin/spice-vdagentd"_s))
        GTEST_SKIP() << "spice-vdagent is not installed";
    openGuest();
    QByteArray large;
    while (large.size() < 1 << 20)
        large += "line " + QByteArray::number(large.size()) + '\n';
    for (const QByteArray &text :
         {QByteArray("\xf0\x9d\x84\x9e\xf0\x9f\x98\x80 \xc3\xa4\n two\r\nthree\n"), large}) {
        EXPECT_TRUE(toHost(TEXT, text)) << text.size();
        EXPECT_TRUE(toGuest(TEXT, "host: " + text)) << text.size();
    }
    EXPECT_TRUE(toHost(PICTURE, picture(qRgb(255, 0, 0))));
    EXPECT_TRUE(toGuest(PICTURE, picture(qRgb(0, 0, 255))));

    // The guest's agent was told the limit, and refuses what is past it.
    guest.copy(TEXT, QByteArray(CONTENTS_MAX + 1, 'x'));
    EXPECT_TRUE(daemonSays("clipboard is too large"));

    // What the guest copied does not come back to it: its own program goes on giving it.
    EXPECT_TRUE(toHost(TEXT, "the guest's"));
    const auto offers = [this] {
        return guest.log(u"agent"_s).count(u"received clipboard grab"_s);
    };
    const auto before = offers();
    focus(list);
    focus(window);
    desktop->xdotool({u"key"_s, u"ctrl+v"_s});
    EXPECT_TRUE(toHost(TEXT, "the guest's again"));
    EXPECT_EQ(offers(), before);
}
