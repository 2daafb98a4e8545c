#include "app/kit/Alert.h"
#include "app/kit/MainMenu.h"
#include "app/kit/PlainText.h"
#include "app/kit/WindowController.h"
#include "tests/app/kit/application.h"

#include <QLabel>
#include <QMenu>
#include <QScreen>
#include <QTextDocument>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

const QStringList NAMES = {u"<img src='/fifo'>"_s, u"<b>a</b> & b"_s, u"a [*] b"_s,
                           u"%1 %2 %@ %n"_s,       u"&File"_s,        u"a<b>c\nd"_s};

// What a label that guesses shows of a text.
QString seen(const QString &text)
{
    if (!Qt::mightBeRichText(text))
        return text;
    QTextDocument document;
    document.setHtml(text);
    return document.toPlainText();
}

class PlainWindow : public WindowController
{
public:
    explicit PlainWindow(const QString &name)
    {
        auto *widget = new QWidget;
        widget->setLayout(new QVBoxLayout);
        MainMenu::installIn(widget);
        widget->setWindowTitle(PlainText::forTitle(name));
        setWindow(widget);
    }
};

} // namespace

using PlainTextTest = ApplicationTest;

TEST_F(PlainTextTest, toolTipsShowWhatStandsThere)
{
    for (const QString &name : NAMES)
        EXPECT_EQ(seen(PlainText::forToolTip(name)), name);
}

TEST_F(PlainTextTest, windowsAreListedUnderTheirNames)
{
    for (const QString &name : {u"a && b & c"_s, u"a [*] b"_s, u"x\ty"_s}) {
        PlainWindow window(name);
        window.showWindow();
        EXPECT_EQ(PlainText::ofTitle(window.window()), name);
        auto *menu = window.window()->findChild<QMenu *>(u"menuWindow"_s);
        ASSERT_TRUE(menu);
        Q_EMIT menu->aboutToShow();
        QString listed = menu->actions().constLast()->text();
        EXPECT_EQ(listed.replace("&&"_L1, "&"_L1), QString(name).replace(u'\t', u' '));
        EXPECT_EQ(menu->actions().constLast()->text().count(u'&'), 2 * name.count(u'&'));
    }
}

TEST_F(PlainTextTest, alertsShowWhatStandsThereAndFitTheScreen)
{
    PlainWindow window(u"w"_s);
    window.showWindow();
    for (const QString &name : NAMES + QStringList(QString(300, u'W'))) {
        QMessageBox *box = Alert(name).setInformativeText(name).beginSheet(window.window());
        const auto labels = box->findChildren<QLabel *>();
        int shown = 0;
        for (const QLabel *label : labels) {
            if (!label->pixmap().isNull() || label->text().isEmpty())
                continue;
            shown++;
            EXPECT_EQ(label->textFormat(), Qt::PlainText) << qPrintable(label->objectName());
            EXPECT_EQ(label->text().remove(QChar(0x200b)), name);
            EXPECT_LE(label->minimumSizeHint().width(), box->screen()->availableSize().width());
        }
        EXPECT_EQ(shown, 2);
        box->done(0);
    }
}
