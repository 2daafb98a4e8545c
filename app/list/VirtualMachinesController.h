// The content of the VM list: its models, sorted, with what each row shows.
#pragma once

#include <QAbstractTableModel>
#include <QHash>
#include <QString>

#include <memory>
#include <vector>

class TarvVM;

// A table model that owns the VMs. The status that a row shows is the last one that was read off
// the main thread; it is null until the first answer.
class VirtualMachinesController : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column
    {
        NameColumn,
        VersionColumn,
        StatusColumn,
        ColumnCount,
    };
    enum Role
    {
        StatusRole = Qt::UserRole, // the plain status word that the row shows
        IdentifierRole,
    };

    explicit VirtualMachinesController(QObject *parent = nullptr);
    ~VirtualMachinesController() override;

    QList<TarvVM *> arrangedObjects() const;
    qsizetype count() const { return static_cast<qsizetype>(m_rows.size()); }
    TarvVM *objectAt(int row) const; // null out of range
    // The VM with an equal identifier, ignoring case, or null.
    TarvVM *find(const QString &vmid) const;

    // Adds VMs at the end; rearrangeObjects puts them in their place.
    void addObjects(std::vector<std::unique_ptr<TarvVM>> objects);
    // Sorts by name, ascending, by plain comparison; equal names keep their order.
    void rearrangeObjects();

    // What a row shows: a service's answer, or null for the VM's resting status.
    void setAnswer(const QString &vmid, const QString &answer);
    // The status that a VM's row shows; null before the first answer.
    QString shownStatus(const TarvVM *vm) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    // Names can be edited; a new one is shown once the VM has it.
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    struct Row
    {
        std::unique_ptr<TarvVM> vm;
        QString answer;        // null: it rests
        bool answered = false; // the first answer has come
    };

    QString shownStatus(const Row &row) const;
    QString text(const Row &row, int column) const;
    void watch(TarvVM *vm);
    void rowChanged(const TarvVM *vm);
    void indexRows();
    int rowOf(const QString &vmid) const; // -1 when absent

    std::vector<Row> m_rows;
    QHash<QString, int> m_places; // by lower-case identifier
};
