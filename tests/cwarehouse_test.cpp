#include "tests/media_fixture.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cwarehouse.h"

#include <climits>
#include <memory>
#include <random>
#include <sstream>

using namespace std::string_literals;

namespace
{
    // Returns the columns, joined by bars. A null column is a tilde.
    std::string Joined(WarehouseLine_c const & Line)
    {
        std::string sAll;
        for (char const * szColumn : Line)
        {
            sAll += (sAll.empty() ? "" : "|") + std::string(szColumn ? szColumn : "~");
        }
        return sAll;
    }

    // A scan of a text in a block of exactly its size, so that an address checker reports a read beyond the text.
    struct Scan_s
    {
        std::vector<char> dBytes;
        WarehouseScan_t Scan;

        Scan_s(std::string const & sData, WarehouseFormat_e eFormat, char const * szSeparators)
            : dBytes(sData.begin(), sData.end())
            , Scan(dBytes.data(), static_cast<int>(sData.size()), 0, eFormat)
        {
            if (szSeparators)
            {
                Scan.SetSeparators(szSeparators);
            }
        }
    };

    // Reads all lines, and expects that the scan then is at the end of the text. Returns each line in brackets.
    std::string Lines(std::string const & sData, WarehouseFormat_e eFormat, char const * szSeparators = nullptr)
    {
        Scan_s Data(sData, eFormat, szSeparators);
        WarehouseLine_c Line;
        std::string sAll;
        while (Data.Scan.GetLine(&Line))
        {
            sAll += "[" + Joined(Line) + "]";
        }
        EXPECT_EQ(Data.Scan.GetPos(), static_cast<int>(sData.size()));
        return sAll;
    }

    class Warehouse : public MediaTest
    {
    protected:
        ~Warehouse() override { m_pTable.reset(); }

        // Serves a file, opens it in a new table and returns whether that succeeded.
        bool Open(std::string const & sName, std::string const & sText, char const * szHeader = nullptr,
            char const * szSeparators = nullptr, bool bCopy = false)
        {
            m_pTable = std::make_unique<Warehouse_c>(bCopy);   // closes the previous one
            Serve(sName, sText);
            m_pTable->LogColName(true);
            return m_pTable->Open(sName.c_str(), WAREHOUSE_FORMAT_AUTO, szHeader, szSeparators);
        }

        // Returns the text of a cell, after "missing" if Get fails.
        std::string Text(char const * szColumn)
        {
            String_T<256> sText("stale");
            return m_pTable->Get(szColumn, sText) ? std::string(sText) : "missing" + std::string(sText);
        }

        // Walks all items from the first one and returns their idents, each with a blank after it. Leaves the table
        // without a work line.
        std::string WalkIdents()
        {
            std::string sAll;
            String_T<256> sIdent;
            EXPECT_TRUE(m_pTable->StartIdent());
            while (m_pTable->NextIdent(sIdent))
            {
                sAll += std::string(sIdent) + " ";
            }
            EXPECT_TRUE(sIdent.IsEmpty());
            EXPECT_FALSE(m_pTable->GetWorkIdent(sIdent)) << "the walk ends without a work line";
            return sAll;
        }

        // Serves the cell in the file get.txt, and opens that file in place of the previous table. Returns what Get
        // does with the cell for eight types: the value, or a minus sign if it fails. Returns "changed" for an output
        // that a failure changes.
        std::string ReadNumbers(std::string const & sCell)
        {
            EXPECT_EACH(Open("get.txt", "@head v\ni " + sCell + "\n"), m_pTable->FindIdent("I"));
            std::ostringstream Out;
            Out.precision(9);
            auto const Add = [&](auto Value)
            {
                auto const Stale = Value;
                bool const bValid = m_pTable->Get("v", Value);
                if (bValid)
                {
                    Out << +Value << ' ';
                }
                else
                {
                    Out << (Value == Stale ? "- " : "changed ");
                }
            };
            Add(77l);
            Add(77.0);
            Add(77.0f);
            Add(77);
            Add(short{ 77 });
            Add(static_cast<unsigned char>(77));
            Add(true);
            Add(77ul);
            return Out.str();
        }

        std::unique_ptr<Warehouse_c> m_pTable = std::make_unique<Warehouse_c>();
    };
}

