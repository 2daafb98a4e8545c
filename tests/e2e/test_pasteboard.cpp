// The whole way of the pasteboard: from a program on the host's screen through the window, the
// supervisor and QEMU's port to the guest's real agents and a program on their screen, and back.
#include "tests/e2e/EndToEnd.h"
#include "tests/support/guest_desktop.h"

#include <QBuffer>
#include <QDir>

using namespace std::chrono_literals;

namespace {

constexpr const char *TEXT = "UTF8_STRING";
constexpr const char *PICTURE = "image/png";

std::string picture(QRgb colour)
{
    QImage image(300, 200, QImage::Format_RGB32);
    image.fill(Qt::white);
    for (int i = 0; i < 200; ++i) {
        image.setPixel(i, i, colour);
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    image.save(&buffer, "PNG");
    return bytes.toStdString();
}

} // namespace

class Pasteboard : public EndToEnd
{
protected:
    // Both desktops with what a user runs on them; the guest's window has the keyboard.
    void begin()
    {
        desktop->addSetting(QStringLiteral("qemu_executable"), QStringLiteral(QEMU_WITH_AGENT));
        const QString id =
            desktop->addVM(QStringLiteral("bars"), QStringLiteral(GUEST_DIR "/bars.img"));
        desktop->startTarv();
        list = waitForWindow(QStringLiteral("^Virtual Machines$"));
        ASSERT_FALSE(list.isEmpty()) << log("tarv");
        ASSERT_EQ(desktop->tarvctl({QStringLiteral("start"), QStringLiteral("-v"), id}).status, 0);
        window = waitForWindow(QStringLiteral("^bars$"));
        ASSERT_FALSE(window.isEmpty()) << log("tarv");
        focus(window);
        for (const char *name : {"host", "guest"}) {
            QDir().mkpath(desktop->path(QLatin1String(name)));
        }
        const std::string screen = desktop->display().toStdString();
        host = std::make_unique<Clipper>(file("host"), screen, [] {});
        // The agents come up long after the window.
        agents = std::make_unique<GuestDesktop>(file("guest"), file("agent-port"));
        ASSERT_TRUE(agents->start()) << agents->log();
        guest = &agents->clipper();
    }
    std::string file(const char *name) const
    {
        return desktop->path(QLatin1String(name)).toStdString();
    }
    void focus(const QString &target)
    {
        desktop->xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), target});
    }
    bool toHost(const char *target, const std::string &bytes)
    {
        guest->copy(target, bytes);
        return waitUntil(30s, [&] { return host->paste(target) == bytes; });
    }
    // Copied while another window has the keyboard.
    bool toGuest(const char *target, const std::string &bytes)
    {
        focus(list);
        host->copy(target, bytes);
        waitUntil(30s, [&] { return host->paste(target) == bytes; });
        focus(window);
        return waitUntil(30s, [&] { return guest->paste(target) == bytes; });
    }

    QString list, window;
    std::unique_ptr<Clipper> host;
    std::unique_ptr<GuestDesktop> agents;
    Clipper *guest = nullptr;
};

TEST_F(Pasteboard, goesFromTheHostsProgramsToTheGuestsAndBack)
{
    if (const std::string missing = GuestDesktop::missing(); !missing.empty()) {
        GTEST_SKIP() << missing << " is missing";
    }
    begin();
    if (HasFatalFailure()) {
        return;
    }
    const std::string short_text = "\xf0\x9d\x84\x9e\xf0\x9f\x98\x80 \xc3\xa4\n two\r\nthree\n";
    std::string long_text;
    for (int i = 0; long_text.size() < 1 << 20; ++i) {
        long_text += "line " + std::to_string(i) + "\n";
    }
    for (const std::string &text : {short_text, long_text}) {
        EXPECT_TRUE(toHost(TEXT, text)) << text.size();
        EXPECT_TRUE(toGuest(TEXT, "host: " + text)) << text.size();
    }
    EXPECT_TRUE(toHost(PICTURE, picture(qRgb(255, 0, 0))));
    EXPECT_TRUE(toGuest(PICTURE, picture(qRgb(0, 0, 255))));

    // What the guest copied does not come back to it: its own program goes on giving it.
    EXPECT_TRUE(toHost(TEXT, "the guest's"));
    const auto grabs = [&] {
        const std::string all = agents->log(), grab = "received clipboard grab";
        size_t count = 0;
        for (size_t at = 0; (at = all.find("spice-vdagent[", at)) != std::string::npos; ++at) {
            count += all.substr(at, all.find('\n', at) - at).find(grab) != std::string::npos;
        }
        return count;
    };
    const size_t before = grabs();
    focus(list);
    focus(window);
    desktop->xdotool({QStringLiteral("key"), QStringLiteral("ctrl+v")});
    EXPECT_TRUE(toHost(TEXT, "the guest's again"));
    EXPECT_EQ(grabs(), before);
}
