// Tables that others wrote, as Debian packages install them. What is expected is counted in the files line by line.
#include "tests/media_fixture.h"
#include "zqcore/cpropertylist.h"
#include "zqcore/cscript.h"
#include "zqcore/cspreadsheet.h"

#include <map>
#include <sstream>

using RealData = MediaTest;

TEST_F(RealData, TheUnicodeCharacterTableIsASpreadsheet)
{
    char const szPath[] = "/usr/share/unicode/UnicodeData.txt";
    std::ifstream Lines(szPath, std::ios::binary);
    if (!Lines || !FileAddOneFile(szPath))
    {
        GTEST_SKIP() << "the package unicode-data is not installed";
    }
    SpreadsheetFmtDesc_t const Fmt = { '\n', ';' };
    Spreadsheet_c Sheet;
    ASSERT_TRUE(Sheet.Open("unicodedata.txt", &Fmt));
    ASSERT_EQ(Sheet.GetColumnCount(), 15);
    std::string sLine, sCell;
    std::getline(Lines, sLine);   // of the character 0000; there is no head, so it names the columns
    int nUpper = 0, nRows = 0;
    for (; std::getline(Lines, sLine); ++nRows)
    {
        std::istringstream Cells(sLine + ";");
        ASSERT_TRUE(Sheet.MoveToRow(nRows) && Sheet.MoveToFirstColumn());
        for (; std::getline(Cells, sCell, ';'); Sheet.MoveToNextColumn())
        {
            ASSERT_EQ(Sheet.GetCell(), sCell) << sLine;
        }
        ASSERT_EQ(Sheet.GetCurrentColumn(), nullptr) << "fifteen cells";
        nUpper += sLine.find(";Lu;") != std::string::npos;
    }
    EXPECT_EQ(Sheet.GetRowCount(), nRows);
    for (bool bMore = Sheet.FindFirstCell("cc", "lu"); bMore; bMore = Sheet.FindNextCell("cc", "lu"))
    {
        --nUpper;
    }
    EXPECT_EQ(nUpper, 0);
    ASSERT_TRUE(Sheet.FindFirstCell("0000", "1f600"));
    EXPECT_STREQ(Sheet.GetCell("<control>"), "GRINNING FACE");
}

TEST_F(RealData, TheZonesOfCountriesAreAPropertyListAndAScript)
{
    char const szPath[] = "/usr/share/zoneinfo/zone.tab";
    std::ifstream Lines(szPath, std::ios::binary);
    Script_c Script;
    PropertyList_c List;
    if (!Lines || !FileAddOneFile(szPath) || !Script.OpenFile("zone.tab") || !List.Open("zone.tab"))
    {
        GTEST_SKIP() << "the package tzdata is not installed";
    }
    std::map<std::string, std::string> dExpected, dFound;
    char szToken[Script_c::TOKEN_SIZE];
    for (std::string sLine, sWord; std::getline(Lines, sLine);)
    {
        std::istringstream Words(sLine);
        std::string sPlace;
        for (int iWord = 0; Words >> sWord; ++iWord)
        {
            Script.GetToken(szToken, false);
            ASSERT_EQ(szToken, sWord) << sLine;
            sPlace = iWord == 1 ? sWord : sPlace;
        }
        if (sLine[0] != '#')
        {
            dExpected[{ CharToLower(sLine[0]), CharToLower(sLine[1]) }] += sPlace + " ";
        }
    }
    ASSERT_TRUE(Script.RewindAfterToken("IS", true, true));
    EXPECT_EQ(Script.GetInt(), 6409);
    Script.CloseFile();
    String_T<256> sName, sValue;
    for (List.StartProp(); List.NextProp(sName);)
    {
        for (List.StartVal(sName); List.NextVal(sValue);)
        {
            dFound[std::string(sName)] += std::string(sValue) + " ";
        }
    }
    EXPECT_EQ(dFound, dExpected);
    EXPECT_EQ(dFound["is"], "+6409-02151 ") << "Reykjavik";
}
