#include "app/agreement/RichText.h"
#include "tests/app/kit/application.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTextBlock>

using namespace Qt::StringLiterals;

namespace {

class RichTextTest : public ApplicationTest
{
protected:
    QTextDocument document;
    QString error;

    QString read(const QByteArray &rtf)
    {
        EXPECT_TRUE(readRichText(rtf, &document, &error)) << error.toStdString();
        return document.toPlainText();
    }
    QTextCharFormat formatOf(const QString &text) const { return document.find(text).charFormat(); }
};

} // namespace

TEST_F(RichTextTest, readsTextOutsideOfAscii)
{
    EXPECT_EQ(read("{\\rtf1\\ansi a\\'e9\\'80 \\u8364?\\u-10179 ?\\u-8704 ?\\uc0\\u228 z"
                   "\\{\\}\\\\\\~\\emdash\\line x}"),
              u"aé€ €😀äz{}\\"_s + QChar(u' ') + u"—\nx"_s);
}

TEST_F(RichTextTest, passesOverWhatIsNoText)
{
    EXPECT_EQ(read("{\\rtf1{\\fonttbl{\\f0 Font;}}{\\*\\unknown{\\b deep}}{\\info{\\title T}}"
                   "{\\pict 00ff}\r\n{\\b b}{\\nonsense7 n}}"),
              u"bn"_s);
}

TEST_F(RichTextTest, formatsEndWithTheirGroup)
{
    read("{\\rtf1 {\\b\\fs36 Big}{\\i slanted} plain \\b on\\b0  off\\par"
         "\\pard\\qc\\li200\\sa240 Middle\\par\\pard left}");
    EXPECT_EQ(formatOf(u"Big"_s).fontWeight(), QFont::Bold);
    EXPECT_EQ(formatOf(u"Big"_s).fontPointSize(), 18);
    EXPECT_TRUE(formatOf(u"slanted"_s).fontItalic());
    EXPECT_FALSE(formatOf(u"plain"_s).fontItalic());
    EXPECT_EQ(formatOf(u"on"_s).fontWeight(), QFont::Bold);
    EXPECT_NE(formatOf(u"off"_s).fontWeight(), QFont::Bold);
    ASSERT_EQ(document.blockCount(), 3);
    const QTextBlockFormat middle = document.findBlockByNumber(1).blockFormat();
    EXPECT_TRUE(middle.alignment() & Qt::AlignHCenter);
    EXPECT_EQ(middle.leftMargin(), 10);
    EXPECT_EQ(middle.bottomMargin(), 12);
    EXPECT_FALSE(document.findBlockByNumber(2).blockFormat().alignment() & Qt::AlignHCenter);
}

TEST_F(RichTextTest, refusesWhatIsNoDocument)
{
    const QByteArray whole = "{\\rtf1\\ansi {\\b x\\'e9\\u228 ?}\\par}";
    QList<QByteArray> bad = {"", "plain text", "{\\rtf1 " + QByteArray(80, '{'),
                             "{\\rtf1 " + QByteArray(5 * 1024 * 1024, 'x') + "}"};
    for (qsizetype length = 1; length < whole.size(); ++length)
        bad << whole.left(length);
    for (const QByteArray &text : bad) {
        EXPECT_FALSE(readRichText(text, &document, &error)) << text.left(60).data();
        EXPECT_FALSE(error.isEmpty());
        EXPECT_TRUE(document.isEmpty());
    }
    EXPECT_FALSE(readRichTextFile(u"/nowhere/License.rtf"_s, &document, &error));
    EXPECT_TRUE(error.contains("/nowhere/License.rtf"_L1));
}
