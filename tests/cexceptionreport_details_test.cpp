#include "platform/text.h"
#include "tests/crash_support.h"

namespace
{
    using testing::ContainsRegex;
    using testing::HasSubstr;
    using testing::MatchesRegex;
    using testing::StartsWith;

    // Variables of ShowValues in the crasher, with addresses replaced.
    std::string const VALUES = R"(    parameter Ship: (anonymous namespace)::Ship_s const & = {...}
        .x: float = 1
        .y: float = 2
        .z: float = 3
        .eColour: (anonymous namespace)::Colour_e = RED (2)
        .nLow: unsigned int = 5
        .nHigh: unsigned int = 65
        .Speed: (anonymous namespace)::Vector_s = <4, 5, 6\n(no member Ship.x)>
        .szName: char const * = "ship"
    parameter fnCall: void (*)() = 0x@ (anonymous namespace)::FaultAmongValues
    parameter wszWide: wchar_t const * = "wïde"
    local iNegative: short int = -2 (0xFFFE)
    local eBoth: (anonymous namespace)::Colour_e const = RED | BLUE (0x6)
    local szShort: char [8] = "a\nb"
    local dNumbers: int [3] = { 1, 2, 3 }
    local sFixed: String_T<32> = "fixed"
    local dArray: Array_T<int, 4, 0> = { 5, -1 (0x@) }
    local sText: std::string = "a text that is too long for the object"
    local dTexts: std::vector<std::string> = { "one", "two" }
    local dMany: std::vector<int> = { 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, ... 100 elements }
    local iSome: std::optional<short int> = 7
    local pOwned: std::unique_ptr<int> const = 0x@ { 9 }
    local Point: (anonymous namespace)::Vector_s = <1, 2, 3.5\n(no member Ship.x)>
)";

    // Returns the text with "0x@" for each hexadecimal number of six or more digits.
    std::string WithoutAddresses(std::string sText)
    {
        constexpr std::size_t PREFIX = 2, DIGITS = 6;
        for (std::size_t nAt = sText.find("0x"); nAt != std::string::npos; nAt = sText.find("0x", nAt + PREFIX))
        {
            std::size_t const nEnd = sText.find_first_not_of(plat::HEX_DIGITS, nAt + PREFIX);
            if (nEnd - nAt >= PREFIX + DIGITS)
            {
                sText.replace(nAt + PREFIX, nEnd - nAt - PREFIX, "@");
            }
        }
        return sText;
    }

    // Returns the lines of a section, or an empty text if there is none of the name.
    std::string Section(std::string const & sDetails, std::string const & sName)
    {
        std::string const sHead = "\n[" + sName + "]\n";
        std::size_t const nHead = sDetails.find(sHead);
        std::size_t const nFrom = nHead == std::string::npos ? sDetails.size() : nHead + sHead.size();
        return sDetails.substr(nFrom, sDetails.find("\n[", nFrom) - nFrom);
    }
}

class CrashDetails : public CrashTest
{};

class CrashDetailsByHelper : public CrashTest
{
protected:
    void SetUp() override
    {
        CrashTest::SetUp();
        NEEDS_ZQSYMBOLS;
    }
};

