// crasher.cpp: a program that crashes as its arguments say, for the tests of the crash report.
//
//   crasher FAULT [CIRCUMSTANCE...] HELPER
//
// HELPER is the path of the symbol helper, empty for none. The program logs to message.log in the current folder, where
// the report is written too. The thread that faults may not use the heap from the fault on, or from the filter on if
// the fault needs the heap. A use of it ends the process with status 99, unless the build is CRASHER_CHECKED.
#include "zqcore/capp.h"
#include "zqcore/carray.h"
#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/cexceptioninfo.h"
#include "zqcore/cexceptionreport.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cprofile.h"
#include "zqcore/cstring.h"

#include "platform/faults.h"
#include "platform/fork.h"
#include "platform/linux/faultdecode.h"
#include "platform/memory.h"
#include "platform/process.h"
#include "platform/stack.h"
#include "platform/threads.h"
#include "tests/coverage.h"
#include "tests/crasher/deep.h"

#include <atomic>
#include <cerrno>
#include <cfenv>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>
#include <xmmintrin.h>

// Faults at its first instruction. Another function ends right before it. The listing of its code ends after the second
// byte of "mov eax,12345678".
extern "C" void FaultAtOnce();
__asm__(R"(
    .text
    .p2align 5, 0x90
    .type Previous, @function
Previous:
    .cfi_startproc
    .fill 31, 1, 0x90
    ret
    .cfi_endproc
    .size Previous, .-Previous
    .globl FaultAtOnce
    .type FaultAtOnce, @function
FaultAtOnce:
    .cfi_startproc
    ud2
    .fill 124, 1, 0x90
    movl $0x12345678, %eax
    ret
    .cfi_endproc
    .size FaultAtOnce, .-FaultAtOnce
)");

namespace
{
    long volatile g_iNoHeap = 0;   // thread that may not use the heap, 0 for none
    std::atomic_flag g_HeapLock = ATOMIC_FLAG_INIT;

    void Say(char const * szText)
    {
        [[maybe_unused]] auto const n = write(STDERR_FILENO, szText, std::strlen(szText));
    }

    // Flags of the processor (Intel SDM, volume 1, 3.4.3).
    constexpr unsigned FLAG_ALWAYS_SET = 0x2;
    constexpr unsigned FLAG_TRAP = 0x100;

    void SetFlags(unsigned nFlags)
    {
#if defined(__x86_64__)
        __builtin_ia32_writeeflags_u64(nFlags);
#else
        __builtin_ia32_writeeflags_u32(nFlags);
#endif
    }

    void ForbidHeap()
    {
        g_iNoHeap = syscall(SYS_gettid);
    }
}

// Replace the C library's heap functions: a use of the heap while it is forbidden ends the process. A circumstance may
// hold the lock.
#ifndef CRASHER_CHECKED
extern "C"
{
    void * __libc_malloc(std::size_t);
    void * __libc_calloc(std::size_t, std::size_t);
    void * __libc_realloc(void *, std::size_t);
    void __libc_free(void *);
}

namespace
{
    template <typename CALL>
    auto CallInHeap(CALL fnCall)
    {
        if (g_iNoHeap != 0 && g_iNoHeap == syscall(SYS_gettid))
        {
            Say("heap used\n");
            _exit(99);
        }
        while (g_HeapLock.test_and_set())
        {}
        struct Unlock_c
        {
            ~Unlock_c() { g_HeapLock.clear(); }
        } const Unlock;
        return fnCall();
    }
}

extern "C"
{
    void * malloc(std::size_t n) noexcept
    {
        return CallInHeap([n] { return __libc_malloc(n); });
    }
    void * calloc(std::size_t n, std::size_t nSize) noexcept
    {
        return CallInHeap([n, nSize] { return __libc_calloc(n, nSize); });
    }
    void * realloc(void * p, std::size_t n) noexcept
    {
        return CallInHeap([p, n] { return __libc_realloc(p, n); });
    }
    void free(void * p) noexcept
    {
        CallInHeap([p] { __libc_free(p); });
    }
}
#endif

