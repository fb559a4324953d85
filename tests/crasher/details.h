// details.h: the part of crasher.cpp with faults among values of many types, and with threads that a report describes.
#pragma once

enum Colour_e
{
    RED = 2,
    BLUE = 4
};
struct Vector_s
{
    float x, y, z;
};
struct Ship_s : Vector_s
{
    Colour_e eColour;
    unsigned nLow : 3, nHigh : 7;
    Vector_s Speed;
    char const * szName;
};

inline __attribute__((always_inline)) int Touch(int volatile * pTouched, int nFactor)
{
    return *pTouched * nFactor;
}

/// Faults among variables of many types.
__attribute__((noinline)) int ShowValues(Ship_s const & Ship, void (*fnCall)(), wchar_t const * wszWide)
{
    short iNegative = -2;
    auto const eBoth = static_cast<Colour_e>(RED | BLUE);
    char szShort[8] = "a\nb";
    int dNumbers[] = { 1, 2, 3 };
    String_T<32> sFixed("fixed");
    Array_T<int, 4, 0> dArray;
    dArray.Add(5);
    dArray.Add(-1);
    std::string sText("a text that is too long for the object");
    std::vector<std::string> dTexts = { "one", "two" };
    std::vector<int> dMany(100, 7);
    std::optional<short> iSome = 7;
    auto const pOwned = std::make_unique<int>(9);
    Vector_s Point = { 1, 2, 3.5f };
    return Touch(static_cast<int volatile *>(g_pNowhere), 3) + iNegative + eBoth + szShort[0] + dNumbers[0] + dArray[0]
           + static_cast<int>(sFixed.IsEmpty()) + sText[0] + static_cast<int>(dTexts.size() + dMany.size()) + *iSome
           + *pOwned + static_cast<int>(Point.x + Ship.x) + (fnCall ? 1 : 0) + static_cast<int>(wszWide[0]);
}

/// Name of a callee-saved register.
#if defined(__x86_64__)
    #define IN_REGISTER "rbx"
#else
    #define IN_REGISTER "edi"
#endif

/// Calls ShowValues from a frame with a structure and a variable in a register.
inline void FaultAmongValues()
{
    Ship_s Ship = { { 1, 2, 3 }, RED, 5, 65, { 4, 5, 6 }, "ship" };
    register int nInRegister __asm__(IN_REGISTER) = 77;
    __asm__ volatile("" : "+r"(nInRegister));
    ShowValues(Ship, FaultAmongValues, L"w\u00EFde");
    __asm__ volatile("" : "+r"(nInRegister));
}

#define TEN(name) name##0, name##1, name##2, name##3, name##4, name##5, name##6, name##7, name##8, name##9

/// Returns an object whose type has a very long name.
template <int DEPTH, typename T>
auto Doubled(T Value)
{
    if constexpr (DEPTH == 0)
    {
        return Value;
    }
    else
    {
        return Doubled<DEPTH - 1>(std::pair(Value, Value));
    }
}

/// Faults with more variables than are shown. One of them has more members than are shown, and one a type with a very
/// long name.
inline void FaultAmongMany()
{
    struct
    {
        int TEN(nA), TEN(nB), TEN(nC), TEN(nD), TEN(nE), TEN(nF), TEN(nG);
    } Large = {};
    [[maybe_unused]] auto const Long = Doubled<9>(0);
    [[maybe_unused]] int volatile TEN(nA), TEN(nB), TEN(nC), TEN(nD), TEN(nE), TEN(nF), TEN(nG), TEN(nH), TEN(nI),
        TEN(nJ), TEN(nK), TEN(nL), TEN(nM);
    nM9 = Large.nA0 + *static_cast<int volatile *>(g_pNowhere);
}

constinit plat::Lock_c g_HostLock;
plat::ForkLock_c const g_HostForkLock(g_HostLock);
std::atomic<int> g_nBeside = 0;   // threads of StartBeside whose first function has returned

inline void DoNothing() {}

/// Starts a named thread that calls fnFirst, then fnThen, and then pauses. Waits until fnFirst has returned.
inline void StartBeside(char const * szName, void (*fnFirst)(), void (*fnThen)() = DoNothing)
{
    int const nBefore = g_nBeside;
    std::thread(
        [=]
        {
            prctl(PR_SET_NAME, szName);
            fnFirst();
            ++g_nBeside;
            fnThen();
            pause();
        })
        .detach();
    while (g_nBeside == nBefore)
    {
        std::this_thread::yield();
    }
}

plat::Lock_c * const g_pUnregistered = new plat::Lock_c;   // without a ForkLock_c

/// Pauses below nFrames further calls. Returns nFrames - 1 if a signal handler ends the pause.
inline int Descend(int nFrames)
{
    return nFrames == 0 ? pause() : Descend(nFrames - 1) + 1;
}

/// Starts a thread that does nothing, one that does nothing deep in its stack, and others that hold a lock or wait for
/// one. Writes a stats file, so that the kernel starts a worker.
inline void StartThreads()
{
    ProfilerInitSwapStats("stats.dat");
    StartBeside("idle", DoNothing);
    StartBeside("holder", [] { g_HostLock.Enter(); });
    StartBeside("owner", [] { g_pUnregistered->Enter(); });
    StartBeside("deep", DoNothing, [] { Descend(300); });
    StartBeside("waiter", DoNothing, [] { g_HostLock.Enter(); });
    StartBeside("second", DoNothing, [] { g_pUnregistered->Enter(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

/// Returns the number of this process's threads that have a tracer.
inline int CountTraced()
{
    int nTraced = 0;
    for (auto const & Entry : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::ifstream Status(Entry.path() / "status");
        for (std::string sLine; std::getline(Status, sLine);)
        {
            nTraced += sLine.starts_with("TracerPid:") && sLine != "TracerPid:\t0" ? 1 : 0;
        }
    }
    return nTraced;
}

/// Starts four threads that each wait for a child and can't be stopped until it ends. Starts another one that prints
/// the most threads that were traced at once, each time that the number grows.
inline void StartUnstoppable()
{
    for (int i = 0; i < 4; ++i)
    {
        StartBeside("stuck", DoNothing,
            []
            {
                if (vfork() == 0)
                {
                    prctl(PR_SET_PDEATHSIG, SIGKILL);
                    pause();
                    _exit(0);
                }
            });
    }
    std::thread(
        []
        {
            for (int nMost = 0;;)
            {
                int const nTraced = CountTraced();
                if (nTraced > nMost)
                {
                    nMost = nTraced;
                    Say(("traced at once: " + std::to_string(nMost) + "\n").c_str());
                }
            }
        })
        .detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

/// Refuses tracing to the helper.
inline void ForbidTracing()
{
    constexpr unsigned PTRACE = 101;   // of x86-64 (asm/unistd_64.h): the helper is a 64-bit program in each build
    sock_filter dFilter[] = { BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PTRACE, 0, 1), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW) };
    sock_fprog const Program = { std::size(dFilter), dFilter };
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &Program);
}

/// Faults at a line after which a gap of line numbers follows. Requires that it is the last function, because the
/// numbers after it are not those of the file's lines.
inline void FaultBeforeGap()
{
#line 1001
    g_iZero = *static_cast<int volatile *>(g_pNowhere);
#line 1201
    g_iZero = 2;
}
