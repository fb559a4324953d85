#include "tests/test_support.h"
#include "zqcore/cbreakpoint.h"

#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/hw_breakpoint.h>
#include <linux/perf_event.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

namespace
{
    using Watch_t = Breakpoint_c;

#if defined(__i386__)
    constexpr int REG_RESULT = REG_EAX;
#else
    constexpr int REG_RESULT = REG_RAX;
#endif

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

    // Whether the kernel counts a touch; it may lend registers that the hypervisor swallows.
    bool MachineCountsATouch()
    {
        perf_event_attr Event{};
        Event.size = sizeof Event;
        Event.type = PERF_TYPE_BREAKPOINT;
        Event.bp_type = HW_BREAKPOINT_W;
        Event.bp_addr = reinterpret_cast<std::uintptr_t>(&g_nWatched);
        Event.bp_len = sizeof g_nWatched;
        Event.exclude_kernel = Event.exclude_hv = 1;
        auto const iEvent = static_cast<int>(syscall(SYS_perf_event_open, &Event, 0, -1, -1, 0));
        Write();
        std::uint64_t nCount = 0;
        bool const bCounted = read(iEvent, &nCount, sizeof nCount) == sizeof nCount && nCount == 1;
        close(iEvent);
        return bCounted;
    }

    // From now on each perf event of this process is a descriptor that only reads as zeros; false if that can't be done.
    bool SwallowDebugRegisters()
    {
        struct sigaction Action
        {};
        Action.sa_flags = SA_SIGINFO;
        Action.sa_sigaction = [](int, siginfo_t *, void * p)
        { static_cast<ucontext_t *>(p)->uc_mcontext.gregs[REG_RESULT] = open("/dev/zero", O_RDONLY); };
        sigaction(SIGSYS, &Action, nullptr);
        sock_filter dFilter[] = { BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_perf_event_open, 0, 1), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW) };
        sock_fprog const Program = { 4, dFilter };
        return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &Program) == 0;
    }

    // Counts the traps, and skips where the machine gives none.
    struct Breakpoint : testing::Test
    {
        void SetUp() override
        {
            m_fnFormer = std::signal(SIGTRAP, [](int) { g_nTraps = g_nTraps + 1; });
            SKIP_IF(!MachineCountsATouch(), "the kernel lends no debug register here, or the hypervisor swallows it");
        }
        void TearDown() override { std::signal(SIGTRAP, m_fnFormer); }

        DialogScript_c m_Dialogs;
        void (*m_fnFormer)(int) = SIG_DFL;
    };
}

TEST(BreakpointSwallowed, SetFailsWithTheComplaint)
{
    auto const Set = []
    {
        bool const bSwallowed = SwallowDebugRegisters();
        DialogScript_c const Dialogs;
        Watch_t Watch;
        bool const bRefused = !Arm(Watch) && Watch.m_nIndex == Watch_t::INVALID_INDEX;
        return !bSwallowed ? 2 : bRefused && Dialogs.CountHolding("Developer break") == 1 ? 0 : 1;
    };
    int const iStatus = StatusOfChild(StartChild(Set));
    SKIP_IF(iStatus == 2, "the kernel takes no filter of system calls");
    EXPECT_EQ(iStatus, 0);
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
    std::atomic<int> nArmed = 0;   // by ended threads, which give theirs back
    InThreads(12, [&](int i) { Write(), nArmed += Arm(*::new (dLost[i]) Watch_t); });
    EXPECT_TRUE(g_nTraps == 0 && nArmed == 12);
    auto const CountOwnTraps = []
    {
        Write();
        Watch_t Own;
        return g_nTraps == 0 && Arm(Own) && Own.m_nIndex == 0 ? TrapsIn(Write) : 99;
    };
    EXPECT_EQ(StatusOfChild(StartChild(CountOwnTraps)), 1);
    EXPECT_EQ(TrapsIn(Write), 1);
    WaitingChild_c const Child;
    Watch.Clear();
    EXPECT_EQ(TrapsIn(Write), 0) << "no child keeps what its parent has cleared";
    Watch_t dAll[4];
    EXPECT_TRUE(std::all_of(std::begin(dAll), std::end(dAll), [](Watch_t & Each) { return Arm(Each); }));
}
