#include "platform/debugger.h"
#include "tests/machine_support.h"
#include "zqcore/cexceptionreport.h"
#include "zqcore/clog.h"
#include "zqcore/clog_format_internal.h"
#include "zqcore/clog_internal.h"
#include "zqcore/clogf.h"
#include "zqcore/cstring.h"
#include "zqcore/ctexterror.h"

#include <bit>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <random>
#include <set>

namespace
{
    using testing::MatchesRegex;
    namespace fs = std::filesystem;

    // Compares with what printf writes if wide text is UTF-8, in any locale.
    void ExpectLikePrintf(std::size_t nSize, char const * fmt, ...)
    {
        char szOurs[4096], szTheirs[4096];
        std::va_list args, ArgumentsOfPrintf;
        va_start(args, fmt);
        va_copy(ArgumentsOfPrintf, args);
        std::size_t const nOurs = FormatText(szOurs, nSize, fmt, args);
        {
            Utf8LocaleScope_c const Utf8;
            EXPECT_GE(std::vsnprintf(szTheirs, nSize, fmt, ArgumentsOfPrintf), 0) << fmt;
        }
        EXPECT_STREQ(szOurs, szTheirs) << fmt;
        EXPECT_EQ(nOurs, std::strlen(szTheirs)) << fmt;
        va_end(ArgumentsOfPrintf);
        va_end(args);
    }

    // Logs to the main log's file without time and frame.
    void LogBare(char const * fmt, ...)
    {
        std::va_list args;
        va_start(args, fmt);
        LogfArg(nullptr, fmt, args);
        va_end(args);
    }

    std::string g_sLogTrace;

    struct Logs : testing::Test
    {
        Logs()
        {
            LogDone();
            g_sLogTrace.clear();
        }

        ~Logs() override
        {
            Module_c::ShutdownAllModules();
            LogDone();
            LogSetFile(L"", L"");
            ModuleLog_c::SetLogPath(L"");
            g_iLogFrameCounter = 0;
        }

        void OpenMainLog(wchar_t const * wszName = L"")
        {
            LogSetFile(WideFromAscii(m_Folder.GetPath() + "/").c_str(), wszName);
            LogInit();
        }

        static void StartNamedLogs() { ASSERT_TRUE(StartModule(ModuleLog_c::Get())); }

        void StartNamedLogsIn(std::string const & sFolder)
        {
            ModuleLog_c::SetLogPath(WideFromAscii(sFolder).c_str());
            StartNamedLogs();
        }

        TempFolder_c m_Folder;
    };
}

TEST(LogFormat, LinePrefixIsThatOfPrintf)
{
    std::mt19937 Random(6);
    for (int i = 0; i < 300000; ++i)
    {
        auto const nBits = static_cast<std::uint32_t>(Random());
        float const t = i < 1000 ? static_cast<float>(i) * 0.0005f   // seconds, halves of the last digit
                        : i % 2  ? std::bit_cast<float>(nBits)
                                 : static_cast<float>(nBits % 100000000) / 1024.0f;
        int const iFrame = static_cast<int>(Random()) >> (i % 32);
        char szOurs[LINE_PREFIX_SIZE] = "", szTheirs[128];
        std::snprintf(szTheirs, sizeof szTheirs, "%8.3f\t%i\t", static_cast<double>(t), iFrame);
        ASSERT_STREQ(FormatLinePrefix(szOurs + LINE_PREFIX_SIZE - 1, t, iFrame), szTheirs);
    }
}

