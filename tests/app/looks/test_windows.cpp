// Every window in German: nothing is cut off, and nothing that can be used is nameless.
#include "app/agreement/EULAWindowController.h"
#include "app/display/ResolutionWindowController.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/Alert.h"
#include "app/kit/MainMenu.h"
#include "app/kit/Translations.h"
#include "app/list/UnreadableSheet.h"
#include "app/progress/LongOperationWindow.h"
#include "app/progress/LongRunningOperationWindowController.h"
#include "tests/app/fixtures/list_fixture.h"
#include "tests/tarvhv/display/FakeDisplay.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMenu>
#include <QSet>
#include <QTranslator>

using namespace Qt::StringLiterals;

namespace {

std::string nameOf(const QWidget *widget)
{
    return qPrintable(u"%1 \"%2\" of %3"_s.arg(QLatin1String(widget->metaObject()->className()),
                                               widget->objectName(),
                                               widget->window()->windowTitle()));
}

void expectNamed(QWidget *widget)
{
    QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(widget);
    EXPECT_TRUE(interface && !interface->text(QAccessible::Name).isEmpty()) << nameOf(widget);
    if (!qobject_cast<QDialogButtonBox *>(widget->parentWidget())) {
        EXPECT_FALSE(widget->objectName().isEmpty()) << nameOf(widget);
    }
}

// At the smallest size that the window takes.
void expectUncut(const QWidget *widget)
{
    const QSize needed = widget->minimumSizeHint();
    EXPECT_GE(widget->width(), needed.width()) << nameOf(widget);
    EXPECT_GE(widget->height(), needed.height()) << nameOf(widget);
}

void look(QWidget *window)
{
    ASSERT_TRUE(window);
    window->show();
    window->resize(window->minimumSize().expandedTo(window->minimumSizeHint()));
    QApplication::sendPostedEvents();
    EXPECT_FALSE(window->windowTitle().isEmpty()) << nameOf(window);
    for (QWidget *widget : window->findChildren<QWidget *>()) {
        if (widget->window() != window || widget->objectName().startsWith("qt_"_L1))
            continue;
        const auto *label = qobject_cast<QLabel *>(widget);
        const auto *button = qobject_cast<QAbstractButton *>(widget);
        if (widget->focusPolicy() & Qt::TabFocus || (button && !button->objectName().isEmpty()))
            expectNamed(widget);
        if (widget->isVisible() && (label || button))
            expectUncut(widget);
    }
}

// "&File" and the like of one menu: no letter twice.
void expectOwnLetters(const QList<QAction *> &items)
{
    QSet<QChar> letters;
    for (const QAction *item : items) {
        const qsizetype mark = item->text().indexOf(u'&');
        if (item->isSeparator() || item->property("listedWindow").toBool())
            continue;
        ASSERT_GE(mark, 0) << qPrintable(item->text());
        const QChar letter = item->text().at(mark + 1).toLower();
        EXPECT_FALSE(letters.contains(letter)) << qPrintable(item->text());
        letters.insert(letter);
    }
}

} // namespace

class Windows : public ListTest
{
protected:
    void SetUp() override
    {
        qputenv("LC_ALL", "de_DE.UTF-8");
        qputenv("LANGUAGE", "de");
        installTranslations(qApp);
    }
    void TearDown() override
    {
        qDeleteAll(qApp->findChildren<QTranslator *>());
        ListTest::TearDown();
    }
};

TEST_F(Windows, areNamedAndUncutInGerman)
{
    EULAWindowController agreement(QStringLiteral(SOURCE_DIR "/resources/License.rtf"),
                                   [](TarvError *) { return true; });
    look(agreement.window());
    EXPECT_EQ(agreement.window()->findChild<QAbstractButton *>(u"acceptButton"_s)->text(),
              u"&Annehmen"_s);

    addVM(u"Datenbank"_s);
    writeVM(randomId(), "config.yaml", "name: [unclosed\n");
    open();
    look(m_controller->window());
    UnreadableSheet unreadable({{randomId(), u"…/config.yaml: No such file"_s}}, nullptr);
    look(&unreadable);

    const std::unique_ptr<LongRunningOperationWindowController> progress(
        LongRunningOperationWindowController::controller());
    progress->setTitle(u"Wird in den Ruhezustand versetzt …"_s);
    look(progress->sheet());

    auto *display = new FakeDisplay(640, 480);
    TarvWindowController screen{std::unique_ptr<TarvDisplay>(display)};
    look(screen.window());
    ResolutionWindowController resolution(*display);
    look(resolution.sheet());

    Alert question(u"Laufende VMs: 2. Möchten Sie Tarv beenden und diese VMs abbrechen?"_s);
    question.addButton(u"Abbrechen"_s).addButton(u"Tarv beenden"_s);
    look(question.beginSheet(m_controller->window(), [](int) {}));
}

TEST_F(Windows, haveMenusWithoutALetterTwice)
{
    for (const bool translated : {true, false}) {
        if (!translated)
            qDeleteAll(qApp->findChildren<QTranslator *>());
        const MainMenu menu(nullptr);
        EXPECT_EQ(menu.actions().at(1)->text(), translated ? u"&Datei"_s : u"&File"_s);
        expectOwnLetters(menu.actions());
        for (const QAction *top : menu.actions())
            expectOwnLetters(top->menu()->actions());
    }
}