namespace
{
    // Text of the write at which g_fnAtText is called once, or null.
    char const * g_szAtText = nullptr;
    void (*g_fnAtText)(int hFile, void const * pBytes, std::size_t nBytes);
}

// Replaces the C library's function.
extern "C" ssize_t write(int hFile, void const * pBytes, std::size_t nBytes)
{
    std::string_view const sText(static_cast<char const *>(pBytes), nBytes);
    if (g_szAtText != nullptr && hFile > STDERR_FILENO && sText.find(g_szAtText) != std::string_view::npos)
    {
        g_szAtText = nullptr;
        g_fnAtText(hFile, pBytes, nBytes);
    }
    return syscall(SYS_write, hFile, pBytes, nBytes);
}

namespace
{
    int volatile g_iZero = 0;
    [[maybe_unused]] int const BOUNDS[] = { 0, 1 };
    double volatile g_fZero = 0.0;
    double volatile g_fHuge = 1e308;
    constexpr std::uintptr_t NOWHERE = 16;   // address without memory
    void * volatile g_pNowhere = reinterpret_cast<void *>(NOWHERE);

#include "tests/crasher/details.h"
#include "tests/crasher/nowhere.h"

    struct PureBase_c
    {
        PureBase_c() { Call(*this); }
        static void Call(PureBase_c & Object) { Object.Act(); }
        virtual void Act() = 0;
    };
    struct Pure_c : PureBase_c
    {
        void Act() override {}
    };

    __attribute__((noinline)) int Recurse(int n)
    {
        char volatile dFrame[2000];
        dFrame[0] = static_cast<char>(n);
        return n < 0 ? 0 : Recurse(n + 1) + dFrame[0];
    }

    // Makes the call with little of the stack left, and without an alternate stack.
    __attribute__((noinline)) void CallDeep(void (*fnCall)())
    {
        constexpr std::size_t LITTLE = 10000;
        char volatile dFrame[1000];
        dFrame[0] = 0;
        if (plat::StackLeft() > LITTLE)
        {
            CallDeep(fnCall);
        }
        else
        {
            stack_t const None = { nullptr, SS_DISABLE, 0 };
            sigaltstack(&None, nullptr);
            fnCall();
        }
        static_cast<void>(dFrame[0]);
    }

