#include "platform/faults.h"
#include "platform/symbols.h"
#include "tests/machine_support.h"
#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/cexceptioninfo.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"

#include <exception>
#include <mutex>

namespace
{
    using testing::HasSubstr;
    using testing::MatchesRegex;
    using Answer_e = plat::DialogAnswer_e;
    using Word_t = std::uintptr_t;

    ExceptionInfo_c & g_Info = ExceptionInfo_c::Get();
    std::mutex g_TraceLock;
    std::string g_sFaultTrace;   // each line in angle brackets
    plat::FaultContext_t g_Context;

    // A fault whose instruction pointer is 0. Its stack is as large as a dump. Its frame pointer leads to no memory.
    struct Fault_s
    {
        explicit Fault_s(std::uint32_t nCode, bool bWrite = false)
            : Record{ .nCode = nCode, .Address = 0x1234ABCD, .dParameters = { bWrite, 0x5678 } }
            // Ip, Sp, Bp, Ax, Bx, Cx, Dx, Si, Di, R8 to R15, Cs, Ss, Ds, Es, Fs, Gs, flags, and no further registers
            , Context{ 0, reinterpret_cast<Word_t>(dStack) + sizeof(dStack) / 2, 0x300, 0xA, 0xB, 0xC, 0xD, 0x51, 0xD1,
                {}, 0xC5, 0x55, 0xD5, 0xE5, 0xF5, 0x65, 0xF1, {}, 0, 0, 0, {} }
        {}
        std::uint32_t dStack[256] = { 0x57AC0000 };
        plat::FaultRecord_t Record;
        plat::FaultContext_t Context;
        plat::FaultPointers_t Pointers = { &Record, &Context };
    };

    std::string Hex(Word_t nWord)
    {
        return Va("0x%08llX", static_cast<unsigned long long>(nWord));
    }

    bool HasHelper()
    {
        plat::FaultContextCapture(&g_Context);
        return plat::Symbols_c().Start(&g_Context);
    }

    std::string StackOf(plat::FaultPointers_t const * pPointers, int nFrames, int nSkip, std::size_t nSize = 16384)
    {
        std::string sText(nSize, '?');
        g_Info.StackTrace(sText.data(), nSize, nFrames, nSkip, pPointers);
        return sText.c_str();
    }

    // Returns the trace of ten frames, from the fifth on, of nLevels nested calls.
    __attribute__((noinline)) std::string DeepTrace(int nLevels, std::size_t nSize)
    {
        if (nLevels > 0)
        {
            return DeepTrace(nLevels - 1, nSize) + "";   // no tail call
        }
        plat::FaultContextCapture(&g_Context);
        plat::FaultPointers_t const Here = { nullptr, &g_Context };
        return StackOf(&Here, 10, 4, nSize);
    }

    // Shows a failed condition with a location. Returns whether the program continues. The negation prevents a tail
    // call.
    __attribute__((noinline)) bool Complain()
    {
        return !DebugMessages_c::Get().DebugAssert("file.cpp", 1, "broken");
    }

    struct ExceptionInfo : testing::Test
    {
        ExceptionInfo()
        {
            g_sFaultTrace = "";
            auto const Receive = [](char const * szLine)
            {
                std::lock_guard const Scope(g_TraceLock);
                g_sFaultTrace += '<' + std::string(szLine) + '>';
            };
            ExceptionInfo_c::SetTraceReceiver(Receive);
        }
        ~ExceptionInfo() override
        {
            g_Info.Stop();
            ExceptionInfo_c::SetTraceReceiver(nullptr);
        }
    };
}

