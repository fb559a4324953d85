// zqtool: shows the files that the library writes.
#include "tools/zqtool/command.h"
#include "tools/zqtool/text.h"
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
        CommandRun_t (*fnPrepare)(CLI::App & App);
    };

    constexpr Command_t COMMANDS[] = {
        // archive

        // cache

        // check

        { "crash", "crash reports: what happened, or any number of them by cause", PrepareCrash },

        { "disasm", "raw bytes of x86 code as a crash report lists them", PrepareDisasm },

        // hash

        { "memory", "live memory by category and by source line", PrepareMemory },

        { "stats", "what the profiler measured: a tree of timers, trace events, a page with pictures", PrepareStats },

        // tree
    };

    // Returns a command's status, or that of a failure if its output could not be written whole.
    int CheckOutput(int iStatus)
    {
        if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        {
            return iStatus;
        }
        std::fputs("zqtool: standard output took not all\n", stderr);
        return EXIT_FOUND;
    }

    int Usage(char const * szWrong)
    {
        std::fprintf(stderr, "zqtool: %s\nusage:\n", Printable(szWrong).c_str());
        for (Command_t const & Command : COMMANDS)
        {
            std::fprintf(stderr, "  zqtool %s --help: %s\n", Command.szName, Command.szPurpose);
        }
        return EXIT_USAGE;
    }

    bool IsCommand(std::string_view sWord)
    {
        return std::any_of(std::begin(COMMANDS), std::end(COMMANDS),
            [sWord](Command_t const & Command) { return sWord == Command.szName; });
    }

    std::string VersionText()
    {
        return "zqtool " + std::to_string(ZQCORE_VERSION_MAJOR) + "." + std::to_string(ZQCORE_VERSION_MINOR) + "."
               + std::to_string(ZQCORE_VERSION_PATCH);
    }
}

int main(int argc, char ** argv)
{
    if (argc > 1 && argv[1][0] != '-' && !IsCommand(argv[1]))
    {
        return Usage((std::string("there is no command ") + argv[1]).c_str());
    }
    CLI::App App("Shows the files that ZQCore writes.", "zqtool");
    App.require_subcommand(1);
    App.set_version_flag("--version", VersionText());
    CommandRun_t fnRun;
    for (Command_t const & Command : COMMANDS)
    {
        CLI::App & Sub = *App.add_subcommand(Command.szName, Command.szPurpose);
        Sub.callback([&fnRun, fnCommand = Command.fnPrepare(Sub)] { fnRun = fnCommand; });
    }
    try
    {
        App.parse(argc, argv);
        return CheckOutput(fnRun());
    }
    catch (CLI::Success const & Wanted)   // --help and --version
    {
        App.exit(Wanted);
        return CheckOutput(EXIT_DONE);
    }
    catch (CLI::ParseError const & Error)
    {
        return Usage(Error.what());
    }
}
