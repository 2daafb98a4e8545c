#include "app/shell/TarvVM.h"
#include "tests/list/fixture.h"

#include <QSignalSpy>
#include <QTest>
#include <QUuid>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
class VMModel : public ListTest
{
protected:
    void TearDown() override
    {
        TarvVM::setDisplayOpener({});
        ListTest::TearDown();
    }
};
} // namespace

TEST_F(VMModel, statusFollowsTheServices)
{
    const QString id = randomId();
    const TarvVM vm(id, u"a"_s, u"suspended"_s);
    EXPECT_EQ(vm.status(), u"failed"_s) << "the launch service can't be asked";
    startLaunchService(0);
    EXPECT_EQ(vm.status(), u"suspended"_s);
    EXPECT_EQ(TarvVM(id).status(), u"stopped"_s);
    TarvVM::setVM(id.toUpper(), 1);
    EXPECT_EQ(vm.status(), u"failed"_s) << "an end with an error counts over the exit status";
    supervise(id);
    EXPECT_EQ(vm.status(), u"running"_s);
    TarvVM::setVM(id, 0);
    EXPECT_EQ(TarvVM(QString()).status(), u"stopped"_s);
}

TEST_F(VMModel, badExitStatusIsAFailure)
{
    startLaunchService(3);
    EXPECT_EQ(TarvVM(randomId(), u"a"_s, u"suspended"_s).displayStatus(), u"Failed"_s);
}

TEST_F(VMModel, derivedValuesFollowTheirSources)
{
    TarvVM vm(randomId(), u"name"_s, {});
    QSignalSpy names(&vm, &TarvVM::displayNameChanged);
    QSignalSpy statuses(&vm, &TarvVM::displayStatusChanged);
    EXPECT_EQ(vm.displayName(), u"name"_s);
    vm.setVersion(u"12.1"_s);
    EXPECT_EQ(vm.displayName(), u"name (12.1)"_s);
    EXPECT_EQ(names.count(), 1);
    vm.setStatus(u"suspended"_s);
    EXPECT_EQ(statuses.count(), 1);
    EXPECT_EQ(TarvVM::displayStatusOf(u"not quite dEAD"_s), u"Not Quite Dead"_s);

    EXPECT_TRUE(vm.displayIconFor(u"running"_s).isNull());
    vm.setPolicyEnabled(true);
    const QImage open = vm.displayIconFor(u"running"_s).pixmap(16, 16).toImage();
    const QImage closed = vm.displayIconFor(u"stopped"_s).pixmap(16, 16).toImage();
    EXPECT_FALSE(open.isNull());
    EXPECT_NE(open, closed);
}

TEST_F(VMModel, equalIdentifiersAreEqualWhateverTheirCase)
{
    const QString id = randomId();
    TarvVM vm(id);
    TarvVM same(id.toUpper());
    TarvVM other(randomId());
    EXPECT_TRUE(vm.isEqual(id.toUpper()));
    EXPECT_TRUE(vm.isEqual(QUuid(id)));
    EXPECT_TRUE(vm.isEqual(QVariant::fromValue(&same)));
    EXPECT_FALSE(vm.isEqual(&other));
    EXPECT_FALSE(vm.isEqual(QVariant()));
    EXPECT_FALSE(vm.isEqual(7));
}

TEST_F(VMModel, renamesOnceTheControllerHasAnswered)
{
    TarvVM vm(u"the-id"_s, u"old"_s, {});
    QSignalSpy changes(&vm, &TarvVM::nameChanged);
    vm.setName(u"new"_s);
    EXPECT_EQ(vm.name(), u"old"_s);
    ASSERT_TRUE(waitFor([&] { return changes.count() == 1; }));
    EXPECT_EQ(vm.name(), u"new"_s);
    EXPECT_EQ(recorded(), QStringList(u"modify the-id set name new"_s));

    controllerEnds(0, "{\"status\":\"OK\"}");
    vm.setName(u"newer"_s);
    ASSERT_TRUE(waitForRecorded(2));
    EXPECT_FALSE(QTest::qWaitFor([&] { return changes.count() > 1; }, 300)) << "no body";
}

TEST_F(VMModel, startsThroughTheControllerWhereTheLibraryCannot)
{
    QStringList opened;
    TarvVM::setDisplayOpener([&](const QString &path, int) { opened.append(path); });
    TarvVM vm(u"the-id"_s);
    vm.start(1);
    ASSERT_TRUE(waitForRecorded(1));
    vm.start(2);
    ASSERT_TRUE(waitForRecorded(2));
    vm.start(0, u"stopped"_s);
    ASSERT_TRUE(waitForRecorded(3));
    EXPECT_EQ(recorded(),
              QStringList({u"start -uv the-id"_s, u"start -fv the-id"_s, u"start -fv the-id"_s}));
    EXPECT_TRUE(opened.isEmpty());
}

TEST_F(VMModel, startOfARunningVMOpensItsScreen)
{
    QString opened;
    TarvVM::setDisplayOpener(
        [&](const QString &path, int index) { opened = path + u" %1"_s.arg(index); });
    const QString id = randomId();
    supervise(id);
    std::make_unique<TarvVM>(id)->start(0); // gone before the supervisor answers
    ASSERT_TRUE(waitFor([&] { return !opened.isEmpty(); }));
    EXPECT_EQ(opened, u"/tmp/com.quelda.tarvhv.%1.%2.sock 0"_s.arg(id).arg(getuid()));
    EXPECT_TRUE(recorded().isEmpty());
}