TEST_F(ExceptionInfo, ThreadTracesAFaultAndAsks)
{
    constexpr char TAIL[] =
        "Stack Trace\r\n\r\nStack Trace Failed:: zero eip\r\n\r\nPress:\r\n"
        "Yes - to launch remote debug\r\nNo - to ignore exception\r\nCancel - to terminate application";
    // Expressions for the trace, each line in angle brackets.
    constexpr char START[] =
        "<Handling Exception...>(<Symbols Init (Ok|Failed)>)?<Enumirating loaded modules...>"
        "<loading debug info for modules>(<Symbols loaded: \"/[^>]*\"\n>)+<Enumirating loaded modules...done>"
        "<//////////////////////  Exeption information //////////////////////><Exception ";
    constexpr char REGISTERS[] = "<Registers:><EAX = 0x0000000A  CS = 0x00C5  EIP = 0x00000000  EFLGS = 0x000000F1>"
                                 "<EBX = 0x0000000B  SS = 0x0055  ESP = 0x[0-9A-F]+  EBP = 0x00000300>"
                                 "<ECX = 0x0000000C  DS = 0x00D5  ESI = 0x00000051  FS = 0x00F5>"
                                 "<EDX = 0x0000000D  ES = 0x00E5  EDI = 0x000000D1  GS = 0x0065><Exception name : ";
    constexpr char DUMPS[] = "><Exception in unknown address space><><Starting dump of memory at 0x[0-9A-F]+, size 256 "
                             "dword's><Address contained in ESP value ";
    constexpr char WORDS[] =
        "><0x57AC0000\t(0x00000000\t){11}>(<(0x00000000\t){12}>){20}<DoneDump\r\n>"
        "<><Starting dump of memory at 0x00000100, size 256 dword's><Address contained in EBP value 0x00000300>"
        "(<([?]{8}\t){12}>){21}<DoneDump\r\n><StackTrace><Stack Trace Failed:: zero eip><Handling Exception...done>";
    EXPECT_EACH(g_Info.Start(), g_Info.Start());
    EXPECT_EQ(g_sFaultTrace, "<Initializing debug SP><Initializing debug SP, done>");
    for (auto const & [nCode, bWrite, szName, sAccess] : Rows_t<std::uint32_t, bool, char const *, std::string>{
             { plat::FAULT_ACCESS, false, "EXCEPTION_ACCESS_VIOLATION", "attempt to read ptr 0x00005678\r\n" },
             { plat::FAULT_ACCESS, true, "EXCEPTION_ACCESS_VIOLATION", "attempt to write ptr 0x00005678\r\n" },
             { 0xC000013A, false, "CONTROL_C_EXIT", "" }, { 0x12345678, false, "unknown", "" } })
    {
        SCOPED_TRACE(szName + sAccess);
        Fault_s const Fault(nCode, bWrite);
        DialogScript_c const Dialogs;
        g_sFaultTrace = "";
        EXPECT_EQ(g_Info.OnUnhandledException(&Fault.Pointers), 0);
        std::string const sCode = Hex(nCode), sSp = Hex(Fault.Context.nSp), sName = szName;
        std::string const sWhere = " (" + sCode + ") at 0x1234ABCD\r\n";
        EXPECT_EQ(Dialogs.CountHolding("Unhandled Exception " + sName + sWhere + sAccess + TAIL), 1);
        std::string const sLine = sAccess.empty() ? "" : '<' + sAccess + '>';
        EXPECT_THAT(g_sFaultTrace,
            MatchesRegex(START + sCode + " at Addres: 0x1234ABCD>" + sLine + REGISTERS + sName + DUMPS + sSp + WORDS));
    }
}

