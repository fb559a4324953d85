// command.h: the subcommands of zqtool. Each has its own source file and a row in the table of main.cpp.
#pragma once

#include <functional>

namespace CLI
{
    class App;
}

/// Function that runs a subcommand after its arguments were read. Returns the exit status.
using CommandRun_t = std::function<int()>;

/// Exit statuses.
constexpr int EXIT_DONE = 0;
constexpr int EXIT_FOUND = 1;   // found something, or a file could not be read or written
constexpr int EXIT_USAGE = 2;   // wrong arguments

/// Declare the arguments of a subcommand and return what runs it. Require App to outlive the returned function.
CommandRun_t PrepareArchive(CLI::App & App);
CommandRun_t PrepareCache(CLI::App & App);
CommandRun_t PrepareCheck(CLI::App & App);
CommandRun_t PrepareCompletion(CLI::App & App);
CommandRun_t PrepareCrash(CLI::App & App);
CommandRun_t PrepareDisasm(CLI::App & App);
CommandRun_t PrepareHash(CLI::App & App);
CommandRun_t PrepareHelp(CLI::App & App);
CommandRun_t PrepareMemory(CLI::App & App);
CommandRun_t PrepareStats(CLI::App & App);
CommandRun_t PrepareTree(CLI::App & App);
