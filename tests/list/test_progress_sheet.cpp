#include "app/kit/SheetCodes.h"
#include "app/list/LongOperationWindow.h"
#include "app/list/LongRunningOperationWindowController.h"
#include "app/list/ProgressIndicator.h"
#include "tests/list/fixture.h"

#include <QPushButton>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
class ProgressSheet : public ListTest
{
protected:
    const std::unique_ptr<LongRunningOperationWindowController> m_operation{
        LongRunningOperationWindowController::controller()};
    WindowController m_owner;
    int m_response = 1;

    void show()
    {
        m_operation->setTitle(u"Stopping ..."_s);
        m_owner.beginSheet(m_operation->sheet(), [this](int code) { m_response = code; });
        ASSERT_TRUE(QTest::qWaitForWindowActive(m_operation->sheet()));
    }
};
} // namespace

TEST_F(ProgressSheet, spinsUntilTheFirstProgress)
{
    ProgressIndicator *indicator = m_operation->progressIndicator();
    EXPECT_FALSE(indicator->isAnimating());
    EXPECT_TRUE(waitFor([&] { return indicator->isAnimating(); }));
    m_operation->setProgress(0);
    m_operation->setProgress(-3);
    EXPECT_TRUE(indicator->isAnimating());
    EXPECT_EQ(indicator->style(), ProgressIndicator::Style::spinner);

    m_operation->setProgress(12.5);
    EXPECT_EQ(indicator->style(), ProgressIndicator::Style::bar);
    EXPECT_FALSE(indicator->isAnimating());
    EXPECT_EQ(indicator->maximum(), 100);
    EXPECT_EQ(indicator->value(), 12);
    m_operation->setProgress(0);
    m_operation->setProgress(1000);
    EXPECT_EQ(indicator->value(), 100);
}

TEST_F(ProgressSheet, escapeCancels)
{
    show();
    QTest::keyClick(m_operation->sheet(), Qt::Key_Escape);
    EXPECT_EQ(m_response, SheetCancel);
}

TEST_F(ProgressSheet, backgroundButtonContinues)
{
    show();
    QTest::mouseClick(m_operation->sheet()->findChild<QPushButton *>(u"backgroundButton"_s),
                      Qt::LeftButton);
    EXPECT_EQ(m_response, SheetContinue);
}
