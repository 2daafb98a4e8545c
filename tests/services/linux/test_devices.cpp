// The devices of a VM as a guest with drivers for them sees them.
#include "tests/guest/guests.h"
#include "tests/guest/linux/linux_guest.h"
#include "tests/services/linux/serial.h"
#include "tests/services/tarvvm/live_vm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>

using testing::HasSubstr;

namespace {

// Sends a word to whoever connects to its port of the loopback interface.
class Greeter
{
public:
    Greeter() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        EXPECT_EQ(bind(m_socket.get(), generic, size), 0);
        EXPECT_EQ(getsockname(m_socket.get(), generic, &size), 0);
        EXPECT_EQ(listen(m_socket.get(), 4), 0);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] {
            for (int peer; (peer = accept(m_socket.get(), nullptr, nullptr)) >= 0;) {
                const UniqueFd owner(peer);
                send(peer, "hello", 5, MSG_NOSIGNAL);
            }
        });
    }
    ~Greeter()
    {
        shutdown(m_socket.get(), SHUT_RDWR);
        m_thread.join();
    }
    // An address that leads the guest's card to the port.
    std::string mac(int card) const
    {
        char text[32];
        snprintf(text, sizeof text, "52:54:00:%02x:%02x:%02x", unsigned(card), m_port >> 8,
                 m_port & 0xff);
        return text;
    }

private:
    UniqueFd m_socket;
    unsigned m_port = 0;
    std::thread m_thread;
};

// The rest of the line in which a card with this address was named, and the card's name.
std::string card_with(const std::string &log, const std::string &driver, const std::string &mac)
{
    const std::string end = " driver " + driver + " mac " + mac, start = "guest: card ";
    const size_t at = log.find(end);
    const size_t name = at == std::string::npos ? at : log.rfind(start, at);
    return name == std::string::npos ? "no card " + mac
                                     : log.substr(name + start.size(), at - name - start.size());
}

bool showsColour(LiveViewer &viewer, uint32_t width, uint32_t height, uint32_t colour)
{
    return viewer.shows([&] {
        return viewer.width() == width && viewer.height() == height && viewer.at(0, 0) == colour &&
               viewer.at(width - 1, height - 1) == colour;
    });
}

