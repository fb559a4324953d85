// zqtool: shows the files that the library reads and writes.
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/help.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cversion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

namespace
{
    struct Command_t
    {
        char const * szName;
        char const * szPurpose;
        CommandRun_t (*fnPrepare)(Arguments_c & Arguments);
    };

    constexpr Command_t COMMANDS[] = {
        { "archive", "archives and saves: chunks, labels, object graphs, and what is damaged", PrepareArchive },

        { "cache", "a file system cache: what it lists, whether it fits its tree; writes one", PrepareCache },

        { "check", "tables, spreadsheets, property lists and scripts: what is wrong, and where", PrepareCheck },

        { "completion", "the script that completes arguments in bash or zsh", PrepareCompletion },

        { "crash", "crash reports: what happened, or any number of them by cause", PrepareCrash },

        { "disasm", "raw bytes of x86 code as a crash report lists them", PrepareDisasm },

        { "hash", "checksums of files and texts, and checks of lists of them", PrepareHash },

        { "help", "the options of a command, or the manual page", PrepareHelp },

        { "memory", "live memory by category, file and source line, and its growth", PrepareMemory },

        { "stats", "what the profiler measured: a tree of timers, trace events, a page", PrepareStats },

        { "tree", "what a scan makes of media folders: duplicates, cut names, what is hidden", PrepareTree },
    };

    std::string VersionText()
    {
        return "zqtool " + std::to_string(ZQCORE_VERSION_MAJOR) + "." + std::to_string(ZQCORE_VERSION_MINOR) + "."
               + std::to_string(ZQCORE_VERSION_PATCH);
    }

    // Formatter that writes the help of the parser as help.h does.
    class Formatter_c final : public CLI::Formatter
    {
    public:
        std::string make_help(CLI::App const * pApp, std::string, CLI::AppFormatMode) const override
        {
            return HelpText(DescribeParser(*pApp));
        }
    };

    // Flushes standard output and returns the command's status. If not all could be written, prints a line and returns
    // EXIT_FOUND.
    int CheckOutput(int iStatus)
    {
        if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        {
            return iStatus;
        }
        std::fputs("zqtool: not all was written to standard output\n", stderr);
        return EXIT_FOUND;
    }

    std::vector<std::string> CommandNames()
    {
        std::vector<std::string> dNames;
        std::transform(std::begin(COMMANDS), std::end(COMMANDS), std::back_inserter(dNames),
            [](Command_t const & Command) { return Command.szName; });
        return dNames;
    }

    // Reports the first of these that applies, and returns EXIT_USAGE:
    // - an option that the command does not have.
    // - an argument too many.
    // - what the parser says.
    int ReportError(CLI::App const & App, CLI::ParseError const & Error)
    {
        HelpCommand_t const Command = DescribeParser(App);
        std::vector<std::string> const dKnown = OptionNames(Command);
        std::vector<std::string> const dLeft = App.remaining();
        for (std::string const & sLeft : dLeft)
        {
            if (sLeft.size() > 1 && sLeft[0] == '-' && sLeft != "--")
            {
                std::string const sOption = sLeft.substr(0, sLeft.find('='));
                return ReportMisuse("unknown option " + sOption + Suggestion(sOption, dKnown), Command.sName);
            }
        }
        if (!dLeft.empty() && dynamic_cast<CLI::ExtrasError const *>(&Error) != nullptr)
        {
            return ReportMisuse("one argument too many: " + dLeft[0], Command.sName);
        }
        std::string const sText = Error.what();
        return ReportMisuse(sText.substr(0, sText.find('\n')), Command.sName);
    }

    int Run(CLI::App & App, int nArguments, char ** dArguments)
    {
        CommandRun_t fnRun;
        for (Command_t const & Command : COMMANDS)
        {
            CLI::App & Sub = *App.add_subcommand(Command.szName, Command.szPurpose);
            Sub.set_help_flag("-h,--help", "print this text");
            Arguments_c Arguments(Sub);
            Sub.callback([&fnRun, fnCommand = Command.fnPrepare(Arguments)] { fnRun = fnCommand; });
        }
        if (nArguments < 2)
        {
            std::fputs(HelpText(DescribeParser(App)).c_str(), stderr);
            return EXIT_USAGE;
        }
        std::vector<std::string> const dNames = CommandNames();
        if (dArguments[1][0] != '-' && std::ranges::count(dNames, dArguments[1]) == 0)
        {
            return ReportNoCommand(dArguments[1], dNames);
        }
        try
        {
            App.parse(nArguments, dArguments);
            int const iStatus = fnRun();
            FileReset();   // frees what a scan has added to the table of files
            g_sExcludedFolders.Reset();
            g_sExcludedFiles.Reset();
            return CheckOutput(iStatus);
        }
        catch (CLI::Success const & Wanted)   // --help and --version
        {
            App.exit(Wanted);
            return CheckOutput(EXIT_DONE);
        }
        catch (CLI::ParseError const & Error)
        {
            std::vector<CLI::App *> const dParsed = App.get_subcommands();
            return ReportError(dParsed.empty() ? App : *dParsed.front(), Error);
        }
    }
}

int main(int nArguments, char ** dArguments)
try
{
    CLI::App App("shows the files that programs with ZQCore read and write", "zqtool");
    App.require_subcommand(1);
    App.formatter(std::make_shared<Formatter_c>());
    App.set_help_flag("-h,--help", "print this text; after a command, its arguments");
    App.set_version_flag("--version", VersionText(), "print the version");
    App.footer("Status: 0 done; 1 found something, or a file could not be read or written;\n2 wrong arguments.");
    return Run(App, nArguments, dArguments);
}
catch (...)
{
    std::fputs("zqtool: there is not enough memory, or the system failed\n", stderr);
    return EXIT_FOUND;
}
