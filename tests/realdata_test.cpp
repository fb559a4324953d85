// Tables that others wrote, as Debian packages install them. What is expected is counted in the files line by line.
#include "tests/text_fixture.h"
#include "zqcore/cpropertylist.h"
#include "zqcore/cscript.h"
#include "zqcore/cspreadsheet.h"

#include <fstream>
#include <map>
#include <sstream>

namespace
{
    using Texts_t = std::vector<std::string>;

    Texts_t Split(std::istream && In, char cSeparator)
    {
        Texts_t dTexts;
        for (std::string sText; std::getline(In, sText, cSeparator);)
        {
            dTexts.push_back(sText);
        }
        return dTexts;
    }

    /// The lines of a table, which is registered under its bare name; none if it is not there.
    Texts_t Lines(char const * szPath)
    {
        Texts_t dLines = Split(std::ifstream(szPath, std::ios::binary), '\n');
        EXPECT_TRUE(dLines.empty() || FileAddOneFile(szPath));
        return dLines;
    }

    using RealData = TextFileTest;
}

TEST_F(RealData, TheUnicodeCharacterTableIsASpreadsheet)
{
    Texts_t const dLines = Lines("/usr/share/unicode/UnicodeData.txt");
    if (dLines.empty())
    {
        GTEST_SKIP() << "the package unicode-data is not installed";
    }
    // The table has no head: its first row, of the character 0000, names the columns.
    SpreadsheetFmtDesc_t const Fmt = { '\n', ';' };
    Spreadsheet_c Sheet;
    ASSERT_TRUE(Sheet.Open("unicodedata.txt", &Fmt));
    ASSERT_EQ(Sheet.GetRowCount(), static_cast<int>(dLines.size()) - 1);
    ASSERT_EQ(Sheet.GetColumnCount(), 15);
    int nUpper = 0;
    for (std::size_t iLine = 1; iLine < dLines.size(); ++iLine)
    {
        Texts_t const dCells = Split(std::istringstream(dLines[iLine] + ";"), ';');
        ASSERT_TRUE(Sheet.MoveToRow(static_cast<int>(iLine) - 1) && Sheet.MoveToFirstColumn());
        for (std::string const & sCell : dCells)
        {
            ASSERT_EQ(Sheet.GetCell(), sCell) << dLines[iLine];
            Sheet.MoveToNextColumn();
        }
        ASSERT_EQ(Sheet.GetCurrentColumn(), nullptr) << "fifteen cells";
        nUpper += dCells[2] == "Lu";
    }
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
    Texts_t const dLines = Lines("/usr/share/zoneinfo/zone.tab");
    if (dLines.empty())
    {
        GTEST_SKIP() << "the package tzdata is not installed";
    }
    std::map<std::string, std::string> dExpected, dFound;
    Script_c Script;
    ASSERT_TRUE(Script.OpenFile("zone.tab"));
    char szToken[Script_c::TOKEN_SIZE];
    for (std::string const & sLine : dLines)
    {
        std::istringstream Words(sLine);
        for (std::string sWord; Words >> sWord;)
        {
            Script.GetToken(szToken, false);
            ASSERT_EQ(szToken, sWord) << sLine;
        }
        if (sLine[0] != '#')
        {
            std::string & sPlaces = dExpected[{ CharToLower(sLine[0]), CharToLower(sLine[1]) }];
            sPlaces += Split(std::istringstream(sLine), '\t')[1] + " ";
        }
    }
    ASSERT_TRUE(Script.RewindAfterToken("IS", true, true));
    EXPECT_EQ(Script.GetInt(), 6409);
    Script.CloseFile();

    PropertyList_c List;
    ASSERT_TRUE(List.Open("zone.tab"));
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
