// The text readers with text objects, integers of exact width and enumerators. The readers that have Get are compared
// on the same rows.
#include "tests/media_fixture.h"
#include "zqcore/cfilename.h"
#include "zqcore/cpropertylist.h"
#include "zqcore/cscript.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/cwarehouse.h"

#include <sstream>

namespace
{
    enum class Element_e
    {
        Fire,
        Water
    };
    constexpr EnumName_T<Element_e> ELEMENTS[] = { { "fire", Element_e::Fire }, { "water", Element_e::Water } };

    constexpr auto NO_ELEMENT = static_cast<Element_e>(7);

    using TextValue = MediaTest;

    // Returns a text as fnGet(value...) reads it, as integers of each width and as an enumerator. A minus sign is a
    // failure that leaves the value unchanged.
    template <typename GET>
    std::string AsAllTypes(GET fnGet)
    {
        std::ostringstream Out;
        auto const Add = [&](auto Value)
        {
            auto const Stale = Value;
            bool const bRead = fnGet(Value);
            Out << (bRead ? std::to_string(Value) : Value == Stale ? "-" : "changed") << ' ';
        };
        Add(std::int8_t{ 77 });
        Add(std::uint8_t{ 77 });
        Add(std::uint16_t{ 77 });
        Add(std::uint32_t{ 77 });
        Add(77ll);
        Add(77ull);
        auto eElement = NO_ELEMENT;
        bool const bRead = fnGet(eElement, ELEMENTS);
        Out << (bRead ? EnumToName(eElement, ELEMENTS) : eElement == NO_ELEMENT ? "-" : "changed");
        return Out.str();
    }
}

TEST_F(TextValue, ReadsExactIntegersAndEnumerators)
{
    // Values: 8 bits signed and not, 16 and 32 bits unsigned, 64 bits signed and not, the enumerator.
    for (auto const & [sText, sValues] : Rows_t<std::string, std::string>{
             { "0", "0 0 0 0 0 0 -" },
             { "-128", "-128 - - - -128 - -" },
             { "-129", "- - - - -129 - -" },
             { "+255", "- 255 255 255 255 255 -" },
             { "65535", "- - 65535 65535 65535 65535 -" },
             { "4294967295", "- - - 4294967295 4294967295 4294967295 -" },
             { "-9223372036854775808", "- - - - -9223372036854775808 - -" },
             { "18446744073709551615", "- - - - - 18446744073709551615 -" },
             { "18446744073709551616", "- - - - - - -" },
             { "-9223372036854775809", "- - - - - - -" },
             { "1.5", "- - - - - - -" },
             { "12a", "- - - - - - -" },
             { "WATER", "- - - - - - water" },
             { "wate", "- - - - - - -" },
         })
    {
        Serve("t.csv", "@head;v\nx;" + sText + "\n");
        Serve("s.csv", "name,v\nx," + sText + "\n");
        Serve("t.txt", "skipped " + sText);
        Warehouse_c Table;
        Spreadsheet_c Sheet;
        EXPECT_EACH(Table.Open("t.csv"), Table.FindIdent("x"), Sheet.Open("s.csv"));
        EXPECT_EQ(AsAllTypes([&](auto &... Values) { return Table.Get("v", Values...); }), sValues) << sText;
        EXPECT_EQ(AsAllTypes([&](auto &... Values) { return Sheet.Get("v", Values...); }), sValues) << sText;
        Script_c Script;
        EXPECT_TRUE(Script.OpenFile("t.txt"));
        auto const Get = [&](auto &... Values)
        {
            Script.SetPosition(0);
            Script.m_bEndOfFile = false;
            Script.SkipToken("skipped");
            return Script.Get(Values...);
        };
        EXPECT_EQ(AsAllTypes(Get), sValues) << sText;
        Script.CloseFile();
    }
}

