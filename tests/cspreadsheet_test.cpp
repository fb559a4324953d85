#include "tests/media_fixture.h"
#include "zqcore/cspreadsheet.h"

#include <cstring>

using namespace std::string_literals;

namespace
{
    constexpr char const * HEAD_FAILED = "Spreadsheet_c::Parse : head parsing failed.\n";
    constexpr char const * ROW_FAILED = "Spreadsheet_c::Parse : row parsing failed.\n";
    std::string const WORD_CUT = "SimpleTextParser_c::ParseWord : word buffer overflow.\n";

    class SpreadsheetTest : public MediaTest
    {
    protected:
        // Writes a file, opens it and returns whether that succeeded. Requires that the sheet is closed.
        bool Open(std::string const & sText, SpreadsheetFmtDesc_t const * pFmt = nullptr)
        {
            Serve("sheet.csv", sText);
            bool const bOpen = m_Sheet.Open("Sheet.csv", pFmt);
            EXPECT_EQ(FileStream("sheet.csv")->GetOpensCount(), 0) << "the file is closed in every case";
            return bOpen;
        }

        // Returns head and rows, each cell followed by a bar, or what was logged if the sheet is closed.
        std::string Dump()
        {
            if (!m_Sheet.IsOpen())
            {
                return m_Log.GetText();
            }
            EXPECT_EQ(m_Sheet.GetCurrentRow(), m_Sheet.GetRowCount() > 0 ? 0 : -1);
            EXPECT_EQ(m_Sheet.GetCurrentColumn(), nullptr);
            std::string sAll;
            for (int iRow = -1; iRow < 0 || m_Sheet.MoveToRow(iRow); ++iRow)
            {
                sAll += iRow < 0 ? "" : "\n";
                for (bool bMore = m_Sheet.MoveToFirstColumn(); bMore; bMore = m_Sheet.MoveToNextColumn())
                {
                    sAll += (iRow < 0 ? m_Sheet.GetCurrentColumn() : m_Sheet.GetCell()) + "|"s;
                }
            }
            return sAll;
        }

        struct Step_s
        {
            char const * szWhat;
            bool (*fnMove)(Spreadsheet_c &);
            bool bExpected;
            int iRow;
            char const * szColumn;
            std::string sLog;   // without the class's name and the line end
        };

        // Takes the steps, and expects of each its result, the cursor and the log.
        void Walk(std::initializer_list<Step_s> dSteps)
        {
            for (auto const & [szWhat, fnMove, bExpected, iRow, szColumn, sLog] : dSteps)
            {
                m_Log.Clear();
                EXPECT_EQ(fnMove(m_Sheet), bExpected) << szWhat;
                EXPECT_EQ(m_Sheet.GetCurrentRow(), iRow) << szWhat;
                EXPECT_STREQ(m_Sheet.GetCurrentColumn(), szColumn) << szWhat;
                EXPECT_EQ(m_Log.GetText(), sLog.empty() ? "" : "Spreadsheet_c::" + sLog + "\n") << szWhat;
            }
        }

        Spreadsheet_c m_Sheet;
    };
}