TEST(LinuxDevices, areFoundByTheirDriversAndWork)
{
    SKIP_WITHOUT_LINUX_GUEST();
    Greeter greeter;
    LiveVm vm("linux", "- {file: second.img, controller: virtio-blk}\n"
                       "firmware: uefi\ncdrom: disc.iso\naudio: true\n"
                       "displays:\n- {width: 1280, height: 800}\n- {width: 800, height: 600}\n"
                       "- {width: 640, height: 480}\n- {width: 720, height: 480}\n"
                       "network:\n- {mode: shared, mac: '" +
                           greeter.mac(1) +
                           "'}\n"
                           "- {mode: host, controller: virtio-net, mac: '" +
                           greeter.mac(2) + "'}\n- {mode: disconnected, mac: '" + greeter.mac(3) +
                           "'}\n");
    vm.write("images/second.img", std::string(1 << 20, '\0'));
    vm.write("images/disc.iso", std::string(1 << 16, '\0'));
    ASSERT_TRUE(vm.startAndRun()) << vm.log();
    Serial serial(vm.file("log/" + vm.id() + ".console.log"));
    LiveViewer first(vm), second(vm, 1), small(vm, 2);
    first.send(DISPLAY_ACTIVE, {1});
    second.send(DISPLAY_ACTIVE, {1});
    ASSERT_TRUE(serial.says("tick 3 "));
    std::string found = serial.text();
    EXPECT_THAT(found, HasSubstr("guest: disk sda driver sd sectors "));
    EXPECT_THAT(found, HasSubstr("guest: disk vda driver virtio_blk sectors 2048"));
    EXPECT_THAT(found, HasSubstr("guest: disk sr0 driver sr sectors 128"));

    EXPECT_TRUE(showsColour(first, 1280, 800, LINUX_COLOURS[0])) << serial.text();
    EXPECT_TRUE(showsColour(second, 800, 600, LINUX_COLOURS[1])) << serial.text();
    EXPECT_TRUE(showsColour(small, 640, 480, LINUX_COLOURS[2])) << serial.text();
    EXPECT_TRUE(serial.said("screen 3 720x480"));
    EXPECT_TRUE(first.shows([&] { return first.cursor().width == int(LINUX_CURSOR_SIZE); }));
    EXPECT_EQ(first.cursor().hot_x, LINUX_CURSOR_HOT_X);
    EXPECT_EQ(first.cursor().hot_y, LINUX_CURSOR_HOT_Y);
    EXPECT_EQ(first.cursor().pixels.at(0), LINUX_CURSOR_COLOUR);
    first.send(DISPLAY_RESIZE, {1024, 768, 0});
    EXPECT_TRUE(serial.says("screen 0 1024x768"));
    EXPECT_TRUE(showsColour(first, 1024, 768, LINUX_COLOURS[0]));
    second.send(DISPLAY_RESIZE, {1440, 900, 0});
    EXPECT_TRUE(serial.says("screen 1 1440x900"));
    EXPECT_TRUE(showsColour(second, 1440, 900, LINUX_COLOURS[1]));

    ASSERT_TRUE(serial.said("input QEMU QEMU USB Tablet"));
    const auto pointsAt = [&](int x, int y) {
        const int across = x * LINUX_POINTER_MAX / 3824, down = y * LINUX_POINTER_MAX / 900;
        return serial.says("pointer " + std::to_string(across) + " " + std::to_string(down));
    };
    first.send(DISPLAY_POINTER_ABS, {1023, 100, 0});
    EXPECT_TRUE(pointsAt(1023, 100));
    first.send(DISPLAY_POINTER_ABS, {5, 767, 1});
    EXPECT_TRUE(pointsAt(5, 767));
    EXPECT_TRUE(serial.says("key 272 1")) << "the left button";
    first.send(DISPLAY_WHEEL, {-1, 0});
    EXPECT_TRUE(serial.says("wheel 8 1"));
    first.key(0xc8, true);
    EXPECT_TRUE(serial.says("key 103 1")) << "the key up";

    // To the guest's tablet the screens are one area, side by side.
    second.send(DISPLAY_POINTER_ABS, {720, 450, 0});
    EXPECT_TRUE(pointsAt(1024 + 720, 450));

    ASSERT_TRUE(serial.said("card eth2 has no"));
    found = serial.text();
    const auto card = [&](const char *driver, int number) {
        return "guest: card " + card_with(found, driver, greeter.mac(number));
    };
    EXPECT_THAT(found, HasSubstr(card("e1000e", 1) + " address 10.0.2.15/24 host says 'hello'"));
    EXPECT_THAT(found, HasSubstr(card("virtio_net", 2) + " address 10.0.2.15/24 host says ''"));
    EXPECT_THAT(found, HasSubstr(card("e1000e", 3) + " has no carrier"));

    EXPECT_EQ(vm.ask("suspend\r\n").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
    ASSERT_TRUE(vm.startAndRun()) << vm.log();
    LiveViewer third(vm), fourth(vm, 1);
    third.send(DISPLAY_ACTIVE, {1});
    fourth.send(DISPLAY_ACTIVE, {1});
    EXPECT_TRUE(serial.goesOn(2));
    EXPECT_TRUE(showsColour(third, 1024, 768, LINUX_COLOURS[0]));
    EXPECT_TRUE(showsColour(fourth, 1440, 900, LINUX_COLOURS[1]));
    third.send(DISPLAY_POINTER_ABS, {512, 384, 0});
    EXPECT_TRUE(pointsAt(512, 384));
    fourth.send(DISPLAY_RESIZE, {1024, 600, 0});
    EXPECT_TRUE(showsColour(fourth, 1024, 600, LINUX_COLOURS[1])) << serial.text();
    EXPECT_TRUE(serial.goesOn(2));
    EXPECT_TRUE(showsColour(third, 1024, 768, LINUX_COLOURS[0])) << "the other did not stay";
}

} // namespace
