// The program as a whole: help, versions, wrong arguments, and the texts made of the descriptions of commands.
#include "tests/test_support.h"

#include <algorithm>
#include <sstream>

namespace
{
    using testing::HasSubstr;

    std::string const TOOL = TEST_EMULATOR ZQTOOL_PATH " ";
    using Words_t = std::vector<std::string>;

    // Returns the words that follow sStart at the start of lines, sorted: long options if bOptions is set, else names.
    Words_t WordsOf(std::string const & sText, std::string const & sStart, bool bOptions)
    {
        Words_t dFound;
        std::istringstream Lines(sText);
        for (std::string sLine; std::getline(Lines, sLine);)
        {
            std::string sRest = sLine.starts_with(sStart) ? sLine.substr(sStart.size()) : "";
            sRest = sRest.size() > 4 && sRest.substr(2, 2) == ", " ? sRest.substr(4) : sRest;   // after a short option
            std::string const sWord = sRest.substr(0, sRest.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"));
            if (!sWord.empty() && sWord.starts_with("--") == bOptions)
            {
                dFound.push_back(sWord);
            }
        }
        std::ranges::sort(dFound);
        return dFound;
    }

    // Returns the names of the commands as --help has them.
    Words_t Commands()
    {
        return WordsOf(RunTool("--help").sOutput, "  ", false);
    }

    // Returns the long options of a command as --help has them.
    Words_t Options(std::string const & sCommand)
    {
        return WordsOf(RunTool(sCommand + " --help").sOutput, "  ", true);
    }

    // Returns the part of a text from the line of sHead and sName to the next line that begins with sHead, or to the
    // end. Returns an empty text if the text has no line of sHead and sName.
    std::string Section(std::string const & sText, std::string const & sHead, std::string const & sName)
    {
        std::size_t const nBegin = sText.find("\n" + sHead + sName + "\n");
        return nBegin == std::string::npos ? "" : sText.substr(nBegin, sText.find("\n" + sHead, nBegin + 1) - nBegin);
    }
}

TEST(Zqtool, HelpGoesToStandardOutputAndMistakesToStandardError)
{
    // Statuses: 0 success, 2 wrong arguments.
    for (auto const & [sArguments, iStatus, sOutput, sErrors] : Rows_t<std::string, int, std::string, std::string>{
             { "", 2, "", "Usage: zqtool COMMAND" }, { "--help", 0, "Usage: zqtool COMMAND", "" },
             { "-h", 0, "Usage: zqtool COMMAND", "" }, { "help", 0, "Usage: zqtool COMMAND", "" },
             { "stats --help", 0, "Usage: zqtool stats [OPTION...] FILE", "" },
             { "help stats", 0, "Usage: zqtool stats [OPTION...] FILE", "" }, { "--version", 0, "zqtool ", "" },
             { "stat x", 2, "", "zqtool: there is no command stat; did you mean stats? (zqtool --help has more)\n" },
             { "help qqqq", 2, "", "zqtool: there is no command qqqq (zqtool --help has more)\n" },
             { "stats x --jsno", 2, "",
                 "zqtool: unknown option --jsno; did you mean --json? (zqtool stats --help has more)\n" },
             { "memory --htm=x", 2, "",
                 "zqtool: unknown option --htm; did you mean --html? (zqtool memory --help has more)\n" },
             { "crash -x y", 2, "", "zqtool: unknown option -x (zqtool crash --help has more)\n" },
             { "--vresion", 2, "",
                 "zqtool: unknown option --vresion; did you mean --version? (zqtool --help has more)\n" },
             { "disasm a '\x1B[1m'", 2, "",
                 "zqtool: one argument too many: \xEF\xBF\xBD[1m (zqtool disasm --help has more)\n" },
             { "stats", 2, "", "zqtool: FILE is required (zqtool stats --help has more)\n" } })
    {
        Result_t const Output = RunShell(TOOL + sArguments + " 2>/dev/null");
        Result_t const Errors = RunShell(TOOL + sArguments + " 2>&1 >/dev/null");
        EXPECT_EQ(Output.iStatus, iStatus) << sArguments;
        EXPECT_EQ(Output.sOutput.empty(), sOutput.empty()) << sArguments;
        EXPECT_EQ(Errors.sOutput.empty(), sErrors.empty()) << sArguments;
        EXPECT_THAT(Output.sOutput, testing::StartsWith(sOutput)) << sArguments;
        EXPECT_THAT(Errors.sOutput, testing::StartsWith(sErrors)) << sArguments;
    }
}

TEST(Zqtool, TheManualThePageAndJsonHaveTheOptions)
{
    EXPECT_THAT(RunTool("help hash --json").sOutput,
        HasSubstr("{\"names\":[\"--check\"],\"value\":\"LIST\",\"purpose\":\"check the files that"));
    std::string const sManual = RunTool("help --man").sOutput;
    std::string const sPage = RunShell("cat " TEST_SOURCE_FOLDER "/docs/zqtool.md").sOutput;
    ASSERT_GT(Commands().size(), 6u);
    for (std::string const & sCommand : Commands())
    {
        std::string sPart = Section(sManual, ".SS ", sCommand);
        for (std::size_t nEscape = sPart.find("\\-"); nEscape != std::string::npos; nEscape = sPart.find("\\-"))
        {
            sPart.erase(nEscape, 1);
        }
        EXPECT_EQ(WordsOf(sPart, "\\fB", true), Options(sCommand)) << sCommand;
        std::string const sDocument = Section(sPage, "## ", sCommand);
        for (std::string const & sOption : Options(sCommand))
        {
            if (sOption != "--help" && sOption != "--json")   // which the page describes once
            {
                EXPECT_THAT(sDocument, HasSubstr("`" + sOption)) << sCommand;
            }
        }
    }
    SKIP_IF(RunShell("command -v groff").iStatus != 0, "needs groff");
    TempFolder_c const Folder;
    Folder.Write("zqtool.1", sManual);
    EXPECT_EQ(RunShell("groff -man -ww -z " + Folder.Join("zqtool.1") + " 2>&1").sOutput, "");
}

TEST(Zqtool, ShellsCompleteWhatHelpHas)
{
    TempFolder_c const Folder;
    std::string const sBash = Folder.Write("bash", RunTool("completion bash").sOutput);
    auto const Completed = [&](std::string const & sWords)
    {
        return RunShell("bash -c '. " + sBash + "; COMP_WORDS=(zqtool " + sWords
                        + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zqtool; printf \"%s\\n\" \"${COMPREPLY[@]}\"'")
            .sOutput;
    };
    EXPECT_EQ(WordsOf(Completed("\"\""), "", false), Commands());
    EXPECT_EQ(Completed("disasm --bits \"\""), "32\n64\n");
    EXPECT_EQ(Completed("help st"), "stats\n");
    EXPECT_EQ(Completed("completion z"), "zsh\n");
    EXPECT_EQ(Completed("stats x"), "\n");
    std::string const sZsh = RunTool("completion zsh").sOutput;
    for (std::string const & sCommand : Commands())
    {
        EXPECT_EQ(WordsOf(Completed(sCommand + " --"), "", true), Options(sCommand)) << sCommand;
        std::string sPart = sZsh.substr(sZsh.find("\n        " + sCommand + ") _arguments"));
        sPart.resize(sPart.find(";;"));
        std::erase(sPart, '*');
        EXPECT_EQ(WordsOf(sPart, "            '", true), Options(sCommand)) << sCommand;
    }
    SKIP_IF(RunShell("command -v zsh").iStatus != 0, "needs zsh");
    // The script types keys into a zsh on a terminal of its own, and checks what that zsh shows.
    Folder.Write("_zqtool", sZsh);
    std::string const sScript = Folder.Write("check", R"(cd $1
zmodload zsh/zpty
zpty -b shell zsh -f -i
zpty -w shell 'PS1=; fpath=($PWD $fpath); autoload -U compinit; compinit -u -d dump; print -n rea; print dy'
zpty -r -m shell text '*ready*'
zpty -w -n shell $'zqtool disasm --bi\t6\t'
zpty -r -m shell text '*--bits*64*' && print complete
)");
    EXPECT_EQ(RunShell("TERM=xterm timeout 60 zsh -f " + sScript + " " + Folder.GetPath()).sOutput, "complete\n");
}
