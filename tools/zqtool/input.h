// input.h: files that a command reads.
#pragma once

#include <climits>
#include <cstdint>
#include <iosfwd>
#include <string>

/// Returns an empty text for a regular file, otherwise what is wrong. OpenInput opens only regular files, because
/// opening a pipe could block for ever.
std::string CheckInput(std::string const & sFile);

/// Opens a regular file. Returns why it can't be read, or an empty text.
std::string OpenInput(std::string const & sFile, std::ifstream & Stream);

/// Reads a regular file of at most nMost bytes. By default the size fits into an int with a byte to spare, as the
/// library's readers need it. Returns why it can't be read, or an empty text. On failure sBytes has no meaning.
std::string ReadInput(std::string const & sFile, std::string & sBytes, std::uintmax_t nMost = INT_MAX - 1);

/// Flushes standard output and prints a problem with a file on standard error.
void PrintProblem(std::string const & sFile, std::string const & sText);

/// Does the same with the line of the problem.
void PrintProblem(std::string const & sFile, int iLine, std::string const & sText);

/// Does the same with the line and column of the problem, or without them if the line is 0 or less.
void PrintProblem(std::string const & sFile, int iLine, int iColumn, std::string const & sText);