    // Sets an alternate stack as other runtimes do, with no access below it.
    void SetSmallStack(std::size_t nBytes)
    {
        constexpr std::size_t MAPPED = 65536;
        void * const pMapped = mmap(nullptr, MAPPED, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        stack_t const Stack = { static_cast<char *>(pMapped) + MAPPED - nBytes, 0, nBytes };
        mprotect(Stack.ss_sp, nBytes, PROT_READ | PROT_WRITE);
        sigaltstack(&Stack, nullptr);
    }

    void ReadPastEnd()
    {
        int const hFile = open("short", O_RDWR | O_CREAT, 0600);
        [[maybe_unused]] int const iCut = ftruncate(hFile, 1);
        auto * const p =
            static_cast<char volatile *>(mmap(nullptr, 2 * plat::MEMORY_PAGE, PROT_READ, MAP_SHARED, hFile, 0));
        static_cast<void>(p[plat::MEMORY_PAGE]);
    }

    // Sets flags of the processor, then reads a misaligned word.
    void MisalignWithFlags(unsigned nFlags)
    {
        alignas(int) char const dBytes[8] = {};
        SetFlags(nFlags);
        static_cast<void>(*reinterpret_cast<int const volatile *>(dBytes + 1));
    }

    void WriteTo(std::uintptr_t Address)
    {
        *reinterpret_cast<int volatile *>(Address) = 1;
    }

    [[gnu::always_inline]] inline void WriteInlined(std::uintptr_t Address)
    {
        *reinterpret_cast<int volatile *>(Address) = 1;
    }

    // Shows the call stack as a dialog would, then faults.
    void FaultInHandler(int)
    {
        static char s_szTrace[4096];
        plat::FaultContext_t Context;
        plat::FaultContextCapture(&Context);
        plat::FaultRecord_t const Record = { plat::FAULT_BREAKPOINT, Context.nIp, {} };
        plat::FaultPointers_t const Here = { &Record, &Context };
        ExceptionInfo_c::Get().StackTrace(s_szTrace, sizeof s_szTrace, 8, 0, &Here);
        Say(s_szTrace);
        WriteTo(NOWHERE);
    }

    void AddDenormals()
    {
        _mm_setcsr(_mm_getcsr() & ~unsigned{ _MM_MASK_DENORM });
        g_fHuge = (g_fZero + 5e-324) + g_fHuge;
    }

    constexpr int HEAP = -1;   // kind of the faults whose way to the filter needs the heap
    constexpr int PLAIN = 0;   // kind of other faults
    struct Fault_t
    {
        char const * szName;
        int iKind;   // HEAP, PLAIN, or the floating-point exceptions to unmask
        void (*fnFault)();
    };
    constexpr Fault_t FAULTS[] = {
        { "read", PLAIN, [] { ReadNowhere(5, "second"); } },
        { "write", PLAIN, [] { WriteTo(NOWHERE); } },
        { "inlined", PLAIN, [] { WriteInlined(NOWHERE); } },
        { "wild", PLAIN, [] { WriteTo(UINTPTR_MAX / 3 * 2); } },
        { "call", PLAIN, [] { reinterpret_cast<void (*)()>(static_cast<std::intptr_t>(g_iZero))(); } },
        { "divide", PLAIN, [] { g_iZero = 10 / g_iZero; } },
        { "quotient", PLAIN, [] { g_iZero = (g_iZero + INT_MIN) / (g_iZero - 1); } },
        { "floatdivide", FE_DIVBYZERO, [] { g_fZero = 1.0 / g_fZero; } },
        { "floatinvalid", FE_INVALID, [] { g_fZero = g_fZero / g_fZero; } },
        { "floatoverflow", FE_OVERFLOW, [] { g_fHuge = g_fHuge * g_fHuge; } },
        { "floatunderflow", FE_UNDERFLOW, [] { g_fHuge = 1 / g_fHuge / g_fHuge; } },
        { "floatinexact", FE_INEXACT, [] { g_fHuge = 1.0 / (g_fZero + 3); } },
        { "floatdenormal", PLAIN, AddDenormals },
        { "floatstack", FE_INVALID, [] { __asm__ volatile("fstp %st(0)\n\tfstp %st(0)\n\tfwait"); } },
        { "illegal", PLAIN, [] { __builtin_trap(); } },
        { "privileged", PLAIN, [] { __asm__ volatile("hlt"); } },
        { "step", PLAIN, [] { MisalignWithFlags(FLAG_TRAP); } },
#if defined(__i386__)
        { "into", PLAIN, [] { __asm__ volatile("movb $127, %%al\n\taddb $1, %%al\n\tinto"
                                               :
                                               :
                                               : "eax"); } },
        { "bound", PLAIN, [] { __asm__ volatile("bound %0, %1"
                                                :
                                                : "r"(5), "m"(BOUNDS)); } },
#endif
        { "abort!", HEAP, [] { Abort("the end of %s", "it"); } },
        { "stack", PLAIN, [] { Recurse(0); } },
        { "bus", PLAIN, ReadPastEnd },
        { "misaligned", PLAIN, [] { MisalignWithFlags(plat::FLAG_ALIGNMENT_CHECK); } },
        { "throw", HEAP, [] { throw std::runtime_error("what\x1B\nit says"); } },
        { "throwint", HEAP, [] { throw 5; } },
        { "readdeep", HEAP, [] { CallDeep([] { ReadNowhere(5, "second"); }); } },
        { "throwdeep", HEAP, [] { CallDeep([] { throw std::runtime_error("deep"); }); } },
        { "abort", PLAIN, [] { std::abort(); } },
        { "values", HEAP, FaultAmongValues },
        { "many", PLAIN, FaultAmongMany },
        { "depth", PLAIN, FaultInDepth },
        { "pure", HEAP, [] { Pure_c const Object; } },
        { "interrupted", PLAIN, FaultAtOnce },
        { "handler", HEAP,
            []
            {
                std::signal(SIGILL, FaultInHandler);
                FaultAtOnce();
            } },
        { "gap", PLAIN, FaultBeforeGap },
    };

    Fault_t const * g_pFault = nullptr;
    plat::FaultFilter_t g_fnFilter = nullptr;

    // Calls the library's filter, forbids it the heap, and returns its result. Says whether it left the log open.
    long Filter(plat::FaultPointers_t const * pFault)
    {
        ForbidHeap();
        long const nResult = g_fnFilter(pFault);
        Say(g_pMessageLogFile == nullptr ? "log closed\n" : "log open\n");
        g_iNoHeap = 0;
        WriteCoverage();
        return nResult;
    }

    // Turns alignment checks off first: the flags are the fault's.
    void OnSignal(int iSignal, siginfo_t *, void *)
    {
        SetFlags(FLAG_ALWAYS_SET);
        Say("previous handler\n");
        WriteCoverage();
        std::signal(iSignal, SIG_DFL);   // the same signal ends the process
        std::raise(iSignal);
    }

    // Sets the handler that gets the faults after the library, or none for null.
    void SetPrevious(void (*fnHandler)(int, siginfo_t *, void *))
    {
        plat::FaultFilter_t const fnFilter = plat::FaultFilterSet(nullptr);
        struct sigaction Action = {};
        Action.sa_sigaction = fnHandler;
        Action.sa_flags = fnHandler ? SA_SIGINFO | SA_ONSTACK | SA_NODEFER : 0;
        for (int const iSignal : { SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGABRT })
        {
            sigaction(iSignal, &Action, nullptr);
        }
        plat::FaultFilterSet(fnFilter);
    }

    // Sets a previous filter for the library's. It handles the first fault only, so the instruction faults again.
    void HandleFirstFault()
    {
        plat::FaultFilter_t const fnFilter = plat::FaultFilterSet(
            [](plat::FaultPointers_t const *)
            {
                static long s_nLeft = 1;
                return std::exchange(s_nLeft, 0);
            });
        static ExceptionReport_c const s_Report;   // its previous filter is the one above
        plat::FaultFilterSet(fnFilter);
    }

    void HoldLocks()
    {
        g_CategoryLock.Enter();
        flockfile(g_pMessageLogFile);
        while (g_HeapLock.test_and_set())
        {}
    }

    void LimitFiles()
    {
        std::signal(SIGXFSZ, SIG_DFL);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);   // a file on standard error would be limited too
        rlimit const Limit = { 300, 300 };
        setrlimit(RLIMIT_FSIZE, &Limit);
    }

