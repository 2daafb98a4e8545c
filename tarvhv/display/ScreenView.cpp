#include "tarvhv/display/ScreenView.h"

#include "tarvhv/display/TarvDisplay.h"

#include <QCursor>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QPixmap>

#include <utility>

namespace {

// Shown where the guest shows no pointer of its own: enough to see where one is, not enough to
// cover one that the guest paints.
QCursor dot_cursor()
{
    constexpr int SIZE = 3;
    QPixmap dot(SIZE, SIZE);
    dot.fill(Qt::black);
    QPainter(&dot).fillRect(1, 1, 1, 1, Qt::white);
    return QCursor(dot, 1, 1);
}

} // namespace

ScreenView::ScreenView(QWidget *parent) : TarvDisplayView(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_NoSystemBackground);
    setAttribute(Qt::WA_InputMethodEnabled, false);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAccessibleName(tr("Screen of the virtual machine"));
}

ScreenView::~ScreenView()
{
    setDisplay(nullptr);
}

void ScreenView::setDisplay(TarvDisplay *display)
{
    setGrabbed(false);
    m_input.setDisplay(display);
    if (m_display) {
        m_display->setActive(false);
        m_display->disconnect(this);
    }
    m_display = display;
    m_frameDue = false;
    m_answerDue = false;
    m_pointerImage = {};
    update();
    if (display) {
        connect(display, &TarvDisplay::pointerChanged, this,
                [this](const QImage &image, const QPoint &hotSpot) {
                    m_pointerImage = image;
                    m_hotSpot = hotSpot;
                    showPointer();
                });
        connect(display, &TarvDisplay::pointerModeChanged, this, [this] {
            m_input.releaseAll();
            setGrabbed(false);
            showPointer();
        });
        watchWindow();
        updateActive();
        // The whole view is painted next, and with it what came before somebody looked.
        display->takeDamage();
        m_answerDue = true;
    }
    showPointer();
}

void ScreenView::setNeedsDisplay(bool needed)
{
    if (!needed || !m_display || !std::exchange(m_frameDue, false))
        return;
    m_answerDue = true;
    const QRegion changed = takeDamage();
    if (changed.isEmpty())
        acknowledge(); // nothing of it shows, so no paint event will come
    else
        update(changed);
}

// The logical pixels that show what changed. Another picture may lie elsewhere in the view.
QRegion ScreenView::takeDamage()
{
    const Damage damage = m_display->takeDamage();
    if (damage.all())
        return rect();
    const PicturePlacement place = placement();
    QRegion changed;
    for (const ScreenRect &each : damage.rects())
        changed += place.toLogical(place.toDevice({each.x, each.y, each.width, each.height}));
    return changed & rect();
}

void ScreenView::acknowledge()
{
    if (std::exchange(m_answerDue, false) && m_display)
        m_display->acknowledgeFrame();
}

QRectF ScreenView::backingAlignedRect(const QRectF &rect) const
{
    const qreal ratio = devicePixelRatioF();
    const QRect device = device_rect(rect, ratio);
    return QRectF(QPointF(device.topLeft()) / ratio, QSizeF(device.size()) / ratio);
}

void ScreenView::releaseAllKeys()
{
    m_input.releaseAll();
}

QImage ScreenView::picture() const
{
    if (!m_display || !m_display->fbuf())
        return {};
    return QImage(m_display->fbuf(), m_display->width(), m_display->height(), m_display->stride(),
                  QImage::Format_RGB32);
}

PicturePlacement ScreenView::placement() const
{
    if (!m_display)
        return {};
    return PicturePlacement(QSize(m_display->width(), m_display->height()), QSizeF(size()),
                            devicePixelRatioF());
}

// Works in device pixels. Only what the event asks for is copied or scaled: Qt clips to it.
void ScreenView::paintEvent(QPaintEvent *event)
{
    const QImage image = picture();
    const PicturePlacement place = placement();
    const QRect target = image.isNull() ? QRect() : place.target();
    const qreal ratio = devicePixelRatioF();
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.scale(1 / ratio, 1 / ratio);
    const QRegion view(device_rect(QRectF(rect()), ratio).adjusted(0, 0, 1, 1));
    for (const QRect &each : view.subtracted(target))
        painter.fillRect(each, Qt::black);
    if (target.isEmpty())
        return acknowledge();
    if (place.isExact()) {
        for (const QRect &each : event->region()) {
            const QRectF logical(each);
            const QRect device = QRectF(logical.topLeft() * ratio, logical.size() * ratio)
                                     .toAlignedRect()
                                     .intersected(target);
            painter.drawImage(device.topLeft(), image, device.translated(-target.topLeft()));
        }
    } else {
        painter.setRenderHint(QPainter::SmoothPixmapTransform, place.isSmooth());
        painter.drawImage(target, image);
    }
    // The frame buffer's fourth byte is whatever the guest left there, and Qt copies it as it is.
    // Where the window's pixels have an alpha channel (Wayland) it would become one: black would
    // show the windows behind. This sets the byte and leaves the colours.
    painter.setCompositionMode(QPainter::RasterOp_SourceOrDestination);
    painter.fillRect(target, Qt::black);
    acknowledge();
}

