// rows.h: the readable rows of the opcode tables, and their translation to the strings of the decoder.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

/// A pattern and a format as the decoder reads them.
struct Row_t
{
    std::string sPattern;
    std::string sFormat;
};

/// The rows of one group, in the order in which they are tried.
struct Group_t
{
    std::string sName;
    std::vector<Row_t> dRows;
};

/// An error that ends the generator. If it is in a line of the rows, what() starts with the file's name and the line's
/// number.
class RowError_c : public std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// Returns a table for one mode ("32" or "64"): the groups of the files in their order. Throws RowError_c in these
/// cases:
/// - A file can't be opened.
/// - A line is wrong.
/// - There are no groups, or more than OPCODE_MAX_GROUPS.
std::vector<Group_t> ReadGroups(std::vector<std::string> const & dFiles, std::string const & sMode);
