// What a display window asks of its guest's resolution.
#pragma once

#include <QSize>

class OpenScreen;
class WindowController;

// The guest can be asked for a resolution and takes its time, or another one; whether a change of
// the guest's screen is such an answer or the guest's own is told apart here.
class GuestResolution
{
public:
    explicit GuestResolution(OpenScreen &screen);

    // The user's preference: the guest follows the window's size.
    static bool liveResize();
    static void setLiveResize(bool live);
    // Whether the guest follows the window. A held Control inverts the preference.
    bool followsWindow(bool inverted) const;

    // Asks the guest for the size that its view has.
    void askForWindow();
    // Asks it for the other pixel density, with the same size in points.
    void toggleHiDPI();
    // Lets the user choose a resolution, in a sheet on the window.
    void choose(WindowController *window);

    // The guest's screen as it is now is the window's own doing.
    void settle();
    // After a frame: whether the guest changed its size by itself, so that the window has to
    // follow.
    bool changedByGuest();

private:
    OpenScreen &m_screen;
    QSize m_guestSize; // as of the last frame
    QSize m_askedSize; // pixels that the window's size asked the guest for
};