TEST_F(ExceptionInfo, ThreadHandlesOneFaultAtATimeAndOnlyWhileItRuns)
{
    DialogScript_c const Dialogs;
    static Fault_s s_Fault(plat::FAULT_ACCESS);
    s_Fault.Record.Address = reinterpret_cast<Word_t>(&Complain);
    g_Info.OnUnhandledException(&s_Fault.Pointers);
    EXPECT_EQ(Dialogs.GetCount(), 0) << "not started";
    for (int iRound = 1; iRound <= 2; ++iRound)
    {
        g_Info.Start();
        RunInThreads(4, [](int) { g_Info.OnUnhandledException(&s_Fault.Pointers); });
        EXPECT_EQ(Dialogs.GetCount(), 4 * iRound);
        g_Info.Stop();
        EXPECT_THAT(g_sFaultTrace, testing::EndsWith("<Releasing debug SP><Releasing debug SP, done>"));
    }
    std::string const sModule = program_invocation_short_name;
    EXPECT_THAT(
        g_sFaultTrace, HasSubstr("<Exception in address space of module : " + sModule + "><Module loaded from : /"));
    g_Info.Start();
    auto const fnPrevious = plat::DialogSetHandler([](plat::Dialog_t const &)
        { return g_Info.OnUnhandledException(&s_Fault.Pointers) == 0 ? Answer_e::Ignore : Answer_e::Abort; });
    int const iAnswer = g_Info.MessageBoxWithTrace(nullptr, "faults while it is shown", "", 0, 1, 0);
    EXPECT_EQ(iAnswer, static_cast<int>(Answer_e::Ignore));
    plat::DialogSetHandler(fnPrevious);
    g_silentMode = true;
    g_Info.OnUnhandledException(&s_Fault.Pointers);
    g_silentMode = false;
    EXPECT_EQ(Dialogs.GetCount(), 8);
}

TEST_F(ExceptionInfo, AForkedChildHasNoDialogOfAnotherThread)
{
    NEEDS_FORKS;
    static plat::Event_c s_Shown, s_Answer;
    static int s_nShown;
    auto const Answer = [](plat::Dialog_t const &)
    {
        ++s_nShown;
        s_Shown.Set();
        s_Answer.Wait();
        return Answer_e::Ignore;
    };
    auto const fnRaiseInChild = []
    {
        s_nShown = 0;
        s_Answer.Set();
        std::raise(SIGTRAP);   // without a support thread
        AssertFailed("%s", "in the child");
        g_Info.Start();
        std::raise(SIGTRAP);
        g_Info.Stop();
        return s_nShown;
    };
    auto const fnPrevious = plat::DialogSetHandler(Answer);
    plat::FaultFilterSet([](plat::FaultPointers_t const * pFault) { return 1 + g_Info.OnUnhandledException(pFault); });
    for (void (*fnShow)() : { +[] { std::raise(SIGTRAP); }, +[] { AssertFailed("%s", "in the parent"); } })
    {
        g_Info.Start();
        s_Shown.Reset();
        s_Answer.Reset();
        std::thread Other(fnShow);
        s_Shown.Wait();
        EXPECT_EQ(StatusOfChild(StartChild(fnRaiseInChild)), 2);
        s_Answer.Set();
        Other.join();
    }
    plat::FaultFilterSet(nullptr);
    plat::DialogSetHandler(fnPrevious);
}

TEST_F(ExceptionInfo, CancelEndsTheProcessAndADebuggerComesFirst)
{
    auto const Fault = [](bool bTraced)
    {
        DialogScript_c const Dialogs({ Answer_e::Cancel });
        if (bTraced)
        {
            BeTraced();
        }
        g_Info.Start();
        Fault_s const Divide(plat::FAULT_INTEGER_DIVIDE);
        g_Info.OnUnhandledException(&Divide.Pointers);
        std::_Exit(7 + Dialogs.GetCount());
    };
    EXPECT_EXIT(Fault(false), testing::ExitedWithCode(plat::FAULT_INTEGER_DIVIDE & 0xFF), "");
    auto const FaultInExit = [](bool bHandled, std::initializer_list<Answer_e> const & dAnswers)
    {
        static bool s_bHandled;
        s_bHandled = bHandled;
        plat::FaultFilterSet(
            [](plat::FaultPointers_t const * p) { return s_bHandled + g_Info.OnUnhandledException(p); });
        DialogScript_c const Dialogs(dAnswers);
        g_Info.Start();
        std::atexit([] { std::raise(SIGSEGV); });
        std::raise(SIGTRAP);
        std::_Exit(7);
    };
    testing::ExitedWithCode const ExitedWithItsCode(plat::FAULT_BREAKPOINT & 0xFF);
    EXPECT_EXIT(FaultInExit(false, { Answer_e::Cancel }), ExitedWithItsCode, "");
    EXPECT_EXIT(FaultInExit(true, { Answer_e::Cancel }), ExitedWithItsCode, "");
    // The dialogs are those of the fault, and of the remote debugger that is missing.
    EXPECT_EXIT(FaultInExit(false, { Answer_e::Yes, Answer_e::Cancel }), testing::ExitedWithCode(255), "");
    SKIP_IF(*TEST_EMULATOR != 0, "an emulated program has no tracer");
    EXPECT_EXIT(Fault(true), testing::ExitedWithCode(7), "");
}

