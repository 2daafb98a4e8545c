// What a display window asks of its guest's resolution.
#pragma once

class OpenScreen;
class WindowController;

// The guest can be asked for a resolution and takes its time, or another one.
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

    // Whether the view shows the guest pixel for point.
    bool fillsView() const;

private:
    OpenScreen &m_screen;
};
