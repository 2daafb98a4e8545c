#include "app/list/VirtualMachinesController.h"

#include "app/kit/PlainText.h"
#include "app/model/TarvVM.h"

#include <QCoreApplication>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

namespace {
// The statuses that are known by name, as titles.
[[maybe_unused]] constexpr const char *TITLES[] = {
    QT_TRANSLATE_NOOP("TarvVM", "Running"),     QT_TRANSLATE_NOOP("TarvVM", "Stopped"),
    QT_TRANSLATE_NOOP("TarvVM", "Suspended"),   QT_TRANSLATE_NOOP("TarvVM", "Failed"),
    QT_TRANSLATE_NOOP("TarvVM", "Malfunction"),
};

QString localisedStatus(const QString &status)
{
    const QString title = TarvVM::displayStatusOf(status);
    return QCoreApplication::translate("TarvVM", title.toUtf8().constData());
}
} // namespace

VirtualMachinesController::VirtualMachinesController(QObject *parent) : QAbstractTableModel(parent)
{
}

VirtualMachinesController::~VirtualMachinesController() = default;

QList<TarvVM *> VirtualMachinesController::arrangedObjects() const
{
    QList<TarvVM *> objects;
    objects.reserve(count());
    for (const Row &row : m_rows)
        objects.append(row.vm.get());
    return objects;
}

TarvVM *VirtualMachinesController::objectAt(int row) const
{
    return row >= 0 && row < rowCount() ? m_rows[static_cast<size_t>(row)].vm.get() : nullptr;
}

TarvVM *VirtualMachinesController::find(const QString &vmid) const
{
    return objectAt(rowOf(vmid));
}

int VirtualMachinesController::rowOf(const QString &vmid) const
{
    return m_places.value(vmid.toLower(), -1);
}

void VirtualMachinesController::addObjects(std::vector<std::unique_ptr<TarvVM>> objects)
{
    if (objects.empty())
        return;
    const int first = rowCount();
    beginInsertRows({}, first, first + static_cast<int>(objects.size()) - 1);
    for (std::unique_ptr<TarvVM> &vm : objects) {
        watch(vm.get());
        m_rows.push_back({std::move(vm), {}, false});
    }
    indexRows();
    endInsertRows();
}

void VirtualMachinesController::watch(TarvVM *vm)
{
    const auto changed = [this, vm] { rowChanged(vm); };
    connect(vm, &TarvVM::nameChanged, this, [this, changed] {
        changed();
        rearrangeObjects();
    });
    connect(vm, &TarvVM::versionChanged, this, changed);
    connect(vm, &TarvVM::statusChanged, this, changed);
    connect(vm, &TarvVM::policyEnabledChanged, this, changed);
}

void VirtualMachinesController::rowChanged(const TarvVM *vm)
{
    const int row = rowOf(vm->uuid());
    Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

void VirtualMachinesController::indexRows()
{
    m_places.clear();
    for (int row = 0; row < rowCount(); row++)
        m_places.insert(objectAt(row)->uuid().toLower(), row);
}

void VirtualMachinesController::rearrangeObjects()
{
    std::vector<int> order(m_rows.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [this](int a, int b) { return objectAt(a)->name() < objectAt(b)->name(); });
    if (std::is_sorted(order.begin(), order.end()))
        return;
    Q_EMIT layoutAboutToBeChanged();
    const QModelIndexList before = persistentIndexList();
    std::vector<int> places(order.size());
    std::vector<Row> sorted;
    sorted.reserve(m_rows.size());
    for (size_t place = 0; place < order.size(); place++) {
        const auto from = static_cast<size_t>(order[place]);
        places[from] = static_cast<int>(place);
        sorted.push_back(std::move(m_rows[from]));
    }
    m_rows = std::move(sorted);
    indexRows();
    QModelIndexList after;
    std::transform(before.begin(), before.end(), std::back_inserter(after),
                   [&](const QModelIndex &old) {
                       return index(places[static_cast<size_t>(old.row())], old.column());
                   });
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged();
}

void VirtualMachinesController::setAnswer(const QString &vmid, const QString &answer)
{
    const int place = rowOf(vmid);
    if (place < 0)
        return;
    Row &row = m_rows[static_cast<size_t>(place)];
    const QString before = shownStatus(row);
    row.answer = answer;
    row.answered = true;
    if (shownStatus(row) != before)
        rowChanged(row.vm.get());
}

QString VirtualMachinesController::shownStatus(const Row &row) const
{
    if (!row.answered)
        return {};
    return row.answer.isNull() ? row.vm->restingStatus() : row.answer;
}

QString VirtualMachinesController::shownStatus(const TarvVM *vm) const
{
    const int row = vm ? rowOf(vm->uuid()) : -1;
    return row < 0 ? QString() : shownStatus(m_rows[static_cast<size_t>(row)]);
}

int VirtualMachinesController::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int VirtualMachinesController::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QString VirtualMachinesController::text(const Row &row, int column) const
{
    switch (column) {
    case NameColumn:
        return row.vm->name().isEmpty() ? row.vm->uuid() : row.vm->name();
    case VersionColumn:
        return row.vm->shownVersion();
    default:
        return localisedStatus(shownStatus(row));
    }
}

QVariant VirtualMachinesController::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const Row &row = m_rows[static_cast<size_t>(index.row())];
    switch (role) {
    case Qt::DisplayRole:
        return text(row, index.column());
    case Qt::EditRole:
        return index.column() == NameColumn ? row.vm->name() : QVariant();
    case Qt::ToolTipRole:
        return index.column() == NameColumn ? PlainText::forToolTip(row.vm->displayName())
                                            : QVariant();
    case Qt::DecorationRole:
        return index.column() == StatusColumn && row.vm->policyEnabled()
                   ? row.vm->displayIconFor(shownStatus(row))
                   : QVariant();
    case StatusRole:
        return shownStatus(row);
    case IdentifierRole:
        return row.vm->uuid();
    default:
        return {};
    }
}

bool VirtualMachinesController::setData(const QModelIndex &index, const QVariant &value, int role)
{
    TarvVM *vm = objectAt(index.row());
    const QString name = value.toString().trimmed();
    if (!vm || role != Qt::EditRole || index.column() != NameColumn || name.isEmpty() ||
        name == vm->name())
        return false;
    vm->setName(name);
    return true;
}

Qt::ItemFlags VirtualMachinesController::flags(const QModelIndex &index) const
{
    const Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    return index.column() == NameColumn ? flags | Qt::ItemIsEditable : flags;
}

QVariant VirtualMachinesController::headerData(int section, Qt::Orientation orientation,
                                               int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case NameColumn:
        return tr("Name");
    case VersionColumn:
        return tr("Version");
    default:
        return tr("Status");
    }
}
