#include "app/model/TarvVM.h"
#include "tests/app/fixtures/list_fixture.h"

#include <QSignalSpy>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;

using VMModel = ListTest;

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
    EXPECT_EQ(TarvVM::displayStatusOf(u"not quite dEAD"_s), u"Not Quite Dead"_s);
}

TEST_F(VMModel, equalIdentifiersAreEqualWhateverTheirCase)
{
    const QString id = randomId();
    TarvVM vm(id);
    TarvVM same(id.toUpper());
    EXPECT_TRUE(vm.isEqual(id.toUpper()) && vm.isEqual(QUuid(id)));
    EXPECT_TRUE(vm.isEqual(QVariant::fromValue(&same)));
    EXPECT_FALSE(vm.isEqual(QVariant()) || vm.isEqual(7) || vm.isEqual(randomId()));
}

TEST_F(VMModel, renamesOnceTheControllerHasAnswered)
{
    TarvVM vm(u"the-id"_s, u"old"_s, {});
    QSignalSpy changes(&vm, &TarvVM::nameChanged);
    vm.setName(u"new"_s);
    EXPECT_EQ(vm.name(), u"old"_s);
    ASSERT_TRUE(waitUntil([&] { return changes.count() == 1; }));
    EXPECT_EQ(vm.name(), u"new"_s);
    EXPECT_EQ(recorded(), QStringList(u"modify the-id set name new"_s));

    setController(u"print {\"status\":\"OK\"}\n"_s);
    vm.setName(u"newer"_s);
    ASSERT_TRUE(waitForRecorded(2));
    EXPECT_FALSE(QTest::qWaitFor([&] { return changes.count() > 1; }, 300)) << "no body";
}
