// The main menu, the same in every window.
#pragma once

#include <QMenuBar>
#include <QPointer>

class QMenu;

// Items are QActions with the property "action" (see Responder.h); those that are told apart by an
// identifier carry it as the property "identifier". An item is enabled when a responder of this
// window has its action and validates it: asked when its menu opens and again before it acts.
// Shortcuts have a modifier each, so that plain keys stay the window's.
class MainMenu : public QMenuBar
{
    Q_OBJECT

public:
    static constexpr char IDENTIFIER_PROPERTY[] = "identifier";
    static constexpr char EXCLUDED_FROM_WINDOWS_PROPERTY[] = "excludedFromWindowsMenu";

    explicit MainMenu(QWidget *window);
    ~MainMenu() override;

    // Gives a window its main menu: a QMainWindow's menu bar, else that of its layout. Once.
    static MainMenu *installIn(QWidget *window);
    // The main menu of a window, or null.
    static MainMenu *of(const QWidget *window);
    // Hides every menu from the second on, in all windows and those to come.
    static void setRestricted(bool restricted);

    // The item with an action, or null. The first one where there are several.
    QAction *itemWithAction(const QString &action) const;

private:
    QPointer<QWidget> m_window;
    QMenu *m_windowsMenu = nullptr;

    void validateMenu(QMenu *menu);
    void enableMenu(QMenu *menu);
    void listWindows();
    void applyRestriction();
};