TEST(LogFormat, TextIsThatOfPrintfAndWideTextUtf8InEveryLocale)
{
    for (std::size_t const nSize : std::initializer_list<std::size_t>{ 1, 2, 6, 9, 17, LOG_LINE_SIZE })
    {
        ExpectLikePrintf(nSize, "plain, 100%%");
        ExpectLikePrintf(nSize, "%s|%c|%i|%d|%u|%x|%zu|", "text", 'c', INT_MIN, 0, 0xFFFFFFFFu, 0xBEEFu, SIZE_MAX);
        ExpectLikePrintf(
            nSize, "%i %-5s|%08X|%.2f|%5d|%ld|%p", 7, "ab", 0xABCu, 2.345, -3, -4L, static_cast<void *>(nullptr));
        ExpectLikePrintf(nSize, "%s", std::string(3000, 'x').c_str());
        ExpectLikePrintf(nSize, "abcdef%ls", L"gh");
        ExpectLikePrintf(nSize, "%8ls|%8.3ls|%-8ls", L"abcdefghij", L"klmn", L"opqrstuvwxyz");
        ExpectLikePrintf(nSize, "%ls|%5ls|%-5ls|%.2ls|%*.*ls|%lc|%S|%C|%s", L"a", L"b", L"c", L"def", -4, 9, L"g", L'h',
            L"i", L'j', "k");
    }
    ExpectLikePrintf(LOG_LINE_SIZE, "%ls|%6ls|%-6ls|%.3ls|%.4ls|%lc|%ls|end", L"\u00e4\u20ac\U0001F600", L"\u00e4",
        L"\u00e4", L"\u00e4\u00e4", L"\u00e4\u00e4", L'\u20ac', static_cast<wchar_t *>(nullptr));
    ExpectLikePrintf(LOG_LINE_SIZE, "%ls %5d %-5i|%+ld %lli %hhd %jd %zd %td %08X %#lx %llu %zu %c %p%%", L"\u00e4", 1,
        -2, 3L, 4LL, 5, std::intmax_t{ 6 }, std::ptrdiff_t{ 7 }, std::ptrdiff_t{ 8 }, 0xABCu, 0xDEFul, 9ull,
        std::size_t{ 10 }, 'x', static_cast<void *>(nullptr));
    ExpectLikePrintf(LOG_LINE_SIZE, "%5.2f %e %Lg %.3s %*d %-*d| %.*s %ls", 1.5, 2.5, 3.5L, "abcdef", 6, 7, 8, 9, 2,
        "xyz", L"\u00e4");
    ExpectLikePrintf(LOG_LINE_SIZE, "%Ld %Lx %ls", 1LL << 40, 0xABCDEF0123ULL, L"\u00e4");
    ExpectLikePrintf(LOG_LINE_SIZE, ("%" + std::string(100, '-') + "5d|%ls").c_str(), 7, L"a");
    int volatile nNarrowest = INT_MIN;
    EXPECT_EQ(NewString("%256ls", L"\u00e4"), NewString("%254s", "")) << "there is room for half of the character";
    EXPECT_EQ(NewString("%*ls", nNarrowest, L"x"), NewString("x%254s", ""));   // as wide as the text has room
    EXPECT_STREQ(NewString("%ls|%i", L"\xD800\u00e4", 1), "\uFFFD\u00e4|1");   // half a pair is no character
}

TEST_F(Logs, EveryCallThatFormatsKnowsWideTextAndEscapes)
{
    LogCapture_c const Capture;
    DialogScript_c const Dialogs;
    Log("%ls|", L"\u00e4\x1B");
    Warning("%ls|", L"\u00e4\x1B");
    Achtung("wide %ls|", L"\u00e4\x1B");
    AssertFailed("%ls|", L"\u00e4\x1B");
    LogText(Va("%ls|", L"\u00e4\x1B"));
    DebugMessages_c::Get().DebugWarningInternal("%ls|", L"\u00e4\x1B");
    EXPECT_EQ(Capture.GetText(), "\u00e4\\x1B|\n\u00e4\\x1B|\nwide \u00e4\\x1B|\n\u00e4\\x1B|\n\u00e4\\x1B|\n");
    EXPECT_EQ(Dialogs.CountHolding("\u00e4\\x1B|"), 3);
    EXPECT_EQ(FailedConditions([] { ZQ_ASSERT_EX(1 == 2, "%ls|", L"\u00e4\x1B"); }), "1 == 2, \u00e4\\x1B|");
}

