#include "tests/media_fixture.h"
#include "zqcore/cpropertylist.h"
#include "zqcore/cscript.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/ctexterror.h"
#include "zqcore/ctextparser.h"
#include "zqcore/cwarehouse.h"

#include <fstream>
#include <map>

using namespace std::string_literals;

namespace
{
    // Returns "file(line,column): reason".
    std::string TextOf(TextError_t const & Error)
    {
        std::string const sPlace =
            Error.iLine ? "(" + std::to_string(Error.iLine) + "," + std::to_string(Error.iColumn) + ")" : "";
        return std::string(Error.sFile) + sPlace + (Error.IsSet() ? ": " : "") + std::string(Error.sReason);
    }

    // Appends a text to others, after szBetween unless it begins a line. An empty text shows as (none).
    void Add(std::string & sAll, std::string const & sText, char const * szBetween)
    {
        sAll += (sAll.empty() || sAll.back() == '\n' ? "" : szBetween) + (sText.empty() ? "(none)" : sText);
    }

    // Read "table.txt", or the text that is passed. Return what they read, or why it can't be opened.
    std::string ReadSheet(std::string const &)
    {
        Spreadsheet_c Sheet;
        std::string sCells;
        bool bRow = Sheet.Open("table.txt");
        for (; bRow && Sheet.GetRowCount() > 0; bRow = Sheet.MoveToNextRow())
        {
            for (bool bMore = Sheet.MoveToFirstColumn(); bMore; bMore = Sheet.MoveToNextColumn())
            {
                Add(sCells, Sheet.GetCell(), " | ");
            }
            sCells += '\n';
        }
        return Sheet.IsOpen() ? sCells : TextOf(Sheet.GetLastError());
    }

    template <WarehouseFormat_e FORMAT>
    std::string ReadTable(std::string const &)
    {
        Warehouse_c Table;
        std::string sCells;
        bool const bOpen = Table.Open("table.txt", FORMAT);
        String_T<256> sIdent, sCell;
        for (Table.StartIdent(); bOpen && Table.NextIdent(sIdent); sCells += '\n')
        {
            sCells += std::string(sIdent);
            for (char const * szColumn : { "name", "price", "unit" })
            {
                Table.Get(szColumn, sCell);
                Add(sCells, std::string(sCell), " | ");
            }
        }
        return bOpen ? sCells : TextOf(Table.GetLastError());
    }

    std::string ReadProperties(std::string const &)
    {
        PropertyList_c List;
        std::string sValues;
        bool const bOpen = List.Open("table.txt");
        String_T<256> sName, sValue;
        for (List.StartProp(); bOpen && List.NextProp(sName); sValues += '\n')
        {
            char const * szBetween = ": ";
            sValues += std::string(sName);
            for (List.StartVal(sName); List.NextVal(sValue); szBetween = ", ")
            {
                Add(sValues, std::string(sValue), szBetween);
            }
        }
        return bOpen ? sValues : TextOf(List.GetLastError());
    }

    template <bool PUNCTUATION>
    std::string ReadTokens(Script_c & Script)
    {
        std::string sTokens;
        char szToken[Script_c::TOKEN_SIZE];
        for (Script.GetToken(szToken, PUNCTUATION); *szToken; Script.GetToken(szToken, PUNCTUATION))
        {
            Add(sTokens, "["s + szToken + "]", " ");
        }
        return sTokens + '\n';
    }

    template <bool PUNCTUATION>
    std::string ReadScript(std::string const &)
    {
        Script_c Script;
        bool const bOpen = Script.OpenFile("table.txt");
        std::string const sTokens = ReadTokens<PUNCTUATION>(Script);
        Script.CloseFile();
        return bOpen ? sTokens : TextOf(Script.GetLastError());
    }

    std::string ReadMemory(std::string const & sText)
    {
        Script_c Script;
        Script.OpenMemoryLocation(sText.data(), static_cast<int>(sText.size()));
        std::string const sTokens = ReadTokens<false>(Script);
        std::string const sReason(Script.GetLastError().sReason);
        return sReason.empty() ? sTokens : "table.txt: " + sReason;
    }

