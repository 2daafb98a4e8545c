// A display window of a fake display, with preferences as of the first start.
#pragma once

#include "app/display/TarvWindow.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/UserDefaults.h"
#include "tarvhv/display/TarvDisplayView.h"
#include "tests/app/kit/application.h"
#include "tests/tarvhv/display/FakeDisplay.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <memory>

class DisplayWindow : public ApplicationTest
{
protected:
    DisplayWindow()
    {
        for (const char *key :
             {"liveResize", "sharedpasteboard", "lockKeyboard", "HideMenuBarInFullScreen"})
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
        ASSERT_TRUE(waitUntil([this] { return m_window->isActiveWindow(); }));
        waitUntil([turns = 0]() mutable { return ++turns > 10; });
        m_display->taken();
    }
    // Until the window has taken its size for settled, and nothing moves.
    static void settle()
    {
        QElapsedTimer time;
        time.start();
        waitUntil([&] { return time.elapsed() > 400; });
    }
    QSize viewSize() const { return m_controller->view()->size(); }
    // As the user resizes: the window system says nothing but the sizes.
    void resizeContent(QSize size) { m_window->resize(m_window->size() + size - viewSize()); }

    uint32_t m_caps = 0;
    FakeDisplay *m_display = nullptr;
    std::unique_ptr<TarvWindowController> m_controller;
    TarvWindow *m_window = nullptr;
};
