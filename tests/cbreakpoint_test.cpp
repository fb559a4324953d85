#include "tests/test_support.h"
#include "zqcore/cbreakpoint.h"

#include <csignal>

namespace
{
    using Watch_t = Breakpoint_c;

    alignas(8) volatile std::int32_t g_nWatched, g_nCalls;
    volatile std::sig_atomic_t g_nTraps;

    // clang-format off
    void Read() { static_cast<void>(g_nWatched); }
    void Write() { __atomic_store_n(&g_nWatched, 1, __ATOMIC_RELAXED); }   // by several threads
    void WriteEnd() { reinterpret_cast<char volatile *>(&g_nWatched)[3] = 1; }
    __attribute__((noinline)) void Call() { g_nCalls = g_nCalls + 1; }
    // clang-format on

    int TrapsIn(void (*fnTouch)())
    {
        g_nTraps = 0;
        fnTouch();
        return static_cast<int>(g_nTraps);
    }

    bool Arm(Watch_t & Watch, int nLength = Watch_t::LENGTH_4, int nAccess = Watch_t::ACCESS_WRITE, int nOffset = 0)
    {
        void const * const pCode = reinterpret_cast<void *>(&Call);
        void const volatile * const pTo = nAccess == Watch_t::ACCESS_EXECUTE ? pCode : &g_nWatched;
        return Watch.Set(reinterpret_cast<std::uintptr_t>(pTo) + static_cast<unsigned>(nOffset), nLength, nAccess);
    }

    // Counts the traps, and skips where the system lends no debug registers.
    struct Breakpoint : testing::Test
    {
        void SetUp() override
        {
            m_fnFormer = std::signal(SIGTRAP, [](int) { g_nTraps = g_nTraps + 1; });
            if (Watch_t Probe; !Arm(Probe))
            {
                GTEST_SKIP() << "the kernel lends no debug register here";
            }
        }
        void TearDown() override { std::signal(SIGTRAP, m_fnFormer); }

        DialogScript_c m_Dialogs;
        void (*m_fnFormer)(int) = SIG_DFL;
    };
}

TEST_F(Breakpoint, CatchesWhatItsCodesSay)
{
    // Length, access, and the traps of each way to touch.
    for (auto const & [nLength, nAccess, nRead, nWrite, nWriteEnd, nCall] :
        Rows_t<int, int, int, int, int, int>{ { Watch_t::LENGTH_1, Watch_t::ACCESS_WRITE, 0, 1, 0, 0 },
            { Watch_t::LENGTH_2, Watch_t::ACCESS_READ_WRITE, 1, 1, 0, 0 },
            { Watch_t::LENGTH_4, Watch_t::ACCESS_WRITE + 4, 0, 1, 1, 0 },   // the low two bits count
            { Watch_t::LENGTH_1, Watch_t::ACCESS_EXECUTE, 0, 0, 0, 1 } })
    {
        Watch_t Watch;
        ASSERT_TRUE(Arm(Watch, nLength, nAccess));
        EXPECT_EQ((std::vector{ TrapsIn(Read), TrapsIn(Write), TrapsIn(WriteEnd), TrapsIn(Call) }),
            (std::vector{ nRead, nWrite, nWriteEnd, nCall }));
        Watch.Clear();
        EXPECT_EQ(TrapsIn(Write) + TrapsIn(Call), 0) << "after Clear";
    }
    EXPECT_EQ(m_Dialogs.GetCount(), 0);
}

TEST_F(Breakpoint, FifthFailsAndARegisterIsGivenBack)
{
    Watch_t dWatches[4], Fifth;
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_TRUE(Arm(dWatches[i]) && dWatches[i].m_nIndex == i);
    }
    EXPECT_TRUE(!Arm(Fifth) && Fifth.m_nIndex == Watch_t::INVALID_INDEX);
    EXPECT_EQ(m_Dialogs.CountHolding("Developer break"), 1);
    EXPECT_EQ(TrapsIn(Write), 1) << "however many watch it";
    dWatches[2].Clear();
    EXPECT_TRUE(Arm(Fifth) && Fifth.m_nIndex == 2);
    EXPECT_FALSE(Arm(Fifth)) << "it holds one already";
    EXPECT_EQ(m_Dialogs.CountHolding("m_nIndex == INVALID_INDEX"), 1);
    Fifth.Clear();
    EXPECT_FALSE(Arm(Fifth, Watch_t::LENGTH_4, Watch_t::ACCESS_WRITE, 1)) << "not aligned";
    EXPECT_TRUE(Arm(Fifth)) << "the refused one took no register";
}

TEST_F(Breakpoint, BindsItsThreadAndItsProcess)
{
    alignas(Watch_t) char dLost[12][sizeof(Watch_t)];
    Watch_t Watch;
    ASSERT_TRUE(Arm(Watch));
    g_nTraps = 0;
    InThreads(12,
        [&dLost](int i)
        {
            Write();
            EXPECT_TRUE(Arm(*::new (dLost[i]) Watch_t)) << "ended threads have given theirs back";
        });
    EXPECT_EQ(g_nTraps, 0);
    auto const CountOwnTraps = []
    {
        Write();
        Watch_t Own;
        bool const bOwn = Arm(Own) && Own.m_nIndex == 0;
        Write();
        return bOwn ? static_cast<int>(g_nTraps) : 99;
    };
    EXPECT_EQ(StatusOfChild(StartChild(CountOwnTraps)), 1);
    EXPECT_EQ(TrapsIn(Write), 1);
}
