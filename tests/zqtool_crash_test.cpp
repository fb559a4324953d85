#include "tests/browser_support.h"
#include "tests/crash_support.h"

#include <nlohmann/json.hpp>

namespace
{
    using testing::AllOf;
    using testing::ContainsRegex;
    using testing::HasSubstr;
    using testing::StartsWith;
    using Json_t = nlohmann::json;

    std::string const HEAD = "\nPROGRAM IS CRASHED!!!\r\nException code: C0000005 ACCESS_VIOLATION\r\n"
                             "Fault address:  5566C95A4165 0F:00000105 /srv/game/game\r\n\r\nRegisters:\r\nEAX:0\r\n";
    constexpr char STACK[] =
        "\r\nCall stack:\r\nAddress   Frame     Function            SourceFile\r\n"
        "5566C95A4165  7FFF0010  std::vector<int>::operator[]+1C   /usr/include/c++/12/vector(9): \r\n"
        "5566C95A41CD  7FFF0020  (anonymous namespace)::operator+5E   /srv/game/a(1).cpp(22): if (a < b)\r\n"
        "7F0000001234  7FFF0030  000C:00006CD9 /usr/lib/libc.so.6  \r\n"
        "00000001  7FFF0040    \r\n";
    constexpr char REST[] = "\nCrash code disassembly:\n\n; 13, x\n5566c95a4165: nop      <--------- FAULT!!!\n\n\n"
                            "========================\r\nLocal Variables And Parameters\r\n";
    constexpr char VARIABLES[] = "\tParameter 'Ship' Ship_t\r\n\t\t iHull = 1A\r\n\r\n\tLocal 'p' = 0\r\n\r\n\r\n";

    std::string WithVariables()
    {
        std::string const sStack = STACK;
        std::size_t const iThird = sStack.find("7F00");
        return HEAD + STACK + REST + sStack.substr(0, iThird) + VARIABLES + sStack.substr(iThird) + "\r\n\r\n";
    }

    std::string const DETAILS = R"(ZQCore crash details 1

[Fault]
code: C0000005 ACCESS_VIOLATION
kind: write
data: 00000010
instruction: 5566C95A4165
thread: 4711 "render \x1B[31m"

[Frames]
#0 5566C95A4165 libzqcore.so.0+165 Abort+1C
    at zqcore/cdebug.cpp:7
#1 5566C95A41CD my\x20game+1CD Ship_c::Hit [inlined]
    at /srv/game/ship.h:9
      8 | {
    > 9 |     *p = 1;
    parameter this: Ship_c * = 0x10
    local Damage: Damage_t
        .iHull: int = 26 (0x1A)
        ... 2 members left out ...
    ... 3 variables left out ...
    something new
#2 5566C95A41CD my\x20game+1CD Game_c::Tick<int>+5E
    at /srv/game/game.cpp:120
... 7 frames left out ...
#10 7F0000001234 libc.so.6+1234 ?
#11 00000001 ? ?
... 40 or more frames left out ...
(cut: the limit of 5 s)

[Later]
#5 not for this reader

[Threads]
thread 4712 "audio", waits for g_csAsync
#0 7F0000001250 libc.so.6+1250 futex_wait+2
#1 5566C95A4200 my\x20game+200 Audio_c::Run+9
    at /srv/game/audio.cpp:12

[Modules]
5566C95A4000-5566C95A5000 0123ABCD /srv/game/my game
7F0000000000-7F0000100000 - /usr/lib/libc.so.6

[Process]
time: 2013-03-07T09:05:41.250+01:00
command: "./game" "--fast"
host: Robots v2.7
memory:
    4096 AI
log:
    | last words
timers:
    Application
)";

