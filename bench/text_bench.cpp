// text_bench.cpp: spreadsheets, property lists, scripts and tokens, most compared with what a program uses instead.
#include "bench/bench_support.h"
#include "zqcore/cmemory.h"
#include "zqcore/cpropertylist.h"
#include "zqcore/cscript.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/ctextparser.h"

#include <cstdio>
#include <cstring>
#include <csv.h>
#include <map>
#include <sstream>
#include <unordered_set>

namespace
{
    constexpr std::size_t SHEET_SIZE = 20'000'000;    // bytes that the text has at least
    constexpr std::size_t SCRIPT_SIZE = 10'000'000;   // likewise
    constexpr int COLUMNS = 12;

    struct Text_s
    {
        std::string sName;   // of the file that serves the text, or empty
        std::string sText;
        std::int64_t nItems = 0;   // cells, or pairs of a word and a number

        std::int64_t Bytes() const { return static_cast<std::int64_t>(sText.size()); }
    };

    // Makes a game's table at the first call and serves it as a file. Returns the table: a header, then rows of twelve
    // cells, one of them in quotes with a comma.
    Text_s const & MakeSheet()
    {
        static Text_s const s_Sheet = []
        {
            Text_s Sheet;
            Sheet.sText = "id,name,level,health,damage,speed,range,cost,weight,faction,icon,note\n";
            Sheet.nItems = COLUMNS;
            char szRow[256];
            for (int i = 0; Sheet.sText.size() < SHEET_SIZE; ++i)
            {
                std::snprintf(szRow, sizeof szRow,
                    "%d,unit_%d,%d,%d.5,%d,0.%02d,%d,%d,12.75,north,icons/unit%d.png,"
                    "\"strong, but slow %d\"\n",
                    i, i, i % 60, i % 900, i % 77, i % 100, i % 40, i * 3, i % 500, i);
                Sheet.sText += szRow;
                Sheet.nItems += COLUMNS;
            }
            Sheet.sName = ServeFile("sheet.csv", Sheet.sText);
            return Sheet;
        }();
        return s_Sheet;
    }

    // Makes pairs of a word and a number at the first call, four in a line. Returns them.
    Text_s const & MakeScript()
    {
        static Text_s const s_Script = []
        {
            Text_s Script;
            char szLine[128];
            for (int i = 0; Script.sText.size() < SCRIPT_SIZE; ++i)
            {
                std::snprintf(szLine, sizeof szLine, "%sproperty_%d %d.%03d", i % 4 ? "  " : "\n", i % 1000,
                    i % 5000 - 2500, i % 1000);
                Script.sText += szLine;
                ++Script.nItems;
            }
            Script.sText += '\n';
            return Script;
        }();
        return s_Script;
    }

    void CountBytes(benchmark::State & State, Text_s const & Text)
    {
        State.SetBytesProcessed(State.iterations() * Text.Bytes());
    }

    void SheetOurs(benchmark::State & State)
    {
        std::int64_t nHeld = 0;
        for (auto _ : State)
        {
            std::ptrdiff_t const nBefore = MemoryTotalBytesAllocated();
            Spreadsheet_c Table;
            Require(State, Table.Open(MakeSheet().sName.c_str()) && Table.GetColumnCount() == COLUMNS);
            Require(State, (Table.GetRowCount() + 1) * COLUMNS == MakeSheet().nItems);
            nHeld = MemoryTotalBytesAllocated() - nBefore;
        }
        CountBytes(State, MakeSheet());
        State.counters["held_per_byte"] = static_cast<double>(nHeld) / static_cast<double>(MakeSheet().Bytes());
    }

    void SheetLibcsv(benchmark::State & State)
    {
        using Cells_t = PlainVector_T<PlainString_t>;
        Text_s const & Text = MakeSheet();
        for (auto _ : State)
        {
            Cells_t dCells;
            csv_parser Parser;
            csv_init(&Parser, CSV_APPEND_NULL);
            auto const fnCell = [](void * pCell, std::size_t nCell, void * pCells)
            { static_cast<Cells_t *>(pCells)->emplace_back(static_cast<char const *>(pCell), nCell); };
            csv_parse(&Parser, Text.sText.data(), Text.sText.size(), fnCell, nullptr, &dCells);
            csv_fini(&Parser, fnCell, nullptr, &dCells);
            csv_free(&Parser);
            Require(State, static_cast<std::int64_t>(dCells.size()) == Text.nItems);
        }
        CountBytes(State, Text);
    }

    // Returns a copy of a cell in a block of its own, which the caller frees.
    char * Cell(char const * pBegin, char const * pEnd)
    {
        auto const nCell = static_cast<std::size_t>(pEnd - pBegin);
        auto * const pCell = static_cast<char *>(std::malloc(nCell + 1));
        std::memcpy(pCell, pBegin, nCell);
        pCell[nCell] = '\0';
        return pCell;
    }

    void SheetByHand(benchmark::State & State)
    {
        Text_s const & Text = MakeSheet();
        for (auto _ : State)
        {
            PlainVector_T<char *> dCells;
            char const * const pEnd = Text.sText.data() + Text.sText.size();
            for (char const * p = Text.sText.data(); p < pEnd; ++p)
            {
                bool const bQuoted = *p == '"';
                char const * const pBegin = bQuoted ? ++p : p;
                while (bQuoted ? *p != '"' : *p != ',' && *p != '\n')
                {
                    ++p;
                }
                dCells.push_back(Cell(pBegin, p));
                p += bQuoted;
            }
            Require(State, static_cast<std::int64_t>(dCells.size()) == Text.nItems);
            for (char * const pCell : dCells)
            {
                std::free(pCell);
            }
        }
        CountBytes(State, Text);
    }

