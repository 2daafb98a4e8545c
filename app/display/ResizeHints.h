// Tells the window system how far a user may resize a window.
#pragma once

#include <QSize>

class QWindow;

// In device pixels. Sizes are those of the window without what the window manager adds; an empty
// one says nothing.
struct ResizeHints
{
    QSize least;
    QSize largest;
    QSize aspect; // width to height of what is left beside `base`
    QSize base;   // what the aspect ratio does not count
};

// Replaces the hints of an X11 window, which its window manager keeps to while an edge is dragged.
// False where the window system has no such hints. Qt writes hints of its own with each size that
// it sets, so that these have to be set after it. There is no increment among them: window managers
// would apply it to the sizes that this program sets, too.
bool setResizeHints(QWindow *window, const ResizeHints &hints);