TEST_F(Logs, ShowWhatALineOrATerminalWouldObey)
{
    struct Row_s
    {
        std::string sText, sInLine, sAsName;   // a name that is empty is like the line
    };
    OpenMainLog();
    LogCapture_c Capture;
    StartNamedLogs();
    std::string sLines;
    for (auto const & [sText, sInLine, sAsName] : { Row_s{ "C:\\a b", "C:\\a b", "" },
             { "a\tb\r\nc", "a\tb\r\nc", "a\\tb\\r\\nc" }, { "\x1B[2J\x7F\x01", "\\x1B[2J\\x7F\\x01", "" },
             { "\u009B1m\u0085", "\\u009B1m\\u0085", "" }, { "\x1B", "\\x1B", "" }, { "\n", "\n", "\\n" },
             { "~", "~", "" }, { "\xFF\xC3(\xED\xA0\x80\xC0\x8A", "\\xFF\\xC3(\\xED\\xA0\\x80\\xC0\\x8A", "" },
             { "\u202Egnp.exe\u2066\u2028", "\\u202Egnp.exe\\u2066\\u2028", "" },
             { "\u00e4\u20ac\U0001F600\u00a0", "\u00e4\u20ac\U0001F600\u00a0", "" },
             { std::string(LOG_LINE_LENGTH - 2, 'x') + "\x1B", std::string(LOG_LINE_LENGTH - 2, 'x'), "" } })
    {
        std::string const & sName = sAsName.empty() ? sInLine : sAsName;
        Capture.Clear();
        Log("%s", sText.c_str());
        LogText(sText.c_str());
        if (sText.size() == 1)
        {
            LogEscaped("%c", sText[0]);
        }
        else
        {
            LogEscaped("%s", sText.c_str());
        }
        Logf("named", "%s", sText.c_str());
        EXPECT_EQ(TextForLog(sText.c_str()), sName.c_str());
        EXPECT_THAT(Capture.GetLines(), testing::ElementsAre(sInLine, sInLine, sName));
        EXPECT_THAT(m_Folder.Read("message.log"), testing::EndsWith("\t0\t" + sName + '\n'));
        sLines += sInLine + "\n";
    }
    EXPECT_EQ(m_Folder.Read("named"), sLines);
}

TEST(LogFormat, PlainTextIsPrintableAsciiAtEachPosition)
{
    for (int iByte = 1; iByte < 256; ++iByte)
    {
        for (std::size_t nAt = 0; nAt < 19; ++nAt)
        {
            std::string sText(19, 'a');
            sText[nAt] = static_cast<char>(iByte);
            EXPECT_EQ(IsPlainText(sText.data(), sText.size()), iByte >= ' ' && iByte < 0x7F) << iByte << " at " << nAt;
        }
    }
}

TEST_F(Logs, LinesCarryTimeAndFrameAndAreCut)
{
    OpenMainLog();
    LogInit();   // neither opens again nor writes twice
    g_iLogFrameCounter = 12;
    Log("text %i", 7);
    EXPECT_THAT(m_Folder.Read("message.log"), MatchesRegex(" +[0-9]+\\.[0-9][0-9][0-9]\t12\ttext 7\n"));
    LogBare("bare %i", 1);
    Log("%s", std::string(3000, 'x').c_str());
    std::string const sLog = m_Folder.Read("message.log");
    EXPECT_THAT(sLog, testing::HasSubstr("text 7\nbare 1\n "));
    EXPECT_THAT(sLog, testing::EndsWith("\t12\t" + std::string(LOG_LINE_LENGTH, 'x') + '\n'));
    EXPECT_EQ(g_ExceptionReport.GetLogFileName(), WideFromAscii(m_Folder.Join("message.log")));
}

