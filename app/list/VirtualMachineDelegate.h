// Draws the cells of the VM list.
#pragma once

#include <QStyledItemDelegate>

// The name stands out a little; the status has a dot of its colour before the words and the lock
// of a policy, if any, behind them. The row that the keyboard is on is framed while it is not
// selected.
class VirtualMachineDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // Left and right of a cell's content, logical pixels.
    static constexpr int MARGIN = 10;
    // Logical pixels, from the widget's font.
    static int rowHeight(const QWidget *widget);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    // The editor of a name; its text stands where the name does.
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
};
