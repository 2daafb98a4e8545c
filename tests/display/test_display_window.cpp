#include "app/display/Screenshot.h"
#include "app/display/TarvWindow.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/PasteboardArchive.h"
#include "app/kit/UserDefaults.h"
#include "tests/display/FakeDisplay.h"
#include "tests/display/FakeSupervisor.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QSettings>
#include <QTest>

#include <gtest/gtest.h>

namespace {

class DisplayWindow : public testing::Test
{
protected:
    DisplayWindow()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_home.path());
        for (const char *key : {"liveResize", "sharedpasteboard", "lockKeyboard"})
            UserDefaults::standard().removeKey(QLatin1String(key));
    }
    void open(int width, int height)
    {
        auto display = std::make_unique<FakeDisplay>(width, height);
        m_display = display.get();
        m_display->capabilities = m_caps;
        m_controller = std::make_unique<TarvWindowController>(std::move(display));
        m_window = qobject_cast<TarvWindow *>(m_controller->window());
        m_controller->showWindow();
        ASSERT_TRUE(spin_until([this] { return m_window->isActiveWindow(); }));
        spin_until([turns = 0]() mutable { return ++turns > 10; });
        m_display->taken();
    }
    QSize viewSize() const { return m_controller->view()->size(); }
    bool enabled(const char *action)
    {
        return m_controller->validateMenuItem(
            MainMenu::of(m_window)->itemWithAction(QLatin1String(action)));
    }
    // As the user resizes: the window system says nothing but the sizes.
    void resizeContent(QSize size) { m_window->resize(m_window->size() + size - viewSize()); }

    QTemporaryDir m_home;
    uint32_t m_caps = 0;
    FakeDisplay *m_display = nullptr;
    std::unique_ptr<TarvWindowController> m_controller;
    TarvWindow *m_window = nullptr;
};

TEST_F(DisplayWindow, opensAtTheGuestsSizeUnderItsName)
{
    open(640, 400);
    EXPECT_EQ(viewSize(), QSize(640, 400));
    EXPECT_EQ(m_window->windowTitle(), QStringLiteral("mac"));
    auto second = std::make_unique<FakeDisplay>(100, 100);
    second->total = 2;
    second->hasBuffer = false;
    TarvWindowController other(std::move(second));
    EXPECT_EQ(other.window()->windowTitle(), QStringLiteral("mac (display 1)"));
    EXPECT_EQ(other.window()->objectName(), QStringLiteral("VirtualMachineWindow"));
}

TEST_F(DisplayWindow, followsTheGuestButNotItsEveryFrame)
{
    open(640, 400);
    m_display->setSize(500, 300);
    EXPECT_EQ(viewSize(), QSize(500, 300));
    m_controller->zoomOut(nullptr);
    EXPECT_EQ(viewSize(), QSize(400, 240));
    m_display->paint(QRect(0, 0, 10, 10), Qt::red);
    EXPECT_EQ(viewSize(), QSize(400, 240)) << "the user's size stays";
    m_controller->zoomImageToActualSize(nullptr);
    EXPECT_EQ(viewSize(), QSize(500, 300));
    m_controller->zoomImageToHalfSize(nullptr);
    EXPECT_EQ(viewSize(), QSize(250, 150));
    const int acknowledged = m_display->acknowledged;
    m_display->paint(QRect(0, 0, 10, 10), Qt::red);
    EXPECT_TRUE(spin_until([&] { return m_display->acknowledged > acknowledged; }))
        << "the frame clock brings it to the screen";
}

TEST_F(DisplayWindow, asksALiveGuestForTheSnappedSizeAndKeepsIt)
{
    UserDefaults::standard().setBool(QStringLiteral("liveResize"), true);
    open(640, 400);
    resizeContent(QSize(500, 350));
    ASSERT_TRUE(spin_until([&] { return viewSize() == QSize(514, 360); }));
    EXPECT_EQ(m_display->taken(), "size 514 360 0");
    m_display->setSize(512, 352); // as its video modes allow
    EXPECT_EQ(viewSize(), QSize(514, 360)) << "a change that the window caused";
    m_display->setSize(320, 240);
    EXPECT_EQ(viewSize(), QSize(320, 240)) << "one that it did not";
}

TEST_F(DisplayWindow, keepsTheAspectRatioOfOthers)
{
    open(640, 400);
    resizeContent(QSize(480, 400));
    ASSERT_TRUE(spin_until([&] { return viewSize() == QSize(480, 300); }));
    EXPECT_EQ(m_display->taken(), "");
    resizeContent(QSize(900, 300));
    EXPECT_TRUE(spin_until([&] { return viewSize() == QSize(640, 400); }));
    m_display->live = false;
    resizeContent(QSize(300, 150));
    spin_until([turns = 0]() mutable { return ++turns > 20; });
    EXPECT_EQ(viewSize(), QSize(300, 150));
}

