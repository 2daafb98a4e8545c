#include "tarvhv/display/TarvDisplayView.h"
#include "tests/app/kit/application.h"
#include "tests/tarvhv/display/FakeDisplay.h"

#include <QDialog>
#include <QPaintEvent>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

class PaintCounter : public QObject
{
public:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint) {
            count++;
            region = static_cast<QPaintEvent *>(event)->region();
        }
        return false;
    }
    int count = 0;
    QRegion region;
};

class View : public ApplicationTest, public TarvDisplayDelegate
{
protected:
    void SetUp() override
    {
        m_window.resize(200, 100);
        m_view = TarvDisplayViewCreate(&m_window);
        m_view->setGeometry(0, 0, 200, 100);
        m_view->installEventFilter(&m_paints);
        m_display.delegate = this;
        m_view->setDisplay(&m_display);
        m_window.show();
        m_window.activateWindow();
        m_view->setFocus();
        ASSERT_TRUE(waitUntil([this] { return m_paints.count > 0 && m_view->hasFocus(); }));
        settle();
        m_display.taken();
    }
    void TearDown() override { m_view->setDisplay(nullptr); }
    void displayNotification(TarvDisplay *) override
    {
        m_view->setNeedsScreenTextureUpdate(true);
        m_view->setNeedsDisplay(true);
    }
    void displayPasteboardDataDidChange(TarvDisplay *, const QByteArray &) override {}
    void displayDidClose(TarvDisplay *) override {}

    void settle()
    {
        for (int i = 0; i < 10; i++)
            QCoreApplication::processEvents();
        m_paints.count = 0;
    }
    QColor shown(int x, int y) { return m_view->grab().toImage().pixelColor(x, y); }

    QWidget m_window;
    PaintCounter m_paints;
    FakeDisplay m_display{200, 100};
    TarvDisplayView *m_view = nullptr;
};

TEST_F(View, repaintsTheDamagedPartOnceAndAnswersForIt)
{
    const int before = m_display.acknowledged;
    m_display.paint(QRect(10, 20, 30, 5), Qt::red);
    EXPECT_EQ(m_display.acknowledged, before);
    ASSERT_TRUE(waitUntil([&] { return m_paints.count > 0; }));
    EXPECT_EQ(m_paints.region, QRegion(10, 20, 30, 5));
    EXPECT_EQ(m_display.acknowledged, before + 1);
    settle();
    for (int i = 0; i < 50; i++)
        m_view->setNeedsDisplay(true);
    settle();
    EXPECT_EQ(m_paints.count, 0) << "nothing changed";
    EXPECT_EQ(shown(10, 20), QColor(Qt::red));
    EXPECT_EQ(shown(9, 20), QColor(Qt::black));
    EXPECT_EQ(shown(39, 24), QColor(Qt::red));
}

// A picture whose pixels all differ, with bytes of any kind where an alpha would be.
QImage guest_picture(QSize size)
{
    QImage picture(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); y++)
        for (int x = 0; x < size.width(); x++)
            reinterpret_cast<QRgb *>(picture.scanLine(y))[x] =
                uint32_t(x * 37 + y * 101) << 24 | uint32_t(y) << 12 | uint32_t(x);
    return picture;
}

// Each case is checked at the scale of the host's screen, whatever it is.
TEST_F(View, paintsOpaquePixelsOneForOneInWholeMultiplesOrSmooth)
{
    const qreal ratio = m_view->devicePixelRatioF();
    const QSize device = (QSizeF(m_view->size()) * ratio).toSize();
    QImage shown(device, QImage::Format_ARGB32_Premultiplied);
    shown.setDevicePixelRatio(ratio);
    const auto paint = [&](QSize guest) {
        m_display.setSize(guest.width(), guest.height());
        m_display.image = guest_picture(guest);
        shown.fill(Qt::transparent);
        m_view->render(&shown);
    };
    for (const int multiple : {1, device.width() / 50}) { // 1: the guest's pixels are the screen's
        paint(device / multiple);
        for (int y = 0; y < device.height(); y++)
            for (int x = 0; x < device.width(); x++)
                ASSERT_EQ(shown.pixel(x, y),
                          m_display.image.pixel(x / multiple, y / multiple) | 0xff000000)
                    << multiple << ": " << x << "," << y;
    }
    for (const QSize guest : {device * 2, device * 3 / 4, QSize(device.width(), 20)}) {
        paint(guest);
        for (int y = 0; y < device.height(); y++)
            for (int x = 0; x < device.width(); x++)
                ASSERT_EQ(qAlpha(shown.pixel(x, y)), 255) << guest.width() << ": " << x << "," << y;
    }
}