TEST(WarehouseScan, SplitsLinesOfBothFormats)
{
    constexpr WarehouseFormat_e TEXT = WAREHOUSE_FORMAT_TEXT, CSV = WAREHOUSE_FORMAT_CSV;
    struct Row_s
    {
        WarehouseFormat_e eFormat;
        std::string sData, sLines;
        char const * szSeparators = nullptr;
    };
    std::string const sKept(WAREHOUSE_CELL_SIZE, 'x'), sLong = sKept + "more";
    for (Row_s const & Row : {
             Row_s{ TEXT, "", "" },
             { TEXT, "Sword 3\tTEN\r\n\n  \r\n# note\nlast", "[sword|3|TEN][][][][last]" },
             { TEXT, "a#b #c \"d\ne", "[a#b][e]" },
             { TEXT, "\"A b\"C \"\" \"d\"", "[a b|C|~|d]" },
             { TEXT, "a \"b c\nd e\nf \"b c\r\nd \"open", "[a|b c|d|e][f|b c][d|open]" },
             { TEXT, "a \"", "[a|~]" },
             { TEXT, "A\0B c\0\0d\xFF\n"s, "[a||c||]" },
             { TEXT, "a,b;c d", "[a|b|c d]", ",;" },
             { TEXT, "a\nb\nc", "[a|b|c]", "\n" },
             { TEXT, "\"a\"b", "[a|b]", "\"" },
             { CSV, "A;;C\nb,d,\r\n;x\n\n  # n;\"\n a b \t; #rest;\nc", "[a|~|C][b|d][~|x][][][a b][c]" },
             { CSV, "\"x \"\"y\"\" \" ; z\nk;\"two\nlines\";\"\"\nab\"C\"d;", "[x \"y\"|z][k|two\nlines|~][ab|C|d]" },
             { CSV, "\"open;\n\"\"", "[open;\n\"]" },
             { CSV, "a;\"", "[a|~]" },
             { CSV, "a\0b;\0c"s, "[a|b|~|c]" },
             { CSV, "\"a\"\t,b\tc", "[a|b|c]", ",\t" },
             { CSV, "a\nb\nc", "[a|b|c]", "\n" },
             { CSV, "a b;c", "[a|b;c]", " " },
             { CSV, "k;\"" + sLong + "\";z", "[k|" + sKept + "|z]" },
             { CSV, "k;\"\"\"" + sLong + "\";z", "[k|\"" + sKept.substr(1) + "|z]" },
             { WAREHOUSE_FORMAT_AUTO, "a;b c", "[a;b|c]" },
         })
    {
        EXPECT_EQ(Lines(Row.sData, Row.eFormat, Row.szSeparators), Row.sLines) << Row.sData.substr(0, 60);
    }

    std::string const sMany(100000, ';');   // as many null columns
    EXPECT_EQ(Lines(sMany, CSV).size(), 2 * sMany.size() + 1);
}

TEST(WarehouseScan, AFilesNameSettlesTheFormat)
{
    std::string sCsv;
    for (char const * szName : { "a.csv", ".csv", "A.CsV", "csv", "a.csv.txt", "acsv", "" })
    {
        sCsv += WarehouseSettleFormat(WAREHOUSE_FORMAT_AUTO, szName) == WAREHOUSE_FORMAT_CSV ? "1" : "0";
    }
    EXPECT_EQ(sCsv, "1110000");
    EXPECT_EQ(WarehouseSettleFormat(WAREHOUSE_FORMAT_TEXT, "a.csv"), WAREHOUSE_FORMAT_TEXT);
}

