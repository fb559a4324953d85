// command.h: the subcommands of zqtool. Each has its own source file and a row in the table of main.cpp.
#pragma once

#include <string>
#include <vector>

/// The arguments after the subcommand's name.
using Arguments_t = std::vector<std::string>;

struct Command_t
{
    char const * szName;
    char const * szUsage;   // its arguments, as the help shows them
    char const * szPurpose;
    int (*fnRun)(Arguments_t const & dArguments);   // returns the exit status: 0 done, 1 failed, EXIT_USAGE
};

/// Exit status for wrong arguments. zqtool then prints the usage.
constexpr int EXIT_USAGE = 2;

int RunDisasm(Arguments_t const & dArguments);
int RunMemory(Arguments_t const & dArguments);
int RunStats(Arguments_t const & dArguments);
