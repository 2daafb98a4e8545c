// Says which VMs of the library can't be read, and why.
#pragma once

#include <QDialog>
#include <QMap>
#include <QString>

#include <memory>

namespace Ui {
class UnreadableSheet;
}

class UnreadableSheet : public QDialog
{
    Q_OBJECT

public:
    // Identifiers with the reason of each.
    explicit UnreadableSheet(const QMap<QString, QString> &problems, QWidget *parent = nullptr);
    ~UnreadableSheet() override;

private:
    std::unique_ptr<Ui::UnreadableSheet> m_ui;
};