TEST(WarehouseScan, SearchesFindWhatAWalkOverAllLinesFinds)
{
    static std::string const s_dPieces[] = { "a", "B", "@Head", "\"", "\"\"", "\n", "\n", ";", ",", " ", "\r", "#",
        "\xE9", "\0"s };
    static char const * const s_dSeparators[] = { nullptr, ";\t", "\n", "#\"", "" };
    static char const * const s_dWanted[] = { "A", "ab", "@head", "" };
    std::mt19937 Random(63);
    for (int iRound = 0; iRound < 4000; ++iRound)
    {
        std::string sData;
        for (std::size_t nPieces = Random() % (iRound % 100 ? 40 : 9000); nPieces > 0; --nPieces)
        {
            sData += s_dPieces[Random() % std::size(s_dPieces)];
        }
        auto const eFormat = iRound % 2 ? WAREHOUSE_FORMAT_CSV : WAREHOUSE_FORMAT_TEXT;
        char const * const szSeparators = s_dSeparators[Random() % std::size(s_dSeparators)];
        char const * const szWanted = s_dWanted[Random() % std::size(s_dWanted)];
        Scan_s Walk(sData, eFormat, szSeparators), Items(sData, eFormat, szSeparators),
            Find(sData, eFormat, szSeparators);
        WarehouseLine_c Line;
        std::string sItems, sFound, sItemsOfWalk, sFoundByWalk;
        auto const Found = [&Line](Scan_s const & By)
        { return std::to_string(By.Scan.GetPos()) + Joined(Line) + "\n"; };
        int nItemLines = 0, nLines = 0;
        for (; Walk.Scan.GetLine(&Line); ++nLines)
        {
            bool const bWanted = !Line.IsNull(0) && StrCompareNoCase(Line[0], szWanted) == 0;
            sFoundByWalk += bWanted && sFoundByWalk.empty() ? Found(Walk) : "";
            sItemsOfWalk += Line.IsNull(0) || Line.IsHeader() ? "" : std::to_string(nLines + 1) + Found(Walk);
        }
        while (Items.Scan.NextItem(&Line, nItemLines))
        {
            sItems += std::to_string(nItemLines) + Found(Items);
        }
        sFound += Find.Scan.FindLine(szWanted, &Line) ? Found(Find) : "";
        ASSERT_EQ(sItems, sItemsOfWalk) << sData;
        ASSERT_EQ(nItemLines, nLines) << sData;
        ASSERT_EQ(sFound, sFoundByWalk) << sData;
    }
}

TEST(WarehouseLine, ColumnsMoveAndGoFromBothEnds)
{
    WarehouseLine_c Line, Other;
    Line.AddColumn("ABC", 2);
    Line.AddColumn("DEF", 3);
    Line.AddColumn(nullptr, 5);
    Other.AddColumn(Line, 1);
    Other.AddColumn(Line, 9);
    EXPECT_EQ(Joined(Line) + " " + Joined(Other), "ab|~|~ DEF|~");
    Line.DelFirst();
    Line.DelLast();
    EXPECT_EQ(Joined(Line), "~");
    Line.Reset();
    Line.DelFirst();
    Line.DelLast();
    EXPECT_EACH(Line.IsEmpty(), Line.IsNull(0), Line.IsNull(-1), !Line.IsHeader());
}

TEST_F(Warehouse, ConvertsACellToEachType)
{
    bool const bWide = sizeof(long) > 4;
    // Long, double, float, int, short, unsigned char, bool, unsigned long.
    for (auto const & [szCell, szResults] : Rows_t<char const *, char const *>{
             { "10", "10 10 10 10 10 10 1 10" },
             { "0", "0 0 0 0 0 0 0 0" },
             { "\" +5\"", "5 5 5 5 5 5 1 5" },
             { "-1", "-1 -1 -1 -1 -1 - 1 -" },
             { "12.9", "- 12.9 12.8999996 - - - - 12" },
             { "-0.5", "- -0.5 -0.5 - - - - -" },
             { "0x1.8p3", "- 12 12 - - - - 12" },
             { "255", "255 255 255 255 255 255 1 255" },
             { "256", "256 256 256 256 256 - 1 256" },
             { "32767", "32767 32767 32767 32767 32767 - 1 32767" },
             { "-32769", "-32769 -32769 -32769 -32769 - - 1 -" },
             { "32768", "32768 32768 32768 32768 - - 1 32768" },
             { "-32768", "-32768 -32768 -32768 -32768 -32768 - 1 -" },
             { "2147483647", "2147483647 2.14748365e+09 2.14748365e+09 2147483647 - - 1 2147483647" },
             { "4294967295", bWide ? "4294967295 4.2949673e+09 4.2949673e+09 - - - 1 4294967295"
                                   : "- 4.2949673e+09 4.2949673e+09 - - - - 4294967295" },
             { "9223372036854775808", "- 9.22337204e+18 9.22337204e+18 - - - - -" },
             { "3.4028235e38", "- 3.4028235e+38 - - - - - -" },
             { "-1.7976931348623157e308", "- -1.79769313e+308 - - - - - -" },
         })
    {
        EXPECT_EQ(ReadNumbers(szCell), szResults + " "s) << szCell;
    }
    for (char const * szCell : { "12abc", "+-1", "\"1 \"", "\"\"", "0x1p+-3", "1e309", "1e-310", "inf", "nan" })
    {
        EXPECT_EQ(ReadNumbers(szCell), "- - - - - - - - ") << szCell;
    }
}

