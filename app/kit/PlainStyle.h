// The look where the desktop brings no style of its own: Fusion with a little more air.
#pragma once

#include <QProxyStyle>

// Longer labels do not touch a button's edge, column titles have room, a dialog's buttons carry no
// images, which would be black on dark, and in dark colours fields and menus keep visible edges.
class PlainStyle : public QProxyStyle
{
    Q_OBJECT

public:
    PlainStyle();

    QSize sizeFromContents(ContentsType type, const QStyleOption *option, const QSize &contents,
                           const QWidget *widget) const override;
    void drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
                       const QWidget *widget) const override;
    int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                  QStyleHintReturn *returned) const override;
};
