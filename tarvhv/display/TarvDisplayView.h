// The widget that shows a TarvDisplay and sends it keys and pointer.
#pragma once

#include <QRectF>
#include <QWidget>

class TarvDisplay;

// What a window controller asks of its display view.
class TarvDisplayView : public QWidget
{
    Q_OBJECT

public:
    using QWidget::QWidget;
    // Shows a display, or none.
    virtual void setDisplay(TarvDisplay *display) = 0;
    // The picture changed: take it over before the next paint.
    virtual void setNeedsScreenTextureUpdate(bool needed) = 0;
    // Repaint what changed; nothing when nothing did.
    virtual void setNeedsDisplay(bool needed) = 0;
    // Logical size, and the same aligned to device pixels.
    QRectF bounds() const { return QRectF(QPointF(), QSizeF(size())); }
    virtual QRectF backingAlignedRect(const QRectF &rect) const = 0;
    // Releases every key and button that the guest holds pressed.
    virtual void releaseAllKeys() = 0;

Q_SIGNALS:
    // The guest takes relative motions only and has, or no longer has, the host's pointer. While it
    // has it, Control and Alt together give it back.
    void pointerGrabChanged(bool grabbed);
};

// The display view of this library.
TarvDisplayView *TarvDisplayViewCreate(QWidget *parent);
