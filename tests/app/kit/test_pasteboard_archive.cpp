#include "app/kit/PasteboardArchive.h"

#include <gtest/gtest.h>

#include <QCborArray>
#include <QCborMap>

using namespace Qt::StringLiterals;

using Item = PasteboardItem;
using Type = PasteboardItem::Type;

TEST(PasteboardArchive, keepsItemsAndTheirOrder)
{
    const QList<Item> items = {{Type::png, QByteArray("\x89PNG\0\xff", 6)},
                               {Type::text, "gr\xc3\xbc\xc3\x9f"},
                               {Type::url, "https://example.org/?a=b"},
                               {Type::html, "<b>x</b>"},
                               {Type::text, QByteArray(300000, 'x')}};
    QString error;
    EXPECT_EQ(PasteboardArchive::read(PasteboardArchive::write(items), &error), items);
    EXPECT_TRUE(error.isEmpty());
}

TEST(PasteboardArchive, passesOverTypesOfLaterWriters)
{
    const QCborMap document{{u"version"_s, 1},
                            {u"more"_s, QCborArray{1, 2}},
                            {u"items"_s, QCborArray{QCborArray{u"sound"_s, QCborMap{{1, 2}}},
                                                    QCborArray{u"text"_s, u"kept"_s}}}};
    const auto items = PasteboardArchive::read(QCborValue(document).toCbor());
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0], (Item{Type::text, "kept"}));
}

TEST(PasteboardArchive, malformedIsEmptyWithAReason)
{
    const QByteArray good = PasteboardArchive::write({{Type::text, "abc"}, {Type::png, "def"}});
    QList<QByteArray> bad = {"", "junk", "\x80", QByteArray(64, '\x81')};
    for (qsizetype length = 1; length < good.size(); ++length)
        bad << good.left(length);
    bad << QByteArray(good).replace("version", "VERSION");
    bad << QByteArray("\xa1\x65items\x81\x82\x64text\x5b\x7f\xff\xff\xff\xff\xff\xff\xff", 22);
    for (const QByteArray &archive : bad) {
        QString error;
        EXPECT_TRUE(PasteboardArchive::read(archive, &error).isEmpty()) << archive.toHex().data();
        EXPECT_FALSE(error.isEmpty()) << archive.toHex().data();
    }
}

TEST(PasteboardArchive, refusesPastItsCaps)
{
    EXPECT_TRUE(PasteboardArchive::write(QList<Item>(65, Item{Type::text, "x"})).isEmpty());
    EXPECT_TRUE(
        PasteboardArchive::write({{Type::text, QByteArray(32 * 1024 * 1024, 'x')}}).isEmpty());
}
