// warehouse_bench.cpp: opening, searches, walks and conversions in tables of 20 MB. Searches and conversions to numbers
// are compared with code written by hand.
#include "bench/bench_support.h"
#include "zqcore/cwarehouse.h"

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

namespace
{
    constexpr std::size_t TABLE_SIZE = 20'000'000;   // bytes
    constexpr char const * LAST_IDENT = "the_last";

    // A generated table, which is registered as a file until the end of the process.
    struct Table_s
    {
        std::string sName, sText;
        int nItems = 0;

        Table_s(char const * szName, char const * szHeader, char const * szFormat)
            : sName(szName)
            , sText(szHeader)
        {
            char szLine[256];
            for (; sText.size() < TABLE_SIZE; ++nItems)
            {
                std::snprintf(szLine, sizeof szLine, szFormat, nItems, nItems * 3, nItems % 7, nItems % 100);
                sText += szLine;
            }
            std::snprintf(szLine, sizeof szLine,
                std::strchr(szHeader, ';') ? "%s;1;2;name;0.5;7\n" : "%s 1 2 name 0.5 7\n", LAST_IDENT);
            sText += szLine;
            ++nItems;

            sName = ServeFile(sName, sText);
        }
    };

    // Make a table at the first call and serve it as a file. Return the table.
    Table_s const & MakeTextTable()
    {
        static Table_s const s_Table(
            "bench.txt", "@head count kind name rate level\n", "Item_%07d %d %d name_%d 0.25 12\n");
        return s_Table;
    }

    Table_s const & MakeCsvTable()
    {
        static Table_s const s_Table(
            "bench.csv", "@head;count;kind;name;rate;level\n", "Item_%07d;%d;%d;some name, %d;0.25;12\n");
        return s_Table;
    }

    Table_s const & MakeQuotedTable()
    {
        static Table_s const s_Table(
            "quoted.csv", "@head;count;kind;name;rate;level\n", "Item_%07d;%d;%d;\"some \"\"name\"\"; %d\";0.25;12\n");
        return s_Table;
    }

    void CountBytesAndLines(benchmark::State & State, Table_s const & Table)
    {
        State.SetBytesProcessed(State.iterations() * static_cast<std::int64_t>(Table.sText.size()));
        State.counters["lines"] =
            benchmark::Counter(static_cast<double>(State.iterations()) * Table.nItems, benchmark::Counter::kIsRate);
    }

    template <Table_s const & (*TABLE)()>
    void OpenOurs(benchmark::State & State)
    {
        Warehouse_c Table;
        for (auto _ : State)
        {
            Require(State, Table.Open(TABLE().sName.c_str(), WAREHOUSE_FORMAT_AUTO, nullptr, nullptr));
        }
    }

    // Searches the whole file: with a blank as the only separator no first column is @head.
    void OpenOursWithoutHeader(benchmark::State & State)
    {
        Warehouse_c Table;
        for (auto _ : State)
        {
            Require(State, Table.Open(MakeCsvTable().sName.c_str(), WAREHOUSE_FORMAT_AUTO, "count kind name", " "));
        }
        CountBytesAndLines(State, MakeCsvTable());
    }

    template <Table_s const & (*TABLE)()>
    void FindOurs(benchmark::State & State)
    {
        Warehouse_c Table;
        Require(State, Table.Open(TABLE().sName.c_str()));
        for (auto _ : State)
        {
            Require(State, Table.FindIdent(LAST_IDENT));
        }
        CountBytesAndLines(State, TABLE());
    }

    template <Table_s const & (*TABLE)()>
    void MissOurs(benchmark::State & State)
    {
        Warehouse_c Table;
        Require(State, Table.Open(TABLE().sName.c_str()));
        for (auto _ : State)
        {
            Require(State, !Table.FindIdent("item_missing"));
        }
        CountBytesAndLines(State, TABLE());
    }

    template <Table_s const & (*TABLE)()>
    void WalkOurs(benchmark::State & State)
    {
        Warehouse_c Table;
        String_T<256> sIdent;
        Require(State, Table.Open(TABLE().sName.c_str()));
        for (auto _ : State)
        {
            int nItems = 0;
            for (Table.StartIdent(); Table.NextIdent(sIdent);)
            {
                ++nItems;
            }
            Require(State, nItems == TABLE().nItems);
        }
        CountBytesAndLines(State, TABLE());
    }

