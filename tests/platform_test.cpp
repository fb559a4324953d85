#include "platform/clock.h"
#include "platform/debugger.h"
#include "platform/dialog.h"
#include "platform/process.h"
#include "platform/system.h"
#include "platform/text.h"
#include "platform/window.h"
#include "tests/test_support.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <gtest/gtest.h>
#include <pty.h>
#include <string>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

// Calls its pure virtual function while it is constructed. Seen from outside, so that no compiler knows all its heirs.
namespace platform_test
{
    struct Base_s
    {
        Base_s() { m_fnCall(*this); }
        virtual ~Base_s() = default;
        virtual void Pure() = 0;
        void (*volatile m_fnCall)(Base_s &) = [](Base_s & Object) { Object.Pure(); };
    };

    struct Derived_s : Base_s
    {
        void Pure() override {}
    };
}

namespace
{
    // Runs in a child process; its exit code, or the negative number of the signal that ended it.
    template <typename FN>
    int InChild(FN fnRun)
    {
        pid_t const iChild = fork();
        if (iChild == 0)
        {
            _exit(fnRun());
        }
        int iStatus = 0;
        waitpid(iChild, &iStatus, 0);
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -WTERMSIG(iStatus);
    }

    // The answer to a dialog in a child on a terminal of its own, where szTyped is typed.
    int AnswerOnTerminal(plat::Dialog_t const & Dialog, std::string const & sTyped, std::string & sShown)
    {
        int iTerminal = -1;
        pid_t const iChild = forkpty(&iTerminal, nullptr, nullptr, nullptr);
        if (iChild == 0)
        {
            _exit(static_cast<int>(plat::DialogShow(Dialog)));
        }
        EXPECT_EQ(write(iTerminal, sTyped.data(), sTyped.size()), static_cast<ssize_t>(sTyped.size()));
        char dBlock[256];
        for (ssize_t nRead = 0; (nRead = read(iTerminal, dBlock, sizeof(dBlock))) > 0;)
        {
            sShown.append(dBlock, static_cast<std::size_t>(nRead));
        }
        close(iTerminal);
        int iStatus = 0;
        waitpid(iChild, &iStatus, 0);
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
    }

    std::string g_sOutput;
}

TEST(PlatformText, ConvertsBetweenUtf8AndWide)
{
    using Row_t = std::tuple<char const *, wchar_t const *, bool>; // UTF-8, wide, whether the UTF-8 is well formed
    for (auto const & [szText, szExpected, bValid] : { Row_t{ "", L"", true }, Row_t{ "plain", L"plain", true },
             Row_t{ "\xC2\x80\xDF\xBF", L"\x80\x7FF", true }, Row_t{ "\xE0\xA0\x80\xEF\xBF\xBF", L"\x800\xFFFF", true },
             Row_t{ "\xF0\x9F\x98\x80!", L"\U0001F600!", true }, Row_t{ "\xF4\x8F\xBF\xBF", L"\U0010FFFF", true },
             Row_t{ "\x80z", L"\xFFFDz", false }, Row_t{ "a\xC3", L"a\xFFFD", false },
             Row_t{ "\xC3z", L"\xFFFDz", false }, Row_t{ "\xC0\x80", L"\xFFFD\xFFFD", false },
             Row_t{ "\xE2\x82z", L"\xFFFD\xFFFDz", false }, Row_t{ "\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD", false },
             Row_t{ "\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD", false },
             Row_t{ "\xF8\x88\xFF", L"\xFFFD\xFFFD\xFFFD", false } })
    {
        wchar_t szWide[32];
        char szUtf8[32];
        EXPECT_EQ(plat::WideFromUtf8(szWide, 32, szText), std::wcslen(szExpected));
        EXPECT_STREQ(szWide, szExpected) << szText;
        EXPECT_EQ(plat::IsUtf8(szText), bValid) << szText;
        if (bValid)
        {
            EXPECT_EQ(plat::Utf8FromWide(szUtf8, 32, szExpected), std::strlen(szText));
            EXPECT_STREQ(szUtf8, szText);
        }
    }
}

TEST(PlatformText, CutsAtAWholeCharacterAndTerminates)
{
    wchar_t const dBroken[] = { static_cast<wchar_t>(0xD800), L'x', static_cast<wchar_t>(0x110000), 0 };
    char szUtf8[8] = "???????";
    EXPECT_EQ(plat::Utf8FromWide(szUtf8, 8, dBroken), 7u);
    EXPECT_STREQ(szUtf8, "\xEF\xBF\xBDx\xEF\xBF\xBD");
    EXPECT_EQ(plat::Utf8FromWide(szUtf8, 7, dBroken), 4u);
    EXPECT_STREQ(szUtf8, "\xEF\xBF\xBDx");
    EXPECT_EQ(plat::Utf8FromWide(szUtf8, 1, dBroken), 0u);
    EXPECT_STREQ(szUtf8, "");
    wchar_t szWide[3] = { L'?', L'?', L'?' };
    EXPECT_EQ(plat::WideFromUtf8(szWide, 0, "abc"), 0u);
    EXPECT_EQ(szWide[0], L'?');
    EXPECT_EQ(plat::WideFromUtf8(szWide, 3, "a\xC3\xA4z"), 2u);
    EXPECT_STREQ(szWide, L"a\xE4");
}