TEST_F(Warehouse, ReadsTextsAndPairs)
{
    ASSERT_TRUE(Open("pairs.csv", "@HEAD;Name;;p\nx;a long name;7;12-34\ny;;;--5-3-9\nz;;;-99999999999--8\nw;;;12-\n"));
    char szShort[12];
    m_Log.Clear();
    ASSERT_TRUE(m_pTable->FindIdent("X"));
    EXPECT_EQ(Text("NAME") + "," + Text("@Head") + "," + Text("none"), "a long name,x,missing");
    EXPECT_EACH(m_pTable->Get("name", szShort, 12), szShort == "a long name"s, m_pTable->Get("name", szShort, 11),
        szShort == "a long nam"s, m_pTable->GetLength("name") == 11);
    EXPECT_EQ(m_Log.GetText(), "pairs.csv: Not found column 'none'\npairs.csv: Invalid data in column 'name' line 0\n");

    auto const Pair = [this](char const * szIdent)
    {
        int iFirst = 1, iSecond = 2;
        m_pTable->FindIdent(szIdent);
        bool const bValid = m_pTable->Get("p", iFirst, iSecond);
        return (bValid ? "" : "invalid ") + std::to_string(iFirst) + " " + std::to_string(iSecond);
    };
    EXPECT_EQ(Pair("x"), "12 34");
    EXPECT_EQ(Pair("y"), "5 3") << "leading minus signs are skipped, and a third part is ignored";
    EXPECT_EQ(Pair("z"), std::to_string(INT_MAX) + " -8");
    EXPECT_EQ(Pair("w"), "invalid 1 2");
    EXPECT_EQ(Pair("absent"), "invalid 1 2");

    ASSERT_TRUE(m_pTable->SetWorkIdent("y"));
    EXPECT_EACH(m_pTable->GetLength("name") == 0, m_pTable->GetLength("none") == -1, Text("name") == "");
    int iFirst, iSecond;
    m_Log.Clear();
    m_pTable->LogColName(false);
    EXPECT_FALSE(m_pTable->Get("name", iFirst, iSecond));
    EXPECT_EQ(m_Log.GetText(), "");
}

TEST_F(Warehouse, WalksItemsAndSearchesApart)
{
    ASSERT_TRUE(Open("walk.txt", "early 1\n@head n\n# note\nSword 2\r\n\n@HEAD x\nSHIELD 3\nsword 4"));
    EXPECT_EQ(WalkIdents(), "early sword shield sword ");
    String_T<256> sIdent;
    EXPECT_EACH(m_pTable->StartIdent(), m_pTable->NextIdent(sIdent), m_pTable->FindIdent("SWORD"));
    EXPECT_EQ(Text("n"), "2");
    ASSERT_TRUE(m_pTable->NextIdent(sIdent));
    EXPECT_STREQ(sIdent, "sword");
    EXPECT_EACH(!m_pTable->FindIdent("@head"), !m_pTable->FindIdent("swor"), !m_pTable->GetWorkIdent(sIdent));
    char szShort[4];
    ASSERT_TRUE(m_pTable->NextIdent(szShort, 4));
    EXPECT_STREQ(szShort, "shi");
    m_Log.Clear();
    EXPECT_EQ(Text("gone"), "missing");
    long iValue;
    EXPECT_FALSE(m_pTable->Get("@head", iValue));
    EXPECT_EQ(m_Log.GetText(), "walk.txt: Not found column 'gone'\nwalk.txt: Invalid data in column '@head' line 7\n");
}

TEST_F(Warehouse, AClosedTableFailsEveryCall)
{
    Warehouse_c Closed;
    String_T<256> sText;
    EXPECT_FALSE(Closed.Open("absent.txt"));
    EXPECT_EQ(m_Log.GetText(), "");
    EXPECT_EACH(!Closed.StartIdent(), !Closed.NextIdent(sText), !Closed.FindIdent("a"), !Closed.GetWorkIdent(sText),
        !Closed.GetFileName(sText), !Closed.Get("@head", sText));
    EXPECT_EQ(Closed.GetLength("@head"), -1);
}