TEST_F(View, paintsSoAtFractionalScalesToo)
{
    for (const char *scale : {"1.25", "1.5", "1.75", "2"}) {
        QProcess again;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QT_SCALE_FACTOR"_s, QLatin1String(scale));
        again.setProcessEnvironment(environment);
        again.setProcessChannelMode(QProcess::ForwardedChannels);
        again.start(QCoreApplication::applicationFilePath(),
                    {u"--gtest_filter=View.paintsOpaque*"_s});
        EXPECT_TRUE(again.waitForFinished(30000)) << scale;
        EXPECT_EQ(again.exitCode(), 0) << scale;
    }
}

TEST_F(View, givesEveryKeyToTheGuest)
{
    QTest::keyClick(m_view, Qt::Key_Tab);
    QTest::keyClick(m_view, Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_TRUE(m_view->hasFocus());
    EXPECT_EQ(m_display.taken(), "key 15 1, key 15 0, key 42 1, key 15 1, key 15 0, key 42 0");
    QKeyEvent shortcut(QEvent::ShortcutOverride, Qt::Key_Q, Qt::ControlModifier);
    shortcut.ignore();
    QCoreApplication::sendEvent(m_view, &shortcut);
    EXPECT_TRUE(shortcut.isAccepted());
    for (const auto &[type, repeated] :
         {std::pair(QEvent::KeyPress, false), std::pair(QEvent::KeyRelease, true),
          std::pair(QEvent::KeyPress, true), std::pair(QEvent::KeyRelease, false)}) {
        QKeyEvent event(type, Qt::Key_A, Qt::NoModifier, QString(), repeated);
        QCoreApplication::sendEvent(m_view, &event);
    }
    EXPECT_EQ(m_display.taken(), "key 30 1, key 30 1, key 30 0");
}

TEST_F(View, releasesWhatIsPressedWhenItLosesTheKeyboard)
{
    const auto press = [this] {
        QTest::keyPress(m_view, Qt::Key_Control);
        QTest::mousePress(m_view, Qt::LeftButton, {}, QPoint(5, 6));
        m_display.taken();
    };
    const std::string released = "key 29 0, position 5 6 0";
    press();
    m_view->clearFocus();
    EXPECT_EQ(m_display.taken(), released);
    m_view->setFocus();
    press();
    QDialog sheet(&m_window);
    sheet.setWindowModality(Qt::WindowModal);
    sheet.open();
    EXPECT_TRUE(waitUntil([&] { return m_display.taken() == released; }));
    sheet.close();
    settle();
    m_view->setFocus();
    press();
    m_view->setDisplay(nullptr);
    EXPECT_EQ(m_display.taken(), released);
    EXPECT_FALSE(m_display.active);
    QTest::mouseRelease(m_view, Qt::LeftButton, {}, QPoint(5, 6));
}

TEST_F(View, takesThePointerForAGuestWithoutPositions)
{
    const QSignalSpy grabs(m_view, &TarvDisplayView::pointerGrabChanged);
    m_display.absolute = false;
    Q_EMIT m_display.pointerModeChanged(false);
    QTest::mouseMove(m_view, QPoint(50, 20));
    EXPECT_EQ(m_display.taken(), "") << "before a click the pointer is the host's";
    QTest::mouseClick(m_view, Qt::LeftButton, {}, QPoint(100, 50));
    ASSERT_EQ(grabs.count(), 1);
    m_display.taken();
    QTest::mousePress(m_view, Qt::LeftButton, {}, QPoint(103, 48));
    EXPECT_EQ(m_display.taken().back(), '1');
    QTest::mouseRelease(m_view, Qt::LeftButton, {}, QPoint(103, 48));
    QTest::keyPress(m_view, Qt::Key_Control);
    QTest::keyPress(m_view, Qt::Key_Alt);
    EXPECT_EQ(grabs.count(), 2);
    EXPECT_EQ(QWidget::mouseGrabber(), nullptr);
}

} // namespace
