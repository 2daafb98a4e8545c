#include "tarvhv/display/TarvDisplay.h"
#include "tests/app/kit/application.h"
#include "tests/tarvhv/display/FakeSupervisor.h"
#include "tests/tarvhv/display/memory_screen.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

namespace {

class Delegate : public TarvDisplayDelegate
{
public:
    void displayNotification(TarvDisplay *) override { notifications++; }
    void displayPasteboardDataDidChange(TarvDisplay *, const QByteArray &) override {}
    void displayDidClose(TarvDisplay *display) override
    {
        closes++;
        if (deleteOnClose)
            delete display;
    }
    int notifications = 0;
    int closes = 0;
    bool deleteOnClose = false;
};

class ChannelDisplayTest : public ApplicationTest
{
protected:
    void SetUp() override
    {
        std::thread answering([this] { m_fake.answer(64, 32); });
        m_display = TarvDisplayCreate(m_fake.path() + QStringLiteral(":2"), 2);
        answering.join();
        ASSERT_NE(m_display, nullptr) << std::strerror(errno);
        m_display->setDelegate(&m_delegate);
    }
    // The viewer's answer to a serial, once the view has taken the frame over.
    bool acknowledges(int serial)
    {
        m_display->acknowledgeFrame();
        return waitUntil([&] {
            const auto done = m_fake.received(DISPLAY_DAMAGE_DONE);
            return !done.empty() && done.back().arg[0] == serial;
        });
    }
    FakeSupervisor m_fake;
    Delegate m_delegate;
    std::unique_ptr<TarvDisplay> m_display;
};

TEST_F(ChannelDisplayTest, announcesMergedDamageOnceAndAnswersEachSerialOnce)
{
    EXPECT_EQ(m_fake.request, "display\r\n{\"index\":2}") << "the path's own index is left out";
    m_fake.setPixel(3, 4, 0x123456);
    m_fake.send(DISPLAY_DAMAGE, {0, 0, 8, 8, 1, 0});
    m_fake.send(DISPLAY_DAMAGE, {2, 2, 2, 2, 1, 1});
    ASSERT_TRUE(waitUntil([&] { return m_delegate.notifications > 0; }));
    EXPECT_EQ(m_delegate.notifications, 1);
    EXPECT_EQ(m_display->takeDamage().rects(), std::vector({ScreenRect{0, 0, 8, 8}}));
    EXPECT_EQ(reinterpret_cast<const uint32_t *>(m_display->fbuf())[4 * 64 + 3], 0x123456u);
    QImage shot;
    m_display->takeScreenshotWithCompletionHandler([&](const QImage &image) { shot = image; });
    ASSERT_TRUE(waitUntil([&] { return !shot.isNull(); }));
    EXPECT_EQ(reinterpret_cast<const QRgb *>(shot.constScanLine(4))[3], 0xff123456u)
        << "the unused byte is no alpha in what is handed on";
    EXPECT_TRUE(m_fake.received(DISPLAY_DAMAGE_DONE).empty()) << "not yet taken over";
    EXPECT_TRUE(acknowledges(1));
    m_display->acknowledgeFrame();
    EXPECT_EQ(m_fake.received(DISPLAY_DAMAGE_DONE).size(), 1u);

    m_fake.send(DISPLAY_DAMAGE, {500, 500, 1, 1, 2, 1});
    EXPECT_TRUE(waitUntil([&] { return m_fake.received(DISPLAY_DAMAGE_DONE).size() == 2; }))
        << "damage outside the picture is answered for without a paint";
}

TEST_F(ChannelDisplayTest, closesOnceWhenTheSupervisorGoes)
{
    m_fake.send(DISPLAY_DAMAGE, {0, 0, 1, 1, 1, 1});
    m_fake.send(DISPLAY_CLOSED, {DISPLAY_CLOSE_STOPPED});
    m_fake.hangUp();
    ASSERT_TRUE(waitUntil([&] { return m_delegate.closes > 0; }));
    EXPECT_EQ(m_delegate.notifications, 1) << "what came before is still shown";
    EXPECT_EQ(m_display->fbuf(), nullptr);
    m_display->sendKey(1, true);
    m_display->acknowledgeFrame();
    waitUntil([&, turns = 0]() mutable { return ++turns > 20; });
    EXPECT_EQ(m_delegate.closes, 1);
}

TEST_F(ChannelDisplayTest, closesOnAFrameBufferThatCouldFault)
{
    m_fake.send(DISPLAY_MODE, {64, 32, 0, 1}, unsealed_memory(1 << 20));
    EXPECT_TRUE(waitUntil([&] { return m_delegate.closes == 1; }));
}

TEST_F(ChannelDisplayTest, closesOnAPacketThatIsNoneAndMayBeDeletedByWhatItTells)
{
    m_delegate.deleteOnClose = true;
    (void)m_display.release();
    ASSERT_EQ(send(m_fake.channel(), "short", 5, 0), 5);
    EXPECT_TRUE(waitUntil([&] { return m_delegate.closes == 1; }));
}

TEST_F(ChannelDisplayTest, keepsTheEventLoopAliveUnderAFlood)
{
    std::atomic<bool> stop = false;
    std::thread flood([&] {
        while (!stop)
            m_fake.send(DISPLAY_DAMAGE, {0, 0, 64, 32, 1, 0});
    });
    EXPECT_TRUE(waitUntil([&] { return m_delegate.notifications > 100; }));
    stop = true;
    m_fake.hangUp();
    flood.join();
    EXPECT_TRUE(waitUntil([&] { return m_delegate.closes == 1; }));
}

// How an asynchronous opening ends with a supervisor that does `act` when asked.
int error_of(const std::function<void(FakeSupervisor &)> &act)
{
    FakeSupervisor fake;
    QObject context;
    int result = -1;
    TarvDisplayCreateAsync(fake.path(), 0, &context,
                           [&](std::unique_ptr<TarvDisplay>, int error) { result = error; });
    EXPECT_TRUE(waitUntil([&] { return fake.asked(); }));
    act(fake);
    EXPECT_TRUE(waitUntil([&] { return result != -1; }));
    return result;
}

// The same for one that answers so.
int error_of_answer(const std::string &bytes, const std::vector<int> &descriptors = {})
{
    return error_of([&](FakeSupervisor &fake) { fake.answerRaw(bytes, descriptors); });
}

using OpeningADisplay = ApplicationTest;

TEST_F(OpeningADisplay, saysWhyItFails)
{
    const std::string ok = R"({"status":"OK","body":{}})";
    EXPECT_EQ(error_of([](FakeSupervisor &fake) { fake.answer(10, 10); }), 0);
    EXPECT_EQ(error_of_answer(R"({"status":"ERROR","error":2,"message":"no"})"), ENODEV);
    EXPECT_EQ(error_of_answer("garbage"), EPROTO);
    EXPECT_EQ(error_of_answer(ok), EPROTO) << "no descriptors";
    EXPECT_EQ(error_of_answer(ok, {0, 0}), EPROTO);
    EXPECT_EQ(error_of_answer(ok, {0, 0, 0, 0, 0, 0}), EMSGSIZE);
    EXPECT_EQ(error_of([](FakeSupervisor &fake) {
                  fake.answerRaw(R"({"status":"OK",)");
                  fake.hangUp();
              }),
              ECONNRESET);
    EXPECT_EQ(TarvDisplayCreate(QStringLiteral("/nowhere/vm.sock"), 0), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(OpeningADisplay, waitsOneSecondForASupervisorThatSaysNothing)
{
    const FakeSupervisor fake;
    EXPECT_EQ(TarvDisplayCreate(fake.path(), 0), nullptr);
    EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(OpeningADisplay, callsNobodyWhenItsContextIsGone)
{
    FakeSupervisor fake;
    bool called = false;
    {
        QObject context;
        TarvDisplayCreateAsync(fake.path(), 0, &context,
                               [&](std::unique_ptr<TarvDisplay>, int) { called = true; });
        ASSERT_TRUE(waitUntil([&] { return fake.asked(); }));
    }
    fake.answer(10, 10);
    waitUntil([turns = 0]() mutable { return ++turns > 20; });
    EXPECT_FALSE(called);
}

} // namespace
