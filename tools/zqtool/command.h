// command.h: what a subcommand of zqtool is. Each stands in a source file of its own and in the table of main.cpp.
#pragma once

#include <string>
#include <vector>

/// The words behind the subcommand's name.
using Arguments_t = std::vector<std::string>;

struct Command_t
{
    char const * szName;
    char const * szUsage;   // its arguments
    char const * szPurpose;
    int (*fnRun)(Arguments_t const & dArguments);   // the process's status: 0 done, 1 failed, EXIT_USAGE
};

/// The status of a call with the wrong arguments; the usage is printed for it.
constexpr int EXIT_USAGE = 2;

int RunDisasm(Arguments_t const & dArguments);
int RunMemory(Arguments_t const & dArguments);
int RunStats(Arguments_t const & dArguments);
