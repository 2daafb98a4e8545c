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
    for (const auto &c : cases) {
        EXPECT_EQ(text(uniqueName(QString::fromLatin1(c.name), c.taken)), c.unique) << c.name;
    }
}

TEST(ListCommands, commandsTakeTheirVMsOnly)
{
    for (const ListCommand command :
         {ListCommand::stop, ListCommand::forceStop, ListCommand::suspend, ListCommand::reboot}) {
        EXPECT_TRUE(takesVM(command, u"running"_s));
        EXPECT_EQ(takesVM(command, u"suspended"_s), command == ListCommand::forceStop);
        EXPECT_FALSE(takesVM(command, u"malfunction"_s));
    }
}

TEST(ListCommands, deleteAsksForOneByNameAndForMoreByCount)
{
    EXPECT_EQ(deleteQuestion({u"my %lu"_s}), u"Are you sure you want to delete my %lu?"_s);
    EXPECT_EQ(deleteQuestion({u"a"_s, u"b"_s, u"c"_s}),
              u"Are you sure you want to delete 3 VMs?"_s);
}

TEST(ListCommands, menuItemsFollowTheSelection)
{
    const QStringList none;
    const QStringList running = {u"running"_s};
    const QStringList stopped = {u"stopped"_s};
    const QStringList both = {u"running"_s, u"suspended"_s};
    const struct
    {
        const char *action;
        bool forNone, forRunning, forStopped, forBoth;
    } cases[] = {
        {"openDocument:", false, false, true, true},
        {"forceStartVirtualMachine:", false, false, true, true},
        {"recoverVirtualMachine:", false, false, true, true},
        {"stopVirtualMachine:", false, true, false, true},
        {"suspendVirtualMachine:", false, true, false, true},
        {"rebootVirtualMachine:", false, true, false, true},
        {"delete:", false, true, true, true},
        {"cloneVirtualMachine:", false, false, true, true},
        {"copyVirtualMachine:", false, false, true, true},
        {"forceStopVirtualMachine:", true, true, true, true},
        {"closeWindow:", true, true, true, true},
    };
    for (const auto &c : cases) {
        const QString action = QString::fromLatin1(c.action);
        EXPECT_EQ(isListActionEnabled(action, none), c.forNone) << c.action;
        EXPECT_EQ(isListActionEnabled(action, running), c.forRunning) << c.action;
        EXPECT_EQ(isListActionEnabled(action, stopped), c.forStopped) << c.action;
        EXPECT_EQ(isListActionEnabled(action, both), c.forBoth) << c.action;
    }
}