TEST_F(SpreadsheetTest, ReadsHeadAndRowsOrReportsWhatIsWrong)
{
    struct Row_s
    {
        std::string sText, sOutcome;
        std::vector<SpreadsheetFmtDesc_t> dFmt = {};
    };
    Row_s const dRows[] = {
        { "\r\n\n\t\na,b\r\n\n1,2\r\n \r\n x , y z \n", "a|b|\n1|2|\n ||\n x | y z |" },
        { "only,a,head\n", "only|a|head|" },
        { "a,b,c\nx,\n,\n,,\n\"\"\n1,2,3,4,5\ny,", "a|b|c|\nx|||\n|||\n|||\n|||\n1|2|3|\ny|||" },
        { ",a,\n1,2\n", "|a||\n1|2||" },
        { "a,b\n\"x,\n\"\"y\"\"\",it's 12\" long\n\"\"\"\"\n", "a|b|\nx,\n\"y\"|it's 12\" long|\n\"||" },
        { "a,b\n\xE4\xFF,-1.5e3\x7F\n\"x\0y\",z\n"s, "a|b|\n\xE4\xFF|-1.5e3\x7F|\nx|z|" },
        { "a;b\n1,5;2\n", "a|b|\n1,5|2|", { { '\n', ';' } } },
        { "a\tb|1\t\n2|", "a|b|\n1|2|", { { '|', '\t' } } },
        { "a b,1 2,", "a|b|\n1|2|", { { ',', ' ' } } },
        { "a,1,,2,", "a|\n1|\n2|", { { ',', ',' } } },
        { "a\"b\n\"1\"\"2\n", "a|b|\n|1|", { { '\n', '"' } } },
        { "a\na\n1\n", "||\n||\n1||", { { '\n', 'a' } } },
        // An error in the head keeps what was read. The next row begins after the token that stopped the head.
        { "a b\tc,d\n1\n", "a b|\n|\n1|" },
        { "\"a\"b,c\n1\n", "a|\n|\n1|" },
        { "a,b\"", "a|b\"|" },
        { "a\n1", ROW_FAILED },
        { "a\n1\n\"open", ROW_FAILED },
        { "a,b\n\"x\" ,y\n", ROW_FAILED },
        { "a,b\nx\ty,z\n", ROW_FAILED },
        { "a\nx\0y\n"s, ROW_FAILED },
        { "a\n\"x\"" + std::string(600, 'y'), WORD_CUT + ROW_FAILED },
        { "\n\r\n\t\n", HEAD_FAILED },
        { "\x01\0"s, HEAD_FAILED },
    };
    for (Row_s const & Row : dRows)
    {
        SCOPED_TRACE(Row.sText.substr(0, 80));
        SpreadsheetFmtDesc_t const * const pFmt = Row.dFmt.empty() ? nullptr : Row.dFmt.data();
        bool const bOpen = Open(Row.sText, pFmt);
        EXPECT_EQ(bOpen, m_Sheet.IsOpen());
        EXPECT_EQ(Dump(), Row.sOutcome);
        if (bOpen)
        {
            m_Sheet.Close();
        }
        EXPECT_EQ(std::pair(m_Sheet.GetRowCount(), m_Sheet.GetColumnCount()), std::pair(0, 0));
        EXPECT_TRUE(Open("a,b\n")) << "the usual separators are back";
        EXPECT_EQ(Dump(), "a|b|");
        m_Sheet.Close();
    }
}

TEST_F(SpreadsheetTest, CutsLongCellsAndSaysWhyAFileIsNotOpened)
{
    ExpectComplaints(2);
    EXPECT_EACH(!m_Sheet.Open(nullptr), !m_Sheet.Open("missing.csv"));
    EXPECT_EQ(m_Log.GetText(), "Spreadsheet_c::Open : file name isn't specified.\n"
                               "Spreadsheet_c::Open ( \"missing.csv\" ) : can't open file.\n");
    EXPECT_FALSE(Open(""));
    EXPECT_EQ(m_Log.CountHolding("head parsing failed."), 1);
    std::string const sWord(511, 'w'), sQuoted(24575, ',');
    auto const Row = [&](std::string const & sMore)   // of more than 64 KiB
    {
        std::string const sCell = ",\"" + sQuoted + sMore + "\"";
        return sWord + sMore + sCell + sCell + sCell + ",1\n";
    };
    ASSERT_TRUE(Open("a,b,c,d,e\n" + Row("") + Row("x") + "next,row\n"));
    EXPECT_FALSE(m_Sheet.Open("other.csv"));
    std::string const sCut = "SimpleTextParser_c::ParseString : string buffer overflow.\n";
    EXPECT_EQ(m_Log.GetText(),
        WORD_CUT + sCut + sCut + sCut + "Spreadsheet_c::Open ( \"other.csv\" ) : reentry. Was opened yet.\n");
    std::string const sRow = sWord + "|" + sQuoted + "|" + sQuoted + "|" + sQuoted + "|1|\n";
    EXPECT_EQ(Dump(), "a|b|c|d|e|\n" + sRow + sRow + "next|row||||");
}

