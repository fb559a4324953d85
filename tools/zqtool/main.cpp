// zqtool: shows the files that the library writes.
#include "tools/zqtool/command.h"

#include <cstdio>
#include <cstring>

namespace
{
    constexpr Command_t COMMANDS[] = {
        { "disasm", "[--bits 32|64] [--base ADDRESS] FILE", "raw bytes of x86 code as a crash report lists them",
            RunDisasm },
        { "memory", "ALLOCATIONS.CSV [--html OUT]", "live memory by category and by source line", RunMemory },
        { "stats", "FILE [--json OUT] [--html OUT] [--ticks-per-second N]",
            "what the profiler measured: a tree of timers, trace events, a page with pictures", RunStats },
    };

    // Returns a command's status, or that of a failure if its output could not be written whole.
    int CheckOutput(int iStatus)
    {
        if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        {
            return iStatus;
        }
        std::fputs("zqtool: standard output took not all\n", stderr);
        return 1;
    }

    int Usage()
    {
        std::fputs("usage:\n", stderr);
        for (Command_t const & Command : COMMANDS)
        {
            std::fprintf(stderr, "  zqtool %s %s\n      %s\n", Command.szName, Command.szUsage, Command.szPurpose);
        }
        return EXIT_USAGE;
    }
}

int main(int argc, char ** argv)
{
    for (Command_t const & Command : COMMANDS)
    {
        if (argc > 1 && std::strcmp(argv[1], Command.szName) == 0)
        {
            int const iStatus = Command.fnRun(Arguments_t(argv + 2, argv + argc));
            return iStatus == EXIT_USAGE ? Usage() : CheckOutput(iStatus);
        }
    }
    return Usage();
}
