#include "zqcore/csimpleprofile.h"

#include "tests/machine_support.h"
#include "zqcore/ctimer.h"

#include <atomic>
#include <chrono>
#include <latch>

namespace
{
    constexpr auto C0 = SIMPLE_PROFILE_CONTEXT_0, C2 = SIMPLE_PROFILE_CONTEXT_2;
    constexpr std::int64_t STEP = 50000;   // ticks of shortTimeGet

    // Pushes and pops kinds, and waits, as the characters of a text say:
    // - A capital pushes the kind of its place in the alphabet.
    // - A small letter pops the kind of its place.
    // - A '.' waits for STEP.
    void RunSteps(SimpleProfileContext_e eContext, std::string_view sSteps)
    {
        for (char const c : sSteps)
        {
            auto const eType = static_cast<SimpleProfileType_e>((c | 0x20) - 'a');
            if (c == '.')
            {
                shortTimeWait(STEP);
            }
            else if (c >= 'a')
            {
                SimpleProfilePop(eContext, eType);
            }
            else
            {
                SimpleProfilePush(eContext, eType);
            }
        }
    }

    SimpleProfileInfo_t Get(SimpleProfileContext_e eContext, int iKind = 0)
    {
        return SimpleProfileGet(eContext, static_cast<SimpleProfileType_e>(iKind));
    }
}

TEST(SimpleProfile, TimesKindsWithoutTheKindsInThem)
{
    // dTimes has the STEPs that each of the first three kinds takes.
    for (auto const & [szSteps, dTimes] : Rows_t<char const *, std::vector<int>>{ { "A.B..b.a", { 2, 2, 0 } },
             { "A.A.a.a", { 3, 0, 0 } }, { "A.B.C.cB.bba", { 1, 2, 1 } }, { "A.aA.a", { 2, 0, 0 } } })
    {
        std::int64_t const tStart = shortTimeGet();
        RunSteps(C0, szSteps);
        std::int64_t tLeft = shortTimeGet() - tStart;
        SimpleProfileReset(C0);
        for (int i = 0; i < 3; ++i)
        {
            int const nTimes = dTimes[static_cast<std::size_t>(i)];
            EXPECT_GE(Get(C0, i).tLast, nTimes * STEP) << szSteps;
            EXPECT_EQ(Get(C0, i).tLast > 0, nTimes > 0) << szSteps;
            tLeft -= Get(C0, i).tLast;
        }
        EXPECT_GE(tLeft, 0) << szSteps << ": nothing counts twice";
    }
}

TEST(SimpleProfile, ScopesEndWhatTheyBegin)
{
    {
        SimpleProfileContextScope_c const Context(C2);
        SimpleProfileScope_c const Work(SIMPLE_PROFILE_CONTEXT_CURRENT, SIMPLE_TIMER_SERVER);
        RunSteps(C2, ".");
    }
    RunSteps(SIMPLE_PROFILE_CONTEXT_CURRENT, "A.a");
    for (auto const eContext : { SIMPLE_PROFILE_CONTEXT_1, C2 })
    {
        SimpleProfileReset(eContext);   // asserts that the thread has left the context
        EXPECT_GE(Get(eContext).tLast, STEP) << eContext;
    }
}

TEST(SimpleProfile, AveragesOverSpansOf32Frames)
{
    RunSteps(C2, "A.a");
    do
    {
        SimpleProfileReset(C2);
    }
    while (Get(C2).tSum != 0);   // until a span begins
    constexpr int FRAMES = 32;
    std::int64_t tSum = 0, tPeak = 0, tAverage = Get(C2).tAverage;   // ticks
    for (int i = 1; i <= 70; ++i)
    {
        RunSteps(C2, i % 5 == 0 ? "" : i == 21 ? "A....a" : "A.a");
        SimpleProfileReset(C2);
        if (i % FRAMES == 0)
        {
            tAverage = tSum / FRAMES;
            tSum = tPeak = 0;
        }
        SimpleProfileInfo_t const Info = Get(C2);
        EXPECT_EQ(Info.tLast > 0, i % 5 != 0) << i;
        tSum += Info.tLast;
        tPeak = std::max(tPeak, Info.tLast);
        ASSERT_EQ((std::vector{ Info.tSum, Info.tPeak, Info.tAverage }), (std::vector{ tSum, tPeak, tAverage })) << i;
    }
}