TEST_F(SpreadsheetTest, MovesItsCursorAndSaysWhatItCannotDo)
{
#define MOVE(call) #call, [](Spreadsheet_c & Sheet) -> bool { return Sheet.call; }
#define CELL(call, text)                                                                                               \
    #call, [](Spreadsheet_c & Sheet) -> bool                                                                           \
    { char const * szCell = Sheet.call; return szCell && !std::strcmp(szCell, text); }
    Walk({
        { MOVE(MoveToNextRow()), false, -1, nullptr, "MoveToRow : spreadsheet wasn't opened." },
        { MOVE(MoveToFirstColumn()), false, -1, nullptr, "MoveToFirstCol() : wasn't opened." },
        { MOVE(MoveToNextColumn()), false, -1, nullptr, "MoveToNextCol : current column unspecified" },
        { MOVE(MoveToColumn("x")), false, -1, nullptr, "MoveToColumn( \"x\" ) : wasn't opened." },
        { MOVE(MoveToColumnForward(nullptr)), false, -1, nullptr, "MoveToColumn : column name isn't specified." },
        { MOVE(FindFirstCell("x", "1")), false, -1, nullptr, "FindNextCell : closed spreadseet." },
        { MOVE(FindNextCell("x", "1")), false, -1, nullptr, "FindNextCell : current row unspecified." },
    });
    ASSERT_TRUE(Open("x,Y,x\n1,One,a\n2,two,b\n1,ONE,c\n"));
    Walk({
        { MOVE(GetCell()), false, 0, nullptr, "" },
        { MOVE(MoveToNextColumn()), false, 0, nullptr, "MoveToNextCol : current column unspecified" },
        { CELL(GetCell("X"), "1"), true, 0, "x", "" },
        { CELL(GetCellForward("x"), "a"), true, 0, "x", "" },
        { MOVE(GetCellForward("x")), false, 0, nullptr, "" },
        { CELL(GetCellForward("y"), "One"), true, 0, "Y", "" },
        { MOVE(MoveToNextColumn()), true, 0, "x", "" },
        { MOVE(MoveToNextColumn()), false, 0, nullptr, "" },
        { MOVE(MoveToColumn("none")), false, 0, nullptr, "" },
        { MOVE(MoveToFirstColumn()), true, 0, "x", "" },
        { MOVE(MoveToColumn(nullptr)), false, 0, nullptr, "MoveToColumn : column name isn't specified." },
        { MOVE(MoveToFirstColumn()), true, 0, "x", "" },
        { MOVE(MoveToRow(3)), false, -1, "x", "MoveToRow : out of range." },
        { MOVE(GetCell("x")), false, -1, "x", "" },
        { MOVE(MoveToRow(-1)), false, -1, "x", "MoveToRow : out of range." },
        { MOVE(MoveToNextRow()), true, 0, nullptr, "" },
        { MOVE(MoveToRow(2)), true, 2, nullptr, "" },
        { MOVE(MoveToNextRow()), false, -1, nullptr, "" },
        { MOVE(FindFirstCell("y", "one")), true, 0, "Y", "" },
        { MOVE(FindNextCell("Y", "oNe")), true, 2, "Y", "" },
        { MOVE(FindNextCell("Y", "one")), false, -1, nullptr, "" },
        { MOVE(FindNextCell("Y", "one")), false, -1, nullptr, "FindNextCell : current row unspecified." },
        { MOVE(FindFirstCell("none", "2")), false, -1, nullptr, "" },
        { MOVE(FindFirstCell("x", "2")), true, 1, "x", "" },
        { MOVE(FindNextCell(nullptr, nullptr)), false, -1, nullptr, "FindCell : unspecified column name." },
        { MOVE(FindFirstCell("x", nullptr)), false, -1, nullptr, "FindCell : unspecified column value" },
    });
#undef MOVE
#undef CELL
}