    // Output of zqtool for these details.
    constexpr char SHOWN[] =
        R"(write to address 0x10 in Abort, called from Ship_c::Hit (ship.h:9), thread 4711 "render \x1B[31m"
FILE_details.txt, 2013-03-07 09:05:41, C0000005 ACCESS_VIOLATION

Likely frame
  > #1   Ship_c::Hit [inlined]  /srv/game/ship.h:9
        8 | {
      > 9 |     *p = 1;

Stack
    #0   Abort+1C  zqcore/cdebug.cpp:7
  > #1   Ship_c::Hit [inlined]  /srv/game/ship.h:9
    #2   Game_c::Tick<int>+5E  /srv/game/game.cpp:120
    ... 7 frames left out ...
    #10  libc.so.6+1234
    #11  0x1
    ... farther frames are left out ...

Variables of frame 1
    parameter this: Ship_c * = 0x10
    local Damage: Damage_t
      .iHull: int = 26 (0x1A)
      ... 2 members left out ...
    ... 3 variables left out ...

Other threads
    4712 "audio", waits for g_csAsync: futex_wait, called from Audio_c::Run (audio.cpp:12)

Process
    time: 2013-03-07T09:05:41.250+01:00
    command: "./game" "--fast"
    host: Robots v2.7
    modules: 2

Memory, largest categories in bytes
    4096 AI

Open timers
    Application

Last lines of the log
    last words

Incomplete
    [Frames]: the limit of 5 s
)";

    std::string Replaced(std::string sText, std::string const & sOld, std::string const & sNew)
    {
        std::size_t const iAt = sText.find(sOld);
        EXPECT_NE(iAt, std::string::npos) << sOld;
        return sText.replace(iAt, sOld.size(), sNew);
    }

    constexpr char STEM[] = "CrashReport_7.3.2013__9_5_41";
}

class ZqtoolCrash : public testing::Test
{
protected:
    std::string WriteReport(std::string const & sText, std::string const & sStem = STEM)
    {
        return m_Folder.Write(sStem + ".rpt", sText);
    }
    std::string WriteDetails(std::string const & sText, std::string const & sStem = STEM)
    {
        return m_Folder.Write(sStem + "_details.txt", sText);
    }

    // Returns what the command prints.
    static std::string Shown(std::string const & sArguments) { return RunTool("crash " + sArguments).sOutput; }