TEST_F(CrashDetails, SayWhatWasTouchedByWhichThreadAndHow)
{
    std::string const sPlain = "instruction: [0-9A-F]{8,}\nthread: [0-9]+ \"crasher\"\n";
    // An address that no 64-bit processor has is not reported.
    std::string const sWild = std::string("code: C0000005 ACCESS_VIOLATION\nkind: ")
                              + (sizeof(void *) == 8 ? "unknown\n" : "write\ndata: AAAAAAAA\n");
    // The crasher's arguments, and the lines before the instruction's and after the thread's.
    for (auto const & [sArguments, sBefore, sAfter] : Rows_t<std::string, std::string, std::string>{
             { "read silent", "code: C0000005 ACCESS_VIOLATION\nkind: read\ndata: 00000010\n", "" },
             { "write", "code: C0000005 ACCESS_VIOLATION\nkind: write\ndata: 00000010\n", "" },
             { "call", "code: C0000005 ACCESS_VIOLATION\nkind: execute\ndata: 00000000\n", "" },
             { "divide", "code: C0000094 INT_DIVIDE_BY_ZERO\nkind: arithmetic\n", "" },
             { "illegal", "code: C000001D ILLEGAL_INSTRUCTION\nkind: instruction\n", "" },
             { "abort", "code: 40000015 abort\\(\\) was called\nkind: abort\n", "" },
             { "stack", "code: C00000FD STACK_OVERFLOW\nkind: stack\ndata: [0-9A-F]+\n",
                 "depth: [78][0-9]{6} of 8[0-9]{6} bytes\n" },
             { "stack thread", "code: C00000FD STACK_OVERFLOW\nkind: stack\ndata: [0-9A-F]+\n",
                 "depth: [78][0-9]{6} of 8[0-9]{6} bytes\n" },
             { "wild", sWild, "" },
             { "throw",
                 "code: E06D7363 Uncaught C\\+\\+ exception std::runtime_error: what\\\\x1B\\\\nit says\nkind: "
                 "exception\n",
                 "exception: std::runtime_error: what\\\\x1B\\\\nit says\n" } })
    {
        SCOPED_TRACE(sArguments);
        Crash_t const Crash = RunAlone(sArguments);
        EXPECT_THAT(Crash.sDetails, StartsWith("ZQCore crash details 1\n\n[Fault]\n"));
        EXPECT_THAT(Section(Crash.sDetails, "Fault"), MatchesRegex(sBefore + sPlain + sAfter));
    }
}

TEST_F(CrashDetails, DescribeTheProcess)
{
    Crash_t const Crash = RunAlone("read longlines busy 'two words\n'");
    std::string const sTime =
        "time: [0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2}";
    EXPECT_THAT(Section(Crash.sDetails, "Process"),
        MatchesRegex(
            sTime
            + "\nuptime: [0-9]\\.[0-9]{3}\ncommand: \"" CRASHER_PATH
              "\" \"read\" \"longlines\" \"busy\" \"two words\\\\n\" \"\"\nhost: Robots v2\\.7\nlibrary: [0-9.]+\n"
              "system: Linux [^\n]+\nprocessor: [^\n]+\nmemory:\n(    [0-9]+ [^\n]+\n){1,10}log:\n"
              "(    \\|  *[0-9.]+\t0\tline [0-9]+ +end\n){32}"
              "timers:\n    Application\n    World\n"));
    EXPECT_THAT(Section(RunAlone("read tornline").sDetails, "Process"),
        ContainsRegex("log:\n    \\|  *[0-9.]+\t0\tlast\ntimers:"));
    EXPECT_THAT(
        Section(Crash.sDetails, "Modules"), MatchesRegex("([0-9A-F]{8,}-[0-9A-F]{8,} ([0-9a-f]+|-) /[^\n]+\n)+"));
    EXPECT_THAT(Section(Crash.sDetails, "Modules"), HasSubstr(" " CRASHER_PATH "\n"));
    EXPECT_THAT(Section(Crash.sDetails, "Frames"),
        MatchesRegex("(#[0-9]+ [0-9A-F]{8,} crasher\\+[0-9A-F]+ \\?\n){3,}(#[0-9]+ [^\n]+ \\?\n)+"
                     "\\(cut: there is no symbol helper\\)\n"));
}

// A write stops after half of its bytes until a limit ends the step. All lines before it are whole and occur once.
TEST_F(CrashDetails, SurviveADiskThatStops)
{
    std::string const sLog = Section(RunAlone("read busy stucklog").sDetails, "Process");
    EXPECT_THAT(sLog, ContainsRegex("log:\n(    \\|  *[0-9.]+\t0\tline [0-9]+ +end\n)+"
                                    "\\(cut: a fault, or the limit of 1 s\\)\ntimers:\n    Application\n    World\n"));
    int iLine = 8;   // the first of the last 32 of 40 lines
    for (std::size_t nAt = sLog.find("line "); nAt != std::string::npos; nAt = sLog.find("line ", nAt + 1))
    {
        EXPECT_EQ(std::stoi(sLog.substr(sLog.find(' ', nAt))), iLine++);
    }
    EXPECT_GT(iLine, 20);

    Crash_t const Crash = RunAlone("read busy stuckmodules");
    EXPECT_THAT(Section(Crash.sDetails, "Modules"),
        MatchesRegex("([0-9A-F]{8,}-[0-9A-F]{8,} ([0-9a-f]+|-) /[^\n]+\n)+\\(cut: the limit of 5 s\\)\n"));
    EXPECT_THAT(Section(Crash.sDetails, "Process"), HasSubstr("\ntimers:\n    Application\n    World\n"));
    EXPECT_THAT(Crash.sReport, HasSubstr("Local Variables And Parameters"));
}