TEST_F(SpreadsheetTest, CopiesAndConvertsCells)
{
    ASSERT_TRUE(Open("text,n,empty,neg,bad\nabcdef,12abc,,-1.5e2,abc\n"));
    char szBuffer[] = "????????";
    EXPECT_TRUE(m_Sheet.Get("text", szBuffer, 3));
    EXPECT_STREQ(szBuffer, "abc?????") << "no terminator";
    EXPECT_TRUE(m_Sheet.Get("TEXT", szBuffer, 8));
    EXPECT_EQ(std::string(szBuffer, 9), "abcdef\0\0\0"s);
    EXPECT_EACH(!m_Sheet.Get("none", szBuffer, 8), !m_Sheet.Get("text", nullptr, 8), !m_Sheet.Get("text", szBuffer, 0));
    std::string sNumbers;
    for (char const * szName : { "n", "empty", "neg", "bad", "none" })
    {
        float fValue = 77;
        sNumbers += m_Sheet.Get(szName, fValue) ? "" : "!";
        sNumbers += std::to_string(static_cast<int>(fValue)) + " ";
    }
    EXPECT_EQ(sNumbers, "12 !77 -150 0 !77 ");
}

TEST_F(SpreadsheetTest, HoldsAtMostFourTimesTheFile)
{
    std::string sPlain, sTiny, sWide = "a";
    for (int i = 0; i < 10'000; ++i)
    {
        sPlain += "id" + std::to_string(i) + ",name,\"a, b\",1,2.5,north,12,13,14,15,last,12\n";
        sTiny += "1,2,3,4,5,6,7,8,9,0,1,2\n";
    }
    for (int i = 0; i < 1'000'000; ++i)
    {
        sWide += ",a";   // more than a million columns, and rows that are padded to them
    }
    ASSERT_TRUE(Open(sTiny));   // the first file object allocates room for many
    m_Sheet.Close();
    for (std::string const & sText : { sPlain, sTiny, sWide + "\n1\n2\n3\n4\n" })
    {
        SCOPED_TRACE(sText.size());
        std::ptrdiff_t const nBefore = MemoryTotalBytesAllocated();
        ASSERT_TRUE(Open(sText));
        EXPECT_LE(MemoryTotalBytesAllocated() - nBefore, static_cast<std::ptrdiff_t>(sText.size()) * 4);
        EXPECT_EACH(m_Sheet.MoveToRow(3), m_Sheet.GetColumnCount() >= 12);
        m_Sheet.Close();
        EXPECT_LE(MemoryTotalBytesAllocated() - nBefore, 4096) << "Close releases everything";
    }
}

TEST(SpreadsheetRow, KeepsItsCellsWhileItGrowsAndAssertsTheirRange)
{
    SpreadsheetRow_c Row;
    for (int i = 0; i < 30'000; ++i)
    {
        Row.AddCell(!i ? nullptr : i % 2 ? std::to_string(i).c_str() : Row.GetCell(i - 1));   // its own text too
    }
    ASSERT_EQ(Row.GetCellCount(), 30'000);
    EXPECT_STREQ(Row.GetCell(0), "");
    for (int i = 1; i < 30'000; ++i)
    {
        ASSERT_EQ(Row.GetCell(i), std::to_string(i - (i % 2 == 0)));
    }
    EXPECT_EQ(FailedConditions([&] { EXPECT_STREQ(Row.GetCell(-1), ""); }), "iCell >= 0 && iCell < GetCellCount()");
    EXPECT_EQ(FailedConditions([&] { Row.GetCell(30'000); }), "iCell >= 0 && iCell < GetCellCount()");
}