    TempFolder_c const m_Folder;
};

TEST_F(ZqtoolCrash, ShowsTheDetailsOfACrashWhateverNamesIt)
{
    std::string const sDetails = WriteDetails(DETAILS);
    EXPECT_THAT(RunTool("crash " + sDetails), Ends(0, Replaced(SHOWN, "FILE", m_Folder.Join(STEM))));
    std::string const sReport = WriteReport(HEAD + STACK);
    Result_t const Both = RunTool("crash " + sReport + " " + sDetails + " " + m_Folder.GetPath());
    EXPECT_EQ(Both.sOutput, Replaced(SHOWN, "FILE_details.txt", sReport)) << "each crash once, whatever names it";
    // A pipe has the details' own name.
    std::string const sMore = m_Folder.Join(std::string(STEM) + "_details_0123CDEF.txt");
    fs::rename(sDetails, sMore);
    MakePipe(sDetails);
    for (std::string const & sNames : { sReport, sMore, m_Folder.GetPath(), sMore + " " + sReport })
    {
        EXPECT_EQ(Shown(sNames), Both.sOutput) << sNames;
    }
    std::string const sFold = TEST_EMULATOR ZQTOOL_PATH " crash --fold --json " + m_Folder.GetPath();
    auto const Sample = [&] { return Json_t::parse(RunShell(sFold).sOutput)["sample"]; };
    EXPECT_EQ(Sample()["threads"].size(), 1u) << "the sample is whole";
    EXPECT_THAT(Shown(sDetails), HasSubstr(sDetails + ": this is no regular file\n"));
    fs::remove(sMore);
    EXPECT_EQ(Sample()["details"], false);
}

TEST_F(ZqtoolCrash, ShowsAReportWithoutDetails)
{
    std::string const sExpected =
        "access violation in std::vector<int>::operator[], called from (anonymous namespace)::operator (a(1).cpp:22)\n"
        + m_Folder.Join(STEM)
        + ".rpt, 2013-03-07 09:05:41, C0000005 ACCESS_VIOLATION, without details\n\nLikely frame\n"
          "  > #1   (anonymous namespace)::operator+5E  /srv/game/a(1).cpp:22\n      > 22 | if (a < b)\n\nStack\n"
          "    #0   std::vector<int>::operator[]+1C  /usr/include/c++/12/vector:9\n"
          "  > #1   (anonymous namespace)::operator+5E  /srv/game/a(1).cpp:22\n"
          "    #2   libc.so.6, section 12+6CD9\n    #3   0x1\n\nVariables of frame 1\n"
          "    parameter Ship: Ship_t\n      .iHull = 1A\n    local p = 0\n";
    EXPECT_THAT(RunTool("crash " + WriteReport(WithVariables())), Ends(0, sExpected));
    for (auto const & [sCode, sStart] :
        Rows_t<std::string, std::string>{ { "C00000FD STACK_OVERFLOW", "stack overflow in std::" },
            { "C0000094 INT_DIVIDE_BY_ZERO", "integer division by zero in " },
            { "E06D7363 Uncaught C++ exception Lost_t: why", "uncaught exception Lost_t: why in " },
            { "C0001234 what it is", "exception 0xC0001234, what it is in " } })
    {
        std::string const sReport = Replaced(WithVariables(), "C0000005 ACCESS_VIOLATION", sCode);
        EXPECT_THAT(Shown(WriteReport(sReport)), StartsWith(sStart));
    }
}

TEST_F(ZqtoolCrash, ShowsARecursionOnceWithTheNumberOfItsTurns)
{
    std::string sTurns;
    for (int i = 1; i <= 12; ++i)
    {
        sTurns +=
            "#" + std::to_string(i) + (i % 2 ? " 5566C95A4210 game+210 Visit+9\n" : " 5566C95A4220 game+220 Walk+7\n");
    }
    std::string const sDetails =
        Replaced(Replaced(DETAILS, "#1 5566", sTurns + "#13 5566"), "#2 5566C95A41CD", "#14 5566C95A41CD");
    EXPECT_THAT(Shown(WriteDetails(sDetails)),
        HasSubstr("\nStack\n    #0   Abort+1C  zqcore/cdebug.cpp:7\n  > #1   Visit+9  game\n    #2   Walk+7  game\n"
                  "    ... these 2 frames 5 more times, to #12 ...\n    #13  Ship_c::Hit [inlined]"));
    std::string const sFew = sTurns.substr(0, sTurns.find("#7 "));
    EXPECT_THAT(Shown(WriteDetails(Replaced(DETAILS, "#1 5566", sFew + "#7 5566"))),
        HasSubstr("    #6   Walk+7  game\n    #7   Ship_c::Hit"))
        << "three turns are shown";
}

TEST_F(ZqtoolCrash, AThreadsNameForgesNoLock)
{
    EXPECT_THAT(Shown(WriteDetails(Replaced(DETAILS, "\"audio\"", "\"x, holds \"y\""))),
        HasSubstr("4712 \"x, holds \"y\", waits for g_csAsync: "));
}

TEST_F(ZqtoolCrash, KeepsTheBlanksOfAModulesName)
{
    std::string const sFile = WriteDetails(Replaced(DETAILS, "my\\x20game+1CD Ship", "my\\x20game\\x20+1CD Ship"));
    EXPECT_EQ(Json_t::parse(Shown("--json " + sFile))["thread"]["frames"][1]["module"], "my game ");
}

TEST_F(ZqtoolCrash, DoesNotCallANamelessFrameTheNamedOne)
{
    std::size_t const iFrames = DETAILS.find("#0 "), iEnd = DETAILS.find("#10 ");
    EXPECT_THAT(Shown(WriteDetails(DETAILS.substr(0, iFrames) + DETAILS.substr(iEnd))),
        HasSubstr("\nInnermost frame; no frame has a name\n  > #10  libc.so.6+1234\n"));
}

TEST_F(ZqtoolCrash, NamesTheHostsFunctionAsTheCauseNotTheRuntimeThatEndsTheProcess)
{
    std::string const sException = Replaced(
        DETAILS, "kind: write\ndata: 00000010", "kind: exception\nexception: std::runtime_error: no harbour: Bergen");
    std::string const sThrown = Replaced(sException, "C0000005 ACCESS_VIOLATION", "E06D7363 Uncaught C++ exception");
    std::string const sTrap = Replaced(Replaced(DETAILS, "C0000005 ACCESS_VIOLATION", "80000003 BREAKPOINT"),
        "kind: write\ndata: 00000010", "kind: trap");
    std::string const sAbort =
        Replaced(Replaced(sTrap, "kind: trap", "kind: abort"), "80000003 BREAKPOINT", "40000015 x");
    std::string const sFunctions = "Ship_c::Hit < Game_c::Tick<int>";
    for (auto const & [sDetails, sHeadline, sSignature] : Rows_t<std::string, std::string, std::string>{
             { sThrown, "uncaught exception std::runtime_error: no harbour: Bergen", "exception std::runtime_error: " },
             { sAbort, "abort", "abort: " }, { sTrap, "call of Abort", "trap: " },
             { Replaced(sTrap, "165 Abort", "165 AssertFailed"), "failed assertion", "trap: " },
             { Replaced(sTrap, "165 Abort", "165 Other"), "breakpoint in Other, called from",
                 "trap in libzqcore.so.0: " } })
    {
        Json_t const Crash = Json_t::parse(Shown("--json " + WriteDetails(sDetails)));
        std::string const sPlace = sHeadline.ends_with("from") ? " Ship_c::Hit (" : " in Ship_c::Hit (";
        EXPECT_THAT(Crash["headline"].get<std::string>(), StartsWith(sHeadline + sPlace));
        EXPECT_EQ(Crash["signature"], sSignature + sFunctions);
    }
}

TEST_F(ZqtoolCrash, ShowsWhatTheLibraryWrites)
{
    NEEDS_VFORK;
    RunIn(m_Folder, "write busy silent", ZQSYMBOLS_PATH);
    Result_t const Result = RunTool("crash --json " + m_Folder.GetPath());
    ASSERT_EQ(Result.iStatus, 0) << Result.sOutput;
    Json_t const Crash = Json_t::parse(Result.sOutput);
    EXPECT_THAT(Crash["headline"].get<std::string>(), StartsWith("write to address 0x10 in "));
    EXPECT_EQ(Json_t({ Crash["kind"], Crash["data"], Crash["process"]["host"], Crash["timers"].back() }),
        Json_t({ "write", "0x10", "Robots v2.7", "World" }));
    EXPECT_EQ(Crash["log"].size(), 32u);
    NEEDS_ZQSYMBOLS;
    EXPECT_THAT(Crash["signature"].get<std::string>(), ContainsRegex("^write in crasher: .*WriteTo < "));
}

TEST_F(ZqtoolCrash, FoldsByCauseTheLargestGroupFirst)
{
    std::string const sOther = Replaced(DETAILS, "Ship_c::Hit [inlined]", "<b>&\xFF\x1B::Sink [inlined]");
    WriteDetails(Replaced(sOther, "2013-03-07", "2013-03-09"), "CrashReport_1");
    WriteDetails(DETAILS, "CrashReport_2");
    std::string const sMoved = Replaced(Replaced(DETAILS, "Tick<int>+5E", "Tick<int>+6F"), "2013-03-07", "2013-02-01");
    WriteDetails(Replaced(sMoved, "v2.7", "v2.8"), "deep/er/CrashReport_3");
    WriteReport("not one", "deep/CrashReport_4");
    Result_t const Result = RunTool("crash --fold --html " + m_Folder.Join("page.html") + " " + m_Folder.GetPath());
    EXPECT_EQ(Result.iStatus, 1) << "one is no report";
    EXPECT_EQ(Result.sOutput,
        m_Folder.Join("deep/CrashReport_4.rpt(1): not a crash report: not one\n")
            + "3 crashes in 2 groups\n\n      2  write in libzqcore.so.0: Ship_c::Hit < Game_c::Tick<int>\n"
              "         2013-02-01 to 2013-03-07, version Robots v2.7 (1), Robots v2.8 (1)\n         "
            + m_Folder.Join("CrashReport_2_details.txt")
            + "\n\n      1  write in libzqcore.so.0: <b>&\xEF\xBF\xBD\xEF\xBF\xBD::Sink < Game_c::Tick<int>\n"
              "         2013-03-09, version Robots v2.7\n         "
            + m_Folder.Join("CrashReport_1_details.txt") + "\n");

    std::string const sPage = m_Folder.Read("page.html");
    EXPECT_THAT(sPage, HasSubstr("<b>&lt;b&gt;&amp;\xEF\xBF\xBD\xEF\xBF\xBD::Sink &lt; Game_c::Tick&lt;int&gt;</b>"));
    EXPECT_THAT(sPage, HasSubstr("deep/CrashReport_4.rpt(1): not a crash report: not one</li>"));
    EXPECT_EQ(sPage.find("://"), std::string::npos) << "the page needs nothing else";

    std::string const sGroups = Shown("--fold --json " + m_Folder.GetPath());
    Json_t const Largest =
        Json_t::parse(sGroups.substr(sGroups.find("\n{"), sGroups.find("}\n{") - sGroups.find("\n{") + 1));
    EXPECT_EQ(Json_t({ Largest["count"], Largest["first"], Largest["versions"]["Robots v2.8"],
                  Largest["sample"]["thread"]["frames"].size() }),
        Json_t({ 2, "2013-02-01 09:05:41", 1, 5u }));
}

TEST_F(ZqtoolCrash, ThePageHasTheLogOfACrashWithoutFrames)
{
    std::string sBare = DETAILS;
    std::size_t const iFrames = sBare.find("#0 5566");
    WriteDetails(sBare.erase(iFrames, sBare.find("[Later]") - iFrames));
    RunTool("crash --html " + m_Folder.Join("page.html") + " " + m_Folder.GetPath());
    EXPECT_THAT(m_Folder.Read("page.html"), HasSubstr("last words"));
}

TEST_F(ZqtoolCrash, CountsTheVersionsOfEachGroupInOrder)
{
    std::string const sOther = Replaced(DETAILS, "Ship_c::Hit [inlined]", "Sink [inlined]");
    std::string const sNine = Replaced(DETAILS, "v2.7", "v2.9"), sTen = Replaced(DETAILS, "v2.7", "v2.10");
    WriteDetails(Replaced(sNine, "memory:", "host: Robots v9.9\nmemory:"), "CrashReport_1");
    WriteDetails(sTen, "CrashReport_2");
    // Only whole lines count: these break off within the version, and before it.
    WriteDetails(sTen.substr(0, sTen.find("v2.10") + 4), "CrashReport_cut");
    WriteDetails(sTen.substr(0, sTen.find("[Process]")), "CrashReport_short");
    WriteDetails(Replaced(Replaced(sOther, "v2.7", "v2.10.1"), "2013-03", "some day"), "CrashReport_3");
    WriteReport(HEAD + STACK, "CrashReport_-7.3.2013__9_5_41");           // without details, and without a time
    WriteDetails(Replaced(sNine, "T09:05", "T17:59"), "CrashReport_5");   // of the same day
    EXPECT_THAT(Shown("--fold " + m_Folder.GetPath()),
        ContainsRegex("7 crashes in 3 groups\n\n +5  write in [^\n]*: Ship_c::Hit [^\n]*\n"
                      " +2013-03-07, version Robots v2.9 \\(2\\), Robots v2.10 \\(1\\)\n[^\n]*\n\n"
                      " +1  access in [^\n]*\n[^\n]*CrashReport_-7.3.2013__9_5_41.rpt\n\n"
                      " +1  write in [^\n]*: Sink [^\n]*\n +version Robots v2.10.1\n"));
    std::string const sJson = Shown("--json " + m_Folder.Join("CrashReport_1_details.txt"));
    EXPECT_EQ(Json_t::parse(sJson)["process"]["host"], "Robots v2.9") << "the first one of a repeated key";
}

TEST_F(ZqtoolCrash, ThePageFiltersItsGroupsAndFitsANarrowWindow)
{
    SKIP_IF(FindBrowser().empty(), NEEDS_BROWSER);
    WriteDetails(DETAILS, "CrashReport_1");
    WriteDetails(Replaced(DETAILS, "Ship_c::Hit [inlined]", "<i id=evil>'\"::Sink [inlined]"), "CrashReport_2");
    RunTool("crash --html " + m_Folder.Join("page.html") + " " + m_Folder.GetPath());
    std::string const sDocument = LoadDocument(m_Folder, m_Folder.Read("page.html"), R"(
filter.value = "evil>'\"::sink"; filter.dispatchEvent(new Event("input"));
document.documentElement.dataset.seen = [groups.map((group) => group.hidden), shown.textContent,
    document.getElementById("evil"), groups[1].querySelector("details").open].join();
groups.forEach((group) => { group.hidden = false; group.querySelector("details").open = true; });
document.documentElement.dataset.fits = document.documentElement.scrollWidth <= innerWidth && innerWidth;
)",
        "", "--window-size=360,800");
    EXPECT_THAT(sDocument, HasSubstr("data-seen=\"false,true,1 of 2 groups,,false\""));
    EXPECT_THAT(sDocument, HasSubstr("data-fits=\"360\""));
}

