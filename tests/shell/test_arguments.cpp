#include "app/shell/Arguments.h"

#include <gtest/gtest.h>

#include <QDir>

TEST(Arguments, urlsStayAsTheyAreAndFilesBecomeAbsolute)
{
    Arguments parsed;
    QString error;
    ASSERT_TRUE(parseArguments({QStringLiteral("tarv"), QStringLiteral("tarv:///tmp/s?vmid=X&d=1"),
                                QStringLiteral("p:2"), QStringLiteral("--"), QStringLiteral("-x")},
                               &parsed, &error));
    ASSERT_EQ(parsed.open.size(), 3);
    EXPECT_EQ(parsed.open[0].toString(), QStringLiteral("tarv:///tmp/s?vmid=X&d=1"));
    EXPECT_EQ(parsed.open[1].toLocalFile(), QDir::currentPath() + QStringLiteral("/p:2"));
    EXPECT_EQ(parsed.open[2].toLocalFile(), QDir::currentPath() + QStringLiteral("/-x"));
    EXPECT_FALSE(
        parseArguments({QStringLiteral("tarv"), QStringLiteral("--nonsense")}, &parsed, &error));
    EXPECT_TRUE(error.contains(QLatin1String("--nonsense")));
}

TEST(Arguments, readsUrlRequests)
{
    using Map = QMap<QString, QString>;
    const QString X = QStringLiteral("X");
    struct
    {
        const char *url;
        const char *path;
        Map parameters;
    } const cases[] = {
        {"tarv:///tmp/a%20b.sock?vmid=X&d=1",
         "/tmp/a b.sock",
         {{QStringLiteral("vmid"), X}, {QStringLiteral("d"), QStringLiteral("1")}}},
        {"tarv:?vmid=X&a=1&o=%2Fpath",
         "",
         {{QStringLiteral("vmid"), X},
          {QStringLiteral("a"), QStringLiteral("1")},
          {QStringLiteral("o"), QStringLiteral("/path")}}},
        {"TARV:/p?a=b=c&&x&y=&%61=1&a=1&a=2#z=9",
         "/p",
         {{QStringLiteral("y"), QString()},
          {QStringLiteral("%61"), QStringLiteral("1")},
          {QStringLiteral("a"), QStringLiteral("2")}}},
        {"tarv:/p?bad=%2&worse=%zz&good=%C3%BC%26%3D",
         "/p",
         {{QStringLiteral("good"), QStringLiteral("ü&=")}}},
        {"tarv:/p", "/p", {}},
    };
    for (const auto &each : cases) {
        const auto request = parseUrlRequest(QString::fromUtf8(each.url));
        ASSERT_TRUE(request) << each.url;
        EXPECT_EQ(request->path, QLatin1String(each.path)) << each.url;
        EXPECT_EQ(request->parameters, each.parameters) << each.url;
    }
    for (const char *other : {"", "http://x/?d=1", "tarv", "/tmp/x", "tarv://[broken"})
        EXPECT_FALSE(parseUrlRequest(QString::fromUtf8(other))) << other;
}

TEST(Arguments, integersAreReadAsFarAsTheyGo)
{
    EXPECT_EQ(integerValue(QStringLiteral(" 12ab")), 12);
    EXPECT_EQ(integerValue(QStringLiteral("ab")), 0);
    EXPECT_EQ(integerValue(QStringLiteral("-3")), -3);
    EXPECT_EQ(integerValue(QStringLiteral("99999999999999")), 2147483647);
}
