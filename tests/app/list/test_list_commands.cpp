#include "app/list/ListCommands.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
std::string text(const QString &string)
{
    return string.toStdString();
}
} // namespace

TEST(ListCommands, uniqueNamesCountFromTwo)
{
    const struct
    {
        const char *name;
        QStringList taken;
        const char *unique;
    } cases[] = {
        {"vm", {u"vm"_s}, "vm_copy"},
        {"vm", {u"vm"_s, u"vm_copy"_s}, "vm_copy2"},
        {"vm", {u"vm"_s, u"vm_copy"_s, u"VM_COPY2"_s}, "vm_copy3"},
        {"vm_copy", {u"vm_copy"_s}, "vm_copy2"},
        {"vm_copy5", {u"vm_copy5"_s}, "vm_copy6"},
        {"vm_copy5x", {u"vm_copy5x"_s}, "vm_copy6"},
        {"vm_copyx", {u"vm_copyx"_s}, "vm_copy"},
        {"vm_COPY", {u"vm_copy"_s}, "vm_copy2"},
        {"a_copy3_copy", {u"a_copy3_copy"_s}, "a_copy3_copy2"},
        {"vm_copy1", {u"vm_copy1"_s}, "vm_copy2"},
        {"vm_copy-7", {u"vm_copy"_s}, "vm_copy2"},
        {"vm_copy99999999999999999999", {}, "vm_copy9223372036854775808"},
        {"", {}, "_copy"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(text(uniqueName(QString::fromLatin1(c.name), c.taken)), c.unique) << c.name;
}

// One letter for each menu item that is enabled, by the selected VMs.
TEST(ListCommands, menuItemsAndCommandsFollowTheSelection)
{
    const struct
    {
        QStringList statuses;
        const char *enabled;
    } cases[] = {
        {{}, "F"},
        {{u"running"_s}, "FtubdR"},
        {{u"stopped"_s}, "FofrdcpR"},
        {{u"running"_s, u"suspended"_s}, "Fofrtubdcp"},
    };
    const std::pair<char, QString> items[] = {
        {'F', u"forceStopVirtualMachine:"_s},  {'o', u"openDocument:"_s},
        {'f', u"forceStartVirtualMachine:"_s}, {'r', u"recoverVirtualMachine:"_s},
        {'t', u"stopVirtualMachine:"_s},       {'u', u"suspendVirtualMachine:"_s},
        {'b', u"rebootVirtualMachine:"_s},     {'d', u"delete:"_s},
        {'c', u"cloneVirtualMachine:"_s},      {'p', u"copyVirtualMachine:"_s},
        {'R', u"renameVirtualMachine:"_s},
    };
    for (const auto &c : cases) {
        std::string enabled;
        for (const auto &[letter, action] : items)
            enabled += isListActionEnabled(action, c.statuses) ? std::string(1, letter) : "";
        EXPECT_EQ(enabled, c.enabled) << text(c.statuses.join(u' '));
    }
    EXPECT_EQ(text(listCommandForm(ListCommand::reboot).title), "Rebooting ...");
    EXPECT_EQ(text(deleteQuestion({u"a %lu"_s})), "Are you sure you want to delete a %lu?");
    EXPECT_EQ(text(deleteQuestion({u"a"_s, u"b"_s})), "Are you sure you want to delete 2 VMs?");
}
