// checktext.h: what the library's text readers say about a file, and what they lose without saying so.
#pragma once

#include <string>
#include <vector>

enum class TextKind_e
{
    None,
    Table,
    Spreadsheet,
    PropertyList,
    Script
};

/// Returns the kind of a text: a script or a property list if its name ends in ".scr" or ".prp"; a table if a line
/// begins with @head; otherwise a spreadsheet if its name ends in ".csv", or none.
TextKind_e TextKindOf(std::string const & sFile, std::string const & sBytes);

/// Returns whether the ending of a name is one of a kind above, or ".txt".
bool HasTextEnding(std::string const & sFile);

/// Returns a name of the kind for messages.
char const * TextKindName(TextKind_e eKind);

/// A complaint about a text. It has no place if the line is 0.
struct Complaint_t
{
    int iLine = 0;
    int iColumn = 0;
    std::string sText;
};

struct SchemaColumn_t;

struct CheckOptions_t
{
    TextKind_e eKind = TextKind_e::None;   // None: by name and contents
    std::string sHead;                     // names of the columns of a table without @head, separated by blanks
    std::string sSeparators;               // instead of the usual ones; a spreadsheet has the first
    bool bRows = false;                    // collect the rows
    std::vector<SchemaColumn_t> const * pSchema = nullptr;
};

struct CheckedText_t
{
    TextKind_e eKind = TextKind_e::None;
    bool bWhole = true;   // the reader read all of it
    int nRows = 0;        // items, data rows, lines with a property, or words
    std::vector<std::string> dColumns;
    std::vector<std::vector<std::string>> dRows;   // those of options, the head included
    std::vector<Complaint_t> dComplaints;          // by place
};

/// Reads a text as the library does and returns all complaints.
CheckedText_t CheckText(std::string const & sFile, std::string sBytes, CheckOptions_t const & Options);
