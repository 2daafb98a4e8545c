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
    void setNeedsScreenTextureUpdate(bool needed) override { m_frameDue = m_frameDue || needed; }
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
    QRegion takeDamage();
    void acknowledge();
    void watchWindow();
    void updateActive();
    void setGrabbed(bool grabbed);
    void passPointer(const QMouseEvent &event);
    void showPointer();
    QCursor guestPointer() const;

    QPointer<TarvDisplay> m_display;
    QPointer<QWidget> m_watched; // the window, whose minimising hides the view
    // A frame that came is taken over with the next refresh of the host's screen, and answered for
    // with the paint event that follows: a view that can't paint is sent nothing more.
    bool m_frameDue = false;
    bool m_answerDue = false;
    ScreenInput m_input;
    bool m_grabbed = false;
    QImage m_pointerImage;
    QPoint m_hotSpot;
};
