#include "app/kit/MainMenu.h"

#include "app/kit/PlainText.h"
#include "app/kit/Responder.h"
#include "app/kit/WindowController.h"

#include <QApplication>
#include <QLayout>
#include <QMainWindow>
#include <QMenu>

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

struct Item
{
    const char *title;  // null: a separator
    const char *action; // null: a menu starts here
    const char *shortcut = "";
    const char *identifier = "";
};

constexpr Item SEPARATOR{nullptr, ""};

// A display window keeps its menu items' shortcuts for the guest, copy and paste aside.
constexpr Item ITEMS[] = {
    {QT_TRANSLATE_NOOP("MainMenu", "&Tarv"), nullptr},
    {QT_TRANSLATE_NOOP("MainMenu", "&About Tarv"), "orderFrontStandardAboutPanel:"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "&Quit Tarv"), "terminate:", "Ctrl+Q"},

    {QT_TRANSLATE_NOOP("MainMenu", "&File"), nullptr},
    {QT_TRANSLATE_NOOP("MainMenu", "&New VM…"), "newDocument:", "Ctrl+N"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Open VM"), "openDocument:", "Ctrl+O"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "&Close"), "performClose:", "Ctrl+W"},

    {QT_TRANSLATE_NOOP("MainMenu", "&Edit"), nullptr},
    {QT_TRANSLATE_NOOP("MainMenu", "&Undo"), "undo:", "Ctrl+Z"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Redo"), "redo:", "Ctrl+Shift+Z"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "Cu&t"), "cut:", "Ctrl+X"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Copy"), "copy:", "Ctrl+C"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Paste"), "paste:", "Ctrl+V"},
    {QT_TRANSLATE_NOOP("MainMenu", "Select &All"), "selectAll:", "Ctrl+A"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "&Shared Pasteboard"), "toggleSharedPasteboard:"},

    {QT_TRANSLATE_NOOP("MainMenu", "&Virtual Machine"), nullptr},
    {QT_TRANSLATE_NOOP("MainMenu", "&Start"), "openDocument:"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Force Start"), "forceStartVirtualMachine:", "Ctrl+Shift+O"},
    {QT_TRANSLATE_NOOP("MainMenu", "Start in &Recovery"), "recoverVirtualMachine:"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "S&uspend"), "suspendVirtualMachine:"},
    {QT_TRANSLATE_NOOP("MainMenu", "Re&boot"), "rebootVirtualMachine:"},
    {QT_TRANSLATE_NOOP("MainMenu", "S&top"), "stopVirtualMachine:"},
    {QT_TRANSLATE_NOOP("MainMenu", "Force St&op"), "forceStopVirtualMachine:"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "Rena&me"), "renameVirtualMachine:"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Clone"), "cloneVirtualMachine:"},
    {QT_TRANSLATE_NOOP("MainMenu", "Co&py"), "copyVirtualMachine:"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Delete…"), "delete:", "Ctrl+Backspace"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "Take Scree&nshot"), "takeScreenShot:"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Lock Keyboard"), "lockKeyboard:"},

    {QT_TRANSLATE_NOOP("MainMenu", "V&iew"), nullptr},
    {QT_TRANSLATE_NOOP("MainMenu", "Zoom &In"), "zoomIn:", "Ctrl++"},
    {QT_TRANSLATE_NOOP("MainMenu", "Zoom &Out"), "zoomOut:", "Ctrl+-"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Actual Size"), "zoomImageToActualSize:", "Ctrl+0"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Half Size"), "zoomImageToHalfSize:"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "&Resolution…"), "setResolution:"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Live Resolution"), "toggleLiveResize:"},
    {QT_TRANSLATE_NOOP("MainMenu", "Hi&DPI"), "useHiDPI:", "", "USEHIDPI"},
    SEPARATOR,
    {QT_TRANSLATE_NOOP("MainMenu", "&Full Screen"), "toggleFullScreen:", "Ctrl+Meta+F"},

    {QT_TRANSLATE_NOOP("MainMenu", "&Window"), nullptr, "", "WINDOWS"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Minimize"), "performMiniaturize:", "Ctrl+M"},
    {QT_TRANSLATE_NOOP("MainMenu", "&Virtual Machines"), "showWelcomeWindow:", "Ctrl+Shift+L"},
    SEPARATOR,

    {QT_TRANSLATE_NOOP("MainMenu", "&Help"), nullptr},
    {QT_TRANSLATE_NOOP("MainMenu", "&Getting Started"), "openGettingStartedURL:"},
};

