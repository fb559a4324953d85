#include "platform/debugger.h"
#include "tests/machine_support.h"
#include "zqcore/capp.h"
#include "zqcore/carray.h"
#include "zqcore/ccallback_internal.h"
#include "zqcore/cdebug.h"
#include "zqcore/cdebug_spelling_internal.h"
#include "zqcore/cfile.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory_internal.h"

#include <atomic>
#include <stdexcept>

// Class whose members fail an assertion and return the line. The complaint names them.
struct ComplaintTest_c
{
    // clang-format off
    int Fail() const { ZQ_ASSERT(1 == 2); return __LINE__; }
    static int FailWithText(int i) { ZQ_ASSERT_EX(1 == 2, "text %i", i); return __LINE__; }
    // clang-format on
};

namespace
{
    using testing::StartsWith;
    using Answer_e = plat::DialogAnswer_e;
    using Buttons_e = plat::DialogButtons_e;
    using Icon_e = plat::DialogIcon_e;
    using Modality_e = plat::DialogModality_e;

    constexpr Answer_e THROW{};   // g_eAnswer for a dialog that throws
    constexpr char YES_NO_TAIL[] = "\r\n\r\nUse Yes to break into Debugger, No to continue.\r\nand Cancel to Quit\r\n";

    // Events in order, a letter for each:
    //     C  the cursor was shown             W  the warning event was fired
    //     L  a line was logged                D  a dialog was shown
    //     x  the program was stopped          M  the window was minimised while the process aborts
    //     X  the program was continued        m  the window was minimised otherwise
    std::string g_sDebugTrace;
    bool g_bPrint = false;             // whether the trace is printed on standard error
    std::string g_sLog, g_sDebugger;   // lines of the log, and the debugger's output
    std::string g_sText, g_sCaption;   // the last dialog's texts
    plat::Dialog_t g_Dialog;           // the last dialog, apart from its texts
    Answer_e g_eAnswer;

    void Trace(char cEvent)
    {
        g_sDebugTrace += cEvent;
        if (g_bPrint)
        {
            std::fputc(cEvent, stderr);
        }
    }

    std::string ExtractTrace()
    {
        return std::exchange(g_sDebugTrace, "");
    }

    Answer_e OnDialog(plat::Dialog_t const & Dialog)
    {
        Trace('D');
        g_sText = Dialog.szText;
        g_sCaption = Dialog.szCaption;
        g_Dialog = Dialog;
        if (Dialog.eButtons == Buttons_e::AbortRetryIgnore)
        {
            AssertFailed("inside another assertion");
        }
        return g_eAnswer == THROW ? throw 1 : g_eAnswer;
    }

    void ExpectDialog(char const * szCaption, Buttons_e eButtons, Icon_e eIcon, Modality_e eModality, int iDefault = 1,
        bool bTopmost = true)
    {
        EXPECT_EQ(std::tuple(g_sCaption, g_Dialog.eButtons, g_Dialog.iDefaultButton, g_Dialog.eIcon, g_Dialog.eModality,
                      g_Dialog.bTopmost),
            std::tuple(szCaption, eButtons, iDefault, eIcon, eModality, bTopmost));
    }

    struct Complaints : testing::Test
    {
        Complaints()
        {
            g_sDebugTrace = g_sLog = g_sDebugger = g_sText = g_sCaption = "";
            g_eAnswer = Answer_e::No;
            LogDone();
            LogAddCallback(
                [](char const * szText)
                {
                    Trace('L');
                    g_sLog += std::string(szText) + '\n';
                });
            g_ExecutionCallbacker.Add([](bool bGoesOn) { Trace(bGoesOn ? 'X' : 'x'); }, false);
            g_WarningsCallbacker.Add([](char const *) { Trace('W'); }, false);
            plat::WindowSystem_t System;
            System.fnShowCursor = [] { Trace('C'); };
            System.fnMinimise = [](plat::Window_t) { Trace(g_isAborting ? 'M' : 'm'); };
            m_System = plat::WindowSystemSet(System);
            m_fnDialog = plat::DialogSetHandler(OnDialog);
            m_fnOutput = plat::DebugOutputSet([](char const * szText) { g_sDebugger += szText; });
        }

