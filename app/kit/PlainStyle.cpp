#include "app/kit/PlainStyle.h"

#include <QPainter>
#include <QStyleOption>

#include <algorithm>

namespace {

// Logical pixels.
constexpr int BUTTON_PADDING = 14; // on either side of a label
constexpr int BUTTON_HEIGHT = 26;
constexpr int HEADER_HEIGHT = 24;

// Fusion derives edges from the background by darkening it.
constexpr float EDGE_OPACITY = 0.4F;

bool isEdge(QStyle::PrimitiveElement element)
{
    return element == QStyle::PE_IndicatorCheckBox || element == QStyle::PE_FrameLineEdit ||
           element == QStyle::PE_PanelMenu || element == QStyle::PE_FrameFocusRect;
}

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() <
           palette.color(QPalette::WindowText).lightness();
}

} // namespace

PlainStyle::PlainStyle() : QProxyStyle(QStringLiteral("fusion")) {}

QSize PlainStyle::sizeFromContents(ContentsType type, const QStyleOption *option,
                                   const QSize &contents, const QWidget *widget) const
{
    QSize size = QProxyStyle::sizeFromContents(type, option, contents, widget);
    if (type == CT_PushButton)
        size = size.expandedTo({contents.width() + 2 * BUTTON_PADDING, BUTTON_HEIGHT});
    else if (type == CT_HeaderSection)
        size.setHeight(std::max(size.height(), HEADER_HEIGHT));
    return size;
}

void PlainStyle::drawPrimitive(PrimitiveElement element, const QStyleOption *option,
                               QPainter *painter, const QWidget *widget) const
{
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    const bool focused = element == PE_FrameLineEdit && option->state.testFlag(State_HasFocus);
    if (!isEdge(element) || focused || !isDark(option->palette))
        return;
    QColor edge = option->palette.color(QPalette::WindowText);
    edge.setAlphaF(EDGE_OPACITY);
    if (element == PE_FrameFocusRect)
        edge = option->palette.color(QPalette::Link); // a highlight that shows beside a surface
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing, false);
    painter->setPen(edge);
    painter->setBrush(Qt::NoBrush);
    painter->drawRect(option->rect.adjusted(0, 0, -1, -1));
    painter->restore();
}

int PlainStyle::styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                          QStyleHintReturn *returned) const
{
    if (hint == SH_DialogButtonBox_ButtonsHaveIcons || hint == SH_EtchDisabledText)
        return 0;
    return QProxyStyle::styleHint(hint, option, widget, returned);
}
