// The images of the VM list.
#pragma once

#include <QIcon>
#include <QString>

// An image by its name, "ic_welcome_close_bg" for example.
QIcon listIcon(const QString &name);
// The shape of an image in the palette's text colour (the highlighted text colour when selected),
// whatever the palette is at the time of drawing.
QIcon templateIcon(const QString &name);