    // Splits every line, as a program without a table of its own does.
    template <Table_s const & (*TABLE)()>
    void FindGetlineStrtok(benchmark::State & State)
    {
        char const * const szSeparators = TABLE().sName.ends_with(".csv") ? ";," : " \t\r";
        for (auto _ : State)
        {
            std::istringstream In(TABLE().sText);
            std::string sLine;
            bool bFound = false;
            while (!bFound && std::getline(In, sLine))
            {
                char * pState = nullptr;
                char const * const szIdent = strtok_r(sLine.data(), szSeparators, &pState);
                bFound = szIdent && std::strcmp(szIdent, LAST_IDENT) == 0;
                while (szIdent && strtok_r(nullptr, szSeparators, &pState))
                {}
            }
            Require(State, bFound);
        }
        CountBytesAndLines(State, TABLE());
    }

    void FindIstringstream(benchmark::State & State)
    {
        for (auto _ : State)
        {
            std::istringstream In(MakeTextTable().sText);
            std::string sLine, sWord;
            bool bFound = false;
            while (!bFound && std::getline(In, sLine))
            {
                std::istringstream Line(sLine);
                bFound = Line >> sWord && sWord == LAST_IDENT;
            }
            Require(State, bFound);
        }
        CountBytesAndLines(State, MakeTextTable());
    }

    // Does the minimum of a search: finds the line ends, and compares the first bytes of each line.
    void FindMemchr(benchmark::State & State)
    {
        for (auto _ : State)
        {
            std::string_view sRest = MakeTextTable().sText;
            while (!sRest.starts_with(LAST_IDENT))
            {
                sRest.remove_prefix(sRest.find('\n') + 1);
            }
            benchmark::DoNotOptimize(sRest);
        }
        CountBytesAndLines(State, MakeTextTable());
    }

    template <typename T>
    void GetOurs(benchmark::State & State, char const * szColumn)
    {
        Warehouse_c Table;
        Require(State, Table.Open(MakeCsvTable().sName.c_str()) && Table.FindIdent(LAST_IDENT));
        T Value{};
        for (auto _ : State)
        {
            Require(State, Table.Get(szColumn, Value));
            benchmark::DoNotOptimize(Value);
        }
    }

    template <typename T>
    void GetIstringstream(benchmark::State & State, char const * szText)
    {
        T Value{};
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(szText);
            std::istringstream In(szText);
            Require(State, bool(In >> Value));
            benchmark::DoNotOptimize(Value);
        }
    }

    template <auto CONVERT>
    void GetC(benchmark::State & State, char const * szText)
    {
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(szText);
            benchmark::DoNotOptimize(CONVERT(szText));
        }
    }

    long ByStrtol(char const * szText)
    {
        return std::strtol(szText, nullptr, 10);
    }

    double ByStrtod(char const * szText)
    {
        return std::strtod(szText, nullptr);
    }

    template <typename FUNCTION>
    void Register(char const * szName, FUNCTION fnRun)
    {
        benchmark::RegisterBenchmark(szName, fnRun)->Unit(benchmark::kMillisecond);
    }

    template <typename FUNCTION>
    void RegisterGet(char const * szName, FUNCTION fnRun, char const * szArgument)
    {
        benchmark::RegisterBenchmark(szName, [=](benchmark::State & State) { fnRun(State, szArgument); });
    }

    bool const g_bRegistered = []
    {
        Register("Open/ours, header first", OpenOurs<MakeTextTable>);
        Register("Open/ours, no header", OpenOursWithoutHeader);
        Register("FindText/ours, last", FindOurs<MakeTextTable>);
        Register("FindText/ours, missing", MissOurs<MakeTextTable>);
        Register("FindText/line ends by memchr", FindMemchr);
        Register("FindText/getline and strtok_r", FindGetlineStrtok<MakeTextTable>);
        Register("FindText/istringstream", FindIstringstream);
        Register("FindCsv/ours, last", FindOurs<MakeCsvTable>);
        Register("FindCsv/ours, missing", MissOurs<MakeCsvTable>);
        Register("FindCsv/ours, each line quoted", FindOurs<MakeQuotedTable>);
        Register("FindCsv/getline and strtok_r", FindGetlineStrtok<MakeCsvTable>);
        Register("Walk/ours, text", WalkOurs<MakeTextTable>);
        Register("Walk/ours, csv", WalkOurs<MakeCsvTable>);
        Register("Walk/ours, csv quoted", WalkOurs<MakeQuotedTable>);
        RegisterGet("GetInt/ours", GetOurs<int>, "level");
        RegisterGet("GetInt/strtol", GetC<ByStrtol>, "7");
        RegisterGet("GetInt/istringstream", GetIstringstream<int>, "7");
        RegisterGet("GetFloat/ours", GetOurs<float>, "rate");
        RegisterGet("GetFloat/strtod", GetC<ByStrtod>, "0.5");
        RegisterGet("GetFloat/istringstream", GetIstringstream<float>, "0.5");
        RegisterGet("GetText/ours", GetOurs<String_T<256>>, "name");
        return true;
    }();
}