TEST_F(ZqtoolCrash, SaysWhatIsDamagedAndGoesOn)
{
    std::string const sGood = WithVariables(), sZeros(5000, '\0'), sLong(100000, 'x');
    std::string const sStack = HEAD + STACK;
    // A row has a report, what zqtool says of it, and what zqtool shows nevertheless.
    for (auto const & [sReport, sExpected, sShown] : Rows_t<std::string, std::string, std::string>{
             { "", ": the report is empty", "" }, { sZeros, "(1): a line has zeros in place of text (and 1 more)", "" },
             { "\177ELF\2\1\n", "(1): not a crash report: \uFFFDELF\uFFFD\uFFFD\n", "" },
             { HEAD, "(7): the report breaks off before its call stack", "access violation at 0x5566C95A4165" },
             { sStack.substr(0, sStack.find("5566C95A41CD") + 20), "(12): the file breaks off within this line",
                 "operator[]+1C" },
             { sStack + "\nCrash code disassembly:\n\n; 13, x\n", "(18): the report breaks off in the listing", "#3 " },
             { sGood.substr(0, sGood.find("\tLocal")), "(31): the report breaks off in the variables", "iHull = 1A" },
             { sStack + sZeros + "\n" + sStack, "(15): a line has zeros in place of text (and 1 more)", "#3 " },
             { Replaced(sStack, "5566C95A41CD  ", "zz  "), "(12): not a frame: zz  7FFF0020", "#2 " },
             { Replaced(sStack, "code: C", "code: Q"), "(3): not an exception code: Q0000005", "exception 0x0 in " },
             { Replaced(sStack, "code: C", "code: 1C"), "(3): not an exception code: 1C0000005", "exception 0x0 in " },
             { Replaced(sStack, "7FFF0010  ", "7FFF0010  " + sLong), "(11): a line of 100", "#2 " },
             { Replaced(sGood, "Crash code disassembly:", "Local Variables And Parameters"), "(23): out of order",
                 "#2 " } })
    {
        EXPECT_THAT(RunTool("crash " + WriteReport(sReport)),
            Ends(1, AllOf(HasSubstr(std::string(STEM) + ".rpt" + sExpected), HasSubstr(sShown))));
    }
    std::string const sMember = "        .iHull: int = 26 (0x1A)\n";
    WriteDetails("ZQCore crash details 1\n(cut: the disk is full)\n");
    EXPECT_THAT(Shown(m_Folder.GetPath()), HasSubstr("\nIncomplete\n    the disk is full\n"));
    std::string sMembers, sVariables, sCuts = "[Modules]\n(cut: x)\n";
    for (int i = 0; i < 10'000; ++i)
    {
        sMembers += sMember;
        sVariables += "\t\t iHull = 1A\r\n";
        sCuts += "(cut: x)\n";
    }
    EXPECT_THAT(RunTool("crash " + WriteReport(Replaced(sGood, "\t\t iHull", sVariables + "\t\t iHull"))),
        Ends(1, HasSubstr("a list of more than 10000 variables is cut")));
    WriteReport(sStack);
    for (auto const & [sText, sExpected] :
        Rows_t<std::string, std::string>{ { Replaced(DETAILS, sMember, sMembers),
                                              "(10052): a list of more than 10000 entries is cut, in this crash" },
            { Replaced(DETAILS, "[Modules]\n", sCuts),
                "(10054): a list of more than 10000 entries is cut, in this crash" },
            { "", ": the details are empty" }, { "x\n", "(1): not the details of a crash: x" },
            { "ZQCore crash details 2\n", "(1): details of another version" },
            { DETAILS.substr(0, DETAILS.find("\n[Modules]")), "(38): the details break off in [Threads]" },
            { DETAILS.substr(0, DETAILS.find("\n[Modules]") + 1) + DETAILS,
                "(40): the details break off in [Threads]" },
            { Replaced(DETAILS, "[Modules]", "[Fault]"), "(40): out of order: [Fault]" },
            { Replaced(DETAILS, "data: 00000010", "data: q"), "(6): not an address: data: q" },
            { Replaced(DETAILS, "#1 5566", "#x 5566"), "(13): not a frame: #x" },
            { Replaced(DETAILS, "-5566C95A5000", ""), "(41): not a module: 5566C95A4000 01" } })
    {
        WriteDetails(sText);
        EXPECT_THAT(RunTool("crash " + m_Folder.Join(STEM) + ".rpt"),
            Ends(1, AllOf(HasSubstr("_details.txt" + sExpected), HasSubstr(" in "))))
            << "the report is still shown";
    }
}

TEST_F(ZqtoolCrash, ReadsTheStartOfAHugeFile)
{
    std::string const sReport = WriteReport(HEAD + STACK);
    fs::resize_file(sReport, 1 << 30);   // appends a hole, which reads as zeros
    EXPECT_THAT(Shown(sReport), HasSubstr(sReport + ": more than 16 MiB; the rest is not read\n"));
}

TEST_F(ZqtoolCrash, FindsAllFilesInWhateverOrderTheyAreNamed)
{
    std::string const sOther = Replaced(HEAD + STACK, "C0000005 ACCESS", "C0000006 IN_PAGE");
    std::string const sFolder = m_Folder.MakeFolder("named"), sReport = m_Folder.Write("named/x.rpt", HEAD + STACK);
    m_Folder.Write("named/x_details.txt", DETAILS);   // no report's name, so the folder alone does not count it
    EXPECT_THAT(Shown(sFolder), StartsWith("access violation in "));
    EXPECT_THAT(Shown(sReport + " " + sFolder), StartsWith("write to address 0x10"));
    EXPECT_THAT(Shown(sFolder + " " + sReport), StartsWith("write to address 0x10"));
    EXPECT_EQ(Shown(sReport + " " + sFolder + "/../named/x.rpt"), Shown(sReport)) << "another path of it";
    m_Folder.MakeFolder("named/y");
    fs::create_directory_symlink("y", sFolder + "/x");
    m_Folder.Write("named/y.rpt", sOther);
    auto const HasBoth = AllOf(HasSubstr("C0000006"), HasSubstr("C0000005"));
    EXPECT_THAT(Shown(sFolder), HasBoth) << "a link that has the name of a report leads to the name of another";
    fs::remove(sFolder + "/x");
    std::string const sX = m_Folder.Write("named/x", sOther);
    for (std::string const & sNames : { sX + " " + sReport, sReport + " " + sX })
    {
        EXPECT_THAT(Shown(sNames), HasBoth) << sNames;
    }
}

TEST_F(ZqtoolCrash, ContinuedReportsAreSeveralCrashes)
{
    std::string const sSecond = Replaced(HEAD + STACK, "C0000005 ACCESS", "C0000006 IN_PAGE");
    std::string const sAll = HEAD + sSecond;   // the first report faulted in its registers
    WriteDetails(Replaced(DETAILS, "C0000005", "C0000006"));
    EXPECT_THAT(RunTool("crash " + WriteReport(sAll)),
        Ends(0, ContainsRegex(
                    "^access violation at 0x5566C95A4165\n(.|\n)*\n-+\n\nwrite to address 0x10 in Abort, called ")));
}

TEST_F(ZqtoolCrash, ALineOfASystemHeaderInAReportHidesNoFunctionOfTheHost)
{
    WriteDetails(Replaced(DETAILS, "libzqcore.so.0+165 Abort+1C\n    at zqcore/cdebug.cpp:7", "game+165 ?"));
    std::string const sReport = Replaced(HEAD + STACK, "std::vector<int>::operator[]", "Game::Tick");
    EXPECT_THAT(Shown(WriteReport(sReport)), HasSubstr("\n  > #0   Game::Tick+1C"));
}

TEST_F(ZqtoolCrash, NamesAStrippedProgramByItsBuildId)
{
    NEEDS_VFORK;
    std::string const sProgram = m_Folder.Join("stripped"), sSymbols = m_Folder.MakeFolder("symbols/.build-id/ab");
    std::string const sSplit = "objcopy --only-keep-debug '" CRASHER_PATH "' '" + sSymbols + "/cd.debug' && strip -o '"
                               + sProgram + "' '" CRASHER_PATH "'";
    SKIP_IF(RunShell(sSplit).iStatus != 0, "no binutils here");
    RunIn(m_Folder, "inlined silent", ZQSYMBOLS_PATH, sProgram);
    std::string const sFile = " " + m_Folder.Join("CrashReport_*.rpt");
    EXPECT_THAT(Shown(sFile),
        AllOf(ContainsRegex("^write to address 0x10 in stripped\\+[0-9A-F]+, thread"),
            ContainsRegex("\n  > #0 +stripped.*\n +no name in this file; --symbols FOLDER reads it from one with "
                          "build-id [0-9a-f]+\n\nStack\n")));
    Result_t const Named = RunTool("crash --symbols " + m_Folder.Join("symbols") + sFile);
    if (Named.sOutput.find("needs a build with libdw") != std::string::npos)
    {
        EXPECT_EQ(Named.iStatus, 1);
        GTEST_SKIP() << "zqtool is built without libdw";
    }
    EXPECT_THAT(Named.sOutput,
        ContainsRegex("^write to address 0x10 in \\(anonymous namespace\\)::WriteInlined \\(crasher.cpp:[0-9]+\\), "));
    EXPECT_THAT(Named.sOutput, ContainsRegex("#0 .*WriteInlined \\[inlined\\]  .*/crasher.cpp:[0-9]+\n +#1 "));
    Result_t const Unknown = RunTool("crash --symbols " + m_Folder.MakeFolder("empty") + sFile);
    EXPECT_THAT(Unknown.sOutput, ContainsRegex("\nno symbols for " + sProgram + ", build-id [0-9a-f]+\n$"));
}

TEST_F(ZqtoolCrash, ColoursObeyNoColorAndTextsControlNoTerminal)
{
    std::string const sFile =
        WriteDetails(Replaced(DETAILS, "last words", "\x1B[5m\x7F\xC2\x9B\xE2\x80\xAE\xF0\x9F\x9A\x80\xE2\x80\t\""));
    std::string const sCommand = " TERM=xterm '" ZQTOOL_PATH "' crash '" + sFile + "'";
    EXPECT_THAT(Shown("--json " + sFile), HasSubstr("\"\\u001b[5m\\u007f\\u009b\\u202e\\ud83d\\ude80\\ufffd\\t\\\"\""));
    auto const Coloured = [](std::string const & sLine)
    { return RunOnTerminal([&] { return BecomeShell(sLine); }).sOutput; };
    SKIP_IF(*TEST_EMULATOR != '\0', "the terminal starts the tool without the emulator");
    EXPECT_THAT(Coloured("exec env -u NO_COLOR" + sCommand), StartsWith("\x1B[1mwrite to address"));
    std::string const sPlain = Coloured("exec env NO_COLOR=1" + sCommand);
    EXPECT_THAT(sPlain, StartsWith("write to address"));
    EXPECT_EQ(sPlain.find('\x1B'), std::string::npos) << "what a file holds controls no terminal";
}

TEST_F(ZqtoolCrash, RefusesUnusableFilesAndKeepsThoseThatItReads)
{
    std::string const sFile = WriteDetails(DETAILS);
    // Statuses: 0 success, 1 a failure with a file or a folder, 2 wrong arguments.
    for (auto const & [sArguments, iStatus, sExpected] : Rows_t<std::string, int, std::string>{ { "crash", 2, "FILE" },
             { "crash --html " + sFile + " " + sFile, 1, "is the file to read" },
             { "crash --html " + sFile + " " + m_Folder.GetPath(), 1, "is the file to read" },
             { "crash --html " + m_Folder.Join("no/such.html") + " " + sFile, 1, "such.html: it can't be written" },
             { "crash " + m_Folder.Join("absent.rpt"), 1, "absent.rpt: there is no such file" },
             { "crash " + m_Folder.MakeFolder("none"), 1, "none: no crash report in this folder" } })
    {
        EXPECT_THAT(RunTool(sArguments), Ends(iStatus, HasSubstr(sExpected))) << sArguments;
    }
    EXPECT_EQ(m_Folder.Read(std::string(STEM) + "_details.txt"), DETAILS) << "the page replaced its source";
}