TEST_F(TextValue, FillsTextsOfAnyKindAndReportsACut)
{
    std::string const sLong(700, 'l');
    Serve("t.txt", "@head v\n" + sLong + " \"longer text\"\n");
    Serve("s.csv", "name,v,n\nx,longer text,2.5\n");
    Serve("l.txt", sLong + " VALUE\n");
    Serve("c.txt", sLong + " 'longer text' 2.5 2.5x 1e39 1e39\n  " + sLong + "\nlast");
    Warehouse_c Table;
    Spreadsheet_c Sheet;
    PropertyList_c List;
    Script_c Script;
    EXPECT_EACH(Table.Open("t.txt"), Sheet.Open("s.csv"), List.Open("l.txt"), Script.OpenFile("c.txt"));
    std::string sText = "stale", sPath;
    String_T<8> sShort("stale");
    FileName_c sName("stale"), sCut;   // a class derived from a String_T

    EXPECT_EACH(Table.NextIdent(sText), sText == sLong, Table.GetWorkIdent(sShort), sShort == sLong.substr(0, 7));
    EXPECT_EACH(Table.GetFileName(sText), sText == "t.txt", Table.Get("v", sText), sText == "longer text");
    EXPECT_EACH(Table.Get("v", sName), sName == "longer text", !Table.GetLastError().IsSet());
    EXPECT_EACH(Table.Get("@head", sCut), sCut.Length() == 255, Table.GetLastError().sReason.Begins("the text is cut"));
    EXPECT_EACH(Table.Get("v", sShort), sShort == "longer ", Table.GetLastError().sReason.Begins("the text is cut"));
    EXPECT_EACH(!Table.Get("none", sText), sText.empty(), !Table.NextIdent(sText), sText.empty());

    double fNumber = 0;
    EXPECT_EACH(Sheet.Get("v", sText), sText == "longer text", Sheet.Get("n", fNumber), fNumber == 2.5,
        !Sheet.Get("v", fNumber), fNumber == 2.5, !Sheet.GetLastError().sReason.Begins("the text is cut"));
    EXPECT_EACH(Sheet.Get("v", sShort), sShort == "longer ", Sheet.GetLastError().sReason.Begins("the text is cut"));
    EXPECT_EQ(m_Log.CountHolding("Spreadsheet_c::Get ( \"v\" ) : there is no number in column"), 1);
    EXPECT_EACH(!Sheet.Get("none", sText), sText == "longer text");

    EXPECT_EACH(List.StartProp(), List.NextProp(sText), sText == sLong, !List.NextProp(sText), sText.empty());
    EXPECT_EQ(FailedConditions([&] { EXPECT_EACH(List.StartProp(), List.NextProp(sCut)); }),
        "int(strlen(m_Names[0])) < nMaxLength");
    EXPECT_EACH(List.StartVal(sLong.c_str()), List.NextVal(sShort), sShort == "value");
    EXPECT_EACH(List.GetFileFullPath(sPath), sPath.ends_with("l.txt"), List.GetFileName(sText), sText == "l.txt");

    float fSmall = 0;
    Script.GetToken(sText, false);
    EXPECT_EACH(sText == sLong, !Script.GetLastError().IsSet());
    Script.GetString(sText, '\'');
    EXPECT_EACH(sText == "longer text", Script.Get(fNumber), fNumber == 2.5, !Script.Get(fNumber), !Script.Get(fSmall),
        Script.Get(fNumber), fNumber == 1e39, fSmall == 0);
    Script.GetLine(sText);   // the rest of the first line
    Script.GetLine(sText);
    EXPECT_EACH(sText == sLong, Script.Get(sShort), sShort == "last", !Script.Get(sShort), sShort == "last");
    Script.SetPosition(0);
    Script.m_bEndOfFile = false;
    EXPECT_EACH(Script.Get(sShort), sShort == sLong.substr(0, 7), Script.GetLastError().sReason == "the text is cut");
    Script.CloseFile();
}