    std::string ReadParser(std::string const & sText)
    {
        SimpleTextParser_c Parser;
        std::string sWords;
        bool const bOpen = Parser.Open(sText.data(), static_cast<int>(sText.size()));
        while (bOpen && Parser.ParseNext())
        {
            Add(sWords, Parser.IsWord() ? Parser.GetWord() : "("s + Parser.GetSymbol() + ")", " ");
        }
        return bOpen ? sWords : "table.txt" + TextOf(Parser.GetLastError());
    }

    template <typename T>
    bool GetOne(Warehouse_c const & Table, char const * szColumn)
    {
        T Value;
        return Table.Get(szColumn, Value);
    }

    bool GetPair(Warehouse_c const & Table, char const * szColumn)
    {
        int iFirst, iSecond;
        return Table.Get(szColumn, iFirst, iSecond);
    }

    // Returns false for a text that Get cuts, because Get returns true.
    bool GetCut(Warehouse_c const & Table, char const * szColumn)
    {
        char szText[2];
        return !Table.Get(szColumn, szText, sizeof szText);
    }

    std::string ReplacedAll(std::string sText, std::string const & sFrom, std::string const & sTo)
    {
        for (std::size_t nAt = sText.find(sFrom); nAt != std::string::npos; nAt = sText.find(sFrom, nAt + sTo.size()))
        {
            sText.replace(nAt, sFrom.size(), sTo);
        }
        return sText;
    }

    class TextError : public MediaTest
    {
    protected:
        ~TextError() override { SetTextErrorLog(false); }
    };
}

TEST_F(TextError, TheExamplesOfTheDocsAreReadOrRefusedAsShown)
{
    std::ifstream Page(FORMATS_PAGE);
    std::map<std::string, std::string> dBlocks;
    std::string sBlock;
    int nRefused = 0;
    for (std::string sLine; std::getline(Page, sLine);)
    {
        sLine = ReplacedAll(ReplacedAll(sLine, "→", "\t"), "¶", "\n");
        sBlock = sLine.starts_with("```") ? sLine.substr(3) : sBlock;
        dBlocks[sBlock] += sLine.starts_with("```") ? "" : sLine + "\n";
        if (sLine.starts_with("| `") && sLine.find('\n') != std::string::npos)
        {
            std::size_t const nPlace = sLine.find("` | ") + 4, nReason = sLine.find(" | ", nPlace) + 3;
            std::string const sPlace = ReplacedAll(sLine.substr(nPlace, nReason - 3 - nPlace), ", ", ",");
            Serve("table.txt", sLine.substr(3, nPlace - 7));
            EXPECT_EQ(ReadSheet(""), "table.txt" + (sPlace == "none" ? "" : "(" + sPlace + ")") + ": "
                                         + sLine.substr(nReason, sLine.size() - 2 - nReason));
            ++nRefused;
        }
    }
    EXPECT_EQ(nRefused, 5);
    for (auto const & [szExample, szResult, fnRead] :
        Rows_t<char const *, char const *, std::string (*)(std::string const &)>{
            { "spreadsheet", "spreadsheet-read", ReadSheet },
            { "warehouse", "warehouse-read", ReadTable<WAREHOUSE_FORMAT_TEXT> },
            { "warehouse-csv", "warehouse-csv-read", ReadTable<WAREHOUSE_FORMAT_CSV> },
            { "propertylist", "propertylist-read", ReadProperties },
            { "script", "script-words", ReadScript<false> },
            { "script", "script-pieces", ReadScript<true> },
        })
    {
        Serve("table.txt", dBlocks[szExample]);
        EXPECT_EQ(fnRead(dBlocks[szExample]), dBlocks[szResult]) << szExample;
        EXPECT_NE(dBlocks[szResult], "") << szExample;
    }
}

