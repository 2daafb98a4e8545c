#include "app/kit/NotificationCenter.h"
#include "app/kit/PasteboardArchive.h"
#include "app/kit/PlainText.h"
#include "tests/app/display/display_fixture.h"

#include <QApplication>
#include <QClipboard>
#include <QMimeData>
#include <QPointer>
#include <QTest>

#include <gtest/gtest.h>

namespace {

TEST_F(DisplayWindow, asksALiveGuestForTheSnappedSizeAndKeepsIt)
{
    UserDefaults::standard().setBool(QStringLiteral("liveResize"), true);
    open(640, 400);
    resizeContent(QSize(500, 350));
    ASSERT_TRUE(waitUntil([&] { return viewSize() == QSize(514, 360); }));
    EXPECT_EQ(m_display->taken(), "size 514 360 0");
    m_display->setSize(512, 352); // as its video modes allow
    EXPECT_EQ(viewSize(), QSize(514, 360)) << "a change that the window caused";
    m_display->setSize(320, 240);
    EXPECT_EQ(viewSize(), QSize(320, 240)) << "one that it did not";
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