TEST_F(CrashDetails, SayHowManyFramesAreLeftOutWithoutTheHelper)
{
    EXPECT_THAT(Section(RunAlone("stack").sDetails, "Frames"),
        ContainsRegex("\n#255 [^\n]+\n\\.\\.\\. [0-9]{4} (or more )?frames left out \\.\\.\\.\n\\(cut: there is no "
                      "symbol helper\\)\n"));
}

TEST_F(CrashDetailsByHelper, ShowInlinedCallsSourcesAndValues)
{
    Crash_t const Crash = RunAlone("values printer", ZQSYMBOLS_PATH);
    std::string const sFrames = Section(Crash.sDetails, "Frames");
    EXPECT_THAT(sFrames,
        ContainsRegex("^#0 [0-9A-F]+ crasher\\+[0-9A-F]+ \\(anonymous namespace\\)::Touch \\[inlined\\]\n"
                      "    at /[^\n]*/details.h:[0-9]+\n(      [0-9]+ \\| [^\n]*\n){3}    > [0-9]+ \\|     return "
                      "\\*pTouched \\* nFactor;\n(      [0-9]+ \\| [^\n]*\n){3}(    parameter (pTouched: int "
                      "volatile \\* = 0x10|nFactor: int = 3)\n){2}#1 [0-9A-F]+ crasher\\+[0-9A-F]+ "
                      "\\(anonymous namespace\\)::ShowValues\\+[0-9A-F]+\n    at /[^\n]*/details.h:[0-9]+\n"));
    std::string const sSecond = sFrames.substr(sFrames.find("\n#1 "));
    std::string const sVariables = sSecond.substr(sSecond.find("    parameter"));
    EXPECT_EQ(WithoutAddresses(sVariables.substr(0, sVariables.find("\n#2") + 1)), VALUES);
#ifndef __clang__   // which keeps such a variable in memory
    EXPECT_THAT(sFrames, HasSubstr("    local nInRegister: int = 77 [register]\n"));
#endif
}

// The sum and the difference of each frame depend on both of its caller.
TEST_F(CrashDetailsByHelper, NameTheArgumentsOfADeepRecursionInTime)
{
    Crash_t const Crash = RunAlone("depth", ZQSYMBOLS_PATH);
    EXPECT_LT(Crash.tSeconds, 10.0);
    EXPECT_THAT(Section(Crash.sDetails, "Frames"), HasSubstr("\n#25 "));
#ifndef __clang__                        // which does not describe sums of a caller's values
    if constexpr (sizeof(void *) == 8)   // 32-bit code describes none either
    {
        EXPECT_THAT(Section(Crash.sDetails, "Frames"),
            HasSubstr("    parameter nMore: int = 1\n    parameter iSum: int = 4096\n"
                      "    parameter iDifference: int = 12288\n"));
    }
#endif
}

TEST_F(CrashDetailsByHelper, SayWhatIsLeftOut)
{
    std::string const sFrames = Section(RunAlone("many", ZQSYMBOLS_PATH).sDetails, "Frames");
    EXPECT_THAT(sFrames, ContainsRegex("\n        \\.nG3: int = 0\n        \\.\\.\\. 6 members left out \\.\\.\\.\n  "
                                       "  local Long: std::pair<std::pair<[^\n]+\\.\\.\\.\n"));
    EXPECT_THAT(sFrames,
        ContainsRegex("\n    local nM5: int volatile = [^\n]+\n    \\.\\.\\. 4 variables left out \\.\\.\\.\n#1 "));
}

TEST_F(CrashDetailsByHelper, EndWholeWhenTheHelperEndsAmongTheFrames)
{
    Crash_t const Crash = RunAlone("stack killhelper", ZQSYMBOLS_PATH);
    EXPECT_THAT(Section(Crash.sDetails, "Frames"),
        MatchesRegex("(#[0-9]+ [^\n]+\n(    [^\n]+\n)*)+\\(cut: the symbol helper failed\\)\n"));
    EXPECT_EQ(Section(Crash.sDetails, "Threads"), "(cut: the symbol helper failed)\n");
    EXPECT_THAT(Section(Crash.sDetails, "Process"), HasSubstr("\ntimers:\n"));
}