TEST(SimpleProfile, OneThreadAtATimeIsInAContext)
{
    std::atomic<bool> bInside = false, bLeft = false;
    RunSteps(C0, "AB");
    std::thread Other(
        [&]
        {
            RunSteps(C2, "A.a");   // another context does not wait
            RunSteps(C0, "A");
            bInside = true;
            RunSteps(C0, ".a");
        });
    std::thread Resetter(
        [&]
        {
            SimpleProfileReset(C0);
            EXPECT_TRUE(bLeft) << "a reset waits for the thread inside";
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    RunSteps(C0, "b");
    RunInThreads(1, [](int) { Get(C0); });   // reading figures waits for no thread inside
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(bInside);
    bLeft = true;
    RunSteps(C0, "a");
    Other.join();
    Resetter.join();
    EXPECT_TRUE(bInside);
}

TEST(SimpleProfile, AForkedChildIsInItsOwnContextsAlone)
{
    NEEDS_FORKS;
    std::latch Inside(2), Forked(2);
    std::thread Other(
        [&]
        {
            RunSteps(C2, "A");
            Inside.arrive_and_wait();
            Forked.arrive_and_wait();
            RunSteps(C2, "a");
        });
    RunSteps(C0, "AAB");
    Inside.arrive_and_wait();
    auto const InChild = []
    {
        auto const Use = []
        {
            RunSteps(C2, "A.a");
            RunSteps(C0, ".baa");
            RunInThreads(1, [](int) { RunSteps(C0, "A.a"); });
            SimpleProfileReset(C2);
        };
        EXPECT_EQ(FailedConditions(Use), "");
        EXPECT_GE(Get(C2).tLast, STEP);
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(InChild)), 0);
    Forked.arrive_and_wait();
    RunSteps(C0, "baa");
    Other.join();
}

TEST(SimpleProfile, AssertsAtTheLimitsOfItsStacks)
{
    constexpr int DEPTH = 32;
    std::string const sFull = "ABABABABABABABABABABABABABABABAB", sEmpty = "babababababababababababababababa";
    RunSteps(C0, std::string(40, 'C') + std::string(40, 'c') + sFull);   // the first 40 are one entry
    EXPECT_EQ(FailedConditions([] { RunSteps(C0, "A"); }), "iStackPtr < SIMPLE_PROFILE_STACKSIZE");
    RunSteps(C0, "a" + sEmpty);
    EXPECT_EQ(FailedConditions([] { RunSteps(C0, "a"); }), "iStackPtr >= 0");
    EXPECT_EQ(FailedConditions([] { RunSteps(C0, "ABab"); }), "Top.eType == eType & Top.eType == eType");
    EXPECT_EQ(FailedConditions(
                  []
                  {
                      RunSteps(C0, "A");
                      SimpleProfileReset(C0);
                      RunSteps(C0, "a");
                  }),
        "iStackPtr == -1");

    SimpleProfileContextPop();   // nothing to pop
    for (int i = 0; i < DEPTH; ++i)
    {
        SimpleProfileContextPush(i < DEPTH - 1 ? C0 : C2);
    }
    EXPECT_EQ(FailedConditions([] { SimpleProfileContextPush(C2); }),
        "g_iSProfileContextStackPtr < SIMPLE_PROFILE_STACKSIZE");
    SimpleProfileContextPop();   // of the push that found no room
    for (int i = 0; i <= DEPTH; ++i)
    {
        auto const eContext = i == 0 ? C2 : i < DEPTH ? C0 : SIMPLE_PROFILE_CONTEXT_1;
        SimpleProfileReset(eContext);
        RunSteps(SIMPLE_PROFILE_CONTEXT_CURRENT, "Q.q");
        SimpleProfileReset(eContext);
        ASSERT_GT(Get(eContext, SIMPLE_TIMER_DEBUG).tLast, 0) << i;
        SimpleProfileContextPop();
    }
}

TEST(SimpleProfile, NamesItsKinds)
{
    EXPECT_STREQ(SimpleProfileName(SIMPLE_TIMER_AI), "TIMER_AI");
    EXPECT_STREQ(SimpleProfileName(static_cast<SimpleProfileType_e>(SIMPLE_TIMER_DEBUG + 1)), "unknown");
}