bool ScreenView::event(QEvent *event)
{
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        event->accept(); // every key is the guest's, none a shortcut of the host
        return true;
    case QEvent::WindowBlocked: // a sheet
        m_input.releaseAll();
        setGrabbed(false);
        break;
    default:
        break;
    }
    return TarvDisplayView::event(event);
}

bool ScreenView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_watched && event->type() == QEvent::WindowStateChange)
        updateActive();
    return TarvDisplayView::eventFilter(watched, event);
}

void ScreenView::watchWindow()
{
    if (m_watched == window())
        return;
    if (m_watched)
        m_watched->removeEventFilter(this);
    m_watched = window();
    m_watched->installEventFilter(this);
}

void ScreenView::updateActive()
{
    if (m_display)
        m_display->setActive(isVisible() && !window()->isMinimized());
}

void ScreenView::showEvent(QShowEvent *event)
{
    TarvDisplayView::showEvent(event);
    watchWindow();
    updateActive();
}

void ScreenView::hideEvent(QHideEvent *event)
{
    TarvDisplayView::hideEvent(event);
    setGrabbed(false);
    m_input.releaseAll();
    updateActive();
}

void ScreenView::resizeEvent(QResizeEvent *event)
{
    TarvDisplayView::resizeEvent(event);
    showPointer();
}

void ScreenView::keyPressEvent(QKeyEvent *event)
{
    m_input.keyPressed(*event);
    if (m_grabbed && m_input.holdsReleaseKeys())
        setGrabbed(false);
}

void ScreenView::keyReleaseEvent(QKeyEvent *event)
{
    m_input.keyReleased(*event);
}

void ScreenView::focusOutEvent(QFocusEvent *event)
{
    m_input.releaseAll();
    setGrabbed(false);
    TarvDisplayView::focusOutEvent(event);
}

void ScreenView::mousePressEvent(QMouseEvent *event)
{
    if (m_display && !m_display->absolutePointer() && !m_grabbed)
        setGrabbed(true); // this click only takes the pointer
    else
        passPointer(*event);
}

void ScreenView::wheelEvent(QWheelEvent *event)
{
    m_input.turnWheel(*event);
    event->accept();
}

void ScreenView::passPointer(const QMouseEvent &event)
{
    if (!m_display)
        return;
    if (m_display->absolutePointer())
        m_input.pointTo(event, placement());
    else if (m_grabbed && m_input.move(event, devicePixelRatioF(), QPointF(rect().center())))
        QCursor::setPos(mapToGlobal(rect().center()));
}

void ScreenView::setGrabbed(bool grabbed)
{
    if (m_grabbed == grabbed)
        return;
    m_grabbed = grabbed;
    if (grabbed) {
        m_input.beginMoving(QPointF(mapFromGlobal(QCursor::pos())));
        grabMouse(QCursor(Qt::BlankCursor));
    } else {
        releaseMouse();
    }
    showPointer();
    Q_EMIT pointerGrabChanged(grabbed);
}

void ScreenView::showPointer()
{
    if (m_grabbed)
        setCursor(Qt::BlankCursor);
    else if (!m_display || !m_display->absolutePointer())
        unsetCursor();
    else
        setCursor(m_pointerImage.isNull() ? dot_cursor() : guestPointer());
}

// The guest's pointer image at the scale of its picture.
QCursor ScreenView::guestPointer() const
{
    const PicturePlacement place = placement();
    const qreal ratio = devicePixelRatioF();
    QImage image = m_pointerImage;
    QPointF hot(m_hotSpot);
    if (!place.isExact() && !place.target().isEmpty()) {
        const qreal scale = qreal(place.target().width()) / m_display->width();
        image = image.scaled((QSizeF(image.size()) * scale).toSize().expandedTo(QSize(1, 1)),
                             Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        hot *= scale;
    }
    QPixmap pixmap = QPixmap::fromImage(image);
    pixmap.setDevicePixelRatio(ratio);
    return QCursor(pixmap, qRound(hot.x() / ratio), qRound(hot.y() / ratio));
}

TarvDisplayView *TarvDisplayViewCreate(QWidget *parent)
{
    return new ScreenView(parent);
}
