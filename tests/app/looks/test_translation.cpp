// The German translation against the source texts.
#include "tests/app/kit/application.h"

#include <QFile>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace Qt::StringLiterals;

namespace {

const QString german = QStringLiteral(SOURCE_DIR "/resources/translations/tarv_de.ts");

struct Entry
{
    bool finished = false;
    QStringList forms; // more than one where the text counts things
};

// By context and source text.
QMap<QString, Entry> entriesOf(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << qPrintable(path);
    QXmlStreamReader xml(&file);
    QMap<QString, Entry> entries;
    QString context;
    QString source;
    bool counts = false;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == "message"_L1) {
            counts = xml.attributes().hasAttribute("numerus"_L1);
        } else if (xml.name() == "name"_L1) {
            context = xml.readElementText();
        } else if (xml.name() == "source"_L1) {
            source = context + u": "_s + xml.readElementText();
        } else if (xml.name() == "translation"_L1) {
            entries[source].finished = !xml.attributes().hasAttribute("type"_L1);
            entries[source].forms = counts ? QStringList() : QStringList(xml.readElementText());
        } else if (xml.name() == "numerusform"_L1) {
            entries[source].forms.append(xml.readElementText());
        }
    }
    EXPECT_FALSE(xml.hasError()) << qPrintable(xml.errorString());
    return entries;
}

// What a text is filled with, in alphabetical order, and its line breaks, ellipsis and mnemonic.
std::string fillings(const QString &text)
{
    static const QRegularExpression placeholder(u"%(?:\\d+|lu|[nd@])"_s);
    QStringList found;
    for (auto match = placeholder.globalMatch(text); match.hasNext();)
        found.append(match.next().captured());
    std::sort(found.begin(), found.end());
    const bool goesOn = text.endsWith(u'…') || text.endsWith("..."_L1);
    return qPrintable(u"%1 breaks:%2 goes on:%3 mnemonics:%4"_s.arg(found.join(u' '))
                          .arg(text.count(u'\n'))
                          .arg(goesOn)
                          .arg(text.count(u'&')));
}

} // namespace

using Translation = ApplicationTest;

TEST_F(Translation, hasEveryTextOfTheSourceAndNoOther)
{
    const QTemporaryDir directory;
    const QString fresh = directory.filePath(u"fresh.ts"_s);
    QProcess lupdate;
    lupdate.start(QStringLiteral(LUPDATE),
                  {QStringLiteral(SOURCE_DIR "/app"), QStringLiteral(SOURCE_DIR "/tarvhv/display"),
                   u"-target-language"_s, u"de"_s, u"-ts"_s, fresh});
    ASSERT_TRUE(lupdate.waitForFinished(100000)) << qPrintable(lupdate.errorString());
    const QStringList wanted = entriesOf(fresh).keys();
    const QStringList there = entriesOf(german).keys();
    ASSERT_GT(wanted.size(), 100);
    for (const QString &text : wanted)
        EXPECT_TRUE(there.contains(text)) << "not in tarv_de.ts: " << qPrintable(text);
    for (const QString &text : there)
        EXPECT_TRUE(wanted.contains(text)) << "no longer in the source: " << qPrintable(text);
}

TEST_F(Translation, isFinishedAndKeepsWhatATextIsFilledWith)
{
    const QMap<QString, Entry> entries = entriesOf(german);
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
        EXPECT_TRUE(entry->finished) << qPrintable(entry.key());
        const QString source = entry.key().section(u": "_s, 1);
        EXPECT_EQ(entry->forms.size(), source.contains("%n"_L1) ? 2 : 1) << qPrintable(source);
        for (const QString &form : entry->forms) {
            EXPECT_FALSE(form.trimmed().isEmpty()) << qPrintable(entry.key());
            EXPECT_EQ(fillings(form), fillings(source));
        }
    }
}
