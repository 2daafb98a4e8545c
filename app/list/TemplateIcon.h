// Icons drawn in one colour, that of the text they stand beside.
#pragma once

#include <QIcon>
#include <QString>

// An icon whose shape is the opaque part of an SVG resource, in the palette's text colour (the
// highlighted text colour when selected), whatever the palette is at the time of drawing.
QIcon templateIcon(const QString &resource);
