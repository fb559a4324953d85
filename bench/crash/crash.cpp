// crash.cpp: the program whose crash is measured. Its argument names what reports it: "ours", "backtrace_symbols",
// "backward" or "none".
#include "step.h"

#include "zqcore/cexceptionreport.h"
#include "zqcore/clog.h"

#define BACKWARD_HAS_DW 1
#include <backward.hpp>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <execinfo.h>
#include <unistd.h>

extern template int StepInto<0>(Argument_t const & Argument, int nDepth);

namespace
{
    constexpr int FRAMES = 40;   // of a stack, at most

    void ReportByBacktraceSymbols(int)
    {
        void * dFrames[FRAMES];
        backtrace_symbols_fd(dFrames, backtrace(dFrames, FRAMES), STDERR_FILENO);
        _exit(1);
    }

    void ReportByBackward(int)
    {
        backward::StackTrace Trace;
        Trace.load_here(FRAMES);
        backward::Printer().print(Trace, stderr);
        _exit(1);
    }

    // Sets up what reports the crash, then crashes in nested calls.
    [[noreturn]] void Crash(char const * szBy)
    {
        if (std::strcmp(szBy, "ours") == 0)
        {
            LogSetFile(L"./", L"message.log");
        }
        else
        {
            signal(SIGSEGV, std::strcmp(szBy, "backward") == 0            ? ReportByBackward
                            : std::strcmp(szBy, "backtrace_symbols") == 0 ? ReportByBacktraceSymbols
                                                                          : SIG_DFL);
        }
        Argument_t const Argument = { 1, 2, "first", { 0, 1, 2, 3 } };
        _exit(StepInto<0>(Argument, 0));
    }
}

int main(int nArguments, char ** dArguments)
{
    Crash(nArguments > 1 ? dArguments[1] : "none");
}