// The helper traces one thread at a time. The count may be 2, because a thread that was just released may still be in
// it.
TEST_F(CrashDetailsByHelper, ReleaseAThreadThatDoesNotStop)
{
    Crash_t const Crash = RunAlone("read unstoppable", ZQSYMBOLS_PATH);
    std::string const sStuck = "thread [0-9]+ \"stuck\"\n\\(cut: it did not stop\\)\n\n";
    EXPECT_THAT(Section(Crash.sDetails, "Threads"), ContainsRegex("(" + sStuck + "){4}"));
    EXPECT_THAT(Crash.sOutput, HasSubstr("traced at once: 1\n"));
    EXPECT_THAT(Crash.sOutput, testing::Not(HasSubstr("traced at once: 3\n")));
}

TEST_F(CrashDetailsByHelper, ShowTheFarEndOfAFullStack)
{
    std::string const sFrames = Section(RunAlone("stack", ZQSYMBOLS_PATH).sDetails, "Frames");
    EXPECT_THAT(
        sFrames, ContainsRegex("\n#191 [^\n]*Recurse(.|\n)*\n\\.\\.\\. [0-9]+ frames left out \\.\\.\\.\n#[0-9]{4} "
                               "[^\n]*Recurse[^\n]*\n(.|\n)*main\\+"));
}

TEST_F(CrashDetailsByHelper, ShowTheOtherThreadsThoseWithLocksFirst)
{
    std::string const sThreads = Section(RunAlone("read beside", ZQSYMBOLS_PATH).sDetails, "Threads");
    std::string const sLock = "\\(anonymous namespace\\)::g_HostLock\n",
                      sFrames = "(#[0-9]+ [^\n]+\n(    at [^\n]+\n)?)+\n";
    EXPECT_THAT(sThreads, ContainsRegex("^thread [0-9]+ \"holder\", holds " + sLock + sFrames
                                        + "thread [0-9]+ \"owner\", holds 0x[0-9A-F]+\n" + sFrames
                                        + "thread [0-9]+ \"waiter\", waits for " + sLock + sFrames
                                        + "thread [0-9]+ \"second\", waits for 0x[0-9A-F]+\n" + sFrames + "thread "));
    EXPECT_THAT(sThreads, ContainsRegex("\nthread [0-9]+ \"idle\"\n" + sFrames));
    EXPECT_THAT(sThreads, HasSubstr("plat::Lock_c::Enter"));
    EXPECT_THAT(sThreads, testing::Not(HasSubstr("\"iou-wrk")));   // the kernel's writer of the stats file
    EXPECT_THAT(
        sThreads, ContainsRegex("\n#63 [^\n]+\n(    at [^\n]+\n)?\\.\\.\\. 192 or more frames left out \\.\\.\\.\n\n"));
    EXPECT_THAT(Section(RunAlone("read ended", ZQSYMBOLS_PATH).sDetails, "Threads"),
        ContainsRegex("^thread [0-9]+ \"crasher\"\n\\(cut: it has ended\\)\n\nthread [0-9]+ \"idle\"\n" + sFrames));
    EXPECT_EQ(Section(RunAlone("read beside untraced", ZQSYMBOLS_PATH).sDetails, "Threads"),
        "(cut: the system does not let the helper trace this process: Operation not permitted)\n");
}

TEST_F(CrashDetailsByHelper, GoOnWithALateHelperAndSayWhyNamesAreMissing)
{
    TempFolder_c const Folder;
    for (auto const & [szScript, szExpected] : Rows_t<char const *, char const *>{
             { "sleep 6; exec " ZQSYMBOLS_PATH,
                 " \\(anonymous namespace\\)::ReadNowhere\\+(.|\n)*\n\\[Threads\\]\n\n\\[" },
             { "exec sleep 100", " \\?\n\\(cut: the symbol helper did not answer within 20 s\\)\n" },
             { "exit 1", " \\?\n\\(cut: the symbol helper failed\\)\n" } })
    {
        Crash_t const Crash = RunAlone("read silent", WriteHelper(Folder, szScript));
        EXPECT_THAT(Crash.sDetails, ContainsRegex(szExpected)) << szScript;
        EXPECT_LT(Crash.tSeconds, 25.0) << szScript;
    }
}