TEST_F(ExceptionInfo, DialogThatFaultsDoesNotHoldTheProcess)
{
    auto const Fault = []
    {
        plat::FaultFilterSet([](plat::FaultPointers_t const * pFault) { return g_Info.OnUnhandledException(pFault); });
        plat::DialogSetHandler(
            [](plat::Dialog_t const &) -> Answer_e
            {
                std::fputs("asked", stderr);
                __builtin_trap();
            });
        g_Info.Start();
        std::raise(SIGTRAP);
    };
    EXPECT_EXIT(Fault(), g_EndedAtBreakpoint, "asked");
}

TEST_F(ExceptionInfo, SecondDialogThatFaultsHoldsNoLaterComplaint)
{
    static int s_nDialogs, s_nHeard;
    static bool s_bAsserts;
    s_nDialogs = s_nHeard = 0;
    auto const Answer = [](plat::Dialog_t const &)
    {
        ++s_nDialogs;
        if (s_nDialogs == 2)   // of the remote debugger, which is missing
        {
            ZQ_ASSERT(!s_bAsserts);
            Warning("inside a dialog");
        }
        else if (s_nDialogs == 3 && s_bAsserts)
        {
            __builtin_trap();
        }
        return s_nDialogs == 1 ? Answer_e::Yes : Answer_e::No;
    };
    auto const Hear = [](char const *)
    {
        if (++s_nHeard == 1 && !s_bAsserts)
        {
            __builtin_trap();
        }
    };
    auto const Run = [=](bool bAsserts)
    {
        s_bAsserts = bAsserts;
        TempFolder_c const Folder;
        CurrentFolderScope_c const Current(Folder.GetPath());
        CallbackScope_T const Receiver(g_WarningsCallbacker, Hear);
        plat::FaultFilterSet([](plat::FaultPointers_t const * p) { return 1 + g_Info.OnUnhandledException(p); });
        plat::DialogSetHandler(Answer);
        g_Info.Start();
        EndAfter(20);   // ends threads that wait for ever
        std::raise(SIGTRAP);
        RunInThreads(1,
            [](int)
            {
                Complain();
                Warning("later");
                ZQ_ASSERT(s_nDialogs < 0);
            });
        g_Info.Stop();
        EXPECT_EQ(std::pair(s_nDialogs, s_nHeard), bAsserts ? std::pair(5, 1) : std::pair(4, 2));
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild([=] { return Run(false); })), 0);
    EXPECT_EQ(StatusOfChild(StartChild([=] { return Run(true); })), 0);
}