TEST_F(Logs, ListenersAreCalledFromTheLastAddedToTheFirst)
{
    Log("nobody listens");
    LogAddCallback([](char const * szText) { g_sLogTrace += std::string("A") + szText; });
    LogAddCallback([](char const * szText) { g_sLogTrace += std::string("B") + szText; });
    Logc(true, "%i", 1);
    Logc(false, "%i", 2);
    Logc(true, nullptr);
    LogText("%i");
    LogDone();
    Log("nobody again");
    EXPECT_EQ(std::exchange(g_sLogTrace, ""), "B1A1B%iA%i");
}

TEST_F(Logs, ListenersContinueIfTheLogHasNoFile)
{
    LogInit();   // no folder, then a file that can't be opened
    EXPECT_EQ(g_pMessageLogFile, nullptr);
    OpenMainLog(L"missing/message.log");
    EXPECT_EQ(g_pMessageLogFile, nullptr);
    LogAddCallback([](char const * szText) { g_sLogTrace += szText; });
    Log("still heard");
    EXPECT_EQ(std::exchange(g_sLogTrace, ""), "still heard");
    OpenMainLog();   // an earlier call has added the writer
    Log("the %s%c, cut", "file", '\0');
    EXPECT_EQ(g_sLogTrace, "the file");
    EXPECT_THAT(m_Folder.Read("message.log"), MatchesRegex("[^\n]+\tthe file\n"));
}

TEST_F(Logs, ASecondRunTruncatesAndThreadsDoNotMixTheirLines)
{
    OpenMainLog(L"run.log");
    Log("first run");
    LogDone();
    LogInit();
    auto const Work = [](int iThread)
    {
        for (int i = 0; i < 100; ++i)
        {
            Log("%s", std::string(500, static_cast<char>('a' + iThread)).c_str());
        }
    };
    RunInThreads(3, Work);
    std::istringstream Lines(m_Folder.Read("run.log"));
    int nLines = 0;
    for (std::string sLine; std::getline(Lines, sLine); ++nLines)
    {
        ASSERT_THAT(sLine.substr(0, sLine.size() - 500), MatchesRegex(" +[0-9.]+\t0\t"));
        ASSERT_EQ(sLine.substr(sLine.size() - 500), std::string(500, sLine.back()));
    }
    EXPECT_EQ(nLines, 300);
}

TEST_F(Logs, OthersThatWriteOrCutTheFileCostNoLine)
{
    ModuleLog_c::SetLogPath(WideFromAscii(m_Folder.GetPath()).c_str());
    OpenMainLog();
    Log("cut");
    fs::resize_file(m_Folder.Join("message.log"), 0);
    Log("one");
    Logf("message.log", "two");
    auto const LogInChild = []
    {
        LogDone();
        LogInit();
        Log("three");
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(LogInChild)), 0);
    Log("four");
    EXPECT_THAT(m_Folder.Read("message.log"), MatchesRegex("[^\n]+one\ntwo\n[^\n]+three\n[^\n]+four\n"));
}

TEST_F(Logs, AFullDiskTearsNoLaterLineAndTheLostOnesAreCounted)
{
    LogCapture_c const Capture;
    OpenMainLog();
    Log("first");
    StartNamedLogs();
    Logf("a\nb", "first");
    for (auto const & [szName, fnSay, szLost] :
        Rows_t<char const *, void (*)(char const *), char const *>{
            { "message.log", LogText, "[^\n]+\tLog lines lost here: 2\n" },
            { "a\nb", [](char const * szText) { Logf("a\nb", "%s", szText); }, "" } })
    {
        {
            FullDisk_c const Full(static_cast<rlim_t>(fs::file_size(m_Folder.Join(szName)) + 4));
            fnSay("      torn");
            fnSay("lost");
        }
        fnSay("after");
        fnSay("last");
        EXPECT_THAT(m_Folder.Read(szName),
            MatchesRegex(std::string("[^\n]*first\n[^\n]{4}\n") + szLost + "[^\n]*after\n[^\n]*last\n"));
    }
    EXPECT_EQ(Capture.CountHolding("Log lines lost in \"a\\nb\": 2"), 1);
    {
        FullDisk_c const Full(1);
        Logf("a\nb", "lost at the end");
        Log("lost too");
    }
    Module_c::ShutdownAllModules();
    EXPECT_EQ(Capture.Count("Log lines lost in \"a\\nb\": 1"), 1);
    EXPECT_THAT(m_Folder.Read("message.log"), testing::HasSubstr("\tLog lines lost here: 1\n"));
}

