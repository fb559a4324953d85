#include "tests/crash_support.h"

namespace
{
    using testing::HasSubstr;
    using testing::MatchesRegex;
    using testing::StartsWith;

    // The lines of a section.
    std::string Section(std::string const & sDetails, std::string const & sName)
    {
        std::size_t const nHead = sDetails.find("\n[" + sName + "]\n");
        std::size_t const nFrom = nHead == std::string::npos ? sDetails.size() : nHead + sName.size() + 4;
        return sDetails.substr(nFrom, sDetails.find("\n[", nFrom) - nFrom);
    }
}

class CrashDetails : public CrashTest
{};

TEST_F(CrashDetails, SayWhatWasTouchedByWhichThreadAndHow)
{
    std::string const sPlain = "instruction: [0-9A-F]{8,}\nthread: [0-9]+( \"crasher\")?\n";
    // The crasher's arguments, and the lines before the instruction's and after the thread's.
    for (auto const & [sArguments, sBefore, sAfter] : Rows_t<std::string, std::string, std::string>{
             { "read silent", "code: C0000005 ACCESS_VIOLATION\nkind: read\ndata: 00000010\n", "" },
             { "write", "code: C0000005 ACCESS_VIOLATION\nkind: write\ndata: 00000010\n", "" },
             { "call", "code: C0000005 ACCESS_VIOLATION\nkind: execute\ndata: 00000000\n", "" },
             { "divide", "code: C0000094 INT_DIVIDE_BY_ZERO\nkind: arithmetic\n", "" },
             { "illegal", "code: C000001D ILLEGAL_INSTRUCTION\nkind: instruction\n", "" },
             { "abort", "code: 40000015 abort\\(\\) was called\nkind: abort\n", "" },
             { "throw",
                 "code: E06D7363 Uncaught C\\+\\+ exception std::runtime_error: what\\\\x1B\\\\nit says\nkind: "
                 "exception\n",
                 "exception: std::runtime_error: what\\\\x1B\\\\nit says\n" } })
    {
        Crash_t const Crash = RunAlone(sArguments);
        EXPECT_THAT(Crash.sDetails, StartsWith("ZQCore crash details 1\n\n[Fault]\n"));
        EXPECT_THAT(Section(Crash.sDetails, "Fault"), MatchesRegex(sBefore + sPlain + sAfter));
    }
}

TEST_F(CrashDetails, DescribeTheProcess)
{
    Crash_t const Crash = RunAlone("read busy 'two words\n'");
    std::string const sTime =
        "time: [0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2}";
    EXPECT_THAT(Section(Crash.sDetails, "Process"),
        MatchesRegex(sTime
                     + "\nuptime: [0-9]\\.[0-9]{3}\ncommand: \"" CRASHER_PATH
                       "\" \"read\" \"busy\" \"two words\\\\n\" \"\"\nhost: Robots v2\\.7\nlibrary: [0-9.]+\n"
                       "system: Linux [^\n]+\nprocessor: [^\n]+\nmemory:\n(    [0-9]+ [^\n]+\n){1,10}log:\n"
                       "(    \\|  *[0-9.]+\t0\tline [0-9]+\n){32}"
                       "timers:\n    Application\n    World\n"));
    EXPECT_THAT(
        Section(Crash.sDetails, "Modules"), MatchesRegex("([0-9A-F]{8,}-[0-9A-F]{8,} ([0-9a-f]{40}|-) /[^\n]+\n)+"));
    EXPECT_THAT(Section(Crash.sDetails, "Modules"), HasSubstr(" " CRASHER_PATH "\n"));
    EXPECT_THAT(Section(Crash.sDetails, "Frames"),
        MatchesRegex("(#[0-9]+ [0-9A-F]{8,} crasher\\+[0-9A-F]+ \\?\n){3,}(#[0-9]+ [^\n]+ \\?\n)+"));
}
