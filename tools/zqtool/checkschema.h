// checkschema.h: what the cells of a table may hold. A schema is itself a warehouse table, one row for each column.
#pragma once

#include "tools/zqtool/checktext.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/cwarehouse.h"

#include <optional>
#include <string>
#include <vector>

/// Type of the cells of a column.
enum class SchemaType_e
{
    Int,
    Float,
    Bool,
    Text,
    Pair,
    Name   // one of dNames
};

/// Rules for the cells of one column of a table: one row of the schema.
struct SchemaColumn_t
{
    std::string sName;   // in lower case
    SchemaType_e eType = SchemaType_e::Text;
    std::vector<std::string> dNames;     // the names that the type Name allows
    std::optional<double> Least, Most;   // of a number, of both parts of a pair, or of the bytes of a text
    bool bRequired = false;              // whether a table needs the column, and each row a value in it
};

/// Reads a schema and returns its columns. The ending of its name decides its format. Replaces dComplaints by what is
/// wrong with the schema. Requires that no other ReadSchema and no CheckText runs.
std::vector<SchemaColumn_t> ReadSchema(
    std::string const & sName, std::string const & sBytes, std::vector<Complaint_t> & dComplaints);

/// Return what is wrong with the column's cell in a table's current row. Return an empty text if nothing is, or if the
/// table has no such column. An empty cell is wrong only if a value is required. The types are those of the reader's
/// Get, but a pair has only digits and one `-`. A spreadsheet has no bool and no pair: a bool that is no whole
/// number is wrong, and so is a pair that is not empty.
std::string SchemaViolation(Warehouse_c & Table, SchemaColumn_t const & Column);
std::string SchemaViolation(Spreadsheet_c & Table, SchemaColumn_t const & Column);