TEST_F(Logs, ALimitKeepsSomePreviousFilesAndCutsNoLine)
{
    constexpr int LIMIT = 3000, LINES = 1000;
    OpenMainLog();
    ModuleLog_c::SetLogPath(WideFromAscii(m_Folder.GetPath()).c_str());
    LogSetLimit(LIMIT, 2);
    auto const Write = [](int)
    {
        for (int i = 0; i < LINES; ++i)
        {
            Log("line %i of all", i);
            Logf("named.log", "line %i of all", i);
        }
    };
    RunInThreads(4, Write);
    Write(0);   // alone, so that no line comes while a new file is begun
    LogSetLimit(0, 0);
    for (std::string const sName : { "message.log", "named.log" })
    {
        EXPECT_FALSE(fs::exists(m_Folder.Join(sName + ".3"))) << sName;
        for (std::string const & sFile : { sName, sName + ".1", sName + ".2" })
        {
            std::string const sText = m_Folder.Read(sFile);
            EXPECT_LE(sText.size(), LIMIT + 40u) << sFile;   // and the line that exceeds the limit
            std::istringstream Lines(sText);
            for (std::string sLine; std::getline(Lines, sLine);)
            {
                EXPECT_THAT(sLine, testing::ContainsRegex("(^|\t)line [0-9]+ of all$")) << sFile;
            }
        }
        EXPECT_THAT(m_Folder.Read(sName) + m_Folder.Read(sName + ".1"),
            testing::HasSubstr("line " + std::to_string(LINES - 1) + " of all\n"));
    }
}

TEST_F(Logs, ALimitWithoutPreviousFilesEmptiesTheLog)
{
    constexpr int LIMIT = 3000;
    ModuleLog_c::SetLogPath(WideFromAscii(m_Folder.GetPath()).c_str());
    auto const LogLong = [] { Logf("emptied.log", "%s", std::string(2000, 'x').c_str()); };
    LogSetLimit(LIMIT, 0);
    LogLong();
    LogLong();
    Logf("emptied.log", "last");
    LogSetLimit(0, 0);
    EXPECT_EQ(m_Folder.Read("emptied.log"), "last\n");
    LogLong();
    LogSetLimit(LIMIT, 0);
    LogLong();
    LogSetLimit(0, 0);
    EXPECT_EQ(m_Folder.Read("emptied.log"), "") << "what was written without a limit counts";
}

TEST_F(Logs, ALimitLosesNoLineOfTwoProcesses)
{
    constexpr int LINES = 2000, PREVIOUS = 500;   // PREVIOUS is more than the number of files that the lines fill
    Gate_c const Ready, Start;
    auto const Work = [&]
    {
        OpenMainLog();
        LogSetLimit(4000, PREVIOUS);
        bool const bStarted = Ready.Open() && Start.Wait();
        for (int i = 0; i < LINES; ++i)
        {
            Log("line of two processes");
        }
        return bStarted ? 0 : 1;
    };
    pid_t const dChildren[] = { StartChild(Work), StartChild(Work) };
    EXPECT_EACH(Ready.Wait(), Ready.Wait(), Start.Open(), Start.Open());
    EXPECT_EACH(StatusOfChild(dChildren[0]) == 0, StatusOfChild(dChildren[1]) == 0);
    std::ptrdiff_t nLines = 0;
    for (auto const & Entry : fs::directory_iterator(m_Folder.GetPath()))
    {
        nLines += std::ranges::count(m_Folder.Read(Entry.path().filename().string()), '\n');
    }
    EXPECT_EQ(nLines, 2 * LINES);
}

