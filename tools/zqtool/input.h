// input.h: files that a command reads.
#pragma once

#include <iosfwd>
#include <string>

/// Opens a regular file. Returns why it can't be read, or an empty text. To open a pipe could last for ever.
std::string OpenInput(std::string const & sFile, std::ifstream & Stream);

/// Reads a regular file of less than 2 GiB. Returns why it can't be read, or an empty text.
std::string ReadInput(std::string const & sFile, std::string & sBytes);

/// Prints a problem with a file on standard error, after all that went to standard output.
void PrintProblem(std::string const & sFile, std::string const & sText);

/// The same with a place; without one if the line is 0.
void PrintProblem(std::string const & sFile, int iLine, int iColumn, std::string const & sText);
