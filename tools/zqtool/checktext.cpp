#include "tools/zqtool/checktext.h"

#include "tools/zqtool/checkreader.h"
#include "tools/zqtool/checkschema.h"
#include "tools/zqtool/parse.h"
#include "tools/zqtool/text.h"
#include "tools/zqtool/textfile.h"
#include "zqcore/cpropertylist.h"
#include "zqcore/cscript.h"
#include "zqcore/cspreadsheet_internal.h"
#include "zqcore/ctexterror_internal.h"
#include "zqcore/cwarehousescan.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <unordered_map>
#include <utility>

namespace
{
    constexpr std::size_t NOWHERE = static_cast<std::size_t>(-1);

    std::string CellOf(WarehouseLine_c const & Line, int iCell)
    {
        return Line.IsNull(iCell) ? "" : Line[iCell];
    }

    std::vector<std::string> CellsOf(WarehouseLine_c const & Line)
    {
        std::vector<std::string> dCells;
        for (int i = 0; i < Line.GetLength(); ++i)
        {
            dCells.push_back(CellOf(Line, i));
        }
        return dCells;
    }

    std::vector<std::string> CellsOf(SpreadsheetRow_c const & Row)
    {
        std::vector<std::string> dCells;
        for (int i = 0; i < Row.GetCellCount(); ++i)
        {
            dCells.emplace_back(Row.GetCell(i));
        }
        return dCells;
    }

    class TextCheck_c
    {
    public:
        TextCheck_c(std::string const & sFile, std::string sBytes, CheckOptions_t const & Options)
            : m_File(CHECKED_KEY, sBytes += Options.eKind == TextKind_e::Script ? "\n" : "")   // ends the last word
            , m_Options(Options)
            , m_eFormat(WarehouseSettleFormat(WAREHOUSE_FORMAT_AUTO, sFile.c_str()))
            , m_Text(TextOfFile(m_File))
            , m_szSeparators(Options.sSeparators.empty() ? nullptr : Options.sSeparators.c_str())
        {
            m_Result.eKind = Options.eKind;
        }

        CheckedText_t Run()
        {
            switch (m_Options.eKind)
            {
            case TextKind_e::Table:
                CheckTable();
                break;
            case TextKind_e::Spreadsheet:
                CheckSpreadsheet();
                break;
            case TextKind_e::PropertyList:
                CheckPropertyList();
                break;
            case TextKind_e::Script:
                CheckScript();
                break;
            default:
                m_Result.bWhole = false;
                m_Result.dComplaints.push_back({ 0, 0, "the kind of this file is unknown; give --as" });
            }
            if (m_Text.pText)
            {
                FindNul();
                Place();
            }
            std::stable_sort(m_Result.dComplaints.begin(), m_Result.dComplaints.end(),
                [](Complaint_t const & First, Complaint_t const & Second)
                { return std::pair(First.iLine, First.iColumn) < std::pair(Second.iLine, Second.iColumn); });
            return std::move(m_Result);
        }

    private:
        // A complaint whose line and column are not counted yet.
        struct Found_t
        {
            std::size_t nAt;
            std::size_t nFirst;   // place of what is repeated, or NOWHERE
            std::string sText;
        };

        void Complain(std::size_t nAt, std::string sText, std::size_t nFirst = NOWHERE)
        {
            m_dFound.push_back({ nAt, nFirst, std::move(sText) });
        }
        void Complain(int nAt, std::string sText) { Complain(static_cast<std::size_t>(nAt), std::move(sText)); }

        void Stop(TextError_t const & Error)
        {
            m_Result.bWhole = false;
            m_Result.dComplaints.push_back(ComplaintOf(Error));
        }

        void AddRow(std::vector<std::string> dCells)
        {
            if (m_Options.bRows)
            {
                m_Result.dRows.push_back(std::move(dCells));
            }
        }