TEST_F(DisplayWindow, offersWhatTheGuestCanDo)
{
    open(640, 480);
    EXPECT_FALSE(enabled("zoomIn:"));
    EXPECT_TRUE(enabled("zoomOut:"));
    EXPECT_FALSE(enabled("zoomImageToActualSize:"));
    EXPECT_TRUE(enabled("zoomImageToHalfSize:"));
    EXPECT_FALSE(enabled("copy:"));
    EXPECT_FALSE(enabled("paste:"));
    EXPECT_TRUE(enabled("setResolution:"));
    EXPECT_TRUE(enabled("useHiDPI:"));
    m_display->capabilities = DISPLAY_CAP_PASTE;
    EXPECT_TRUE(enabled("paste:"));
    m_display->live = false;
    EXPECT_FALSE(enabled("useHiDPI:"));
    m_controller->zoomImageToHalfSize(nullptr);
    EXPECT_TRUE(enabled("zoomIn:"));
    EXPECT_FALSE(enabled("zoomOut:"));
    EXPECT_FALSE(enabled("zoomImageToHalfSize:"));
    m_controller->lockKeyboard(nullptr);
    QAction *lock = MainMenu::of(m_window)->itemWithAction(QStringLiteral("lockKeyboard:"));
    EXPECT_TRUE(m_controller->validateMenuItem(lock) && lock->isChecked());
    m_display->taken();
    m_controller->useHiDPI(nullptr);
    EXPECT_EQ(m_display->taken(), "size 1280 960 1");
}

TEST_F(DisplayWindow, asksForATypedResolutionUnderAnySheetOnce)
{
    open(641, 480);
    m_controller->setResolution(nullptr);
    QDialog *sheet = WindowController::attachedSheet(m_window);
    ASSERT_NE(sheet, nullptr);
    m_controller->setResolution(nullptr);
    EXPECT_EQ(WindowController::attachedSheet(m_window), sheet);
    auto *width = sheet->findChild<QLineEdit *>(QStringLiteral("widthField"));
    auto *hdpi = sheet->findChild<QCheckBox *>(QStringLiteral("hdpiButton"));
    auto *buttons = sheet->findChild<QDialogButtonBox *>(QStringLiteral("buttonBox"));
    hdpi->click();
    EXPECT_EQ(width->text(), QStringLiteral("1282"));
    hdpi->click();
    EXPECT_EQ(width->text(), QStringLiteral("641"));
    width->setText(QString());
    buttons->button(QDialogButtonBox::Ok)->click();
    EXPECT_TRUE(sheet->isVisible()) << "an empty field is no resolution";
    width->setText(QStringLiteral("800"));
    m_display->taken();
    buttons->button(QDialogButtonBox::Ok)->click();
    EXPECT_EQ(m_display->taken(), "size 800 480 0");
    EXPECT_EQ(WindowController::attachedSheet(m_window), nullptr);
}

TEST(Screenshot, goesToTheDesktopUnderTheEncodedName)
{
    const QDateTime time(QDate(2026, 11, 16), QTime(1, 30, 12));
    EXPECT_TRUE(Screenshot::path(QStringLiteral("my vm/a"), time)
                    .endsWith(QStringLiteral("/my%20vm/a 16 Nov 2026 at 01.30.12.png")));
    QImage image(40, 30, QImage::Format_RGB32);
    image.setDevicePixelRatio(2);
    const QImage read = QImage::fromData(Screenshot::encode(image));
    EXPECT_EQ(read.size(), QSize(40, 30));
    EXPECT_NEAR(read.dotsPerMeterX() * 0.0254, 144, 0.5);
}

TEST_F(DisplayWindow, closesWithItsVMAndNoOther)
{
    open(640, 400);
    const QPointer<FakeDisplay> alive(m_display);
    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.post(VMServiceDidStop, QStringLiteral("another"));
    center.post(VMServiceDidStop);
    EXPECT_TRUE(m_window->isVisible());
    center.post(VMServiceDidStop, QStringLiteral("4A9E"));
    EXPECT_EQ(m_controller->window(), nullptr);
    EXPECT_TRUE(spin_until([&] { return alive.isNull(); }));
    open(640, 400);
    m_display->delegate->displayDidClose(m_display);
    EXPECT_EQ(m_controller->window(), nullptr);
}

TEST_F(DisplayWindow, sharesThePasteboardWithoutEcho)
{
    m_caps = DISPLAY_CAP_COPY | DISPLAY_CAP_PASTE;
    open(640, 400);
    QApplication::clipboard()->setText(QStringLiteral("from the host"));
    m_controller->paste(nullptr);
    ASSERT_EQ(m_display->pasteboards.size(), 1);
    const QList<PasteboardItem> sent = PasteboardArchive::read(m_display->pasteboards[0]);
    ASSERT_EQ(sent.size(), 1);
    EXPECT_EQ(sent[0].data, "from the host");
    m_display->delegate->displayPasteboardDataDidChange(
        m_display, PasteboardArchive::write({{PasteboardItem::Type::text, "from the guest"}}));
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("from the guest"));
    m_display->delegate->displayPasteboardDataDidChange(m_display, QByteArray("garbage"));
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("from the guest"));

    const auto refocus = [this] {
        QEvent away(QEvent::WindowDeactivate);
        QEvent back(QEvent::WindowActivate);
        QCoreApplication::sendEvent(m_window, &away);
        QCoreApplication::sendEvent(m_window, &back);
    };
    refocus();
    EXPECT_EQ(m_display->pasteboards.size(), 1) << "the guest's own contents do not come back";
    QApplication::clipboard()->setText(QStringLiteral("copied elsewhere"));
    refocus();
    refocus();
    EXPECT_EQ(m_display->pasteboards.size(), 2) << "sent once";
    EXPECT_TRUE(spin_until([&] { return m_display->taken().find("ask 1") != std::string::npos; }))
        << "polls while it is key";
    m_controller->toggleSharedPasteboard(nullptr);
    EXPECT_FALSE(m_controller->pasteBoardEnabled());
}

} // namespace
