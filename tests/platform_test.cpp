#include "platform/clock.h"
#include "platform/debugger.h"
#include "platform/dialog.h"
#include "platform/linux/reserve.h"
#include "platform/modulelist.h"
#include "platform/process.h"
#include "platform/system.h"
#include "platform/text.h"
#include "tests/test_support.h"

#include <csignal>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <link.h>
#include <sys/ptrace.h>
#include <unistd.h>

TEST(PlatformText, ConvertsBetweenUtf8AndWide)
{
    for (auto const & [szText, wszExpected, bValid] : Rows_t<char const *, wchar_t const *, bool>{ { "", L"", true },
             { "plain", L"plain", true }, { "\xC2\x80\xDF\xBF", L"\x80\x7FF", true },
             { "\xE0\xA0\x80\xEF\xBF\xBF", L"\x800\xFFFF", true }, { "\xF0\x9F\x98\x80!", L"\U0001F600!", true },
             { "\xF4\x8F\xBF\xBF", L"\U0010FFFF", true }, { "\x80z", L"\xDC80z", false },
             { "a\xC3", L"a\xDCC3", false }, { "\xC3z", L"\xDCC3z", false }, { "\xC0\x80", L"\xDCC0\xDC80", false },
             { "\xE2\x82z", L"\xDCE2\xDC82z", false }, { "\xED\xA0\x80", L"\xDCED\xDCA0\xDC80", false },
             { "\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80", false },
             { "\xF8\x88\xFF", L"\xDCF8\xDC88\xDCFF", false } })
    {
        wchar_t wszWide[32];
        char szUtf8[32];
        SCOPED_TRACE(szText);
        EXPECT_EQ(plat::WideFromUtf8(wszWide, std::size(wszWide), szText), std::wcslen(wszExpected));
        EXPECT_STREQ(wszWide, wszExpected);
        EXPECT_EQ(plat::IsUtf8(szText), bValid);
        EXPECT_EQ(plat::Utf8FromWide(szUtf8, sizeof(szUtf8), wszExpected), std::strlen(szText));
        EXPECT_STREQ(szUtf8, szText);
    }
}

TEST(PlatformText, CutsAtAWholeCharacterAndTerminates)
{
    wchar_t const wszBroken[] = { static_cast<wchar_t>(0xD800), L'x', static_cast<wchar_t>(0x110000), 0 };
    for (auto const & [nRoom, szExpected] :
        Rows_t<std::size_t, char const *>{ { 8, "\xEF\xBF\xBDx\xEF\xBF\xBD" }, { 7, "\xEF\xBF\xBDx" }, { 1, "" } })
    {
        char szUtf8[8] = "???????";
        EXPECT_EQ(plat::Utf8FromWide(szUtf8, nRoom, wszBroken), std::strlen(szExpected));
        EXPECT_STREQ(szUtf8, szExpected);
    }
    wchar_t wszWide[3] = { L'?', L'?', L'?' };
    EXPECT_EACH(plat::WideFromUtf8(wszWide, 0, "abc") == 0, wszWide[0] == L'?');
    EXPECT_EQ(plat::WideFromUtf8(wszWide, std::size(wszWide), "a\xC3\xA4z"), 2u);
    EXPECT_STREQ(wszWide, L"a\xE4");
}