        // Adds the complaints that were found to the result. Counts their lines and columns in the order of the text,
        // as the library counts them.
        void Place()
        {
            std::map<std::size_t, std::pair<int, int>> dPlaces;
            for (Found_t const & Found : m_dFound)
            {
                dPlaces[Found.nAt];
                if (Found.nFirst != NOWHERE)
                {
                    dPlaces[Found.nFirst];
                }
            }
            TextErrors_c Counter;
            for (auto & [nAt, Place] : dPlaces)
            {
                Counter.Place(m_Text.pText, nAt);
                Place = { Counter.GetLast().iLine, Counter.GetLast().iColumn };
            }
            for (Found_t & Found : m_dFound)
            {
                auto const [iLine, iColumn] = dPlaces[Found.nAt];
                if (Found.nFirst != NOWHERE)
                {
                    Found.sText += std::to_string(dPlaces[Found.nFirst].first);
                }
                m_Result.dComplaints.push_back({ iLine, iColumn, std::move(Found.sText) });
            }
        }

        void FindNul()
        {
            void const * const pNul = std::memchr(m_Text.pText, '\0', static_cast<std::size_t>(m_Text.nText));
            if (pNul && m_Result.bWhole)
            {
                Complain(static_cast<std::size_t>(static_cast<char const *>(pNul) - m_Text.pText),
                    "a NUL ends or separates the text here");
            }
        }

        // Stores the columns. fnPlace returns the place of one. Complains about these:
        // - columns from iFirst on without a name
        // - columns from iFirst on with the name of an earlier one
        // - columns from iFirst on that the schema does not have
        // - columns that the schema requires and the text lacks
        template <typename PLACE>
        void CheckHead(std::vector<std::string> const & dColumns, int iFirst, PLACE fnPlace)
        {
            std::unordered_map<std::string, int> dSeen;
            for (int i = iFirst; i < static_cast<int>(dColumns.size()); ++i)
            {
                std::string const & sName = dColumns[static_cast<std::size_t>(i)];
                if (sName.empty())
                {
                    Complain(fnPlace(i), "this column has no name");
                }
                else if (!dSeen.emplace(Lower(sName), i).second)
                {
                    Complain(fnPlace(i), "column " + Quoted(sName) + " has the name of an earlier one, which is read");
                }
                else if (m_Options.pSchema && !IsInSchema(sName))
                {
                    Complain(fnPlace(i), "the schema has no column " + Quoted(sName));
                }
            }
            m_Result.dColumns = dColumns;
            if (!m_Options.pSchema)
            {
                return;
            }
            for (SchemaColumn_t const & Column : *m_Options.pSchema)
            {
                if (Column.bRequired && dSeen.count(Lower(Column.sName)) == 0)
                {
                    Complain(fnPlace(0), "there is no column " + Quoted(Column.sName));
                }
            }
        }

        bool IsInSchema(std::string const & sName) const
        {
            return std::any_of(m_Options.pSchema->begin(), m_Options.pSchema->end(),
                [&](SchemaColumn_t const & Column) { return Lower(Column.sName) == Lower(sName); });
        }

        // Complains about the cells of a row that the schema does not allow.
        template <typename TABLE, typename PLACE>
        void CheckCells(TABLE & Table, PLACE fnPlace)
        {
            if (!m_Options.pSchema)
            {
                return;
            }
            for (SchemaColumn_t const & Column : *m_Options.pSchema)
            {
                if (std::string const sWrong = SchemaViolation(Table, Column); !sWrong.empty())
                {
                    auto const itColumn = std::find_if(m_Result.dColumns.begin(), m_Result.dColumns.end(),
                        [&Column](std::string const & sName) { return Lower(sName) == Lower(Column.sName); });
                    Complain(fnPlace(static_cast<int>(itColumn - m_Result.dColumns.begin())), sWrong);
                }
            }
        }

        WarehouseScan_t ScanFrom(int nPos) const
        {
            WarehouseScan_t Scan(m_Text.pText, m_Text.nText, nPos, m_eFormat);
            if (m_szSeparators)
            {
                Scan.SetSeparators(m_szSeparators);
            }
            return Scan;
        }