        ~Complaints() override
        {
            plat::DebugOutputSet(m_fnOutput);
            plat::DialogSetHandler(m_fnDialog);
            plat::WindowSystemSet(m_System);
            HearNothing();
            SetWarnings(false);
            SetAchtungs(true);
            g_silentMode = false;
            g_pAppWindow = nullptr;
        }

        // Removes the listener and the receivers that trace.
        static void HearNothing()
        {
            LogDone();
            g_WarningsCallbacker.Reset();
            g_ExecutionCallbacker.Reset();
        }

        plat::WindowSystem_t m_System;
        plat::DialogHandler_t m_fnDialog;
        plat::DebugOutput_t m_fnOutput;
    };

    // Returns a text that no Achtung has had.
    std::string Fresh()
    {
        static int s_nTexts = 0;
        return "fresh " + std::to_string(++s_nTexts);
    }
}

TEST_F(Complaints, AssertionNamesConditionFileFunctionAndLine)
{
    std::string const sLine = std::to_string(ComplaintTest_c().Fail());
    EXPECT_EQ(g_sText, "Assert failed, 1 == 2, " __FILE__ ", ComplaintTest_c::Fail, " + sLine);
    EXPECT_EQ(g_sLog, g_sText + '\n');
    EXPECT_EQ(std::exchange(g_sDebugger, ""), __FILE__ "(" + sLine + ") : Assert() failed\n");
    EXPECT_EQ(ExtractTrace(), "CLxDX");
    ExpectDialog("Assertion failed! Press ignore to continue or retry to debug.", Buttons_e::AbortRetryIgnore,
        Icon_e::Warning, Modality_e::AlwaysOnTop, 2);

    std::string const sNext = std::to_string(ComplaintTest_c::FailWithText(7));
    EXPECT_EQ(g_sText, "AssertEx failed, 1 == 2, text 7, " __FILE__ ", ComplaintTest_c::FailWithText, " + sNext);
    EXPECT_EQ(g_sDebugger, __FILE__ "(" + sNext + ") : AssertEx() failed\n");
}

TEST(Spelling, OfFunctionsIsCutToClassAndName)
{
    for (auto const & [szFunction, szName] : Rows_t<char const *, char const *>{
             { "static void Module_c::Register(Module_c*)", "Module_c::Register" }, { "int main()", "main" },
             { "T& StaticArray_T<T, LENGTH>::operator[](int) [with T = int]", "StaticArray_T<T, LENGTH>::operator[]" },
             { "bool X_c::operator<(int) const", "X_c::operator<" }, { "void X_c::operator()(int)", "X_c::operator()" },
             { "X_c::operator char const*() const", "X_c::operator char const*" },
             { "X_c* X_c::operator->()", "X_c::operator->" }, { "int my_operator(int)", "my_operator" },
             { "char const *(anonymous namespace)::Name(int)", "(anonymous namespace)::Name" },
             { "const char* {anonymous}::Name(int)", "{anonymous}::Name" },
             { "std::map<int, void (*)(int)>& A<void (*)(int)>::Get() const", "A<void (*)(int)>::Get" },
             { "void (* X_c::Pick(int) const)(char)", "X_c::Pick" }, { "static int (&X_c::Table())[3]", "X_c::Table" },
             { "int (X_c::* ns::Member(char))(long)", "ns::Member" }, { "int (X_c::*Member(char))(long)", "Member" },
             { "void (*(*ns::(anonymous namespace)::Twice(int))(char))(long)", "ns::(anonymous namespace)::Twice" },
             { "void (* (* ns::{anonymous}::Twice(int))(char))(long int)", "ns::{anonymous}::Twice" },
             { "decltype(auto) ns::Any(int)", "ns::Any" }, { "decltype ((t + 1)) Any(T) [with T = int]", "Any" },
             { "void main(int)::Local_c::Run()", "main(int)::Local_c::Run" },
             { "void (* main()::Local_c::Pick())(int)", "main()::Local_c::Pick" }, { "broken(", "broken" } })
    {
        char szShort[256];
        SpellFunctionName(szFunction, szShort, sizeof szShort);
        EXPECT_STREQ(szShort, szName) << szFunction;
    }
}