TEST(PlatformDialog, AsksTheTerminalUntilAnAnswerFits)
{
    using plat::DialogAnswer_e;
    using plat::DialogButtons_e;
    // "\x04" ends the input.
    for (auto const & [eButtons, iDefault, szTyped, eAnswer] :
        Rows_t<DialogButtons_e, int, char const *, DialogAnswer_e>{
            { DialogButtons_e::AbortRetryIgnore, 3, "r\n", DialogAnswer_e::Retry },
            { DialogButtons_e::AbortRetryIgnore, 3, "\n", DialogAnswer_e::Ignore },
            { DialogButtons_e::AbortRetryIgnore, 3, "what\nAbort\n", DialogAnswer_e::Abort },
            { DialogButtons_e::AbortRetryIgnore, 1, "\x04", DialogAnswer_e::Ignore },
            { DialogButtons_e::AbortRetryIgnore, 2, "\n", DialogAnswer_e::Ignore },
            { DialogButtons_e::YesNoCancel, 1, "\n", DialogAnswer_e::No },
            { DialogButtons_e::YesNoCancel, 2, "Y\n", DialogAnswer_e::Yes },
            { DialogButtons_e::YesNoCancel, 1, "\x04", DialogAnswer_e::No },
            { DialogButtons_e::OkCancel, 1, "c\n", DialogAnswer_e::Cancel },
            { DialogButtons_e::OkCancel, 2, "\x04", DialogAnswer_e::Ok },
            { DialogButtons_e::Ok, 1, "\n", DialogAnswer_e::Ok } })
    {
        plat::Dialog_t Dialog;
        Dialog.szCaption = "The caption";
        Dialog.szText = "The text";
        Dialog.eButtons = eButtons;
        Dialog.iDefaultButton = iDefault;
        auto const Show = [&Dialog] { return static_cast<int>(plat::DialogShow(Dialog)); };
        Result_t const Result = RunOnTerminal(Show, szTyped, " ? ");
        EXPECT_EQ(Result.iStatus, static_cast<int>(eAnswer)) << szTyped;
        EXPECT_THAT(Result.sOutput, testing::HasSubstr("The caption\r\nThe text\r\n"));
    }
}

TEST(PlatformDialog, LetsTheProgramGoOnWithoutATerminal)
{
    plat::Dialog_t Dialog;
    Dialog.szText = "unattended\x1B]0;t\x07";
    Dialog.eButtons = plat::DialogButtons_e::AbortRetryIgnore;
    testing::internal::CaptureStderr();
    EXPECT_EQ(plat::DialogShow(Dialog), plat::DialogAnswer_e::Ignore);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nunattended\\x1B]0;t\\x07\n");
    DialogScript_c const Script({ plat::DialogAnswer_e::Retry });
    EXPECT_EQ(plat::DialogShow(Dialog), plat::DialogAnswer_e::Retry) << "an installed handler answers";
}

TEST(PlatformReserve, FreesNoDescriptorOfTheHostAndOpensWhatTheHostHasClosed)
{
    auto const FreeAll = []
    {
        int nFreed = 0;
        while (plat::ReserveFree())
        {
            ++nFreed;
        }
        return nFreed;
    };
    auto const Run = [&FreeAll]
    {
        constexpr int LAST_OF_HOST = 60;
        closefrom(3);
        while (dup(0) < LAST_OF_HOST)
        {}
        plat::ReserveAllow(true);
        EXPECT_EQ(FreeAll(), 0);
        plat::ReserveFill();
        EXPECT_EQ(FreeAll(), 8) << "the whole reserve";
        EXPECT_EQ(dup(0), LAST_OF_HOST + 1);
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(Run)), 0);
}

TEST(PlatformDebugger, SeesATracerAndBreaksIntoIt)
{
    auto const BreakTraced = []
    {
        bool const bBefore = plat::DebuggerIsPresent();
        bool const bAllowed = ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0;
        bool const bTraced = plat::DebuggerIsPresent();
        signal(SIGTRAP, SIG_DFL);
        ZQ_BREAK();   // untraced, the end
        EXPECT_EACH(!bBefore, bAllowed, bTraced);
        return 3;
    };
    pid_t const iChild = StartChild(BreakTraced);
    int iStatus = 0;
    waitpid(iChild, &iStatus, 0);
    EXPECT_EQ(WIFSTOPPED(iStatus) ? WSTOPSIG(iStatus) : WTERMSIG(iStatus), SIGTRAP);
    SKIP_IF(WIFSIGNALED(iStatus), "no process may be traced here");
    ptrace(PTRACE_CONT, iChild, nullptr, nullptr);
    EXPECT_EQ(StatusOfChild(iChild), 3);
}

