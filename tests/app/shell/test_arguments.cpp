#include "app/shell/Arguments.h"

#include <gtest/gtest.h>

#include <QDir>

using namespace Qt::StringLiterals;

TEST(Arguments, urlsStayAsTheyAreAndFilesBecomeAbsolute)
{
    StartArguments parsed;
    QString error;
    ASSERT_TRUE(parseArguments(
        {u"tarv"_s, u"tarv:///tmp/s?vmid=X&d=1"_s, u"p:2"_s, u"--"_s, u"-x"_s}, &parsed, &error));
    ASSERT_EQ(parsed.open.size(), 3);
    EXPECT_EQ(parsed.open[0].toString(), u"tarv:///tmp/s?vmid=X&d=1"_s);
    EXPECT_EQ(parsed.open[1].toLocalFile(), QDir::currentPath() + u"/p:2"_s);
    EXPECT_EQ(parsed.open[2].toLocalFile(), QDir::currentPath() + u"/-x"_s);
    EXPECT_FALSE(parseArguments({u"tarv"_s, u"--nonsense"_s}, &parsed, &error));
    EXPECT_TRUE(error.contains("--nonsense"_L1));
}

TEST(Arguments, findsTheDisplayIndexBehindThePath)
{
    const std::pair<const char *, int> cases[] = {{"p", 0},       {"p:2", 2},    {"p:2:3", 2},
                                                  {"p:x", 0},     {"/a:3/p", 0}, {"/a:3/p:4", 4},
                                                  {"/a/p:-1", -1}};
    for (const auto &[name, index] : cases)
        EXPECT_EQ(displayIndexOf(QLatin1String(name)), index) << name;
}

TEST(Arguments, readsUrlRequests)
{
    using Map = QMap<QString, QString>;
    const QString X = u"X"_s;
    struct
    {
        const char *url;
        const char *path;
        Map parameters;
    } const cases[] = {
        {"tarv:///tmp/a%20b.sock?vmid=X&d=1", "/tmp/a b.sock", {{u"vmid"_s, X}, {u"d"_s, u"1"_s}}},
        {"tarv:?vmid=X&a=1&o=%2Fpath",
         "",
         {{u"vmid"_s, X}, {u"a"_s, u"1"_s}, {u"o"_s, u"/path"_s}}},
        {"TARV:/p?a=b=c&&x&y=&%61=1&a=1&a=2#z=9",
         "/p",
         {{u"y"_s, QString()}, {u"%61"_s, u"1"_s}, {u"a"_s, u"2"_s}}},
        {"tarv:/p?bad=%2&worse=%zz&good=%C3%BC%26%3D", "/p", {{u"good"_s, u"ü&="_s}}},
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