TEST_F(Warehouse, OpensWithTheFilesHeaderOrTheCallers)
{
    String_T<256> sText;
    char const * const szBare = "a,b c;d\n";
    EXPECT_FALSE(Open("bare.csv", szBare));
    EXPECT_EQ(m_Log.GetText(), "Warehouse_c::Open: File \"bare.csv\": no client header line specified\n"
                               "Warehouse_c::Open: File \"bare.csv\": no header line found\n");
    EXPECT_FALSE(m_pTable->StartIdent());
    EXPECT_EQ(FileStream("bare.csv")->GetOpensCount(), 0);

    for (bool const bCopy : { false, true })
    {
        SCOPED_TRACE(bCopy);
        EXPECT_EACH(Open("bare.csv", szBare, "name size", nullptr, bCopy), m_pTable->FindIdent("A"));
        EXPECT_EQ(Text("name") + "," + Text("size"), "b c,d");
        EXPECT_EQ(FileStream("bare.csv")->GetOpensCount(), bCopy ? 0 : 1);
        EXPECT_EQ(m_pTable->GetFileName(sText), !bCopy);
        EXPECT_STREQ(sText, bCopy ? "" : "bare.csv");
    }
    ASSERT_TRUE(Open("bare.csv", szBare, "name", " "));
    EXPECT_EQ(WalkIdents(), "a,b ");
    EXPECT_EACH(m_pTable->StartIdent(), m_pTable->NextIdent(sText), m_pTable->GetWorkIdent(sText),
        m_pTable->Open("bare.csv", WAREHOUSE_FORMAT_TEXT, "name"));
    EXPECT_FALSE(m_pTable->GetWorkIdent(sText)) << "a second opening begins anew";
    EXPECT_EACH(m_pTable->NextIdent(sText), WalkIdents() == "a,b ", FileStream("bare.csv")->GetOpensCount() == 1);
}

TEST_F(Warehouse, ARefreshOfTheOpenFileShowsInTheNextSearch)
{
    ASSERT_TRUE(Open("live.txt", "@head n\nsword 1\naxe 2\n"));
    String_T<256> sIdent;
    EXPECT_EACH(m_pTable->StartIdent(), m_pTable->NextIdent(sIdent));
    for (auto const & [sText, szIdents] : Rows_t<std::string, char const *>{
             { "@head n\nspear 3\nbow 4\n", "spear bow " },   // of the same length, so in a block of the same address
             { "@head n\n" + std::string(5000, '\n') + "shield 2\n", "shield " } })
    {
        m_Folder.Write("live.txt", sText);
        FileStream("live.txt")->Refresh();
        EXPECT_FALSE(m_pTable->NextIdent(sIdent)) << "the walk belongs to the previous text";
        EXPECT_EQ(WalkIdents(), szIdents);
        EXPECT_EACH(m_pTable->StartIdent(), m_pTable->NextIdent(sIdent));
    }
}

TEST_F(Warehouse, SkippedLinesAndNumbersAllocateNothing)
{
    std::string sText = "@head;n\n";
    for (int i = 0; i < 1000; ++i)
    {
        sText += "item" + std::to_string(i) + ";1;\"a \"\"b\n\"\n;;\n";
    }
    EXPECT_EACH(Open("many.csv", sText), m_pTable->FindIdent("item999"));
    m_pTable->LogColName(false);
    int iValue = 0;
    float fValue = 0;
    String_T<256> sValue;
    MemoryResetFrameAllocCount();
    EXPECT_TRUE(m_pTable->FindIdent("item999"));
    MemoryResetFrameAllocCount();
    EXPECT_EQ(MemoryGetFrameAllocCount(), 3u) << "the columns of the line found";
    bool const bInt = m_pTable->Get("n", iValue), bFloat = m_pTable->Get("n", fValue);
    bool const bText = m_pTable->Get("n", sValue), bPair = m_pTable->Get("n", iValue, iValue);
    bool const bFound = m_pTable->FindIdent("none");
    MemoryResetFrameAllocCount();
    EXPECT_EQ(std::tuple(bInt, bFloat, bText, bPair, bFound, MemoryGetFrameAllocCount()),
        std::tuple(true, true, true, false, false, 0u));
}

TEST_F(Warehouse, ABrokenPreconditionIsReportedAndFails)
{
    ExpectComplaints(6);
    EXPECT_EACH(Open("a.txt", "@head v\na 1\n"), m_pTable->FindIdent("a"));
    char szText[2] = "x";
    int iValue = 5;
    EXPECT_EACH(!m_pTable->Get(nullptr, iValue), !m_pTable->Get("v", nullptr, 9), !m_pTable->GetFileName(szText, 1),
        !m_pTable->FindIdent(nullptr), !m_pTable->NextIdent(nullptr, 9), !m_pTable->Open(nullptr), iValue == 5);
    EXPECT_EQ(m_Log.Count("a.txt: Not found column 'nullptr'"), 1);
}