TEST(PlatformProcess, KnowsItsCommandLineAndPaths)
{
    char szLine[4096], szCut[5], szExecutable[4096];
    plat::ProcessCommandLine(szLine, sizeof(szLine));
    EXPECT_THAT(szLine, testing::StartsWith(program_invocation_name));
    EXPECT_NE(szLine[std::strlen(szLine) - 1], ' ');
    plat::ProcessCommandLine(szCut, sizeof(szCut));
    EXPECT_EQ(szCut, std::string(szLine).substr(0, sizeof(szCut) - 1));

    wchar_t wszPath[1024];
    ASSERT_TRUE(plat::ProcessExecutablePath(wszPath, std::size(wszPath)));
    plat::Utf8FromWide(szExecutable, sizeof(szExecutable), wszPath);
    EXPECT_EQ(access(szExecutable, X_OK), 0) << szExecutable;
    EXPECT_FALSE(plat::ProcessExecutablePath(wszPath, 3));

    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    Folder.MakeFolder("Gr\xC3\xB6\xC3\x9F");
    EXPECT_TRUE(plat::ProcessSetCurrentFolder(L"gR\xF6\xDF\\"));
    EXPECT_FALSE(plat::ProcessSetCurrentFolder(L"none"));
    ASSERT_TRUE(plat::ProcessCurrentFolder(wszPath, std::size(wszPath)));
    EXPECT_STREQ(std::wcsrchr(wszPath, L'/'), L"/Gr\xF6\xDF");
    EXPECT_FALSE(plat::ProcessCurrentFolder(wszPath, std::wcslen(wszPath)));
}

TEST(PlatformSystem, GathersTheFacts)
{
    plat::SystemFacts_t Facts;
    plat::SystemGetFacts(Facts);
    EXPECT_STREQ(Facts.szName, "Linux");
    EXPECT_EACH(Facts.iMajor >= 3, Facts.nProcessors >= 1, Facts.szComputer[0], Facts.iProcessorType > 0,
        Facts.nPhysicalFree > 0, Facts.nPhysicalTotal > Facts.nPhysicalFree, Facts.nVirtualTotal > Facts.nVirtualFree);
}

TEST(PlatformClock, RefusesAPeriodOfZeroAndReturnsTheLocalTime)
{
    EXPECT_TRUE(plat::CoarseClockRaise(1));
    plat::CoarseClockLower(1);
    EXPECT_FALSE(plat::CoarseClockRaise(0));
    plat::LocalTime_t const Local = plat::LocalTime();
    std::tm Expected = { Local.iSecond, Local.iMinute, Local.iHour, Local.iDay, Local.iMonth - 1, Local.iYear - 1900, 0,
        0, -1, 0, nullptr };
    EXPECT_LE(std::abs(std::difftime(std::time(nullptr), std::mktime(&Expected))), 3601.0) << "up to an hour set back";
}

TEST(PlatformModules, FindABuildIdUnlessAnEarlierNoteCoversIt)
{
    struct Note_s
    {
        ElfW(Nhdr) Head;
        char szOwner[4];
        std::uint32_t nContents;
    };
    struct Image_s
    {
        ElfW(Ehdr) Header = {};
        ElfW(Phdr) Segment = {};
        Note_s Other = { { 4, 4, 1 }, "GNU", 1 }, BuildId = { { 4, 4, NT_GNU_BUILD_ID }, "GNU", 0x12345678 };
    } Image;
    Image.Header.e_phnum = 1;
    Image.Header.e_phoff = offsetof(Image_s, Segment);
    Image.Segment.p_type = PT_NOTE;
    Image.Segment.p_offset = offsetof(Image_s, Other);
    Image.Segment.p_filesz = sizeof Image.Other + sizeof Image.BuildId;
    plat::Module_t const Module = { "", reinterpret_cast<std::uintptr_t>(&Image), sizeof Image };
    std::uint8_t dId[8] = {};
    for (auto const & [nOwner, nContents, nExpected] : Rows_t<std::uint32_t, std::uint32_t, std::size_t>{ { 4, 4, 4 },
             { 0xFFFFFFF4, 0, 0 }, { 0xFFFFFFFD, 0, 0 }, { 4, 0xFFFFFFF0, 0 }, { 4, 24, 0 }, { 4, 25, 0 } })
    {
        Image.Other.Head.n_namesz = nOwner;
        Image.Other.Head.n_descsz = nContents;
        ASSERT_EQ(plat::ModuleBuildId(Module, dId, sizeof dId), nExpected) << nOwner << ' ' << nContents;
        EXPECT_EQ(std::string_view(reinterpret_cast<char const *>(dId), nExpected),
            std::string_view(reinterpret_cast<char const *>(&Image.BuildId.nContents), nExpected));
    }

    // A segment that lld writes ends before the padding of a build-id of an odd length.
    Image.Other.Head = { 4, 4, 1 };
    Image.BuildId.Head.n_descsz = 3;
    --Image.Segment.p_filesz;
    EXPECT_EQ(plat::ModuleBuildId(Module, dId, sizeof dId), 3u);
}