    void UseUpDescriptors()
    {
        rlimit const Limit = { 64, 64 };
        setrlimit(RLIMIT_NOFILE, &Limit);
        while (dup(STDIN_FILENO) >= 0)
        {}
    }

    // Makes another folder the current one, while the log is opened and at the crash.
    void MoveElsewhere()
    {
        mkdir("elsewhere", 0700);
        [[maybe_unused]] int const iMoved = chdir("elsewhere");
        LogDone();
        LogInit();
    }

    // Sets a folder whose path has more bytes than characters.
    void SetLongFolder()
    {
        std::wstring sFolder;
        for (int i = 0; i < 5; ++i)
        {
            sFolder += std::wstring(120, L'\u044F') + L"/";
        }
        LogSetFile(sFolder.c_str(), L"message.log");
    }

    void PrintAutoName()
    {
        g_ExceptionReport.SetReportFileAutoName();
        std::printf("%ls\n", g_ExceptionReport.GetLogFileName());
        std::fflush(stdout);
    }

    void CorruptHeap()
    {
        void * const volatile p = std::malloc(24);
        std::memset(static_cast<std::size_t *>(p) - 2, 0x41, 4096);   // its size, and the sizes and links after it
    }

    // Sends a fault to the main thread from another one, while its report waits for a helper that prints nothing.
    void FaultTheReport()
    {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        syscall(SYS_tgkill, getpid(), getpid(), SIGSEGV);
        pause();
    }

