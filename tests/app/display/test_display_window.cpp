#include "app/kit/NotificationCenter.h"
#include "app/kit/PasteboardArchive.h"
#include "app/kit/PlainText.h"
#include "app/kit/SheetCodes.h"
#include "tests/app/display/display_fixture.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QResizeEvent>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

// The sizes that a widget has had.
class SizeRecorder : public QObject
{
public:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Resize)
            seen.push_back(static_cast<QResizeEvent *>(event)->size());
        return false;
    }
    std::vector<QSize> seen;
};

TEST_F(DisplayWindow, asksALiveGuestForTheSnappedSizeAndTakesItsAnswer)
{
    UserDefaults::standard().setBool(QStringLiteral("liveResize"), true);
    open(640, 400);
    resizeContent(QSize(500, 350));
    ASSERT_TRUE(waitUntil([&] { return viewSize() == QSize(514, 360); }));
    EXPECT_EQ(m_display->taken(), "size 514 360 0");
    m_display->paint(QRect(1, 1, 5, 5), Qt::red);
    EXPECT_EQ(viewSize(), QSize(514, 360)) << "the guest takes its time";
    m_display->setSize(512, 352); // as its video modes allow
    EXPECT_TRUE(waitUntil([&] { return viewSize() == QSize(512, 352); }));
    settle();
    EXPECT_EQ(m_display->taken(), "") << "its answer is not answered";
}

TEST_F(DisplayWindow, followsTheGuestWhateverSizeItWasGivenBefore)
{
    open(640, 400);
    resizeContent(QSize(400, 250));
    settle();
    m_display->paint(QRect(1, 1, 5, 5), Qt::red);
    settle();
    EXPECT_EQ(viewSize(), QSize(400, 250)) << "a moving picture is scaled";
    m_display->notify();
    EXPECT_TRUE(waitUntil([&] { return viewSize() == QSize(640, 400); }));

    SizeRecorder sizes;
    m_controller->view()->installEventFilter(&sizes);
    m_display->setSize(500, 300);
    EXPECT_TRUE(waitUntil([&] { return viewSize() == QSize(500, 300); }));
    EXPECT_TRUE(std::any_of(sizes.seen.begin(), sizes.seen.end(), [](QSize size) {
        return size.width() > 500 && size.width() < 640;
    })) << "it moves there";
    m_controller->zoomOut(nullptr);
    m_controller->zoomOut(nullptr); // from where the first one goes to
    EXPECT_TRUE(waitUntil([&] { return viewSize() == QSize(400, 240); }));
    settle();
    EXPECT_EQ(viewSize(), QSize(400, 240));
}

TEST_F(DisplayWindow, leavesASizeInTheUsersHandUntilTheUserIsDone)
{
    open(640, 400);
    resizeContent(QSize(400, 250));
    m_display->setSize(500, 300);
    EXPECT_EQ(viewSize(), QSize(400, 250));
    EXPECT_TRUE(waitUntil([&] { return viewSize() == QSize(500, 300); }));
}

TEST_F(DisplayWindow, saysBesideTheFieldWhatIsNoResolution)
{
    open(640, 400);
    m_controller->setResolution(nullptr);
    QDialog *sheet = WindowController::attachedSheet(m_window);
    ASSERT_NE(sheet, nullptr);
    const QSignalSpy ended(sheet, &QDialog::finished);
    auto *height = sheet->findChild<QLineEdit *>(QStringLiteral("heightField"));
    const auto *problem = sheet->findChild<QLabel *>(QStringLiteral("heightProblem"));
    auto *ok = sheet->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok);
    height->setText(QStringLiteral("0"));
    ok->click();
    EXPECT_TRUE(problem->isVisible());
    EXPECT_FALSE(sheet->findChild<QLabel *>(QStringLiteral("widthProblem"))->isVisible());
    EXPECT_EQ(ended.size(), 0) << "the sheet stays";
    height->setText(QStringLiteral("300"));
    EXPECT_FALSE(problem->isVisible());
    QTest::keyClick(height, Qt::Key_Escape);
    ASSERT_EQ(ended.size(), 1);
    EXPECT_EQ(ended[0][0].toInt(), SHEET_STOP);
    EXPECT_EQ(m_display->taken(), "");
    m_controller->setResolution(nullptr);
    sheet = WindowController::attachedSheet(m_window);
    sheet->findChild<QLineEdit *>(QStringLiteral("heightField"))->setText(QStringLiteral("300"));
    sheet->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok)->click();
    EXPECT_EQ(m_display->taken(), "size 640 300 0");
}

TEST_F(DisplayWindow, isNamedAsItsVMWhateverThatIs)
{
    for (const QString &name : {QStringLiteral("a %2 & %1 [*]"), QStringLiteral("mac")}) {
        for (const unsigned screens : {1u, 2u}) {
            auto display = std::make_unique<FakeDisplay>(640, 400);
            display->vmName = name;
            display->screens = screens;
            const TarvWindowController controller(std::move(display));
            EXPECT_EQ(PlainText::ofTitle(controller.window()),
                      screens == 1 ? name : name + QStringLiteral(" (display 1)"));
        }
    }
}

TEST_F(DisplayWindow, closesWithItsVMAndNoOther)
{
    open(640, 400);
    const QPointer<FakeDisplay> alive(m_display);
    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.post(VM_SERVICE_DID_STOP, QStringLiteral("another"));
    center.post(VM_SERVICE_DID_STOP);
    EXPECT_TRUE(m_window->isVisible());
    center.post(VM_SERVICE_DID_STOP, QStringLiteral("4A9E"));
    EXPECT_EQ(m_controller->window(), nullptr);
    EXPECT_TRUE(waitUntil([&] { return alive.isNull(); }));
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
    for (const QByteArray &bad :
         {QByteArray("garbage"), PasteboardArchive::write({{PasteboardItem::Type::png, "none"}})})
        m_display->delegate->displayPasteboardDataDidChange(m_display, bad);
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
    EXPECT_TRUE(waitUntil([&] { return m_display->taken().find("ask 1") != std::string::npos; }))
        << "polls while it is key";
    m_controller->toggleSharedPasteboard(nullptr);
    EXPECT_FALSE(m_controller->pasteBoardEnabled());
}

} // namespace
