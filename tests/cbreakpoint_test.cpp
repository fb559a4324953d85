#include "tests/machine_support.h"
#include "zqcore/cbreakpoint.h"

namespace
{
    using Watch_t = Breakpoint_c;

    alignas(8) volatile std::int32_t g_iWatched, g_nCalls;

    // clang-format off
    void Read() { static_cast<void>(g_iWatched); }
    void Write() { __atomic_store_n(&g_iWatched, 1, __ATOMIC_RELAXED); }   // by several threads
    void WriteEnd() { reinterpret_cast<char volatile *>(&g_iWatched)[3] = 1; }
    __attribute__((noinline)) void Call() { g_nCalls = g_nCalls + 1; }
    // clang-format on

    int CountTrapsIn(void (*fnTouch)())
    {
        TrapCount_c::Extract();
        fnTouch();
        return TrapCount_c::Extract();
    }

    bool Arm(Watch_t & Watch, int nLength = Watch_t::LENGTH_4, int nAccess = Watch_t::ACCESS_WRITE, int nOffset = 0)
    {
        void const * const pCode = reinterpret_cast<void *>(&Call);
        void const volatile * const pTo = nAccess == Watch_t::ACCESS_EXECUTE ? pCode : &g_iWatched;
        return Watch.Set(reinterpret_cast<std::uintptr_t>(pTo) + static_cast<unsigned>(nOffset), nLength, nAccess);
    }

    struct Breakpoint : testing::Test
    {
        void SetUp() override
        {
            SKIP_IF(!CountsATouch(), "the kernel lends no debug register here, or the hypervisor swallows it");
        }

        DialogScript_c m_Dialogs;
        TrapCount_c m_Traps;
    };
}

// Some hypervisors grant an event that never fires.
TEST(BreakpointSwallowed, SetFailsWithTheComplaint)
{
    constexpr int NO_FILTER = 2;   // status of the child
    auto const Set = []
    {
        if (!SwallowDebugRegisters())
        {
            return NO_FILTER;
        }
        DialogScript_c const Dialogs;
        Watch_t Watch;
        EXPECT_EACH(!Arm(Watch), Watch.m_nIndex == Watch_t::INVALID_INDEX);
        EXPECT_EQ(Dialogs.CountHolding("Developer break"), 1);
        return 0;
    };
    int const iStatus = StatusOfChild(StartChild(Set));
    SKIP_IF(iStatus == NO_FILTER, "the kernel accepts no filter of system calls");
    EXPECT_EQ(iStatus, 0);
}

TEST_F(Breakpoint, CatchesWhatItsCodesSay)
{
    struct Row_s
    {
        int nLength, nAccess;
        std::vector<int> dTraps;   // of Read, Write, WriteEnd and Call
    };
    for (auto const & [nLength, nAccess, dTraps] : { Row_s{ Watch_t::LENGTH_1, Watch_t::ACCESS_WRITE, { 0, 1, 0, 0 } },
             { Watch_t::LENGTH_2, Watch_t::ACCESS_READ_WRITE, { 1, 1, 0, 0 } },
             { Watch_t::LENGTH_4, Watch_t::ACCESS_WRITE + 4, { 0, 1, 1, 0 } },   // the low two bits count
             { Watch_t::LENGTH_1, Watch_t::ACCESS_EXECUTE, { 0, 0, 0, 1 } } })
    {
        SCOPED_TRACE(testing::PrintToString(std::pair(nLength, nAccess)));
        Watch_t Watch;
        ASSERT_TRUE(Arm(Watch, nLength, nAccess));
        EXPECT_EQ((std::vector{ CountTrapsIn(Read), CountTrapsIn(Write), CountTrapsIn(WriteEnd), CountTrapsIn(Call) }),
            dTraps);
        Watch.Clear();
        EXPECT_EQ(std::pair(CountTrapsIn(Write), CountTrapsIn(Call)), std::pair(0, 0)) << "after Clear";
    }
    EXPECT_EQ(m_Dialogs.GetCount(), 0);
}

TEST_F(Breakpoint, FifthFailsAndARegisterIsReleased)
{
    Watch_t dWatches[4], Fifth;
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EACH(Arm(dWatches[i]), dWatches[i].m_nIndex == i) << i;
    }
    EXPECT_EACH(!Arm(Fifth), Fifth.m_nIndex == Watch_t::INVALID_INDEX);
    EXPECT_EQ(m_Dialogs.CountHolding("Developer break"), 1);
    EXPECT_EQ(CountTrapsIn(Write), 1) << "however many watch it";
    dWatches[2].Clear();
    EXPECT_EACH(Arm(Fifth), Fifth.m_nIndex == 2);
    EXPECT_FALSE(Arm(Fifth)) << "it holds one already";
    EXPECT_EQ(m_Dialogs.CountHolding("m_nIndex == INVALID_INDEX"), 1);
    Fifth.Clear();
    EXPECT_FALSE(Arm(Fifth, Watch_t::LENGTH_4, Watch_t::ACCESS_WRITE, 1)) << "not aligned";
    EXPECT_TRUE(Arm(Fifth)) << "the refused one holds no register";
}

TEST_F(Breakpoint, BindsItsThreadAndItsProcess)
{
    constexpr int THREADS = 12;
    alignas(Watch_t) char dLost[THREADS][sizeof(Watch_t)];
    Watch_t Watch;
    ASSERT_TRUE(Arm(Watch));
    TrapCount_c::Extract();
    std::atomic<int> nArmed = 0;   // by threads, whose registers are released when they end
    RunInThreads(THREADS,
        [&](int i)
        {
            Write();
            nArmed += Arm(*::new (dLost[i]) Watch_t);
        });
    EXPECT_EQ(TrapCount_c::Extract(), 0);
    EXPECT_EQ(nArmed, THREADS);
    auto const ArmInChild = []
    {
        EXPECT_EQ(CountTrapsIn(Write), 0) << "inherited";
        Watch_t Own;
        EXPECT_EACH(Arm(Own), Own.m_nIndex == 0, CountTrapsIn(Write) == 1);
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(ArmInChild)), 0);
    EXPECT_EQ(CountTrapsIn(Write), 1);
    WaitingChild_c const Child;
    Watch.Clear();
    EXPECT_EQ(CountTrapsIn(Write), 0) << "no child keeps what its parent has cleared";
    Watch_t dAll[4];
    EXPECT_EACH(Arm(dAll[0]), Arm(dAll[1]), Arm(dAll[2]), Arm(dAll[3]));
}