TEST_F(Logs, ALogWithALimitFollowsItsNameBeforeItsNextLine)
{
    constexpr std::chrono::milliseconds PAUSE(1100);   // a log checks its name at most once a second
    OpenMainLog();
    ModuleLog_c::SetLogPath(WideFromAscii(m_Folder.GetPath()).c_str());
    LogSetLimit(3000, 1);
    for (bool const bReplaced : { true, false })   // whether another process has begun a new file; else none exists
    {
        Log("before");
        Logf("followed.log", "before");
        for (std::string const sName : { "message.log", "followed.log" })
        {
            fs::rename(m_Folder.Join(sName), m_Folder.Join(sName + ".1"));
            if (bReplaced)
            {
                m_Folder.Write(sName, "of another process\n");
            }
            else
            {
                fs::remove(m_Folder.Join(sName + ".1"));
            }
        }
        std::this_thread::sleep_for(PAUSE);
        Log("after");
        Logf("followed.log", "after");
        for (std::string const sName : { "message.log", "followed.log" })
        {
            EXPECT_THAT(
                m_Folder.Read(sName), MatchesRegex(bReplaced ? "of another process\n[^\n]*after\n" : "[^\n]*after\n"));
        }
    }
    ModuleLog_c::SetLogPath(WideFromAscii(m_Folder.Join("other")).c_str());
    std::this_thread::sleep_for(PAUSE);
    Logf("followed.log", "last");
    EXPECT_EQ(m_Folder.Read("followed.log"), "after\nlast\n") << "an open log stays in its folder";
    LogSetLimit(0, 0);
}

TEST_F(Logs, AHostsOwnStreamGetsItsLinesInOrderAndHasNoLimit)
{
    struct Row_s
    {
        char const * szStream;   // memory, file, or the log's stream (which keeps its address) with the file
        int nPrevious;
    };
    std::string const sOwn = m_Folder.Join("own");
    for (auto const & [szStream, nPrevious] : { Row_s{ "memory", 0 }, { "memory", 2 }, { "file", 0 }, { "file", 2 },
             { "same stream", 0 }, { "same stream", 2 } })
    {
        OpenMainLog();
        LogSetLimit(4, nPrevious);
        char * pText = nullptr;
        std::size_t nText = 0;
        if (*szStream == 's')
        {
            g_pMessageLogFile = std::freopen(sOwn.c_str(), "w", g_pMessageLogFile);
        }
        else
        {
            std::fclose(g_pMessageLogFile);
            g_pMessageLogFile = *szStream == 'm' ? OpenMemoryStream(&pText, &nText) : std::fopen(sOwn.c_str(), "w");
        }
        std::fputs("one\n", g_pMessageLogFile);
        Log("two");
        std::fputs("three\n", g_pMessageLogFile);
        Log("four");
        LogDone();
        EXPECT_THAT(pText ? std::string(pText, nText) : m_Folder.Read("own"),
            MatchesRegex("one\n[^\n]+two\nthree\n[^\n]+four\n"))
            << szStream << ", " << nPrevious;
        EXPECT_EQ(m_Folder.Read("message.log"), "") << szStream << ", " << nPrevious;
        std::free(pText);
    }
    LogSetLimit(0, 0);
}

