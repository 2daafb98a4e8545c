// The display view: paints the damaged part of a guest's picture, passes on keys and pointer.
#pragma once

#include "tarvhv/display/ScreenInput.h"
#include "tarvhv/display/TarvDisplayView.h"
#include "tarvhv/display/viewgeometry.h"

#include <QImage>
#include <QPointer>
#include <QRegion>

class ScreenView : public TarvDisplayView
{
    Q_OBJECT

public:
    explicit ScreenView(QWidget *parent);
    ~ScreenView() override;

    void setDisplay(TarvDisplay *display) override;
    void setNeedsScreenTextureUpdate(bool needed) override;
    void setNeedsDisplay(bool needed) override;
    QRectF backingAlignedRect(const QRectF &rect) const override;
    void releaseAllKeys() override;

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    // Tab and Backtab are the guest's.
    bool focusNextPrevChild(bool) override { return false; }
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void keyReleaseEvent(QKeyEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override { passPointer(*event); }
    void mouseDoubleClickEvent(QMouseEvent *event) override { mousePressEvent(event); }
    void mouseMoveEvent(QMouseEvent *event) override { passPointer(*event); }
    void wheelEvent(QWheelEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QImage picture() const;
    PicturePlacement placement() const;
    void takeDamage(const QRect &guest);
    void acknowledge();
    void watchWindow();
    void updateActive();
    void setGrabbed(bool grabbed);
    void passPointer(const QMouseEvent &event);
    void showPointer();
    QCursor guestPointer() const;

    QPointer<TarvDisplay> m_display;
    QPointer<QWidget> m_watched; // the window, whose minimising hides the view
    // Damage goes from m_damage (guest pixels) over m_dirty (logical pixels) into a paint event;
    // the frame is answered for once all of it has gone that way.
    QRegion m_damage;
    bool m_allDamaged = false;
    QRegion m_dirty;
    bool m_frameDue = false;
    ScreenInput m_input;
    bool m_grabbed = false;
    QImage m_pointerImage;
    QPoint m_hotSpot;
};