    void FindOurs(benchmark::State & State)
    {
        Spreadsheet_c Table;
        Require(State, Table.Open(MakeSheet().sName.c_str()));
        for (auto _ : State)
        {
            Require(State, !Table.FindFirstCell("icon", "missing"));
        }
        State.counters["rows"] = Table.GetRowCount();
    }

    template <std::int64_t (*READ)()>
    void ReadPairs(benchmark::State & State)
    {
        for (auto _ : State)
        {
            Require(State, READ() == MakeScript().nItems);
        }
        CountBytes(State, MakeScript());
    }

    std::int64_t ScriptOurs()
    {
        Script_c Reader;
        Reader.OpenMemoryLocation(MakeScript().sText.data(), static_cast<int>(MakeScript().sText.size()));
        std::int64_t nPairs = 0;
        char szWord[Script_c::TOKEN_SIZE];
        for (Reader.GetToken(szWord, false); !Reader.m_bEndOfFile; Reader.GetToken(szWord, false))
        {
            benchmark::DoNotOptimize(Reader.GetFloat());
            ++nPairs;
        }
        return nPairs;
    }

    std::int64_t ScriptStrtok()
    {
        static constexpr char BLANKS[] = " \t\r\n";
        PlainString_t sCopy(MakeScript().sText);   // strtok_r writes into its text
        std::int64_t nPairs = 0;
        char * pState = nullptr;
        for (char * p = strtok_r(sCopy.data(), BLANKS, &pState); p; p = strtok_r(nullptr, BLANKS, &pState))
        {
            char const * const szNumber = strtok_r(nullptr, BLANKS, &pState);
            benchmark::DoNotOptimize(std::strtod(szNumber, nullptr));
            ++nPairs;
        }
        return nPairs;
    }

    std::int64_t ScriptStream()
    {
        std::istringstream In(MakeScript().sText);
        std::int64_t nPairs = 0;
        std::string sWord;
        for (double fNumber; In >> sWord >> fNumber; ++nPairs)
        {
            benchmark::DoNotOptimize(fNumber);
        }
        return nPairs;
    }

    std::int64_t TokensOurs()
    {
        SimpleTextParser_c Parser;
        Parser.Open(MakeScript().sText.data(), static_cast<int>(MakeScript().sText.size()));
        std::int64_t nNumbers = 0;
        while (Parser.ParseNext())
        {
            nNumbers += Parser.IsNumber();
        }
        return nNumbers;
    }

    constexpr int NAMES = 10'000;

    // Makes a list of nLines lines at the first call with this number and serves it as a file. Returns the list. NAMES
    // lines in a row have all names: 7919 and NAMES are coprime.
    Text_s const & MakeProperties(std::int64_t nLines)
    {
        static std::map<std::int64_t, Text_s> s_dLists;
        Text_s & List = s_dLists[nLines];
        if (!List.sName.empty())
        {
            return List;
        }
        char szLine[64];
        for (std::int64_t i = 0; i < nLines; ++i)
        {
            std::snprintf(szLine, sizeof szLine, "Property_%d value_%d\n", static_cast<int>(i * 7919 % NAMES),
                static_cast<int>(i));
            List.sText += szLine;
        }
        List.sName = ServeFile("list.txt", List.sText);
        return List;
    }

    void StartPropOurs(benchmark::State & State)
    {
        Text_s const & List = MakeProperties(State.range(0));
        PropertyList_c Properties;
        Require(State, Properties.Open(List.sName.c_str()));
        String_T<256> sName;
        for (auto _ : State)
        {
            int nNames = 0;
            for (Properties.StartProp(); Properties.NextProp(sName);)
            {
                ++nNames;
            }
            Require(State, nNames == NAMES);
        }
        CountBytes(State, List);
        State.SetComplexityN(State.range(0));
    }

    void StartPropStream(benchmark::State & State)
    {
        Text_s const & List = MakeProperties(State.range(0));
        for (auto _ : State)
        {
            std::istringstream In(List.sText);
            std::unordered_set<std::string> dNames;
            std::string sLine, sName, sValue;
            while (std::getline(In, sLine))
            {
                std::istringstream Line(sLine);
                if (Line >> sName >> sValue)
                {
                    dNames.insert(sName);
                }
            }
            Require(State, static_cast<int>(dNames.size()) == NAMES);
        }
        CountBytes(State, List);
        State.SetComplexityN(State.range(0));
    }

    template <typename FUNCTION>
    auto * Register(char const * szName, FUNCTION fnBenchmark)
    {
        return benchmark::RegisterBenchmark(szName, fnBenchmark)->Unit(benchmark::kMillisecond);
    }

    bool const g_bRegistered = []
    {
        Register("Spreadsheet/ours", SheetOurs);
        Register("Spreadsheet/libcsv into strings", SheetLibcsv);
        Register("Spreadsheet/split by hand, malloc", SheetByHand);
        Register("SpreadsheetFind/ours", FindOurs);
        Register("Script/ours", ReadPairs<ScriptOurs>);
        Register("Script/strtok_r and strtod", ReadPairs<ScriptStrtok>);
        Register("Script/istringstream", ReadPairs<ScriptStream>);
        Register("Tokens/ours", ReadPairs<TokensOurs>);
        Register("StartProp/ours", StartPropOurs)->RangeMultiplier(10)->Range(NAMES, 100 * NAMES)->Complexity();
        Register("StartProp/getline, istringstream", StartPropStream)
            ->RangeMultiplier(10)
            ->Range(NAMES, 100 * NAMES)
            ->Complexity();
        return true;
    }();
}