bool g_restricted = false;

std::vector<MainMenu *> &allMenus()
{
    static std::vector<MainMenu *> menus;
    return menus;
}

QString objectNameOf(const char *prefix, const char *text)
{
    QString name = QString::fromLatin1(text);
    name.remove(QLatin1Char(':')).remove(QLatin1Char('&')).remove(QLatin1Char(' '));
    return QLatin1String(prefix) + name;
}

} // namespace

MainMenu::MainMenu(QWidget *window) : QMenuBar(window), m_window(window)
{
    setObjectName(QStringLiteral("mainMenu"));
    setAccessibleName(tr("Main menu"));
    setNativeMenuBar(false);
    QMenu *menu = nullptr;
    for (const Item &item : ITEMS) {
        if (!item.action) {
            menu = addMenu(tr(item.title));
            menu->setObjectName(objectNameOf("menu", item.title));
            if (item.identifier == std::string_view("WINDOWS"))
                m_windowsMenu = menu;
            connect(menu, &QMenu::aboutToShow, this, [this, menu] { validateMenu(menu); });
            connect(menu, &QMenu::aboutToHide, this, [this, menu] { enableMenu(menu); });
        } else if (!item.title) {
            menu->addSeparator();
        } else {
            QAction *action = menu->addAction(tr(item.title));
            action->setObjectName(objectNameOf("item", item.action));
            action->setProperty(Responder::ACTION_PROPERTY, QString::fromLatin1(item.action));
            action->setProperty(IDENTIFIER_PROPERTY, QString::fromLatin1(item.identifier));
            action->setShortcut(QKeySequence(QString::fromLatin1(item.shortcut)));
            action->setMenuRole(QAction::NoRole);
            action->setAutoRepeat(false); // a shortcut that is held is one command
            connect(action, &QAction::triggered, this,
                    [this, action] { Responder::perform(m_window, action); });
        }
    }
    allMenus().push_back(this);
    applyRestriction();
}

MainMenu::~MainMenu()
{
    std::erase(allMenus(), this);
}

MainMenu *MainMenu::installIn(QWidget *window)
{
    auto *menu = new MainMenu(window);
    if (auto *main = qobject_cast<QMainWindow *>(window))
        main->setMenuBar(menu);
    else if (window->layout())
        window->layout()->setMenuBar(menu);
    return menu;
}

MainMenu *MainMenu::of(const QWidget *window)
{
    return window ? window->findChild<MainMenu *>(QString(), Qt::FindDirectChildrenOnly) : nullptr;
}

void MainMenu::setRestricted(bool restricted)
{
    g_restricted = restricted;
    for (MainMenu *menu : allMenus())
        menu->applyRestriction();
}

void MainMenu::applyRestriction()
{
    const QList<QAction *> menus = actions();
    for (int i = 1; i < menus.size(); ++i)
        menus[i]->setVisible(!g_restricted);
}

QAction *MainMenu::itemWithAction(const QString &action) const
{
    for (QAction *top : actions())
        for (QAction *item : top->menu()->actions())
            if (Responder::actionOf(item) == action)
                return item;
    return nullptr;
}

void MainMenu::validateMenu(QMenu *menu)
{
    if (menu == m_windowsMenu)
        listWindows();
    for (QAction *item : menu->actions())
        if (!Responder::actionOf(item).isEmpty())
            item->setEnabled(Responder::validate(m_window, item));
}

// A disabled item's shortcut would not come through, however things have changed since the menu was
// last open. Every use is validated again.
void MainMenu::enableMenu(QMenu *menu)
{
    for (QAction *item : menu->actions())
        item->setEnabled(true);
}

void MainMenu::listWindows()
{
    for (QAction *item : m_windowsMenu->actions())
        if (item->property("listedWindow").toBool())
            delete item;
    for (QWidget *window : QApplication::topLevelWidgets()) {
        WindowController *controller = WindowController::forWindow(window);
        if (!controller || !window->isVisible() ||
            window->property(EXCLUDED_FROM_WINDOWS_PROPERTY).toBool())
            continue;
        QAction *item = m_windowsMenu->addAction(PlainText::forMenu(PlainText::ofTitle(window)));
        item->setProperty("listedWindow", true);
        item->setCheckable(true);
        item->setChecked(window == m_window);
        connect(item, &QAction::triggered, controller, [controller] { controller->showWindow(); });
    }
}