TEST(Spelling, OfArraysNamesEachTypeWithItsKeyword)
{
    for (auto const & [szSpelled, szType] : Rows_t<char const *, char const *>{
             { "SortedArray_T<A_T<int>::Kind_e**>", "SortedArray_T<class A_T<int>::Kind_e * *>" },
             { "SortedArray_T<{anonymous}::X_t>", "SortedArray_T<struct {anonymous}::X_t>" },
             { "SortedArray_T<(anonymous namespace)::X_t>", "SortedArray_T<struct (anonymous namespace)::X_t>" },
             { "SortedArray_T<main(int)::X_c>", "SortedArray_T<class main(int)::X_c>" },
             { "f() [with ARRAY = SortedArray_T<int, ArrayTraits_T<int, 3, 0> >]",
                 "SortedArray_T<int,class ArrayTraits_T<int,3,0> >" },
             { "f() [ARRAY = SortedArray_T<int, ArrayTraits_T<int, 3, 0>>]",
                 "SortedArray_T<int,class ArrayTraits_T<int,3,0> >" },
             { "void SortedArray_T<Pool_c::Group_s, A_T<unsigned int, const char*> >::f()",
                 "SortedArray_T<struct Pool_c::Group_s,class A_T<unsigned int,const char *> >" } })
    {
        char szResult[256];
        ArrayTypeName(szSpelled, szResult, sizeof szResult);
        EXPECT_STREQ(szResult, szType) << szSpelled;
    }
}

TEST_F(Complaints, WarningIsALineAndAnEventUntilDialogsAreEnabled)
{
    Warning("odd %i", 1);
    EXPECT_EQ(ExtractTrace(), "LW");
    SetWarnings(true);
    Warning("%s", std::string(3000, 'w').c_str());
    EXPECT_EQ(ExtractTrace(), "LWD");
    EXPECT_EQ(g_sText, std::string(2048, 'w'));
    EXPECT_EQ(g_sLog, "odd 1\n" + g_sText + '\n');
    ExpectDialog("Warning!", Buttons_e::Ok, Icon_e::Error, Modality_e::AlwaysOnTop);
    g_silentMode = true;
    Warning("silent");
    EXPECT_EQ(ExtractTrace(), "LW");
}

TEST_F(Complaints, AchtungIsShownOnceWhileSixteenAreRemembered)
{
    g_pAppWindow = &g_bPrint;   // any address
    std::string const sFirst = Fresh();
    Achtung("%s", sFirst.c_str());
    EXPECT_EQ(g_sText, sFirst + YES_NO_TAIL);
    EXPECT_EQ(g_sLog, sFirst + '\n');
    EXPECT_EQ(ExtractTrace(), "LWD");
    EXPECT_EQ(g_Dialog.pOwner, g_pAppWindow);
    ExpectDialog("ACHTUNG!", Buttons_e::YesNoCancel, Icon_e::Warning, Modality_e::Task, 1, false);

    std::string const sLong = Fresh() + std::string(3000, 'a');
    Achtung("%s", sLong.c_str());
    EXPECT_EQ(g_sText, sLong.substr(0, LOG_LINE_LENGTH) + YES_NO_TAIL);
    SetAchtungs(false);
    g_silentMode = true;   // has no effect while Achtungs are off
    ExtractTrace();
    for (int i = 2; i <= 16; ++i)
    {
        Achtung("%s", sFirst.c_str());
        EXPECT_EQ(ExtractTrace(), "") << i;
        Achtung("%s", Fresh().c_str());
        EXPECT_EQ(ExtractTrace(), "LW") << i;
    }
    Achtung("%s", sFirst.c_str());   // the seventeenth replaced it
    EXPECT_EQ(ExtractTrace(), "LW");
}