        // Returns the place of a cell in a line of a table. If the line has fewer cells, returns the place of a comment
        // that begins instead, or else the line's end.
        int CellAt(int nLine, int iCell)
        {
            BeginPlaces(static_cast<std::size_t>(nLine));
            bool bMore = true;
            while (bMore && !HasPlace(iCell))
            {
                bool const bFirst = m_dPlaces.empty();
                WarehouseScan_t Scan = ScanFrom(bFirst ? nLine : static_cast<int>(m_dPlaces.back()));
                Scan.SeekColumn(bFirst ? 0 : 1);
                auto const nAt = static_cast<std::size_t>(Scan.GetPos());
                bMore = bFirst || nAt != m_dPlaces.back();
                m_dPlaces.push_back(nAt);
            }
            return static_cast<int>(PlaceOf(iCell));
        }

        void BeginPlaces(std::size_t nLine)
        {
            if (m_nPlacedLine != nLine)
            {
                m_dPlaces.clear();
                m_nPlacedLine = nLine;
            }
        }
        bool HasPlace(int iCell) const { return static_cast<std::size_t>(iCell) < m_dPlaces.size(); }
        std::size_t PlaceOf(int iCell) const
        {
            return HasPlace(iCell) ? m_dPlaces[static_cast<std::size_t>(iCell)] : m_dPlaces.back();
        }

        // Returns whether the line of a position ends in a line feed alone, which an open quote includes.
        bool EndsInLF(std::size_t nAt) const
        {
            std::string_view const sText(m_Text.pText, static_cast<std::size_t>(m_Text.nText));
            std::size_t const nEnd = sText.find_first_of("\r\n", nAt);
            return nEnd != sText.npos && sText[nEnd] == '\n';
        }

        // Complains about what the scan of a line has lost, if nWanted cells of it are read.
        void CheckLine(WarehouseScan_t const & Scan, int nLine, WarehouseLine_c const & Line, int nWanted)
        {
            if (Scan.GetOpenQuote() >= 0)
            {
                bool const bCsv = m_eFormat == WAREHOUSE_FORMAT_CSV;
                auto const iQuote = static_cast<std::size_t>(Scan.GetOpenQuote());
                Complain(iQuote, bCsv               ? "this quote is never closed; its cell holds the rest of the file"
                                 : EndsInLF(iQuote) ? "this quote is not closed; the next line is joined to this one"
                                                    : "this quote is not closed");
            }
            if (Scan.GetCutCell() >= 0)
            {
                Complain(Scan.GetCutCell(),
                    "a cell of more than " + std::to_string(WAREHOUSE_CELL_SIZE) + " characters is cut");
            }
            if (Line.IsEmpty())
            {
                return;
            }
            for (int i = Line.IsNull(0) ? 1 : nWanted; i < Line.GetLength(); ++i)
            {
                if (!Line.IsNull(i))
                {
                    Complain(CellAt(nLine, i), Line.IsNull(0) ? "a line without a first cell is skipped"
                                                              : "this cell is after the last that is read");
                    return;
                }
            }
            if (Line.GetLength() < nWanted && !Line.IsNull(0))
            {
                CheckComment(nLine, Scan.GetPos(), Line.GetLength());
            }
        }

        // Complains about a comment that may be meant as a cell: its # is at the start of a missing cell, and an ASCII
        // letter or a digit follows.
        void CheckComment(int nLine, int nEnd, int nCells)
        {
            if (!std::memchr(m_Text.pText + nLine, '#', static_cast<std::size_t>(nEnd - nLine)))
            {
                return;
            }
            int const nAt = CellAt(nLine, nCells);
            if (nAt + 1 < nEnd && m_Text.pText[nAt] == '#'
                && std::isalnum(static_cast<unsigned char>(m_Text.pText[nAt + 1])))
            {
                Complain(nAt, "this cell and the rest of the line are a comment");
            }
        }

        // Complains about the first line whose first column begins with @ and resembles @head.
        void FindMisspeltHead()
        {
            WarehouseScan_t Scan = ScanFrom(0);
            WarehouseLine_c Line;
            for (int nLine = 0; Scan.GetLine(&Line); nLine = Scan.GetPos())
            {
                if (std::string const sSuggestion = SuggestHead(Line); !sSuggestion.empty())
                {
                    Complain(CellAt(nLine, 0), "this line begins with " + Quoted(CellOf(Line, 0)) + sSuggestion);
                    return;
                }
            }
        }

