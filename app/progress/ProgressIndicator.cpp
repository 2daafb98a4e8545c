#include "app/progress/ProgressIndicator.h"

#include <QPainter>

namespace {
constexpr int SPOKES = 12;
constexpr int FRAME_MS = 80;
constexpr qreal SIDE = 28; // of the spinner, logical pixels
} // namespace

ProgressIndicator::ProgressIndicator(QWidget *parent) : QProgressBar(parent)
{
    setRange(0, 0);
    setTextVisible(false);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_frames.setInterval(FRAME_MS);
    connect(&m_frames, &QTimer::timeout, this, [this] {
        m_step = (m_step + 1) % SPOKES;
        update();
    });
}

void ProgressIndicator::setStyle(Style style)
{
    m_style = style;
    if (style == Style::bar) {
        m_frames.stop();
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }
    updateGeometry();
    update();
}

void ProgressIndicator::startAnimation()
{
    if (m_style == Style::spinner)
        m_frames.start();
}

QSize ProgressIndicator::sizeHint() const
{
    if (m_style == Style::bar)
        return QProgressBar::sizeHint();
    return {static_cast<int>(SIDE), static_cast<int>(SIDE)};
}

void ProgressIndicator::paintEvent(QPaintEvent *event)
{
    if (m_style == Style::bar)
        return QProgressBar::paintEvent(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(rect().center());
    for (int spoke = 0; spoke < SPOKES; spoke++) {
        const int age = (m_step - spoke + SPOKES) % SPOKES;
        QColor color = palette().color(QPalette::WindowText);
        color.setAlphaF(0.15F + 0.75F * static_cast<float>(SPOKES - age) / SPOKES);
        painter.setPen(QPen(color, 2.4, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(0, -SIDE * 0.24), QPointF(0, -SIDE * 0.44));
        painter.rotate(360.0 / SPOKES);
    }
}
