#include "app/list/VirtualMachinesTable.h"

#include "app/list/VirtualMachineDelegate.h"
#include "app/list/VirtualMachinesController.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStyleOptionHeaderV2>

#include <algorithm>

namespace {

// A header whose labels stand above the texts of the cells.
class Header : public QHeaderView
{
public:
    explicit Header(QWidget *parent) : QHeaderView(Qt::Horizontal, parent) {}

protected:
    void paintSection(QPainter *painter, const QRect &rect, int section) const override
    {
        QStyleOptionHeaderV2 option;
        initStyleOption(&option);
        initStyleOptionForIndex(&option, section);
        option.rect = rect;
        style()->drawControl(QStyle::CE_HeaderSection, &option, painter, this);
        const QRect place =
            rect.adjusted(VirtualMachineDelegate::MARGIN, 0, -VirtualMachineDelegate::MARGIN, 0);
        painter->setPen(palette().color(QPalette::ButtonText));
        painter->drawText(place, Qt::AlignLeft | Qt::AlignVCenter,
                          fontMetrics().elidedText(option.text, Qt::ElideRight, place.width()));
    }
};

constexpr int NAME_LEAST = 140; // logical pixels

bool isCommandKey(int key)
{
    switch (key) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
    case Qt::Key_Escape:
    case Qt::Key_F2:
        return true;
    default:
        return false;
    }
}

} // namespace

VirtualMachinesTable::VirtualMachinesTable(QWidget *parent) : QTableView(parent)
{
    setHorizontalHeader(new Header(this));
    horizontalHeader()->setSectionsClickable(false);
    setSelectionBehavior(SelectRows);
    setSelectionMode(ExtendedSelection);
    setEditTriggers(NoEditTriggers);
    setShowGrid(false);
    setWordWrap(false);
    setTabKeyNavigation(false);
    setHorizontalScrollMode(ScrollPerPixel);
    setVerticalScrollMode(ScrollPerPixel);
    setItemDelegate(new VirtualMachineDelegate(this));
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(VirtualMachineDelegate::rowHeight(this));
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    horizontalHeader()->setMinimumSectionSize(80);
}

int VirtualMachinesTable::selectedRow() const
{
    const QModelIndex current = currentIndex();
    if (current.isValid() && selectionModel()->isRowSelected(current.row()))
        return current.row();
    const QList<int> rows = selectedRows();
    return rows.isEmpty() ? -1 : rows.first();
}

QList<int> VirtualMachinesTable::selectedRows() const
{
    QList<int> rows;
    for (const QModelIndex &index : selectionModel()->selectedRows())
        rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void VirtualMachinesTable::editName(int row)
{
    const QModelIndex name = model()->index(row, VirtualMachinesController::NameColumn);
    selectionModel()->setCurrentIndex(name, QItemSelectionModel::NoUpdate);
    edit(name);
}

QByteArray VirtualMachinesTable::saveColumns() const
{
    return horizontalHeader()->saveState();
}

void VirtualMachinesTable::restoreColumns(const QByteArray &state)
{
    QHeaderView *header = horizontalHeader();
    if (!header->restoreState(state)) {
        header->resizeSection(VirtualMachinesController::VersionColumn, 110);
        header->resizeSection(VirtualMachinesController::StatusColumn, 190);
    }
    // However narrow the window is, what a VM is doing stays in sight.
    header->setStretchLastSection(false);
    header->setSectionResizeMode(VirtualMachinesController::NameColumn, QHeaderView::Stretch);
}

void VirtualMachinesTable::resizeEvent(QResizeEvent *event)
{
    fitColumns();
    QTableView::resizeEvent(event);
}

// Columns that were made wide in a wide window give way in a narrow one, the version before the
// status, so that names can be told apart and the status stays in sight.
void VirtualMachinesTable::fitColumns()
{
    QHeaderView *header = horizontalHeader();
    const int others = header->sectionSize(VirtualMachinesController::VersionColumn) +
                       header->sectionSize(VirtualMachinesController::StatusColumn);
    int excess = others - (viewport()->width() - NAME_LEAST);
    for (const int column :
         {VirtualMachinesController::VersionColumn, VirtualMachinesController::StatusColumn}) {
        const int size = header->sectionSize(column);
        const int cut = std::clamp(excess, 0, size - header->minimumSectionSize());
        if (cut > 0)
            header->resizeSection(column, size - cut);
        excess -= cut;
    }
}

// The frame of the keyboard's row is drawn by all its cells.
void VirtualMachinesTable::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QTableView::currentChanged(current, previous);
    viewport()->update();
}

void VirtualMachinesTable::keyPressEvent(QKeyEvent *event)
{
    if (state() == EditingState) {
        // The editor leaves the Return that ends it to its parents.
        return QTableView::keyPressEvent(event);
    }
    if (event->isAutoRepeat() && isCommandKey(event->key()))
        return; // a key that is held is one command
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        Q_EMIT returnPressed();
        return;
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
        Q_EMIT deletePressed();
        return;
    case Qt::Key_Escape:
        Q_EMIT escapePressed();
        return;
    case Qt::Key_F2:
        Q_EMIT renamePressed();
        return;
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_Home:
    case Qt::Key_End:
        if (selectFirstOf(event->key()))
            return;
        break;
    default:
        break;
    }
    QTableView::keyPressEvent(event);
}

// With nothing selected the keyboard comes back to where it was: an only row could not be selected
// otherwise, since there is nowhere to move to.
bool VirtualMachinesTable::selectFirstOf(int key)
{
    if (!selectionModel() || selectionModel()->hasSelection() || !model()->rowCount())
        return false;
    int row = std::max(currentIndex().row(), 0);
    if (key == Qt::Key_Home)
        row = 0;
    else if (key == Qt::Key_End)
        row = model()->rowCount() - 1;
    selectRow(row);
    return true;
}

QModelIndex VirtualMachinesTable::moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers)
{
    if (action == MoveHome)
        return model()->index(0, 0);
    if (action == MoveEnd)
        return model()->index(model()->rowCount() - 1, 0);
    return QTableView::moveCursor(action, modifiers);
}

void VirtualMachinesTable::mouseDoubleClickEvent(QMouseEvent *event)
{
    QTableView::mouseDoubleClickEvent(event);
    if (event->button() == Qt::LeftButton && indexAt(event->position().toPoint()).isValid())
        Q_EMIT doubleClickedRow();
}
