#include "tools/zqtool/checkschema.h"

#include "platform/text.h"
#include "tools/zqtool/checkreader.h"
#include "tools/zqtool/parse.h"
#include "tools/zqtool/text.h"
#include "tools/zqtool/textfile.h"
#include "zqcore/cwarehousescan.h"

#include <algorithm>
#include <concepts>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace
{
    constexpr char const * SCHEMA_KEY = "schema";

    // Columns of a schema that are read more than once.
    constexpr char const * TYPE_COLUMN = "type";
    constexpr char const * REQUIRED_COLUMN = "required";

    constexpr EnumName_T<SchemaType_e> TYPES[] = { { "int", SchemaType_e::Int }, { "float", SchemaType_e::Float },
        { "bool", SchemaType_e::Bool }, { "text", SchemaType_e::Text }, { "pair", SchemaType_e::Pair } };
    constexpr EnumName_T<bool> ANSWERS[] = { { "yes", true }, { "no", false } };

    // Returns the names between the bars of a type. Skips empty ones.
    std::vector<std::string> SplitNames(std::string const & sType)
    {
        std::vector<std::string> dNames;
        std::size_t nFrom = 0;
        while (nFrom < sType.size())
        {
            std::size_t const nEnd = std::min(sType.find('|', nFrom), sType.size());
            if (nEnd != nFrom)
            {
                dNames.push_back(sType.substr(nFrom, nEnd - nFrom));
            }
            nFrom = nEnd + 1;
        }
        return dNames;
    }

    // Reader of the cells of a schema's current row. Except for the type, a hyphen is an empty cell.
    class SchemaRow_c
    {
    public:
        SchemaRow_c(Warehouse_c & Table, std::vector<Complaint_t> & dComplaints)
            : m_Table(Table)
            , m_dComplaints(dComplaints)
        {}

        SchemaColumn_t Read(std::string const & sName)
        {
            SchemaColumn_t Column;
            Column.sName = sName;
            std::string sType;
            Note(m_Table.Get(TYPE_COLUMN, sType));
            if (sType.find('|') != std::string::npos)
            {
                Column.eType = SchemaType_e::Name;
                Column.dNames = SplitNames(sType);
            }
            else if (m_Table.GetLength(TYPE_COLUMN) >= 0)
            {
                Note(m_Table.Get(TYPE_COLUMN, Column.eType, TYPES));
            }
            Column.Least = ReadLimit("least");
            Column.Most = ReadLimit("most");
            if (Has(REQUIRED_COLUMN))
            {
                Note(m_Table.Get(REQUIRED_COLUMN, Column.bRequired, ANSWERS));
            }
            return Column;
        }

    private:
        // Adds the table's last error to the complaints if a cell was not read.
        void Note(bool bRead)
        {
            if (!bRead)
            {
                m_dComplaints.push_back(ComplaintOf(m_Table.GetLastError()));
            }
        }

        bool Has(char const * szColumn)
        {
            std::string sCell;
            return m_Table.GetLength(szColumn) > 0 && m_Table.Get(szColumn, sCell) && sCell != "-";
        }

        std::optional<double> ReadLimit(char const * szColumn)
        {
            if (!Has(szColumn))
            {
                return std::nullopt;
            }
            double fLimit = 0;
            bool const bRead = m_Table.Get(szColumn, fLimit);
            Note(bRead);
            return bRead ? std::optional(fLimit) : std::nullopt;
        }

        Warehouse_c & m_Table;
        std::vector<Complaint_t> & m_dComplaints;
    };

    // Return a number as text. A double is rounded to the fewest digits, 15 to 17, that are read as the same number.
    // Zeros at the end of a fraction are left out.
    template <std::integral NUMBER>
    std::string NumberText(NUMBER Number)
    {
        return std::to_string(Number);
    }
    std::string NumberText(double fNumber)
    {
        char szNumber[32];
        for (int nDigits = 15; nDigits <= 17; ++nDigits)
        {
            std::snprintf(szNumber, sizeof szNumber, "%.*g", nDigits, fNumber);
            if (std::strtod(szNumber, nullptr) == fNumber)
            {
                break;
            }
        }
        return szNumber;
    }

    std::string InColumn(SchemaColumn_t const & Column)
    {
        return " in column " + Quoted(Column.sName);
    }

    // Returns why a number, or the length of a text, is outside the range, or an empty text if it is inside.
    template <typename NUMBER>
    std::string RangeViolation(SchemaColumn_t const & Column, NUMBER Value)
    {
        long double const fValue = Value;   // exact for each whole number
        bool const bBelow = Column.Least && fValue < *Column.Least;
        if (!bBelow && !(Column.Most && fValue > *Column.Most))
        {
            return "";
        }
        std::string const sValue = (Column.eType == SchemaType_e::Text ? "a length of " : "") + NumberText(Value);
        return sValue + (bBelow ? " is below " : " is above ") + NumberText(bBelow ? *Column.Least : *Column.Most)
               + InColumn(Column);
    }

    template <typename TABLE>
    std::string LastReason(TABLE & Table)
    {
        return Table.GetLastError().sReason.CStr();
    }

    // Return why the cell of the current row is not of the column's type or range, or an empty text if it is.
    template <typename NUMBER, typename TABLE>
    std::string NumberViolation(TABLE & Table, SchemaColumn_t const & Column)
    {
        NUMBER Number = 0;
        return Table.Get(Column.sName.c_str(), Number) ? RangeViolation(Column, Number) : LastReason(Table);
    }

    template <typename TABLE>
    std::string NameViolation(TABLE & Table, SchemaColumn_t const & Column)
    {
        std::vector<EnumName_T<int>> dNames;
        for (std::string const & sName : Column.dNames)
        {
            dNames.push_back({ sName.c_str(), static_cast<int>(dNames.size()) });
        }
        int iName = 0;
        return Table.Get(Column.sName.c_str(), iName, dNames) ? "" : LastReason(Table);
    }

    // Returns whether digits, possibly none, are a number that was read from them.
    bool IsReadAs(std::string_view sDigits, int iNumber)
    {
        std::size_t const nZeros = std::min(sDigits.find_first_not_of('0'), sDigits.size());
        return sDigits.substr(nZeros) == (iNumber == 0 ? "" : std::to_string(iNumber));
    }

    std::string PairViolation(Warehouse_c & Table, SchemaColumn_t const & Column, std::string const & sCell)
    {
        int iFirst = 0, iSecond = 0;
        if (!Table.Get(Column.sName.c_str(), iFirst, iSecond))
        {
            return LastReason(Table);
        }
        std::size_t const nMinus = sCell.find('-');
        if (nMinus == 0 || sCell.find_first_not_of(plat::DECIMAL_DIGITS, nMinus + 1) != std::string::npos
            || sCell.find_first_not_of(plat::DECIMAL_DIGITS) != nMinus || !IsReadAs(sCell.substr(0, nMinus), iFirst)
            || !IsReadAs(sCell.substr(nMinus == sCell.npos ? 0 : nMinus + 1), iSecond))
        {
            return Quoted(sCell) + " is read as " + std::to_string(iFirst) + " and " + std::to_string(iSecond)
                   + InColumn(Column);
        }
        std::string const sFirst = RangeViolation(Column, iFirst);
        return sFirst.empty() ? RangeViolation(Column, iSecond) : sFirst;
    }

    std::string BoolViolation(Warehouse_c & Table, SchemaColumn_t const & Column)
    {
        bool bValue = false;
        return Table.Get(Column.sName.c_str(), bValue) ? "" : LastReason(Table);
    }

    std::string BoolViolation(Spreadsheet_c & Table, SchemaColumn_t const & Column)
    {
        std::int64_t iValue = 0;
        return Table.Get(Column.sName.c_str(), iValue) ? "" : LastReason(Table);
    }

    std::string PairViolation(Spreadsheet_c &, SchemaColumn_t const & Column, std::string const &)
    {
        return "the reader of spreadsheets has no pairs for column " + Quoted(Column.sName);
    }

    template <typename TABLE>
    std::string Violation(TABLE & Table, SchemaColumn_t const & Column)
    {
        std::string sCell;
        if (!Table.Get(Column.sName.c_str(), sCell))
        {
            return "";   // no such column
        }
        if (sCell.empty())
        {
            return Column.bRequired ? "there is no value" + InColumn(Column) : "";
        }
        switch (Column.eType)
        {
        case SchemaType_e::Int:
            return NumberViolation<std::int64_t>(Table, Column);
        case SchemaType_e::Float:
            return NumberViolation<double>(Table, Column);
        case SchemaType_e::Bool:
            return BoolViolation(Table, Column);
        case SchemaType_e::Name:
            return NameViolation(Table, Column);
        case SchemaType_e::Pair:
            return PairViolation(Table, Column, sCell);
        default:
            return RangeViolation(Column, sCell.size());
        }
    }
}

std::vector<SchemaColumn_t> ReadSchema(
    std::string const & sName, std::string const & sBytes, std::vector<Complaint_t> & dComplaints)
{
    std::vector<SchemaColumn_t> dColumns;
    CheckOptions_t Options;
    Options.eKind = TextKind_e::Table;
    dComplaints = CheckText(sName, sBytes, Options).dComplaints;
    TextFile_c const File(SCHEMA_KEY, sBytes);
    Warehouse_c Table;
    if (Table.Open(SCHEMA_KEY, WarehouseSettleFormat(WAREHOUSE_FORMAT_AUTO, sName.c_str())))
    {
        std::string sColumn;
        while (Table.NextIdent(sColumn))
        {
            dColumns.push_back(SchemaRow_c(Table, dComplaints).Read(sColumn));
        }
    }
    return dColumns;
}

std::string SchemaViolation(Warehouse_c & Table, SchemaColumn_t const & Column)
{
    return Violation(Table, Column);
}

std::string SchemaViolation(Spreadsheet_c & Table, SchemaColumn_t const & Column)
{
    return Violation(Table, Column);
}
