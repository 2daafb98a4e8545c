#include "app/kit/NotificationCenter.h"

#include <gtest/gtest.h>

#include <QObject>

#include <memory>

using namespace Qt::StringLiterals;

TEST(NotificationCenter, standsChangesWhilePosting)
{
    NotificationCenter center;
    const QString name = u"a"_s;
    QObject first;
    auto second = std::make_unique<QObject>();
    int calls = 0;
    int late = 0;
    center.addObserver(&first, name, [&](const Notification &) {
        ++calls;
        second.reset();
        center.addObserver(&first, name, [&](const Notification &) { ++late; });
    });
    center.addObserver(second.get(), name, [&](const Notification &) { ++calls; });
    center.post(name);
    EXPECT_EQ(calls, 1) << "the second observer was removed by the first";
    EXPECT_EQ(late, 0) << "an observer added meanwhile waits for the next post";
    center.removeObserver(&first, name);
    center.post(name);
    EXPECT_EQ(calls, 1);
}