TEST_F(Complaints, WithALocationCarryFileLineAndATailAndAskNobodyWhenQuietOrSilent)
{
    constexpr int NO = static_cast<int>(Answer_e::No);
    DebugMessages_c & Messages = DebugMessages_c::Get();
    EXPECT_FALSE(Messages.DebugAssert("file.cpp", 12, "broken"));
    EXPECT_THAT(g_sText, StartsWith("Warning: \tbroken\tbroken\r\nFile: \tfile.cpp\r\nLine:\t12"));
    ExpectDialog("Assertion failed", Buttons_e::YesNoCancel, Icon_e::Warning, Modality_e::Task);

    EXPECT_EQ((Messages.*Messages.SetLocation("at.cpp", 34))("text %i", 5), NO);
    EXPECT_THAT(
        g_sText, StartsWith(std::string("Warning: \ttext 5") + YES_NO_TAIL + "\r\nFile: \tat.cpp\r\nLine:\t34"));
    ExpectDialog("Warning", Buttons_e::YesNoCancel, Icon_e::Warning, Modality_e::Task);

    EXPECT_EQ(Messages.DebugErrorInternal("%s", std::string(20000, 'e').c_str()), NO);
    EXPECT_THAT(g_sText,
        StartsWith("Error: \t" + std::string(16383, 'e')
                   + "\r\n\r\nUse Ok to break into Debugger, Cancel exits.\r\n\r\n\r\nFile: \tat.cpp\r\nLine:\t34"));
    ExpectDialog("Error", Buttons_e::OkCancel, Icon_e::Error, Modality_e::Task);

    ExtractTrace();
    Messages.m_bQuiet = true;
    ZQ_ASSERT_BREAK(1 == 2, "Developer break");
    Messages.m_bQuiet = false;
    EXPECT_EQ(ExtractTrace(), "");
    g_silentMode = true;
    g_eAnswer = Answer_e::Ok;
    EXPECT_EQ(Messages.DebugErrorInternal("unattended"), NO);
    EXPECT_EQ(ExtractTrace(), "L");
}

TEST_F(Complaints, OfAllThreadsReachTheReceiversOneAtATime)
{
    constexpr int THREADS = 8, EACH = 500, PERIOD = 7;   // the receiver throws in each PERIOD-th call
    static std::atomic<int> s_nHeard, s_nInside, s_nHeardByNext;
    s_nHeard = s_nInside = s_nHeardByNext = 0;
    HearNothing();
    SetAchtungs(false);
    g_WarningsCallbacker.Add([](char const *) { ++s_nHeardByNext; }, false);
    g_WarningsCallbacker.Add(
        [](char const * szText)
        {
            EXPECT_EQ(s_nInside++, 0) << "another thread is in a receiver";
            Warning("inside a receiver, which is dropped");
            --s_nInside;
            if (++s_nHeard % PERIOD == 0)
            {
                throw szText;
            }
        },
        false);
    RunInThreads(THREADS,
        [](int iThread)
        {
            for (int i = 0; i < EACH; ++i)
            {
                try
                {
                    if (iThread % 2 != 0)
                    {
                        Warning("%i", i);
                    }
                    else
                    {
                        Achtung("thread %i: %i", iThread, i);
                    }
                }
                catch (char const *)
                {}
            }
        });
    EXPECT_EQ(s_nHeard, THREADS * EACH);
    EXPECT_EQ(s_nHeardByNext, THREADS * EACH - THREADS * EACH / PERIOD);
}

TEST_F(Complaints, OfThreadsInReceiversOfSeveralListsDontWaitForEachOther)
{
    static constexpr int LISTS = 3;
    static std::atomic<int> s_nInside, s_nHeard;
    static FileOnDisk_c s_Missing;   // of no table
    static auto const s_fnFailRead = [] { EXPECT_EQ(s_Missing.OpenStored(), nullptr); };
    static auto const s_fnHear = [](void (*fnComplain)())
    {
        ++s_nHeard;
        ++s_nInside;
        for (int i = 0; i < 20 && s_nInside < LISTS; ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        fnComplain();
    };
    HearNothing();
    plat::DialogSetHandler([](plat::Dialog_t const & Dialog)
        { return Dialog.eButtons == Buttons_e::OkCancel ? throw 1 : Answer_e::Ignore; });
    auto const Run = []
    {
        g_WarningsCallbacker.Add([](char const *) { s_fnHear([] { AssertFailed("in a receiver"); }); }, false);
        g_ExecutionCallbacker.Add([](bool) { s_fnHear(s_fnFailRead); }, false);
        g_FileReadErrorCallbacker.Add([](char const *) { s_fnHear([] { Warning("in a receiver"); }); }, false);
        static void (*const s_dCalls[LISTS])() = { [] { Warning("first"); }, [] { EXPECT_THROW(Abort("first"), int); },
            s_fnFailRead };
        EndAfter(20);   // ends threads that wait for ever
        RunInThreads(LISTS, [](int iThread) { s_dCalls[iThread](); });
        EXPECT_GE(s_nHeard, LISTS);
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(Run)), 0);
}

