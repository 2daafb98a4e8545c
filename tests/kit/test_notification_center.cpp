#include "app/kit/NotificationCenter.h"

#include <gtest/gtest.h>

#include <QObject>

#include <memory>

TEST(NotificationCenter, deliversAtOnceInOrderWithWhatWasPosted)
{
    NotificationCenter center;
    QObject context;
    QStringList seen;
    center.addObserver(&context, QStringLiteral("a"), [&](const Notification &notification) {
        seen << QStringLiteral("first ") + notification.object.toString();
    });
    center.addObserver(&context, QStringLiteral("a"), [&](const Notification &notification) {
        seen << QStringLiteral("second ") +
                    notification.userInfo.value(QStringLiteral("k")).toString();
    });
    center.addObserver(&context, QStringLiteral("b"),
                       [&](const Notification &) { seen << QStringLiteral("other"); });
    center.post(QStringLiteral("a"), QStringLiteral("x"),
                {{QStringLiteral("k"), QStringLiteral("v")}});
    EXPECT_EQ(seen, (QStringList{QStringLiteral("first x"), QStringLiteral("second v")}));
}

TEST(NotificationCenter, standsChangesWhilePosting)
{
    NotificationCenter center;
    const QString name = QStringLiteral("a");
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
