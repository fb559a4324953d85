#include "tests/test_support.h"
#include "zqcore/ccallback.h"

namespace
{
    constinit Callbacker_T<int> g_Event;
    std::string g_sTrace;

    template <char NAME>
    void OnEvent(int i)
    {
        g_sTrace += NAME + std::to_string(i);
    }

    void RemoveItself(int)
    {
        g_sTrace += '-';
        g_Event.Remove(RemoveItself);
    }

    void FireAgain(int i)   // a negative payload forces
    {
        g_sTrace += '<';
        g_Event.Fire(i + 1, i < 0);
        g_sTrace += '>';
    }

    void ForceInFive(int i)
    {
        if (i == 5)
        {
            g_Event.Fire(6, true);
        }
    }

    void RemoveItselfAndForce(int i)
    {
        g_Event.Remove(RemoveItselfAndForce);
        g_Event.Fire(i + 1, true);
    }

    void Throw(int)
    {
        g_sTrace += '!';
        throw 1;
    }

    void RemoveItselfAndCatch(int i)   // the exception ends an inner firing of the changed list
    {
        g_Event.Remove(RemoveItselfAndCatch);
        g_Event.Add(Throw, false);
        EXPECT_THROW(g_Event.Fire(i + 1, true), int);
        g_Event.Remove(Throw);
    }

    // Adds these functions in this order, fires the list and returns the trace that its functions leave.
    std::string Fire(int i, std::initializer_list<void (*)(int)> dAdded = {})
    {
        for (auto const fn : dAdded)
        {
            g_Event.Add(fn, false);
        }
        g_sTrace.clear();
        g_Event.Fire(i, false);
        return g_sTrace;
    }

    struct Callbacks : testing::Test
    {
        ~Callbacks() override { g_Event.Reset(); }
    };
}

TEST_F(Callbacks, RunFromTheLastAddedToTheFirst)
{
    EXPECT_EQ(Fire(0), "");
    EXPECT_EQ(Fire(7, { OnEvent<'A'>, OnEvent<'B'>, OnEvent<'A'> }), "A7B7A7");
    g_Event.Remove(OnEvent<'A'>);   // the later one
    EXPECT_EQ(Fire(8), "B8A8");
    g_Event.Remove(OnEvent<'X'>);
    {
        CallbackScope_T const Receiver(g_Event, OnEvent<'C'>);
        EXPECT_EQ(Fire(9), "C9B9A9");
    }
    EXPECT_EQ(Fire(0), "B0A0");
}

TEST_F(Callbacks, AChangeEndsTheFiring)
{
    EXPECT_EQ(Fire(1, { OnEvent<'A'>, RemoveItself, OnEvent<'B'> }), "B1-");
    EXPECT_EQ(Fire(2), "B2A2");
    EXPECT_EQ(Fire(3, { RemoveItselfAndForce }), "B4A4") << "no freed node was touched";
}

TEST_F(Callbacks, NestedFiringIsDroppedUnlessForced)
{
    EXPECT_EQ(Fire(1, { OnEvent<'A'>, FireAgain }), "<>A1");
    EXPECT_EQ(Fire(-1), "<<>A0>A-1");   // the forced one drops an unforced one
    EXPECT_EQ(Fire(5, { ForceInFive }), "<>A6<<>A6>A5") << "after the forced one, the outer one drops nothing";
}

TEST_F(Callbacks, OneThatThrowsEndsItsFiringAlone)
{
    EXPECT_THROW(Fire(1, { OnEvent<'A'>, Throw }), int);
    g_Event.Remove(Throw);
    EXPECT_EQ(Fire(2), "A2");
    EXPECT_EQ(Fire(3, { RemoveItselfAndCatch }), "!") << "no freed node was touched";
}

TEST_F(Callbacks, AnExclusiveOneHidesAllOthersAndALaterOneAsserts)
{
    g_Event.Add(OnEvent<'A'>, false);
    g_Event.Add(OnEvent<'E'>, true);
    EXPECT_EQ(Fire(1), "E1");
    EXPECT_EQ(FailedConditions([] { g_Event.Add(OnEvent<'B'>, false); }), "!pHead || !pHead->Get().m_bExclusive");
    g_Event.Reset();
    EXPECT_TRUE(g_Event.IsEmpty());
}

TEST_F(Callbacks, NeedNoPayload)
{
    Callbacker_T<void> NoPayload;
    NoPayload.Add([] { g_sTrace = "fired"; }, false);
    NoPayload.Fire(false);
    EXPECT_EQ(g_sTrace, "fired");
}
