#include "app/agreement/RichText.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringDecoder>
#include <QTextBlockFormat>
#include <QTextCharFormat>
#include <QTextCursor>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace {

// The context of the errors' translations.
struct Text
{
    Q_DECLARE_TR_FUNCTIONS(RichText)
};

constexpr qsizetype BYTES_MAX = 4 * 1024 * 1024;
constexpr size_t DEPTH_MAX = 64;
constexpr int TWIPS_PER_POINT = 20;

// Code page 1252 from 0x80 to 0x9F; the rest of its upper half is that of Unicode.
constexpr std::array<char16_t, 32> CP1252 = {
    0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};

constexpr std::array SKIPPED_GROUPS = {"fonttbl", "colortbl",  "stylesheet", "info",      "pict",
                                       "header",  "footer",    "headerl",    "headerr",   "footerl",
                                       "footerr", "listtable", "footnote",   "generator", "object"};

struct Symbol
{
    const char *word;
    char16_t character;
};
constexpr std::array SYMBOLS = {
    Symbol{"tab", u'\t'},         Symbol{"line", u'\u2028'},      Symbol{"emdash", u'\u2014'},
    Symbol{"endash", u'\u2013'},  Symbol{"bullet", u'\u2022'},    Symbol{"lquote", u'\u2018'},
    Symbol{"rquote", u'\u2019'},  Symbol{"ldblquote", u'\u201C'}, Symbol{"rdblquote", u'\u201D'},
    Symbol{"emspace", u'\u2003'}, Symbol{"enspace", u'\u2002'}};

// What a group inherits and gives back at its end.
struct GroupState
{
    QTextCharFormat character;
    QTextBlockFormat block;
    int unicodeSkip = 1; // characters after \u that older readers show instead
    bool skipped = false;
};

struct ControlWord
{
    std::string_view name;
    bool hasNumber = false;
    int number = 0;
};

class Reader
{
public:
    Reader(const QByteArray &rtf, QTextDocument *document) : m_rtf(rtf), m_cursor(document) {}

    // An empty text, or what is wrong.
    QString read();

private:
    const QByteArray &m_rtf;
    QTextCursor m_cursor;
    qsizetype m_at = 0;
    GroupState m_state;
    std::vector<GroupState> m_outer;
    QString m_text; // not yet in the document
    int m_toSkip = 0;
    bool m_groupStarts = false; // nothing of the group was read yet

    bool atEnd() const { return m_at >= m_rtf.size(); }
    void flush();
    void put(char16_t character);
    void putByte(uchar byte);
    bool openGroup();
    void closeGroup();
    void readControl();
    ControlWord readControlWord();
    void readHexByte();
    void apply(const ControlWord &word);
    bool applyCharacterFormat(const ControlWord &word);
    bool applyBlockFormat(const ControlWord &word);
    void applyText(const ControlWord &word);
    void endParagraph();
};

void Reader::flush()
{
    if (!m_text.isEmpty())
        m_cursor.insertText(m_text, m_state.character);
    m_text.clear();
}

void Reader::put(char16_t character)
{
    if (m_state.skipped)
        return;
    if (m_toSkip > 0)
        --m_toSkip;
    else
        m_text += QChar(character);
}

void Reader::putByte(uchar byte)
{
    put(byte >= 0x80 && byte < 0xA0 ? CP1252[byte - 0x80] : char16_t(byte));
}

bool Reader::openGroup()
{
    flush();
    m_outer.push_back(m_state);
    m_groupStarts = true;
    m_toSkip = 0;
    return m_outer.size() <= DEPTH_MAX;
}

void Reader::closeGroup()
{
    flush();
    if (m_outer.size() == 1)
        m_cursor.setBlockFormat(m_state.block); // of the paragraph that the document ends with
    m_state = m_outer.back();
    m_outer.pop_back();
    m_toSkip = 0;
}

ControlWord Reader::readControlWord()
{
    const qsizetype start = m_at;
    while (!atEnd() && isalpha(uchar(m_rtf[m_at])))
        ++m_at;
    ControlWord word{{m_rtf.constData() + start, size_t(m_at - start)}};
    const bool negative = !atEnd() && m_rtf[m_at] == '-';
    qsizetype digits = m_at + (negative ? 1 : 0);
    for (; digits < m_rtf.size() && isdigit(uchar(m_rtf[digits])); ++digits) {
        word.hasNumber = true;
        word.number = std::min(word.number * 10 + (m_rtf[digits] - '0'), 10'000'000);
    }
    if (word.hasNumber)
        m_at = digits;
    if (negative)
        word.number = -word.number;
    if (!atEnd() && m_rtf[m_at] == ' ')
        ++m_at;
    return word;
}

void Reader::readHexByte()
{
    bool number = false;
    const uint byte = m_rtf.mid(m_at, 2).toUInt(&number, 16);
    m_at = std::min(m_at + 2, m_rtf.size());
    if (number)
        putByte(uchar(byte));
}

