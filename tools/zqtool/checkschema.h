// checkschema.h: what the cells of a table must be. A schema is itself a warehouse table, one row for each column.
#pragma once

#include "tools/zqtool/checktext.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/cwarehouse.h"

#include <optional>
#include <string>
#include <vector>

enum class SchemaType_e
{
    Int,
    Float,
    Bool,
    Text,
    Pair,
    Name
};

/// One column of the schema.
struct SchemaColumn_t
{
    std::string sName;
    SchemaType_e eType = SchemaType_e::Text;
    std::vector<std::string> dNames;     // of the type Name
    std::optional<double> Least, Most;   // of numbers and both parts of a pair; of a text the bytes
    bool bRequired = false;
};

/// Reads a schema. Appends what is wrong with it.
std::vector<SchemaColumn_t> ReadSchema(
    std::string const & sName, std::string const & sBytes, std::vector<Complaint_t> & dComplaints);

/// Return what is wrong with the cell of a table's current row, or an empty text. The types are those of the reader's
/// Get. A spreadsheet has no bool and no pair: a bool is read as a whole number, a pair is refused.
std::string SchemaViolation(Warehouse_c & Table, SchemaColumn_t const & Column);
std::string SchemaViolation(Spreadsheet_c & Table, SchemaColumn_t const & Column);