TEST_F(TextError, AByteOrderMarkIsSkippedOrRefused)
{
    std::string const sRefused = "table.txt: the text is UTF-16; only UTF-8 is read";
    for (auto const & [sText, sRead, fnRead] : Rows_t<std::string, std::string, std::string (*)(std::string const &)>{
             { "a,b\nc,d\n", "c | d\n", ReadSheet },
             { "@head name\na b\n", "a | b | (none) | (none)\n", ReadTable<WAREHOUSE_FORMAT_TEXT> },
             { "@head,name\na,b\n", "a | b | (none) | (none)\n", ReadTable<WAREHOUSE_FORMAT_CSV> },
             { "a b\n", "a: b\n", ReadProperties },
             { "a b\n", "[a] [b]\n", ReadScript<false> },
             { "a b\n", "[a] [b]\n", ReadMemory },
             { "a b\n", "a b", ReadParser },
         })
    {
        SCOPED_TRACE(sRead);
        for (auto const & [sMark, sExpected] : Rows_t<std::string, std::string>{
                 { "", sRead }, { "\xEF\xBB\xBF", sRead }, { "\xFF\xFE", sRefused }, { "\xFE\xFF", sRefused } })
        {
            Serve("table.txt", sMark + sText);
            EXPECT_EQ(fnRead(sMark + sText), sExpected);
            EXPECT_EQ(FileStream("table.txt")->GetOpensCount(), 0);
        }
    }
}