TEST(PlatformDialog, AsksTheTerminalUntilAnAnswerFits)
{
    using plat::DialogAnswer_e;
    using plat::DialogButtons_e;
    struct Row_s
    {
        DialogButtons_e eButtons;
        int iDefault;
        char const * szTyped;
        DialogAnswer_e eAnswer;
    };
    for (Row_s const & Row : { Row_s{ DialogButtons_e::AbortRetryIgnore, 3, "r\n", DialogAnswer_e::Retry },
             Row_s{ DialogButtons_e::AbortRetryIgnore, 3, "\n", DialogAnswer_e::Ignore },
             Row_s{ DialogButtons_e::AbortRetryIgnore, 3, "what\nAbort\n", DialogAnswer_e::Abort },
             Row_s{ DialogButtons_e::AbortRetryIgnore, 1, "\x04", DialogAnswer_e::Ignore },
             Row_s{ DialogButtons_e::YesNoCancel, 2, "Y\n", DialogAnswer_e::Yes },
             Row_s{ DialogButtons_e::YesNoCancel, 1, "\x04", DialogAnswer_e::No },
             Row_s{ DialogButtons_e::OkCancel, 1, "c\n", DialogAnswer_e::Cancel },
             Row_s{ DialogButtons_e::OkCancel, 2, "\x04", DialogAnswer_e::Ok },
             Row_s{ DialogButtons_e::Ok, 1, "\n", DialogAnswer_e::Ok } })
    {
        plat::Dialog_t Dialog;
        Dialog.szCaption = "The caption";
        Dialog.szText = "The text";
        Dialog.eButtons = Row.eButtons;
        Dialog.iDefaultButton = Row.iDefault;
        std::string sShown;
        EXPECT_EQ(AnswerOnTerminal(Dialog, Row.szTyped, sShown), static_cast<int>(Row.eAnswer)) << Row.szTyped;
        EXPECT_NE(sShown.find("The caption\r\nThe text\r\n"), std::string::npos) << sShown;
    }
}

TEST(PlatformDialog, LetsTheProgramGoOnWithoutATerminal)
{
    plat::Dialog_t Dialog;
    Dialog.szText = "unattended";
    Dialog.eButtons = plat::DialogButtons_e::AbortRetryIgnore;
    testing::internal::CaptureStderr();
    EXPECT_EQ(plat::DialogShow(Dialog), plat::DialogAnswer_e::Ignore);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nunattended\n");
    DialogScript_c const Script({ plat::DialogAnswer_e::Retry });
    EXPECT_EQ(plat::DialogShow(Dialog), plat::DialogAnswer_e::Retry) << "an installed handler answers";
}

TEST(PlatformDebugger, SeesATracerAndBreaksIntoIt)
{
    pid_t const iChild = fork();
    if (iChild == 0)
    {
        bool const bBefore = plat::DebuggerIsPresent();
        bool const bAllowed = ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0;
        bool const bTraced = plat::DebuggerIsPresent();
        signal(SIGTRAP, SIG_DFL);
        plat::DebuggerBreak(); // untraced, the end
        _exit(bAllowed && !bBefore && bTraced ? 3 : 4);
    }
    int iStatus = 0;
    waitpid(iChild, &iStatus, 0);
    if (WIFSIGNALED(iStatus))
    {
        EXPECT_EQ(WTERMSIG(iStatus), SIGTRAP);
        GTEST_SKIP() << "no process may be traced here";
    }
    ASSERT_TRUE(WIFSTOPPED(iStatus));
    EXPECT_EQ(WSTOPSIG(iStatus), SIGTRAP);
    ptrace(PTRACE_CONT, iChild, nullptr, nullptr);
    waitpid(iChild, &iStatus, 0);
    EXPECT_EQ(WEXITSTATUS(iStatus), 3);
}

TEST(PlatformDebugger, SendsOutputToTheReceiverAlone)
{
    g_sOutput.clear();
    plat::DebugOutput_t const fnFormer = plat::DebugOutputSet([](char const * szText) { g_sOutput += szText; });
    plat::DebugOutput("heard");
    plat::DebugOutputSet(nullptr);
    testing::internal::CaptureStderr();
    plat::DebugOutput("unheard");
    std::string const sError = testing::internal::GetCapturedStderr();
    plat::DebugOutputSet(fnFormer);
    EXPECT_EQ(g_sOutput, "heard");
    EXPECT_EQ(sError, plat::DebuggerIsPresent() ? "unheard" : "");
}

