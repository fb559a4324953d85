// zqtool_support.h: runs zqtool and other programs, as a shell does.
#pragma once

#include <cstdio>
#include <string>
#include <sys/wait.h>

struct Result_s
{
    int iStatus;
    std::string sOutput;
};

/// Runs a command line of the shell and waits; its standard output.
inline Result_s RunShell(std::string const & sCommand)
{
    Result_s Result;
    std::FILE * const pPipe = ::popen(sCommand.c_str(), "r");
    char szPart[4096];
    while (std::size_t const n = std::fread(szPart, 1, sizeof szPart, pPipe))
    {
        Result.sOutput.append(szPart, n);
    }
    int const iStatus = ::pclose(pPipe);
    Result.iStatus = WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
    return Result;
}

/// Runs zqtool; what it says on both streams.
inline Result_s RunTool(std::string const & sArguments)
{
    return RunShell(std::string(ZQTOOL_PATH) + " " + sArguments + " 2>&1");
}