    void Fault()
    {
        if (g_pFault->iKind != HEAP)
        {
            ForbidHeap();
        }
        if (g_pFault->iKind > 0)
        {
            feenableexcept(g_pFault->iKind);
        }
        g_pFault->fnFault();
    }

    void FaultOnHostThread()
    {
        plat::FaultThreadJoin();
        Fault();
    }

    void FaultOnLibraryThread()
    {
        plat::Thread_c Thread;
        Thread.Start([](void *) { Fault(); }, nullptr);
        Thread.Join();
    }

    // Stops in the middle of a write, as a disk may.
    void StickHalfWay(int hFile, void const * pBytes, std::size_t nBytes)
    {
        syscall(SYS_write, hFile, pBytes, nBytes / 2);
        pause();
    }

    void KillHelper(int, void const *, std::size_t)
    {
        char szChildren[64] = "";
        int const hChildren = open("/proc/thread-self/children", O_RDONLY);
        [[maybe_unused]] auto const n = read(hChildren, szChildren, sizeof szChildren - 1);
        kill(std::atoi(szChildren), SIGKILL);
        close(hChildren);
    }

    void FailAt(char const * szText, decltype(g_fnAtText) fnAtText)
    {
        g_szAtText = szText;
        g_fnAtText = fnAtText;
    }

    int g_nLogLine = 300;   // characters of a busy host's lines after their numbers

    // Acts as a host with a name, a long log and open timers.
    void BeBusy()
    {
        g_szApplicationName = "Robots";
        g_nProjectVersionMajor = 2;
        g_nProjectVersionMinor = 7;
        for (int i = 0; i < 40; ++i)
        {
            Log("line %d%*s", i, g_nLogLine, "end");
        }
        Module_c::Register(ModuleProfiler_c::Get());
        Module_c::InitializeAllModules();
        ProfilerBeginFrame();
        ProfilerPush("World", false);
    }