TEST(PlatformProcess, TellsItsCommandLineAndPaths)
{
    char szLine[4096];
    char szCut[5];
    plat::ProcessCommandLine(szLine, sizeof(szLine));
    EXPECT_EQ(std::string(szLine).rfind(std::string(program_invocation_name), 0), 0u) << szLine;
    EXPECT_NE(szLine[std::strlen(szLine) - 1], ' ');
    plat::ProcessCommandLine(szCut, sizeof(szCut));
    EXPECT_EQ(std::string(szCut), std::string(szLine).substr(0, 4));

    wchar_t szPath[1024];
    ASSERT_TRUE(plat::ProcessExecutablePath(szPath, 1024));
    char szExecutable[4096];
    plat::Utf8FromWide(szExecutable, sizeof(szExecutable), szPath);
    EXPECT_EQ(access(szExecutable, X_OK), 0) << szExecutable;
    EXPECT_FALSE(plat::ProcessExecutablePath(szPath, 3));

    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    Folder.MakeFolder("Gr\xC3\xB6\xC3\x9F");
    EXPECT_TRUE(plat::ProcessSetCurrentFolder(L"gR\xF6\xDF\\"));
    EXPECT_FALSE(plat::ProcessSetCurrentFolder(L"none"));
    char szError[64];
    plat::LastErrorText(szError, sizeof(szError));
    EXPECT_STREQ(szError, "No such file or directory\n");
    ASSERT_TRUE(plat::ProcessCurrentFolder(szPath, 1024));
    EXPECT_STREQ(std::wcsrchr(szPath, L'/'), L"/Gr\xF6\xDF");
    EXPECT_FALSE(plat::ProcessCurrentFolder(szPath, std::wcslen(szPath)));
}

TEST(PlatformProcess, CallsTheHandlerOfPureVirtualCalls)
{
    auto const fnMake = [](void (*fnHandler)())
    {
        signal(SIGABRT, SIG_DFL);
        plat::ProcessSetPureCallHandler(fnHandler);
        platform_test::Derived_s const Object;
        return 0;
    };
    EXPECT_EQ(InChild([&]() { return fnMake([]() { _exit(42); }); }), 42);
    EXPECT_EQ(InChild([&]() { return fnMake(nullptr); }), -SIGABRT);
}

TEST(PlatformClock, RunsForwardAtItsFrequency)
{
    std::int64_t const iTicks = plat::GoodClockTicks();
    std::uint32_t const nMilliseconds = plat::CoarseClockMilliseconds();
    std::int64_t const iCycles = plat::CycleCounter();
    timespec const Pause = { 0, 20000000 };
    nanosleep(&Pause, nullptr);
    EXPECT_GE(plat::GoodClockTicks() - iTicks, plat::GoodClockFrequency() / 50);
    EXPECT_GE(plat::CoarseClockMilliseconds() - nMilliseconds, 19u);
    EXPECT_GT(plat::CycleCounter(), iCycles);
    EXPECT_TRUE(plat::CoarseClockRaise(1));
    plat::CoarseClockLower(1);
    EXPECT_FALSE(plat::CoarseClockRaise(0));
    plat::LocalTime_t const Local = plat::LocalTime();
    std::tm Expected = { Local.iSecond, Local.iMinute, Local.iHour, Local.iDay, Local.iMonth - 1, Local.iYear - 1900, 0,
        0, -1, 0, nullptr };
    EXPECT_LE(std::abs(std::difftime(std::time(nullptr), std::mktime(&Expected))), 3601.0) << "up to an hour set back";
}

TEST(PlatformSystem, GathersTheFacts)
{
    plat::SystemFacts_t Facts;
    plat::SystemGetFacts(Facts);
    EXPECT_STREQ(Facts.szName, "Linux");
    EXPECT_GE(Facts.iMajor, 3);
    EXPECT_GE(Facts.nProcessors, 1);
    EXPECT_NE(Facts.szComputer[0], 0);
    EXPECT_GT(Facts.iProcessorType, 0);
    EXPECT_GT(Facts.nPhysicalFree, 0u);
    EXPECT_GT(Facts.nPhysicalTotal, Facts.nPhysicalFree);
    EXPECT_GT(Facts.nVirtualTotal, Facts.nVirtualFree);
}

TEST(PlatformWindow, DoesNothingForWhatAHostLeavesOut)
{
    plat::WindowSystem_t System;
    System.fnGetFocus = []() -> plat::Window_t { return &g_sOutput; };
    plat::WindowSystem_t const Former = plat::WindowSystemSet(System);
    plat::WindowSystem_t const & Installed = plat::WindowSystemGet();
    EXPECT_EQ(Installed.fnGetFocus(), &g_sOutput);
    EXPECT_EQ(Installed.fnGetParent(&g_sOutput), nullptr);
    Installed.fnMinimise(&g_sOutput);
    Installed.fnShowCursor();
    EXPECT_FALSE(Installed.fnDispatchOne(0, 1));
    plat::WindowSystemSet(Former);
    EXPECT_EQ(Installed.fnGetFocus(), nullptr);
}
