#include "app/list/WelcomeWindowCloseButton.h"

#include "app/list/TrackingArea.h"
#include "app/model/ListIcons.h"

#include <QPainter>

using namespace Qt::StringLiterals;

namespace {
constexpr int SIDE = 20; // of the images, logical pixels

QIcon restImage()
{
    return listIcon(u"ic_welcome_close_bg"_s);
}

QIcon hoverImage()
{
    return listIcon(u"ic_welcome_close_hover_bg"_s);
}
} // namespace

WelcomeWindowCloseButton::WelcomeWindowCloseButton(QWidget *parent) : QAbstractButton(parent)
{
    setIcon(restImage());
    setIconSize({SIDE, SIDE});
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setFocusPolicy(Qt::NoFocus);
    updateTrackingAreas();
}

QSize WelcomeWindowCloseButton::sizeHint() const
{
    return iconSize();
}

void WelcomeWindowCloseButton::updateTrackingAreas()
{
    delete m_boundsTrackingArea;
    m_boundsTrackingArea = new TrackingArea(this);
    connect(m_boundsTrackingArea, &TrackingArea::mouseEntered, this,
            &WelcomeWindowCloseButton::mouseEntered);
    connect(m_boundsTrackingArea, &TrackingArea::mouseExited, this,
            &WelcomeWindowCloseButton::mouseExited);
}

void WelcomeWindowCloseButton::mouseEntered()
{
    setIcon(hoverImage());
}

void WelcomeWindowCloseButton::mouseExited()
{
    setIcon(restImage());
}

void WelcomeWindowCloseButton::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    if (isDown())
        painter.setOpacity(0.6);
    icon().paint(&painter, rect());
}

void WelcomeWindowCloseButton::resizeEvent(QResizeEvent *event)
{
    QAbstractButton::resizeEvent(event);
    updateTrackingAreas();
}
