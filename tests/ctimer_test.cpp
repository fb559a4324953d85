#include "platform/clock.h"
#include "tests/test_support.h"
#include "zqcore/ctimer.h"

#include <algorithm>
#include <atomic>
#include <thread>

TEST(Timer, PassedTimeGoesOnWithoutAJumpWhenTheClockChanges)
{
    longTimeGetPassed();
    longTimeWait(0.05);   // more than the coarse clock's period, so that a restarted clock shows
    double const tBefore = longTimeGetPassed();
    ASSERT_TRUE(StartModule(ModuleTimer_c::Get()));
    double const tAfter = longTimeGetPassed();
    Module_c::ShutdownAllModules();
    EXPECT_GE(tBefore, 0.04);
    EXPECT_GE(tAfter, tBefore - 0.001);   // the coarse clock's period
    EXPECT_LT(tAfter, tBefore + 10.0);
}

TEST(Timer, LongTimeStaysOnTheGoodClockWhateverTheGameReads)
{
    ASSERT_TRUE(StartModule(ModuleTimer_c::Get()));
    Module_c::ShutdownAllModules();
    Game_longTimeGet = [] { return -5.0; };
    double const tGood = static_cast<double>(plat::GoodClockTicks()) / static_cast<double>(plat::GoodClockFrequency());
    EXPECT_NEAR(longTimeGet(), tGood, 1.0);
    Game_longTimeGet = longTimeGet;
}

TEST(Timer, AnotherThreadReadsItWhileItsModuleStarts)
{
    longTimeGetPassed();
    std::atomic<bool> bOver = false;
    double tLargestStepBack = 0.0;
    std::thread Reader(
        [&]
        {
            for (double tPrevious = 0.0; !bOver;)
            {
                double const tPassed = longTimeGetPassed();
                tLargestStepBack = std::max(tLargestStepBack, tPrevious - tPassed);
                tPrevious = tPassed;
            }
        });
    longTimeWait(0.01);
    EXPECT_TRUE(StartModule(ModuleTimer_c::Get()));
    longTimeWait(0.01);
    bOver = true;
    Reader.join();
    Module_c::ShutdownAllModules();
    EXPECT_LT(tLargestStepBack, 10.0) << "no time of one clock counts from the start of the other";
}

TEST(Timer, WaitsSpinForTheTimeThatTheyReturn)
{
    EXPECT_EACH(longTimeWait(0.0) == 0.0, shortTimeWait(0) == 0);
    double const tStart = longTimeGet();
    EXPECT_EQ(longTimeWait(0.01), 0.01);
    EXPECT_GE(longTimeGet(), tStart + 0.01);
    std::int64_t const nStart = shortTimeGet();
    EXPECT_EQ(shortTimeWait(100000), 100000);
    EXPECT_GE(shortTimeGet() - nStart, 100000);
}

TEST(Timer, CyclesAreMeasuredOverOneSecondAndOnce)
{
    auto const Measure = []   // runs in a process of its own, so that its first call measures
    {
        double const tStart = longTimeGet();
        std::int64_t const nStart = shortTimeGet();
        std::int64_t const nCycles = shortTimeGetSec();
        EXPECT_GE(longTimeGet() - tStart, 0.99);
        EXPECT_GT(nCycles, 1000000);
        EXPECT_LE(nCycles, shortTimeGet() - nStart);
        EXPECT_EQ(shortTimeGetSec(), nCycles);
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(Measure(), testing::ExitedWithCode(0), "");
}
