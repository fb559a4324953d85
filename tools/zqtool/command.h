// command.h: the subcommands of zqtool. Each has its own source file and a row in the table of main.cpp.
#pragma once

#include <functional>

class Arguments_c;

/// Function that runs a subcommand after its arguments are read. Returns the exit status.
using CommandRun_t = std::function<int()>;

/// Exit statuses.
inline constexpr int EXIT_DONE = 0;
inline constexpr int EXIT_FOUND = 1;   // found something, or failed, as with a file that can't be read or written
inline constexpr int EXIT_USAGE = 2;   // wrong arguments

/// Declare the arguments of a subcommand and return what runs it. Require that the parser outlives the returned
/// function.
CommandRun_t PrepareArchive(Arguments_c & Arguments);
CommandRun_t PrepareCache(Arguments_c & Arguments);
CommandRun_t PrepareCheck(Arguments_c & Arguments);
CommandRun_t PrepareCompletion(Arguments_c & Arguments);
CommandRun_t PrepareCrash(Arguments_c & Arguments);
CommandRun_t PrepareDisasm(Arguments_c & Arguments);
CommandRun_t PrepareHash(Arguments_c & Arguments);
CommandRun_t PrepareHelp(Arguments_c & Arguments);
CommandRun_t PrepareMemory(Arguments_c & Arguments);
CommandRun_t PrepareStats(Arguments_c & Arguments);
CommandRun_t PrepareTree(Arguments_c & Arguments);
