// The table of the VM list: whole rows, plain keys for the common actions.
#pragma once

#include <QTableView>

class VirtualMachinesTable : public QTableView
{
    Q_OBJECT

public:
    explicit VirtualMachinesTable(QWidget *parent = nullptr);

    // The row that a command on one VM means: the current row if it is selected, else the first
    // selected one; -1 without a selection.
    int selectedRow() const;
    // All selected rows, from top to bottom.
    QList<int> selectedRows() const;

    // Lets the name of a row be edited in place.
    void editName(int row);

    // Column widths, and what restores them.
    QByteArray saveColumns() const;
    void restoreColumns(const QByteArray &state);

Q_SIGNALS:
    void doubleClickedRow();
    void returnPressed();
    void deletePressed();
    void escapePressed();
    void renamePressed();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;
    void keyPressEvent(QKeyEvent *event) override;
    // Home and End are the first and the last row.
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    bool selectFirstOf(int key);
    void fitColumns();
};
