#include "app/list/LongRunningOperationWindowController.h"
#include "app/list/ProgressIndicator.h"
#include "tests/list/fixture.h"

TEST(ProgressSheet, spinsUntilTheFirstProgress)
{
    const std::unique_ptr<LongRunningOperationWindowController> operation(
        LongRunningOperationWindowController::controller());
    ProgressIndicator *indicator = operation->progressIndicator();
    EXPECT_FALSE(indicator->isAnimating());
    EXPECT_TRUE(waitFor([&] { return indicator->isAnimating(); }));
    operation->setProgress(0);
    operation->setProgress(-3);
    EXPECT_TRUE(indicator->isAnimating());
    EXPECT_EQ(indicator->style(), ProgressIndicator::Style::spinner);

    operation->setProgress(12.5);
    EXPECT_EQ(indicator->style(), ProgressIndicator::Style::bar);
    EXPECT_FALSE(indicator->isAnimating());
    EXPECT_EQ(indicator->maximum(), 100);
    EXPECT_EQ(indicator->value(), 12);
    operation->setProgress(0);
    operation->setProgress(1000);
    EXPECT_EQ(indicator->value(), 100);
}
