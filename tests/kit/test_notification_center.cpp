#include "app/kit/NotificationCenter.h"

#include <gtest/gtest.h>

#include <QObject>

#include <memory>

using namespace Qt::StringLiterals;

TEST(NotificationCenter, deliversAtOnceInOrderWithWhatWasPosted)
{
    NotificationCenter center;
    QObject context;
    QStringList seen;
    center.addObserver(&context, u"a"_s, [&](const Notification &notification) {
        seen << u"first "_s + notification.object.toString();
    });
    center.addObserver(&context, u"a"_s, [&](const Notification &notification) {
        seen << u"second "_s + notification.userInfo.value(u"k"_s).toString();
    });
    center.addObserver(&context, u"b"_s, [&](const Notification &) { seen << u"other"_s; });
    center.post(u"a"_s, u"x"_s, {{u"k"_s, u"v"_s}});
    EXPECT_EQ(seen, (QStringList{u"first x"_s, u"second v"_s}));
}

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