// The heap complains with its lock held. A dialog's handler complains while other threads may wait for the dialog.
TEST_F(Complaints, FromUnderALockOfTheLibraryWaitForNoReceiver)
{
    static Gate_c s_Inside;
    static auto const s_fnLocated = [](char const * szText)
    { DebugMessages_c::Get().DebugAssert("file.cpp", 1, szText); };
    HearNothing();
    g_WarningsCallbacker.Add(
        [](char const * szText)
        {
            if (szText == std::string_view("odd"))
            {
                s_Inside.Open();
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                delete[] ZQ_NEW char[10];
                s_fnLocated("in a receiver");
            }
        },
        false);
    plat::DialogSetHandler(
        [](plat::Dialog_t const &)
        {
            Warning("in a handler");
            return Answer_e::Ignore;
        });
    plat::DebugOutputSet(nullptr);   // the fixture's receiver allocates, which fails while the counters are wrong
    auto const Run = []
    {
        EndAfter(20);   // ends threads that wait for ever
        std::thread Other([] { Warning("odd"); });
        s_Inside.Wait();
        char * const pBlock = ZQ_NEW char[10];
        g_MemoryCounters.nTotalCount += 1;
        delete[] pBlock;   // fails MemoryCheckConsistency
        g_MemoryCounters.nTotalCount -= 1;
        s_fnLocated("beside a receiver");
        Other.join();
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(Run)), 0);
}

// A stopped host is continued, also if another thread fires during the dialog.
TEST_F(Complaints, FromUnderALockOfTheLibraryFireBothHalvesOfAStop)
{
    static std::string s_sExecution;
    static std::atomic<bool> s_bInside;
    static std::thread s_Other;
    HearNothing();
    g_ExecutionCallbacker.Add([](bool bGoesOn) { s_sExecution += bGoesOn ? '+' : '-'; }, false);
    g_WarningsCallbacker.Add(
        [](char const *)
        {
            s_bInside = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        },
        false);
    plat::DialogSetHandler(
        [](plat::Dialog_t const &)
        {
            s_Other = std::thread([] { Warning("during the dialog"); });
            for (int i = 0; i < 5 && !s_bInside; ++i)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            return Answer_e::Ignore;
        });
    {
        FiringNoWait_c const NoWait;
        AssertFailed("beside a warning");
    }
    s_Other.join();
    EXPECT_EQ(s_sExecution, "-+");
    EXPECT_TRUE(s_bInside);
}

TEST_F(Complaints, OfAThreadInAReceiverHoldUpNoForkAndNoEnd)
{
    static int s_nHeard;
    static Gate_c s_Inside;
    static auto const s_fnHeardAfter = [](char const * szText)
    {
        Warning("%s", szText);
        return s_nHeard;
    };
    HearNothing();
    g_WarningsCallbacker.Add(
        [](char const * szText)
        {
            ++s_nHeard;
            s_Inside.Open();
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (szText == std::string_view("fork"))
            {
                EXPECT_EQ(StatusOfChild(StartChild([] { return s_fnHeardAfter("dropped"); })), 1);
            }
            if (szText == std::string_view("end"))
            {
                AssertFailed("the end");
            }
            else if (szText == std::string_view("crash"))
            {
                Abort("the end");
            }
        },
        false);
    Warning("fork");
    std::thread Other([] { Warning("while another thread forks"); });
    EXPECT_EACH(s_Inside.Wait(), s_Inside.Wait());   // one for each warning so far
    EXPECT_EQ(StatusOfChild(StartChild([] { return s_fnHeardAfter("heard in the child"); })), 3);
    EXPECT_TRUE(s_Inside.Wait());   // the child's, so that none is left for End
    Other.join();
    NEEDS_FORKS;
    auto const End = [](char const * szText)
    {
        static std::thread s_Waits;
        s_Waits = std::thread(
            []
            {
                if (s_Inside.Wait())
                {
                    Warning("waits, and goes on when the process ends");
                }
            });
        std::atexit([] { s_Waits.join(); });
        g_silentMode = true;
        Warning("%s", szText);
    };
    EXPECT_EXIT(End("end"), testing::ExitedWithCode(1), "the end");
    EXPECT_EXIT(End("crash"), testing::ExitedWithCode(1), "the end.*Program has crashed");
}