void Reader::readControl()
{
    if (atEnd())
        return;
    const char next = m_rtf[m_at];
    const bool first = std::exchange(m_groupStarts, false);
    if (isalpha(uchar(next))) {
        const ControlWord word = readControlWord();
        const bool skips = std::find(SKIPPED_GROUPS.begin(), SKIPPED_GROUPS.end(), word.name) !=
                           SKIPPED_GROUPS.end();
        if (first && skips)
            m_state.skipped = true;
        else
            apply(word);
        return;
    }
    ++m_at;
    switch (next) {
    case '\'':
        readHexByte();
        break;
    case '*': // a group that readers may pass over when they do not know it
        m_state.skipped = true;
        break;
    case '~':
        put(0x00A0);
        break;
    case '_':
        put(0x2011);
        break;
    case '-':
        put(0x00AD);
        break;
    case '\n':
    case '\r':
        endParagraph();
        break;
    default:
        put(char16_t(uchar(next)));
    }
}

void Reader::apply(const ControlWord &word)
{
    if (m_state.skipped)
        return;
    if (word.name == "par")
        endParagraph();
    else if (!applyBlockFormat(word) && !applyCharacterFormat(word))
        applyText(word);
}

bool Reader::applyCharacterFormat(const ControlWord &word)
{
    const bool on = !word.hasNumber || word.number != 0;
    QTextCharFormat format = m_state.character;
    if (word.name == "b")
        format.setFontWeight(on ? QFont::Bold : QFont::Normal);
    else if (word.name == "i")
        format.setFontItalic(on);
    else if (word.name == "ul" || word.name == "ulnone")
        format.setFontUnderline(on && word.name == "ul");
    else if (word.name == "fs" && word.number > 0)
        format.setFontPointSize(std::min(word.number, 400) / 2.0);
    else if (word.name == "plain")
        format = QTextCharFormat();
    else
        return false;
    flush();
    m_state.character = format;
    return true;
}

bool Reader::applyBlockFormat(const ControlWord &word)
{
    QTextBlockFormat &format = m_state.block;
    const double points = double(std::clamp(word.number, -20'000, 20'000)) / TWIPS_PER_POINT;
    if (word.name == "pard")
        format = QTextBlockFormat();
    else if (word.name == "ql")
        format.setAlignment(Qt::AlignLeft);
    else if (word.name == "qc")
        format.setAlignment(Qt::AlignHCenter);
    else if (word.name == "qr")
        format.setAlignment(Qt::AlignRight);
    else if (word.name == "qj")
        format.setAlignment(Qt::AlignJustify);
    else if (word.name == "li")
        format.setLeftMargin(points);
    else if (word.name == "fi")
        format.setTextIndent(points);
    else if (word.name == "sb")
        format.setTopMargin(points);
    else if (word.name == "sa")
        format.setBottomMargin(points);
    else
        return false;
    return true;
}

void Reader::applyText(const ControlWord &word)
{
    if (word.name == "u" && word.hasNumber) {
        m_toSkip = 0;
        put(char16_t(word.number)); // written as a signed 16-bit number
        m_toSkip = m_state.unicodeSkip;
        return;
    }
    if (word.name == "uc") {
        m_state.unicodeSkip = std::clamp(word.number, 0, 16);
        return;
    }
    for (const Symbol &symbol : SYMBOLS)
        if (word.name == symbol.word)
            put(symbol.character);
}

void Reader::endParagraph()
{
    if (m_state.skipped)
        return;
    flush();
    m_cursor.setBlockFormat(m_state.block);
    m_cursor.insertBlock(m_state.block);
}

QString Reader::read()
{
    if (!m_rtf.startsWith("{\\rtf"))
        return Text::tr("not a rich-text document");
    while (!atEnd()) {
        const char character = m_rtf[m_at++];
        if (character == '{') {
            if (!openGroup())
                return Text::tr("groups are nested too deeply");
        } else if (character == '}') {
            closeGroup();
            if (m_outer.empty())
                return {};
        } else if (character == '\\') {
            readControl();
        } else if (character != '\n' && character != '\r') {
            m_groupStarts = false;
            putByte(uchar(character));
        }
    }
    return Text::tr("cut off: a group has no end");
}

} // namespace

bool readRichText(const QByteArray &rtf, QTextDocument *document, QString *error)
{
    document->clear();
    *error = rtf.size() > BYTES_MAX ? Text::tr("too large") : Reader(rtf, document).read();
    if (error->isEmpty())
        return true;
    document->clear();
    return false;
}

bool readRichTextFile(const QString &path, QTextDocument *document, QString *error)
{
    document->clear();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    if (readRichText(file.read(BYTES_MAX + 1), document, error))
        return true;
    *error = QStringLiteral("%1: %2").arg(path, *error);
    return false;
}
