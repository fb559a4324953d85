// checktext.h: what the library's text readers say about a file, and what they lose without saying so.
#pragma once

#include <string>
#include <vector>

/// Kind of a text, which decides its reader.
enum class TextKind_e
{
    None,
    Table,
    Spreadsheet,
    PropertyList,
    Script
};

/// A complaint about a text. Lines and columns count from 1. It has no place if the line is 0.
struct Complaint_t
{
    int iLine = 0;
    int iColumn = 0;
    std::string sText;
};

struct SchemaColumn_t;

/// Settings of CheckText.
struct CheckOptions_t
{
    TextKind_e eKind = TextKind_e::None;   // if None, CheckText reads nothing and complains
    std::string sHead;                     // names of the columns of a table without @head, separated by blanks
    std::string sSeparators;               // of a table, instead of the usual ones; a spreadsheet uses the first only
    bool bRows = false;                    // whether to collect the rows
    std::vector<SchemaColumn_t> const * pSchema = nullptr;   // of a table or a spreadsheet; null: no schema
};

/// Result of CheckText.
struct CheckedText_t
{
    TextKind_e eKind = TextKind_e::None;
    bool bWhole = true;                            // whether the reader read all of it
    int nRows = 0;                                 // items, data rows, lines with a property, or words
    std::vector<std::string> dColumns;             // cells of the head; the first one of a table is @head
    std::vector<std::vector<std::string>> dRows;   // only with bRows; a head comes first
    std::vector<Complaint_t> dComplaints;          // sorted by place
};

/// Returns the first of these kinds that fits a text:
/// - a script or a property list, if its name ends in ".scr" or ".prp" in upper or lower case.
/// - a table, if bHead is set, which says that the names of the columns are given.
/// - a table, if the text has no byte order mark of UTF-16, and the first column of a line is @head in upper or lower
///   case, or the first column that is not null begins with @ and resembles @head.
/// - a spreadsheet, if its name ends in ".csv" in upper or lower case.
/// - none.
TextKind_e TextKindOf(std::string const & sFile, std::string const & sBytes, bool bHead);

/// Returns whether a name ends in ".scr", ".prp", ".csv" or ".txt" in upper or lower case.
bool HasTextEnding(std::string const & sFile);

/// Returns a name of the kind for people and for JSON, "unknown" for None.
char const * TextKindName(TextKind_e eKind);

/// Reads a text as the library does and returns what it holds, with all complaints. The ending of sFile decides the
/// format of a table or a property list. Requires that no other CheckText and no ReadSchema runs.
CheckedText_t CheckText(std::string const & sFile, std::string sBytes, CheckOptions_t const & Options);