        void CheckTable()
        {
            Warehouse_c Table;
            if (!Table.Open(CHECKED_KEY, m_eFormat, m_Options.sHead.empty() ? nullptr : m_Options.sHead.c_str(),
                    m_szSeparators))
            {
                Stop(Table.GetLastError());
                FindMisspeltHead();
                return;
            }
            WarehouseLine_c Head, Line;
            WarehouseScan_t Finder = ScanFrom(0);
            int nHead = -1;
            if (Finder.FindLine(WAREHOUSE_HEADER, &Head))
            {
                nHead = Finder.GetLineStart();
            }
            else
            {
                std::string const sHead = std::string(WAREHOUSE_HEADER) + " " + m_Options.sHead;
                WarehouseScan_t(sHead.c_str(), static_cast<int>(sHead.size()), 0, WAREHOUSE_FORMAT_TEXT).GetLine(&Head);
            }
            CheckHead(CellsOf(Head), 1, [&](int i) { return nHead >= 0 ? CellAt(nHead, i) : 0; });
            AddRow(m_Result.dColumns);
            std::unordered_map<std::string, int> dIdents;
            std::string sIdent;
            WarehouseScan_t Scan = ScanFrom(0);
            for (int nLine = 0; Scan.GetLine(&Line); nLine = Scan.GetPos())
            {
                CheckLine(Scan, nLine, Line, nLine == nHead ? Line.GetLength() : Head.GetLength());
                if (Line.IsNull(0) || nLine == nHead)
                {
                    continue;
                }
                if (Line.IsHeader())
                {
                    Complain(CellAt(nLine, 0), "a second @head is skipped");
                    continue;
                }
                if (!Table.NextIdent(sIdent))
                {
                    break;
                }
                ++m_Result.nRows;
                if (auto const [itFirst, bNew] = dIdents.emplace(sIdent, nLine); !bNew)
                {
                    Complain(static_cast<std::size_t>(CellAt(nLine, 0)),
                        "a search for " + Quoted(sIdent) + " finds the item in line ",
                        static_cast<std::size_t>(CellAt(itFirst->second, 0)));
                }
                CheckCells(Table, [&](int i) { return CellAt(nLine, i); });
                AddRow(CellsOf(Line));
            }
        }

        void CheckPropertyList()
        {
            PropertyList_c List;
            if (!List.Open(CHECKED_KEY, m_eFormat))
            {
                Stop(List.GetLastError());
                return;
            }
            m_szSeparators = nullptr;   // a property list has the usual ones
            constexpr int CELLS = 2;    // name and value
            WarehouseScan_t Scan = ScanFrom(0);
            WarehouseLine_c Line;
            for (int nLine = 0; Scan.GetLine(&Line); nLine = Scan.GetPos())
            {
                CheckLine(Scan, nLine, Line, CELLS);
                if (!Line.IsNull(0))
                {
                    ++m_Result.nRows;
                    AddRow({ CellOf(Line, 0), Lower(CellOf(Line, 1)) });
                }
            }
        }

        std::size_t SpreadsheetCellAt(SpreadsheetFmtDesc_t const & Fmt, std::size_t nRow, int iCell)
        {
            BeginPlaces(nRow);
            if (m_dPlaces.empty())
            {
                SpreadsheetParser_c Parser(
                    CHECKED_KEY, Fmt, m_Text.pText + nRow, m_Text.nText - static_cast<int>(nRow));
                Parser.FindCells([&](std::size_t nCell) { m_dPlaces.push_back(nRow + nCell); });
            }
            return PlaceOf(iCell);
        }