TEST_F(Logs, AChildOfAForkLogsAndDoublesNoLineOfItsParent)
{
    constexpr int CHILDREN = 50;
    StartNamedLogsIn(m_Folder.GetPath());
    OpenMainLog();
    std::fclose(g_pMessageLogFile);
    g_pMessageLogFile = std::fopen(m_Folder.Join("own").c_str(), "a");
    Logf("a.txt", "opened");
    SetAchtungs(false);
    std::atomic<bool> bStop = false;
    auto const Work = [&bStop]
    {
        for (int i = 0; !bStop; ++i)
        {
            Log("%i", i);
            Achtung("same");
            Logf("a.txt", "%i", i);
        }
    };
    std::thread Other(Work);
    for (int i = 0; i < CHILDREN; ++i)
    {
        auto const LogInChild = [i]
        {
            Log("child %i", i);
            Achtung("same");
            Logf("a.txt", "child %i", i);
            std::fflush(g_pMessageLogFile);
            return 0;
        };
        ASSERT_EQ(StatusOfChild(StartChild(LogInChild)), 0) << i;
    }
    bStop = true;
    Other.join();
    SetAchtungs(true);
    for (char const * const szFile : { "own", "a.txt" })
    {
        std::istringstream Lines(m_Folder.Read(szFile));
        std::set<std::string> dSeen;
        int nFromChildren = 0;
        for (std::string sLine; std::getline(Lines, sLine);)
        {
            sLine = sLine.substr(sLine.rfind('\t') + 1);
            nFromChildren += sLine.starts_with("child");
            if (sLine != "same")
            {
                EXPECT_TRUE(dSeen.insert(sLine).second) << sLine;
            }
        }
        EXPECT_EQ(nFromChildren, CHILDREN) << szFile;
    }
}

TEST_F(Logs, NamedOnesOpenAtFirstUseAppendAndStartEmptyInANewRun)
{
    StartNamedLogsIn(m_Folder.GetPath() + "/missing\\named");
    Logf("a.csv", "%i;%s", 1, "x");
    Logf("a.csv", "%s", std::string(3000, 'x').c_str());
    Logcf(true, "b.txt", "%i", 2);
    Logf_raw("b.txt", "%i ");
    Logf_raw("b.txt", "raw");
    Logcf(false, "c.txt", "no");
    Logf(nullptr, "no");
    Logf("c.txt", nullptr);
    Logf("absent/x.txt", "lost");
    EXPECT_EQ(m_Folder.Read("missing/named/a.csv"), "1;x\n" + std::string(LOG_LINE_LENGTH, 'x') + '\n');
    EXPECT_EQ(m_Folder.Read("missing/named/b.txt"), "2\n%i raw");
    EXPECT_FALSE(fs::exists(m_Folder.Join("missing/named/c.txt")));

    auto const Stream = [](std::string const & sName) { return ModuleLog_c::Get()->GetLogFile(sName.c_str()); };
    EXPECT_EACH(Stream(std::string(63, 'n')) == Stream(std::string(100, 'n')), Stream("A.csv") != Stream("a.csv"));
    EXPECT_EQ(ModuleLog_c::Get()->GetLogFile(nullptr), nullptr);

    Module_c::ShutdownAllModules();
    StartNamedLogs();
    Logf("a.csv", "again");
    EXPECT_EQ(m_Folder.Read("missing/named/a.csv"), "again\n");
}

TEST_F(Logs, NamedOnesGoBelowTheCurrentFolderOrBesideTheMainLog)
{
    CurrentFolderScope_c const Current(m_Folder.MakeFolder("\xE4 not UTF-8"));
    StartNamedLogs();
    Logf("a.txt", "1");
    EXPECT_EQ(m_Folder.Read("\xE4 not UTF-8/GameLogs/a.txt"), "1\n");
    Module_c::ShutdownAllModules();
    LogSetFile(WideFromAscii(m_Folder.GetPath() + "/x\\y\\").c_str(), L"main.log");
    StartNamedLogs();
    Logf("a.txt", "2");
    EXPECT_EQ(m_Folder.Read("x/y/a.txt"), "2\n");
    std::wstring sFolder = WideFromAscii(m_Folder.GetPath() + "/b\\no_folder");
    LogCreateFolders(sFolder.data());
    EXPECT_EQ(sFolder, WideFromAscii(m_Folder.Join("b/no_folder")));
    EXPECT_EACH(fs::exists(m_Folder.Join("b")), !fs::exists(m_Folder.Join("b/no_folder")));
}

