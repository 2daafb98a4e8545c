#include "app/list/UnreadableSheet.h"

#include "app/kit/PlainText.h"
#include "app/list/VirtualMachineDelegate.h"
#include "ui_UnreadableSheet.h"

#include <QPushButton>

UnreadableSheet::UnreadableSheet(const QMap<QString, QString> &problems, QWidget *parent)
    : QDialog(parent), m_ui(std::make_unique<Ui::UnreadableSheet>())
{
    m_ui->setupUi(this);
    for (const auto &[id, reason] : problems.asKeyValueRange()) {
        auto *item = new QTreeWidgetItem(m_ui->problems, {id, reason});
        item->setSizeHint(
            0, QSize(fontMetrics().horizontalAdvance(id) + 2 * VirtualMachineDelegate::MARGIN,
                     VirtualMachineDelegate::rowHeight(this)));
        item->setToolTip(0, PlainText::forToolTip(id));
        item->setToolTip(1, PlainText::forToolTip(reason));
    }
    m_ui->problems->resizeColumnToContents(0);
    connect(m_ui->buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

UnreadableSheet::~UnreadableSheet() = default;
