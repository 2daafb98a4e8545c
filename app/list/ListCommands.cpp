#include "app/list/ListCommands.h"

#include "app/model/statusWord.h"

#include <QCoreApplication>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace {
QString localised(const char *text)
{
    return QCoreApplication::translate("ListCommands", text);
}

// The number that a text begins with; 0 when it begins with something else. It stops at the
// largest signed number.
uint64_t leadingNumber(QStringView text)
{
    constexpr uint64_t largest = std::numeric_limits<int64_t>::max();
    uint64_t number = 0;
    for (const QChar c : text) {
        if (c < u'0' || c > u'9')
            break;
        const uint64_t digit = c.unicode() - u'0';
        if (number > (largest - digit) / 10)
            return largest;
        number = number * 10 + digit;
    }
    return number;
}
} // namespace

ListCommandForm listCommandForm(ListCommand command)
{
    switch (command) {
    case ListCommand::stop:
        return {u"stop"_s, {}, localised(QT_TRANSLATE_NOOP("ListCommands", "Stopping ..."))};
    case ListCommand::forceStop:
        return {u"stop"_s, {u"--force"_s}, localised("Stopping ...")};
    case ListCommand::suspend:
        return {u"suspend"_s, {}, localised(QT_TRANSLATE_NOOP("ListCommands", "Suspending ..."))};
    case ListCommand::reboot:
        // The list reboots a VM by suspending it; only the title differs.
        return {u"suspend"_s, {}, localised(QT_TRANSLATE_NOOP("ListCommands", "Rebooting ..."))};
    }
    return {};
}

QString copyTitle()
{
    return localised(QT_TRANSLATE_NOOP("ListCommands", "Copying ..."));
}

bool takesVM(ListCommand command, const QString &status)
{
    return status == statusWord(VmStatus::running) ||
           (command == ListCommand::forceStop && status == statusWord(VmStatus::suspended));
}

QStringList longCommandArguments(const QString &command, const QStringList &options,
                                 const QStringList &virtualMachines)
{
    return QStringList(command) + options + virtualMachines;
}

QStringList deleteArguments(const QStringList &identifiers)
{
    if (identifiers.isEmpty())
        return {};
    return QStringList{u"delete"_s, u"--yes"_s} + identifiers;
}

QString deleteQuestion(const QStringList &names)
{
    QString question;
    if (names.size() == 1) {
        question =
            localised(QT_TRANSLATE_NOOP("ListCommands", "Are you sure you want to delete %@?"));
        return question.replace(u"%@"_s, names.first());
    }
    question =
        localised(QT_TRANSLATE_NOOP("ListCommands", "Are you sure you want to delete %lu VMs?"));
    return question.replace(u"%lu"_s, QString::number(names.size()));
}

QString uniqueName(const QString &name, const QStringList &taken)
{
    const QString mark = u"_copy"_s;
    QString base = name;
    uint64_t number = 0;
    if (const qsizetype at = name.lastIndexOf(mark, -1, Qt::CaseInsensitive); at >= 0) {
        base = name.left(at);
        number = leadingNumber(QStringView(name).mid(at + mark.size()));
    }
    for (;; number++) {
        // "_copy" is followed by "_copy2": there is no number 1.
        const QString suffix = number == 0 ? QString() : QString::number(number + 1);
        QString candidate = base + mark + suffix;
        if (!taken.contains(candidate, Qt::CaseInsensitive))
            return candidate;
    }
}

bool isListActionEnabled(const QString &action, const QStringList &statuses)
{
    const auto running =
        std::count(statuses.begin(), statuses.end(), statusWord(VmStatus::running));
    static const QStringList needStopped = {u"openDocument:"_s, u"forceStartVirtualMachine:"_s,
                                            u"recoverVirtualMachine:"_s, u"cloneVirtualMachine:"_s,
                                            u"copyVirtualMachine:"_s};
    static const QStringList needRunning = {u"stopVirtualMachine:"_s, u"suspendVirtualMachine:"_s,
                                            u"rebootVirtualMachine:"_s};
    if (needStopped.contains(action))
        return running < statuses.size();
    if (needRunning.contains(action))
        return running > 0;
    if (action == "renameVirtualMachine:"_L1)
        return statuses.size() == 1;
    return action != "delete:"_L1 || !statuses.isEmpty();
}