TEST_F(Logs, ARelativeFolderIsThatOfTheCallAndNullIsNone)
{
    CurrentFolderScope_c const Current(m_Folder.GetPath());
    LogSetFile(L"logs/", nullptr);
    fs::current_path(m_Folder.MakeFolder("elsewhere"));
    LogInit();
    Log("line");
    EXPECT_THAT(m_Folder.Read("logs/message.log"), testing::EndsWith("\tline\n"));
    EXPECT_EQ(g_ExceptionReport.GetFolder(), WideFromAscii(m_Folder.Join("logs/")));
    EXPECT_EQ(g_ExceptionReport.GetLogFileName(), WideFromAscii(m_Folder.Join("logs/message.log")));
    LogDone();
    LogSetFile(nullptr, L"x");
    LogInit();
    EXPECT_EQ(g_pMessageLogFile, nullptr);
    ModuleLog_c::SetLogPath(nullptr);
    StartNamedLogs();
    EXPECT_EQ(ModuleLog_c::Get()->GetLogPath(), WideFromAscii(m_Folder.Join("elsewhere") + "\\GameLogs"));
}

TEST_F(Logs, NamedOnesDoNotGoToTheRootIfTheCurrentFolderWasDeleted)
{
    CurrentFolderScope_c const Current(m_Folder.MakeFolder("deleted"));
    fs::remove(m_Folder.Join("deleted"));
    StartNamedLogs();
    EXPECT_STREQ(ModuleLog_c::Get()->GetLogPath(), L".\\GameLogs");
    EXPECT_EQ(ModuleLog_c::Get()->GetLogFile("a.txt"), nullptr);
}

TEST_F(Logs, ANamedOneBeyondTheTableIsOpenedAllTheSame)
{
    StartNamedLogsIn(m_Folder.GetPath());
    auto const Open = [](int i) { return ModuleLog_c::Get()->GetLogFile(Va("log%i", i)); };
    int nKept = 0;
    std::FILE *pFirst = Open(0), *pSecond = Open(0);
    for (; pFirst && pFirst == pSecond; ++nKept)
    {
        pFirst = Open(nKept + 1);
        pSecond = Open(nKept + 1);
    }
    ASSERT_NE(pFirst, nullptr);
    ASSERT_NE(pSecond, nullptr);
    std::fclose(pFirst);
    std::fclose(pSecond);
    EXPECT_THAT(nKept, testing::AllOf(testing::Ge(42), testing::Le(64)));   // of 64, two thirds rounded down or more
}

TEST_F(Logs, SystemReportHasFourteenLines)
{
    LogCapture_c const Capture;
    DumpSystemInfo();
    std::string const sRule(99, '-'), sMegabytes = " memory: \t[0-9]+\\.[0-9][0-9] Mb\n   ";
    EXPECT_THAT(Capture.GetText(),
        MatchesRegex("System information:\n   OS: \t\t\t\t.+\n   OS version: \t\t\t[0-9]+\\.[0-9]+\\.[0-9]+\n"
                     "   Computer name: \t\t\".+\"\n   User name: \t\t\t\".+\"\n   Processors count: \t\t[1-9][0-9]*\n"
                     "   Processor\\(s\\) type: \t\t[0-9]+\n   Total physical"
                     + sMegabytes + "Available physical" + sMegabytes + "Total virtual" + sMegabytes
                     + "Available virtual memory: \t[0-9]+\\.[0-9][0-9] Mb\n" + sRule
                     + "\nLOG START:  ..\\...\\.....  ..:..:..\\....\n" + sRule + "\n"));
}

TEST_F(Logs, TheSystemsErrorAndTheDebuggersLinesArePassedOn)
{
    LogCapture_c const Capture;
    errno = ENOENT;
    LogWinLastError("open");
    errno = EACCES;
    LogWinLastError(nullptr);
    EXPECT_EQ(Capture.GetText(), "open: No such file or directory\n\nGetLastError() returned: Permission denied\n\n");
    auto const fnPrevious =
        plat::DebugOutputSet([](char const * szText) { g_sLogTrace += std::string("<") + szText + '>'; });
    Debugf("%s %i", "text", 1);
    plat::DebugOutputSet(fnPrevious);
    EXPECT_EQ(g_sLogTrace, "<text 1><\n>");
}
