#include "app/shell/AppParts.h"
#include "tests/app/fixtures/list_fixture.h"

using namespace Qt::StringLiterals;

using AppPartsTest = ListTest;

TEST_F(AppPartsTest, startsTheVMThatIsMeantHoweverItsIdentifierIsSpelled)
{
    startLaunchService();
    const QString id = addVM(u"a"_s);
    const AppParts parts = applicationParts();
    parts.startVM(id.toUpper(), 0);
    ASSERT_TRUE(waitForRecorded(1));
    EXPECT_EQ(recorded().last(), u"start -fv "_s + id);
    parts.startVM(u"Unknown"_s, 1);
    ASSERT_TRUE(waitForRecorded(2));
    EXPECT_EQ(recorded().last(), u"start -uv Unknown"_s);
}