        void CheckSpreadsheet()
        {
            SpreadsheetFmtDesc_t Fmt = Spreadsheet_c::USUAL_FORMAT;
            Fmt.cCellSeparator = m_szSeparators ? *m_szSeparators : Fmt.cCellSeparator;
            Spreadsheet_c Sheet;
            {
                ReaderErrors_c const Errors(m_Result.dComplaints);
                m_Result.bWhole = Sheet.Open(CHECKED_KEY, &Fmt);
            }
            if (!m_Result.bWhole)
            {
                // The reader may log an error without a place in several steps. The last one is the reason.
                std::erase_if(m_Result.dComplaints, [](Complaint_t const & Complaint) { return Complaint.iLine == 0; });
                if (m_Result.dComplaints.empty())
                {
                    Stop(Sheet.GetLastError());
                }
                return;
            }
            SpreadsheetParser_c Parser(CHECKED_KEY, Fmt, m_Text.pText, m_Text.nText);
            bool bError = false;
            SpreadsheetRow_c Head;
            Parser.ParseRow(Head, bError);
            CheckHead(
                CellsOf(Head), 0, [&, nRow = Parser.GetRowStart()](int i) { return SpreadsheetCellAt(Fmt, nRow, i); });
            AddRow(m_Result.dColumns);
            for (; m_Result.nRows < Sheet.GetRowCount(); ++m_Result.nRows)
            {
                SpreadsheetRow_c Row;
                Parser.ParseRow(Row, bError);
                Sheet.MoveToRow(m_Result.nRows);
                std::vector<std::string> const dCells = CellsOf(Row);
                std::size_t const nRow = Parser.GetRowStart();
                CheckCells(Sheet, [&](int i) { return SpreadsheetCellAt(Fmt, nRow, i); });
                for (std::size_t i = m_Result.dColumns.size(); i < dCells.size(); ++i)
                {
                    if (!dCells[i].empty())
                    {
                        Complain(SpreadsheetCellAt(Fmt, nRow, static_cast<int>(i)), "no column has this cell");
                        break;
                    }
                }
                AddRow(dCells);
            }
        }

        void CheckScript()
        {
            Script_c Script;
            ReaderErrors_c const Errors(m_Result.dComplaints);
            m_Result.bWhole = Script.OpenFile(CHECKED_KEY);
            if (!m_Result.bWhole)
            {
                return;
            }
            std::string sWord;
            int nEnd = 0;   // of the previous word
            for (Script.GetToken(sWord, false); !sWord.empty(); Script.GetToken(sWord, false))
            {
                int const nWord = Script.m_iBytesRead - static_cast<int>(sWord.size());
                bool const bNewLine = CheckGap(nEnd, nWord);
                if (sWord[0] == '"' || sWord[0] == '\'')
                {
                    Script.SetPosition(nWord);
                    Script.GetString(sWord, sWord[0]);
                }
                else if (sWord.size() >= Script_c::TOKEN_SIZE)
                {
                    Complain(nWord,
                        "a word of more than " + std::to_string(Script_c::TOKEN_SIZE - 1) + " characters is cut");
                }
                nEnd = Script.m_iBytesRead;
                ++m_Result.nRows;
                if (m_Options.bRows && (bNewLine || m_Result.dRows.empty()))
                {
                    m_Result.dRows.emplace_back();
                }
                if (m_Options.bRows)
                {
                    m_Result.dRows.back().push_back(sWord);
                }
            }
            CheckGap(nEnd, m_Text.nText);
            Script.CloseFile();
        }

        // Complains about the first character beyond ASCII between two words that is not in a comment. Returns whether
        // there is a line end between them.
        bool CheckGap(int nFrom, int nTo)
        {
            std::string_view const sGap(m_Text.pText + nFrom, static_cast<std::size_t>(nTo - nFrom));
            for (std::size_t i = 0; i < sGap.size(); ++i)
            {
                if (sGap[i] == '/')
                {
                    i = std::min(sGap.find('\n', i), sGap.size());
                }
                else if (static_cast<unsigned char>(sGap[i]) >= 0x80)
                {
                    Complain(nFrom + static_cast<int>(i), "a character beyond ASCII separates words");
                    break;
                }
            }
            return sGap.find('\n') != sGap.npos;
        }

        TextFile_c m_File;
        CheckOptions_t const & m_Options;
        WarehouseFormat_e m_eFormat;
        FileText_t m_Text;
        char const * m_szSeparators;
        std::size_t m_nPlacedLine = NOWHERE;   // start of the line, or of a spreadsheet's row, of m_dPlaces
        std::vector<std::size_t> m_dPlaces;    // of all cells of a row, or of a line's up to the last one sought
        std::vector<Found_t> m_dFound;
        CheckedText_t m_Result;
    };
}

CheckedText_t CheckText(std::string const & sFile, std::string sBytes, CheckOptions_t const & Options)
{
    return TextCheck_c(sFile, std::move(sBytes), Options).Run();
}
