// The looks of the VM list's window around its table, and where it was on the screen.
#pragma once

#include <QObject>

namespace Ui {
class WelcomeWindowController;
}
class QMainWindow;
class TrackingArea;

// Texts and fonts, the close button that shows while the pointer is over the head of the window,
// the labels of an empty or damaged library, and the user's layout.
class ListChrome : public QObject
{
    Q_OBJECT

public:
    // Dresses a window that `ui` has been set up on; both outlive this.
    ListChrome(QMainWindow *window, const Ui::WelcomeWindowController &ui);

    // To be made anew for the bounds that the head has after a resize.
    void reloadInfoViewTrackingAreaForCurrentLayout();
    // Whether the list is empty, whether a VM can be made here, how many VMs can't be read.
    void showState(bool empty, bool canMake, int unreadable);

    void restoreLayout();
    void saveLayout() const;

private:
    void setTexts();
    void mouseEntered(const TrackingArea *area);
    void mouseExited(const TrackingArea *area);

    QMainWindow *m_window;
    const Ui::WelcomeWindowController &m_ui;
    TrackingArea *m_infoViewTrackingArea = nullptr;
};