TEST_F(ExceptionInfo, YesStartsTheRemoteDebugger)
{
    NEEDS_VFORK;
    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    Fault_s const Fault(plat::FAULT_INTEGER_DIVIDE);
    g_Info.Start();
    DialogScript_c const Dialogs({ Answer_e::Yes, Answer_e::No, Answer_e::Yes });
    g_Info.OnUnhandledException(&Fault.Pointers);
    EXPECT_EQ(Dialogs.CountHolding("Warning: \tNo such file or directory\n"), 1);
    std::filesystem::permissions(
        Folder.Write("RemoteDebug/rdebug.cmd", "#!/bin/sh\npwd > started\n"), std::filesystem::perms::owner_all);
    g_Info.OnUnhandledException(&Fault.Pointers);
    EXPECT_EQ(Dialogs.CountHolding("Please attach by remote debugger and press ok"), 1);
    for (int i = 0; i < 1000 && Folder.Read("started").empty(); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(Folder.Read("started"), Folder.GetPath() + '\n');
}

// The thread that faulted holds the heap's lock. The folder is spelled in another way on disk.
TEST_F(ExceptionInfo, YesStartsTheRemoteDebuggerWithoutTheHeap)
{
    NEEDS_VFORK;
    TempFolder_c const Folder;
    std::filesystem::permissions(
        Folder.Write("remotedebug/rdebug.cmd", "#!/bin/sh\n"), std::filesystem::perms::owner_all);
    auto const Run = [&Folder]
    {
        static int s_nDialogs = 0;
        CurrentFolderScope_c const Current(Folder.GetPath());
        ExceptionInfo_c::SetTraceReceiver(nullptr);
        plat::FaultFilterSet([](plat::FaultPointers_t const * p) { return 1 + g_Info.OnUnhandledException(p); });
        plat::DialogSetHandler(
            [](plat::Dialog_t const & Dialog)
            {
                ++s_nDialogs;
                return Dialog.eButtons == plat::DialogButtons_e::YesNoCancel ? Answer_e::Yes : Answer_e::Ok;
            });
        EndAfter(20);   // ends a thread that waits for ever
        g_CategoryLock.Enter();
        g_Info.Start();
        std::raise(SIGTRAP);
        g_CategoryLock.Leave();
        g_Info.Stop();
        return s_nDialogs;
    };
    EXPECT_EQ(StatusOfChild(StartChild(Run)), 2);
}

TEST_F(ExceptionInfo, TraceNumbersNamesCutsAndAssertsItsArguments)
{
    bool const bHelper = HasHelper();
    std::string sExpected;
    for (int i = 4; i < 14; ++i)
    {
        sExpected +=
            (i < 10 ? "[[]0" : "[[]") + std::to_string(i) + "[]]\t"
            + (bHelper ? ".*DeepTrace\t.*cexceptioninfo_test.cpp [(][0-9]+[)]\t\n" : "[?]\teip\t0x[0-9A-F]+\n");
    }
    EXPECT_THAT(DeepTrace(20, 16384), MatchesRegex(sExpected));
    EXPECT_EQ(DeepTrace(20, 6), "[04]\t");
    Fault_s Fault(plat::FAULT_ACCESS);
    DialogScript_c const Dialogs;
    EXPECT_EQ(StackOf(nullptr, 5, 0), "");
    g_Info.StackTrace(nullptr, 5, 5, 0, &Fault.Pointers);
    EXPECT_EQ(Dialogs.CountHolding("Developer break"), 2);
    Fault.Context.nIp = reinterpret_cast<Word_t>(static_cast<void (*)()>(std::terminate));
    std::string const sName = bHelper ? "std::terminate" : "?";   // its library comes without lines
    EXPECT_EQ(StackOf(&Fault.Pointers, 1, 0), "[00]\t" + sName + "\teip\t" + Hex(Fault.Context.nIp) + '\n');
}

TEST_F(ExceptionInfo, MessageBoxCarriesTheStackOfItsCaller)
{
    bool const bHelper = HasHelper();
    DialogScript_c const Dialogs;
    EXPECT_TRUE(Complain());
    std::string const sText = "Warning: \tbroken\tbroken\r\nFile: \tfile.cpp\r\nLine:\t1";
    std::string const sStack = std::string("[04]\t") + (bHelper ? "(anonymous namespace)::Complain\t" : "?\teip\t0x");
    EXPECT_EQ(Dialogs.CountHolding(sText + "\r\nStackTrace\r\n" + sStack), 1) << g_sFaultTrace;
    EXPECT_THAT(g_sFaultTrace, HasSubstr("<MsgBox( Assertion failed )><" + sText + "><StackTrace><" + sStack));
    EXPECT_EQ(g_sFaultTrace.find("<Symbols Init Failed>") == std::string::npos, bHelper);
}
