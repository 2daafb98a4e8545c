// What the end-to-end tests share: a desktop of their own, and waiting for its windows.
#pragma once

#include "tests/e2e/Desktop.h"
#include "tests/guest/guests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

class EndToEnd : public testing::Test
{
protected:
    void SetUp() override
    {
        desktop = std::make_unique<Desktop>();
        ASSERT_TRUE(desktop->ok()) << desktop->problem().toStdString();
    }
    void TearDown() override
    {
        if (HasFailure())
            for (const char *program : {"tarv", "data/logs/tarv"})
                printf("-- %s.log:\n%s\n", program, log(program).c_str());
        desktop.reset();
    }

    QString waitForWindow(const QString &pattern)
    {
        QString found;
        waitUntil(std::chrono::seconds(90), [&] {
            found = desktop->window(pattern);
            return !found.isEmpty();
        });
        return found;
    }
    // Where the guest's picture begins below a window's menu bar, at 1:1.
    int viewTop(const QString &window, guest_size size)
    {
        int top = 0;
        waitUntil(std::chrono::seconds(60), [&] {
            const QRect frame = desktop->geometry(window);
            top = frame.height() - size.height;
            return frame.width() == size.width && top >= 0 && top < 100;
        });
        return top;
    }
    std::string log(const char *name) { return desktop->log(QLatin1String(name)).toStdString(); }

    std::unique_ptr<Desktop> desktop;
};
