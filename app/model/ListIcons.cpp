#include "app/model/ListIcons.h"

#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QPixmap>

// A static library's resources are there once asked for; not from within a namespace.
static void initialiseImages()
{
    Q_INIT_RESOURCE(list);
}

namespace {

QColor textColor(QIcon::Mode mode)
{
    const QPalette palette = QGuiApplication::palette();
    switch (mode) {
    case QIcon::Selected:
        return palette.color(QPalette::HighlightedText);
    case QIcon::Disabled:
        return palette.color(QPalette::Disabled, QPalette::Text);
    default:
        return palette.color(QPalette::Text);
    }
}

class TemplateIconEngine : public QIconEngine
{
public:
    explicit TemplateIconEngine(const QIcon &shape) : m_shape(shape) {}

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) override
    {
        const qreal ratio = painter->device()->devicePixelRatioF();
        painter->drawPixmap(rect, scaledPixmap(rect.size(), mode, state, ratio));
    }

    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        return scaledPixmap(size, mode, state, 1.0);
    }

    QPixmap scaledPixmap(const QSize &size, QIcon::Mode mode, QIcon::State, qreal scale) override
    {
        QPixmap pixmap = m_shape.pixmap(size, scale);
        QPainter painter(&pixmap);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(QRect(QPoint(), pixmap.deviceIndependentSize().toSize()), textColor(mode));
        return pixmap;
    }

    QIconEngine *clone() const override { return new TemplateIconEngine(m_shape); }

private:
    const QIcon m_shape;
};
} // namespace

QIcon listIcon(const QString &name)
{
    initialiseImages();
    return QIcon(QStringLiteral(":/list/%1.svg").arg(name));
}

QIcon templateIcon(const QString &name)
{
    return QIcon(new TemplateIconEngine(listIcon(name)));
}
