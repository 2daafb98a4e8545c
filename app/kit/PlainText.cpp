#include "app/kit/PlainText.h"

#include <QTextDocument>
#include <QWidget>

namespace {

const QString UNSAVED_MARK = QStringLiteral("[*]");
const QString SPELLED_MARK = QStringLiteral("[*][*]");
constexpr QChar ZERO_WIDTH_SPACE(0x200b);
constexpr int WORD_MAX = 40; // characters; an identifier is not broken

} // namespace

QString PlainText::forToolTip(const QString &text)
{
    return Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text) : text;
}

QString PlainText::forMenu(const QString &text)
{
    QString spelled = text;
    for (QChar &c : spelled)
        if (c.category() == QChar::Other_Control)
            c = QLatin1Char(' ');
    return spelled.replace(QLatin1Char('&'), QLatin1String("&&"));
}

QString PlainText::forTitle(const QString &text)
{
    return QString(text).replace(UNSAVED_MARK, SPELLED_MARK);
}

QString PlainText::ofTitle(const QWidget *window)
{
    return window->windowTitle().replace(SPELLED_MARK, UNSAVED_MARK);
}

QString PlainText::breakable(const QString &text)
{
    QString broken;
    int length = 0; // of the word so far
    for (const QChar c : text) {
        // Half of a character is not parted from the other.
        if (length >= WORD_MAX && !c.isLowSurrogate()) {
            broken += ZERO_WIDTH_SPACE;
            length = 0;
        }
        broken += c;
        length = c.isSpace() ? 0 : length + 1;
    }
    return broken;
}