TEST_F(TextError, ARefusedSheetAndALostCellHaveTheirPlaceAndReason)
{
    std::string const sWord(600, 'x'), sQuoted(30'000, 'x');
    std::string const sLast = "the last row has no end; a row ends with the row separator";
    std::string const sOpen = "the quote of this cell is never closed";
    std::string const sAfterQuote = "only a separator may follow the closing quote of a cell";
    for (auto const & [bOpens, sText, sError] : Rows_t<bool, std::string, std::string>{
             { true, "a,b\n1,2\n", "" },
             { false, "\xEF\xBB\xBF\xC3\xA4,b\r\n\xE2\x82\xAC,2", "(2,4): " + sLast },
             { false, "a,b\n\"x", "(2,1): " + sOpen },
             { false, "a,b\n1,\"x\n\n", "(2,3): " + sOpen },
             { false, "a,b\n1,\"x\"\"", "(2,3): " + sOpen },
             { false, "a,b\n\"x\ny\" ,2\n", "(3,3): " + sAfterQuote },
             { false, "a,b\n\"x\"\"y\"\t\"z\",2\n", "(2,8): " + sAfterQuote },
             { true, "a,\"b\" ,c\n1,2\n", "(1,6): " + sAfterQuote },
             { true, "a,b\n1," + sWord + "\n2,3\n", "(2,3): a word of more than 511 characters is cut" },
             { true, "a,b\n\"" + sQuoted + "\",1\n", "(2,1): a text in quotes of more than 24575 characters is cut" },
         })
    {
        Spreadsheet_c Sheet;
        Serve("table.txt", sText);
        EXPECT_EQ(Sheet.Open("table.txt"), bOpens) << sText;
        EXPECT_EQ(TextOf(Sheet.GetLastError()), "table.txt" + sError) << sText;
    }
}

TEST_F(TextError, AFailedGetHasTheTrueLineAndTheCell)
{
    std::string const sCsv =
        "\xEF\xBB\xBF# n\n@head;n;t;u\r\n\na;\"1\n2\";x;7\nb; \xC3\xA4\xC3\xA4 ; \"\"\"y\n\" ;zz\nc\n";
    std::string const sText = "@head n t u\n\na  1 x\t7\nb \"q\" \"y\n z zz\nc\nd 99999999999999999999 1e999\n";
    using Get_t = bool (*)(Warehouse_c const &, char const *);
    constexpr Get_t fnGetInt = GetOne<int>;
    for (auto const & [bCsv, szIdent, fnGet, szColumn, sError] :
        Rows_t<bool, char const *, Get_t, char const *, std::string>{
            { true, "a", fnGetInt, "n", "(4,3): there is no whole number in column \"n\"" },
            { true, "a", GetPair, "T", "(5,4): there is no pair of numbers in column \"T\"" },
            { true, "b", fnGetInt, "n", "(6,4): there is no whole number in column \"n\"" },
            { true, "b", GetCut, "u", "(7,4): the text is cut in column \"u\"" },
            { true, "b", fnGetInt, "none\n1", "(6,1): there is no column \"none\\n1\"" },
            { true, "c", fnGetInt, "n", "(8,2): there is no value in column \"n\"" },
            { false, "a", GetOne<double>, "u", "" },
            { false, "b", GetPair, "T", "(4,7): there is no pair of numbers in column \"T\"" },
            { false, "b", GetOne<double>, "u", "(5,2): there is no number in column \"u\"" },
            { false, "c", fnGetInt, "n", "(6,2): there is no value in column \"n\"" },
            { false, "c", GetOne<unsigned char>, "@head", "(6,1): there is no whole number in column \"@head\"" },
            { false, "d", GetOne<long>, "n", "(7,3): the number is out of range in column \"n\"" },
            { false, "d", GetOne<double>, "t", "(7,24): the number is out of range in column \"t\"" },
            { false, "x", fnGetInt, "n", ": without a work line there is no column \"n\"" },
        })
    {
        SCOPED_TRACE(sError);
        Warehouse_c Table(!bCsv);
        Serve("table.txt", bCsv ? sCsv : sText);
        ASSERT_TRUE(Table.Open("table.txt", bCsv ? WAREHOUSE_FORMAT_CSV : WAREHOUSE_FORMAT_TEXT));
        Table.FindIdent(szIdent);
        EXPECT_EQ(fnGet(Table, szColumn), sError.empty());
        Table.StartIdent();   // the error keeps its place
        EXPECT_EQ(TextOf(Table.GetLastError()), "table.txt" + sError);
    }
}

TEST_F(TextError, AScriptsMismatchHasItsPlaceAndAFailedOpenItsReason)
{
    auto const GetQuoted = [](Script_c & Script, char cQuote)
    {
        char szText[9];
        Script.GetString(szText, sizeof szText - 1, cQuote);
    };
    for (auto const & [fnRead, sError] :
        Rows_t<std::function<void(Script_c &)>, std::string>{
            { [](Script_c & Script)
                {
                    Script.SkipToken("size");
                    Script.GetInt("weight");
                },
                "" },
            { [](Script_c & Script)
                {
                    Script.SkipToken("x");
                    Script.SkipToken("y");
                },
                "(4,1): this is not the expected token \"y\"" },
            { [](Script_c & Script) { Script.GetFloat("none"); }, "(2,3): this is not the expected label \"none\"" },
            { [](Script_c & Script) { Script.GetFloat(); }, "(2,3): this is no number \"size\"" },
            { [&](Script_c & Script) { GetQuoted(Script, '\''); }, "(2,3): this is no quote" },
            { [&](Script_c & Script)
                {
                    Script.SetPosition(23);
                    GetQuoted(Script, '"');
                },
                "(4,10): no quote ends this text" },
            { [](Script_c & Script)
                {
                    Script.RewindAfterToken("12", true, false);
                    Script.GetInt("y");
                    Script.GetInt("z");
                },
                "(5,1): this is not the expected label \"z\"" },
        })
    {
        Script_c Script;
        Serve("table.txt", "\n  size // s\n\nweight 12\"b\n");
        ASSERT_TRUE(Script.OpenFile("Table.txt"));
        fnRead(Script);
        EXPECT_EQ(TextOf(Script.GetLastError()), "Table.txt" + sError);
        Script.CloseFile();
    }
    Script_c Script;
    EXPECT_FALSE(Script.OpenFile("none.txt"));
    EXPECT_EQ(TextOf(Script.GetLastError()), "none.txt: there is no such file");
    ExpectComplaints(1);   // of the open
    Serve("gone.txt", "x");
    fs::remove(m_Folder.Join("gone.txt"));
    EXPECT_FALSE(Script.OpenFile("gone.txt"));
    EXPECT_EQ(TextOf(Script.GetLastError()), "gone.txt: No such file or directory");
}

TEST(TextErrors, ALongNameIsCutAtACharacterAndQuoted)
{
    std::string sName;
    for (int i = 0; i < 200; ++i)
    {
        sName += "\u00E9";
    }
    for (std::string const sReason : { "even", "odd" })
    {
        TextErrors_c Errors;
        Errors.Set(sReason.c_str(), sName.c_str());
        std::size_t const nRoom = 252 - sReason.size();   // of 255 bytes, without a blank and the quotes
        EXPECT_EQ(Errors.GetLast().sReason.CStr(), sReason + " \"" + sName.substr(0, nRoom / 2 * 2) + "\"");
    }
}

TEST_F(TextError, IsLoggedIfWantedAndNoNameForgesALine)
{
    char const * const szName = "x\n9.9\t0\tforged.txt";
    auto const LogFailures = [&]
    {
        m_Log.Clear();
        Warehouse_c Table;
        Table.LogColName(true);
        int iValue;
        EXPECT_TRUE(Table.Open(szName));
        EXPECT_EACH(Table.FindIdent("b"), !Table.Get("n\n", iValue), !Table.Open("none.txt"));
        Spreadsheet_c Sheet;
        EXPECT_EACH(!Sheet.Open(szName), !Sheet.Open("none\n.txt"), !Sheet.MoveToColumn("\x1B[7m\x7F"));
        return m_Log.GetText();
    };
    Serve(szName, "@head\na 1\nb 2");
    std::string const sStated =
        "x\\n9.9\\t0\\tforged.txt: Not found column 'n\\n'\n%sSpreadsheet_c::Parse : row parsing failed.\n%s"
        "Spreadsheet_c::Open ( \"none\\n.txt\" ) : can't open file.\n%s"
        "Spreadsheet_c::MoveToColumn( \"\\x1B[7m\\x7F\" ) : wasn't opened.\n";
    EXPECT_EQ(LogFailures(), Va(sStated.c_str(), "", "", ""));
    SetTextErrorLog(true);
    EXPECT_EQ(LogFailures(),
        Va(sStated.c_str(),
            "x\\n9.9\\t0\\tforged.txt(3,1): there is no column \"n\\n\"\n"
            "none.txt: there is no such file\n",
            "x\\n9.9\\t0\\tforged.txt(3,4): the last row has no end; a row ends with the row separator\n",
            "none\\n.txt: there is no such file\n"));
    m_Log.Clear();
    SimpleTextParser_c Parser;
    std::string const sText = "a\n " + std::string(130, '1');
    EXPECT_EACH(Parser.Open(sText.data(), static_cast<int>(sText.size())), Parser.ParseNext(), Parser.ParseNext());
    EXPECT_EQ(m_Log.GetText(), "SimpleTextParser_c::ParseNumber : number buffer overflow.\n"
                               "text(2,2): a number of more than 127 characters is cut\n");
    NEEDS_NOBODY;
    m_Folder.Write("closed/hidden.txt", "");
    fs::permissions(m_Folder.Join("closed"), fs::perms::none);
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    auto const ScanAndOpen = [&]
    {
        Spreadsheet_c Sheet;
        Scan();
        m_Log.Clear();
        EXPECT_FALSE(Sheet.Open("hidden.txt"));
        EXPECT_EQ(m_Log.CountHolding("a scan could not see all folders"), 1);
        return 0;
    };
    EXPECT_EQ(StatusAsNobody(ScanAndOpen), 0);
    fs::permissions(m_Folder.Join("closed"), fs::perms::all);
}