    constexpr std::pair<char const *, void (*)()> CIRCUMSTANCES[] = {
        { "longlines", [] { g_nLogLine = 2030; } },
        { "tornline",
            []
            {
                std::fputs((std::string(90000, 'x') + "\n").c_str(), g_pMessageLogFile);
                Log("last");
            } },
        { "busy", BeBusy },
        { "beside", StartThreads },
        { "untraced", ForbidTracing },
        { "unstoppable", StartUnstoppable },
        { "stucklog", [] { FailAt("\n    | ", StickHalfWay); } },
        { "stuckmodules", [] { FailAt("\n[Modules]\n", StickHalfWay); } },
        { "fulldetails",
            [] {
                FailAt("\n[Modules]\n",
                    [](int hFile, void const *, std::size_t) { dup2(open("/dev/full", O_WRONLY), hFile); });
            } },
        { "killhelper", [] { FailAt("\n#20 ", KillHelper); } },
        { "printer",
            []
            {
                ExceptionReport_c::AddTypePrinter("(anonymous namespace)::Vector_s", "<{x}, {y}, {z}\n{Ship.x}>");
                ExceptionReport_c::AddTypePrinter("***************?", "no such type");
            } },
        { "silent", [] { g_silentMode = true; } },
        { "silenced", [] { g_ExecutionCallbacker.Add([](bool bGoesOn) { g_silentMode = bGoesOn; }, false); } },
        { "alone", [] { SetPrevious(nullptr); } },
        { "small8", [] { SetSmallStack(8192); } },
        { "nodescriptors", UseUpDescriptors },
        { "moved", MoveElsewhere },
        { "unjoined", [] { std::thread(Fault).join(); } },
        { "ended",
            []
            {
                StartBeside("idle", DoNothing);
                StartBeside("last", DoNothing,
                    []
                    {
                        std::this_thread::sleep_for(std::chrono::milliseconds(50));
                        Fault();
                    });
                pthread_exit(nullptr);
            } },
        { "fulljoined", [] { CallDeep([] { std::thread(Fault).join(); }); } },
        { "longfolder", SetLongFolder },
        { "autoname", PrintAutoName },
        { "full", LimitFiles },
        { "nofolder",
            []
            {
                LogSetFile(L"./gone/", L"message.log");
                rmdir("gone");
            } },
        { "otherscase",
            []
            {
                LogSetFile(L".\\MiXed\\", L"message.log");
                rename("MiXed", "mixed");
            } },
        { "locked", HoldLocks },
        { "lockedbeside", [] { StartBeside("beside", HoldLocks); } },
        { "corrupt", CorruptHeap },
        { "callbackfaults",
            []
            {
                g_ExecutionCallbacker.Add(
                    [](bool bGoesOn)
                    {
                        Say(bGoesOn ? "goes on\n" : "stops\n");
                        WriteTo(NOWHERE);
                    },
                    false);
            } },
        { "callbackcomplains",
            []
            {
                g_ExecutionCallbacker.Add([](bool) { Warning("inside a report"); }, false);
                g_WarningsCallbacker.Add(
                    [](char const *)
                    {
                        Say("heard\n");
                        WriteTo(NOWHERE);
                    },
                    false);
            } },
        { "callbackhangs",
            []
            {
                g_ExecutionCallbacker.Add(
                    [](bool)
                    {
                        pause();
                        pause();
                    },
                    false);
            } },
        { "callbackasks",
            []
            {
                g_ExecutionCallbacker.Add(
                    [](bool)
                    {
                        bool const bUnknown = g_ExceptionReport.GetSymbol(NOWHERE, nullptr, 0) == ~std::uint64_t{ 0 };
                        Say(bUnknown ? "unknown\n" : "known\n");
                    },
                    false);
            } },
        { "again", HandleFirstFault },
        { "reportfaults", [] { std::thread(FaultTheReport).detach(); } },
        { "two", [] { std::thread(FaultOnHostThread).detach(); } },
        { "thread", [] { std::thread(FaultOnHostThread).join(); } },
        { "worker", FaultOnLibraryThread },
    };
}

int main(int nArguments, char ** dArguments)
{
    rlimit const NoCore = {};
    setrlimit(RLIMIT_CORE, &NoCore);
    LogSetFile(L"./", L"message.log");
    LogInit();
    plat::ProcessSetPureCallHandler([] { Abort("pure virtual function call"); });
    SetPrevious(OnSignal);
    g_fnFilter = plat::FaultFilterSet(Filter);
    for (Fault_t const & Known : FAULTS)
    {
        g_pFault = std::strcmp(Known.szName, dArguments[1]) == 0 ? &Known : g_pFault;
    }
    ExceptionReport_c::SetSymbolHelper(dArguments[nArguments - 1]);
    for (int i = 2; i < nArguments - 1; ++i)
    {
        for (auto const & [szName, fnArrange] : CIRCUMSTANCES)
        {
            if (std::strcmp(szName, dArguments[i]) == 0)
            {
                fnArrange();
            }
        }
    }
    Fault();
    return 0;
}