TEST_F(Complaints, ADialogThatThrowsSilencesNoLaterOne)
{
    g_eAnswer = THROW;
    EXPECT_THROW(AssertFailed("assertion"), int);
    EXPECT_THROW(AssertFailed("assertion"), int);
    EXPECT_THROW(Abort("abort"), int);
    EXPECT_EQ(ExtractTrace(), "CLxDXCLxDXLxDX");
    g_isAborting = false;
}

// Only the handler of the dialog can keep the process.
TEST_F(Complaints, AnAbortOutlivesListenersAndReceiversThatThrow)
{
    auto const End = []
    {
        g_bPrint = true;
        LogAddCallback([](char const *) { throw std::runtime_error("a listener's"); });
        g_ExecutionCallbacker.Add(
            [](bool bGoesOn)
            {
                if (bGoesOn)
                {
                    throw 1;
                }
                throw std::runtime_error("first");
            },
            false);
        try
        {
            Abort("abort");
        }
        catch (...)
        {
            std::_Exit(7);   // an exception has left Abort
        }
    };
    EXPECT_EXIT(End(), g_EndedAtBreakpoint, "a listener's\n.*first\nD.*No crash log saved.*can't be written\nD");
    g_silentMode = true;
    EXPECT_EXIT(End(), testing::ExitedWithCode(1), "first\nApplication aborted!\nabort\n.*Program has crashed");
}

TEST_F(Complaints, EndTheProcessAsTheDeveloperOrSilentModeSays)
{
    auto const fnAssertion = [] { AssertFailed("assertion"); };
    auto const fnAttention = [] { Achtung("attention"); };
    auto const fnEnd = [] { Abort("abort %i", 1); };
    auto const fnError = [] { DebugMessages_c::Get().DebugErrorInternal("error"); };
    auto const fnBreak = [] { ZQ_ASSERT_BREAK(1 == 2, "Developer break"); };
    auto const fnLocated = []
    {
        std::atexit([] { std::fprintf(stderr, ", then %i", DebugMessages_c::Get().DropMessageBox("", "", 0)); });
        DebugMessages_c::Get().DebugWarningInternal("located");
    };
    constexpr int BREAKPOINT = -1;
    struct Row_s
    {
        void (*fnComplain)();
        bool bSilent;
        Answer_e eAnswer;
        int iStatus;            // or BREAKPOINT
        char const * szTrace;   // an exit adds a dot
    };
    for (auto const & [fnComplain, bSilent, eAnswer, iStatus, szTrace] :
        { Row_s{ fnAssertion, true, Answer_e::Ignore, 1, "^CLxAssertion failed!\nassertion\n\\." },
            { fnAssertion, false, Answer_e::Abort, BREAKPOINT, "^CLxDX" },
            { fnAssertion, false, Answer_e::Retry, BREAKPOINT, "^CLxDX" },
            { fnAttention, true, Answer_e::No, 1, "^LWACHTUNG!\nattention\n\\." },
            { fnAttention, false, Answer_e::Cancel, 0, "^LWD\\." },
            { fnAttention, false, Answer_e::Yes, BREAKPOINT, "^LWD" },
            { fnEnd, true, Answer_e::Ok, 1, "^LxMApplication aborted!\nabort 1\nX" },
            { fnEnd, false, Answer_e::Ok, BREAKPOINT, "^LxMDX" },
            { fnEnd, false, Answer_e::Cancel, BREAKPOINT, "^LxMDX" },
            { fnLocated, false, Answer_e::Cancel, 255, "^D, then 7\\." },
            { fnLocated, false, Answer_e::Yes, BREAKPOINT, "^D" }, { fnError, false, Answer_e::Ok, BREAKPOINT, "^D" },
            { fnBreak, false, Answer_e::Yes, BREAKPOINT, "^D" } })
    {
        g_silentMode = bSilent;
        g_eAnswer = eAnswer;
        auto const Complain = [fn = fnComplain]
        {
            g_bPrint = true;
            std::atexit([] { std::fputc('.', stderr); });
            g_pAppWindow = &g_bPrint;
            fn();
        };
        auto const HasEnded = [i = iStatus](int iRaw)
        { return i == BREAKPOINT ? g_EndedAtBreakpoint(iRaw) : testing::ExitedWithCode(i)(iRaw); };
        EXPECT_EXIT(Complain(), HasEnded, szTrace);
    }
}
