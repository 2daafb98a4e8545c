#include "app/list/ListMenu.h"

#include "app/kit/Responder.h"

#include <QMenu>

using namespace Qt::StringLiterals;

namespace {
struct MenuItem
{
    const char *title; // null: a separator
    const char *action;
    const char *key = ""; // of the table, told beside the title
};
constexpr MenuItem MENU_ITEMS[] = {
    {QT_TRANSLATE_NOOP("ListMenu", "Start"), "openDocument:"},
    {QT_TRANSLATE_NOOP("ListMenu", "Force Start"), "forceStartVirtualMachine:"},
    {QT_TRANSLATE_NOOP("ListMenu", "Start in Recovery"), "recoverVirtualMachine:"},
    {nullptr, nullptr},
    {QT_TRANSLATE_NOOP("ListMenu", "Suspend"), "suspendVirtualMachine:"},
    {QT_TRANSLATE_NOOP("ListMenu", "Reboot"), "rebootVirtualMachine:"},
    {QT_TRANSLATE_NOOP("ListMenu", "Stop"), "stopVirtualMachine:"},
    {QT_TRANSLATE_NOOP("ListMenu", "Force Stop"), "forceStopVirtualMachine:"},
    {nullptr, nullptr},
    {QT_TRANSLATE_NOOP("ListMenu", "Rename"), "renameVirtualMachine:", "F2"},
    {QT_TRANSLATE_NOOP("ListMenu", "Clone"), "cloneVirtualMachine:"},
    {QT_TRANSLATE_NOOP("ListMenu", "Copy"), "copyVirtualMachine:"},
    {QT_TRANSLATE_NOOP("ListMenu", "Delete…"), "delete:", "Del"},
    {nullptr, nullptr},
    {QT_TRANSLATE_NOOP("ListMenu", "New VM…"), "newDocument:"},
};

QString actionOfButton(const QPushButton *button)
{
    return button->property(Responder::ACTION_PROPERTY).toString();
}
} // namespace

ListMenu::ListMenu(QWidget *window, const QList<QPushButton *> &buttons)
    : QObject(window), m_window(window), m_menu(new QMenu(window)), m_buttons(buttons)
{
    m_menu->setObjectName(u"virtualMachineMenu"_s);
    addItems();
    for (QPushButton *button : m_buttons)
        connect(button, &QPushButton::clicked, this,
                [this, button] { perform(actionOfButton(button)); });
    m_lookDue.setSingleShot(true);
    connect(&m_lookDue, &QTimer::timeout, this, &ListMenu::lookAtButtons);
    lookAtButtons();
}

void ListMenu::addItems()
{
    for (const MenuItem &item : MENU_ITEMS) {
        if (!item.title) {
            m_menu->addSeparator();
            continue;
        }
        QAction *action = m_menu->addAction(tr(item.title));
        action->setProperty(Responder::ACTION_PROPERTY, QString::fromLatin1(item.action));
        action->setObjectName(u"context_"_s + QString::fromLatin1(item.action).chopped(1));
        action->setShortcut(QKeySequence(QString::fromLatin1(item.key)));
        connect(action, &QAction::triggered, this,
                [this, action] { Responder::perform(m_window, action); });
    }
    connect(m_menu, &QMenu::aboutToShow, this, [this] {
        for (QAction *action : m_menu->actions())
            action->setEnabled(Responder::validate(m_window, action));
    });
}

QAction *ListMenu::itemFor(const QString &action) const
{
    for (QAction *item : m_menu->actions())
        if (Responder::actionOf(item) == action)
            return item;
    return nullptr;
}

void ListMenu::perform(const QString &action)
{
    Responder::perform(m_window, itemFor(action));
}

bool ListMenu::validates(const QString &action) const
{
    return Responder::validate(m_window, itemFor(action));
}

void ListMenu::popUp(const QPoint &position)
{
    m_menu->popup(position);
}

void ListMenu::lookAtButtonsSoon()
{
    m_lookDue.start(0);
}

void ListMenu::lookAtButtons()
{
    for (QPushButton *button : m_buttons)
        button->setEnabled(validates(actionOfButton(button)));
}
