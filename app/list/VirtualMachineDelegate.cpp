#include "app/list/VirtualMachineDelegate.h"

#include "app/list/VirtualMachinesController.h"
#include "tarvhv/cli2/vm_status.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QLineEdit>
#include <QPainter>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
constexpr int MARGIN = VirtualMachineDelegate::MARGIN;
constexpr int DOT = 9; // diameter
constexpr int LOCK = 16;

// Readable on light and dark backgrounds; the words beside it say the same.
QColor dotColor(const QString &status)
{
    switch (vm_status_from(status.toStdString()).value_or(VmStatus::unknown)) {
    case VmStatus::running:
        return QColor(0x2e, 0xa4, 0x4f);
    case VmStatus::suspended:
        return QColor(0xd6, 0x9a, 0x1c);
    case VmStatus::failed:
    case VmStatus::malfunction:
        return QColor(0xd9, 0x48, 0x3b);
    case VmStatus::stopped:
    case VmStatus::unknown:
        break;
    }
    return QColor(0x8a, 0x8f, 0x98);
}

void drawDot(QPainter *painter, const QRect &cell, const QString &status, bool selected)
{
    const QRectF circle(cell.left() + MARGIN, cell.center().y() - DOT / 2.0 + 0.5, DOT, DOT);
    painter->setPen(selected ? QPen(Qt::white, 1.2) : QPen(Qt::NoPen));
    painter->setBrush(dotColor(status));
    painter->drawEllipse(circle);
}

bool isKeyboardRow(const QWidget *widget, const QModelIndex &index)
{
    const auto *view = qobject_cast<const QAbstractItemView *>(widget);
    return view && view->hasFocus() && view->currentIndex().row() == index.row();
}

// Each cell draws its part of the frame.
void drawRowFrame(QPainter *painter, const QStyleOptionViewItem &cell, const QModelIndex &index)
{
    const QRect rect = cell.rect.adjusted(0, 0, 0, -1);
    painter->save();
    painter->setPen(cell.palette.color(QPalette::Highlight));
    painter->drawLine(rect.topLeft(), rect.topRight());
    painter->drawLine(rect.bottomLeft(), rect.bottomRight());
    if (index.column() == 0)
        painter->drawLine(rect.topLeft(), rect.bottomLeft());
    if (index.column() == VirtualMachinesController::ColumnCount - 1)
        painter->drawLine(rect.topRight(), rect.bottomRight());
    painter->restore();
}
} // namespace

int VirtualMachineDelegate::rowHeight(const QWidget *widget)
{
    return std::max(28, widget->fontMetrics().height() + 14);
}

void VirtualMachineDelegate::initStyleOption(QStyleOptionViewItem *option,
                                             const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    option->textElideMode =
        index.column() == VirtualMachinesController::NameColumn ? Qt::ElideMiddle : Qt::ElideRight;
    // One frame around the row's current cell would look like a selected cell.
    option->state &= ~QStyle::State_HasFocus;
    if (index.column() == VirtualMachinesController::NameColumn)
        option->font.setWeight(QFont::Medium);
}

void VirtualMachineDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                   const QModelIndex &index) const
{
    QStyleOptionViewItem cell = option;
    initStyleOption(&cell, index);
    const QStyle *style = cell.widget ? cell.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &cell, painter, cell.widget);

    const bool selected = cell.state & QStyle::State_Selected;
    QRect text = cell.rect.adjusted(MARGIN, 0, -MARGIN, 0);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QString status = index.data(VirtualMachinesController::StatusRole).toString();
    if (index.column() == VirtualMachinesController::StatusColumn && !status.isEmpty()) {
        drawDot(painter, cell.rect, status, selected);
        text.setLeft(text.left() + DOT + MARGIN);
        if (!cell.icon.isNull()) {
            const QRect place(text.left() + cell.fontMetrics.horizontalAdvance(cell.text) + MARGIN,
                              cell.rect.center().y() - LOCK / 2 + 1, LOCK, LOCK);
            cell.icon.paint(painter, place, Qt::AlignCenter,
                            selected ? QIcon::Selected : QIcon::Normal);
        }
    }
    const QPalette::ColorGroup group =
        cell.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
    painter->setPen(
        cell.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text));
    painter->setFont(cell.font);
    painter->drawText(
        text, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
        QFontMetrics(cell.font).elidedText(cell.text, cell.textElideMode, text.width()));
    painter->restore();
    if (!selected && isKeyboardRow(cell.widget, index))
        drawRowFrame(painter, cell, index);
}

// The name stays where it stood.
void VirtualMachineDelegate::updateEditorGeometry(QWidget *editor,
                                                  const QStyleOptionViewItem &option,
                                                  const QModelIndex &) const
{
    auto *line = qobject_cast<QLineEdit *>(editor);
    if (!line)
        return;
    line->setFrame(true);
    constexpr int frame = 3; // of a text field, to its text
    line->setGeometry(option.rect.adjusted(MARGIN - frame, 2, -2, -2));
}

QWidget *VirtualMachineDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &,
                                              const QModelIndex &) const
{
    auto *editor = new QLineEdit(parent);
    editor->setObjectName(u"nameEditor"_s);
    editor->setAccessibleName(tr("Name"));
    return editor;
}
