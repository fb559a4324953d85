#include "tests/text_fixture.h"
#include "zqcore/cpropertylist.h"

#include <cstring>
#include <memory>
#include <tuple>

using namespace std::string_literals;

namespace
{
    class PropertyListTest : public TextFileTest
    {
    protected:
        ~PropertyListTest() override { m_pList.reset(); }

        /// Serves a file and opens it in a new list.
        bool Open(
            std::string const & sName, std::string const & sText, WarehouseFormat_e eFormat = WAREHOUSE_FORMAT_AUTO)
        {
            m_pList = std::make_unique<PropertyList_c>();   // closes the former
            Serve(sName, sText);
            return m_pList->Open(sName.c_str(), eFormat);
        }

        std::string Values(char const * szName)
        {
            std::string sAll;
            String_T<256> sValue("stale");
            bool const bAny = m_pList->StartVal(szName);
            while (m_pList->NextVal(sValue))
            {
                sAll += (sAll.empty() ? "" : ",") + std::string(sValue);
            }
            EXPECT_TRUE(sValue.IsEmpty());
            EXPECT_EQ(bAny, !sAll.empty());
            return sAll;
        }

        /// All properties with all values.
        std::string Dump()
        {
            std::string sAll;
            String_T<256> sName("stale");
            bool const bAny = m_pList->StartProp();
            while (m_pList->NextProp(sName))
            {
                EXPECT_TRUE(m_pList->FindProp(sName));
                sAll += std::string(sName) + "=" + Values(sName) + " ";   // inside the walk over the names
            }
            EXPECT_TRUE(sName.IsEmpty());
            EXPECT_EQ(bAny, !sAll.empty());
            return sAll;
        }

        std::unique_ptr<PropertyList_c> m_pList = std::make_unique<PropertyList_c>();
    };
}

TEST_F(PropertyListTest, ListsNamesAndValuesInTheOrderOfTheirLines)
{
    struct Row_s
    {
        std::string sText, sAsText, sAsCsv;
    };
    Row_s const dRows[] = {
        { "color RED\ncolor blue\nSize 3\n", "color=red,blue size=3 ", "" },
        { "a x\nb y\nA x\na z", "a=x,x,z b=y ", "" },
        { "alone\nalone # y\n# c d\n\na b c d\r\n", "a=b ", "" },
        { "@head v\na 1\n", "@head=v a=1 ", "" },
        { "a;X;c\r\nb,  y z \r\n;no\nc;;no\n\"D d\";\"q;\"\"Q\"\"\"", "b,=y d d=;\"q;\"\"q\"\"\" ",
            "a=x b=y z d d=q;\"q\" " },
        { "\"q n\" \"V w\n\"\"\n", "q n=v w ", "q n=v w\n\"\n " },
        { "\xC4x \xC4Y\n", "\xC4x=\xC4y ", "" },
        { "n\0m v\nn w\n"s, "n=w ", "n=m v " },
        { "open \"value", "open=value ", "open=value " },
        { "\n", "", "" },
    };
    for (Row_s const & row : dRows)
    {
        SCOPED_TRACE(row.sText);
        ASSERT_TRUE(Open("list.txt", row.sText));
        EXPECT_EQ(Dump(), row.sAsText);
        EXPECT_EQ(Dump(), row.sAsText) << "a second walk";
        ASSERT_TRUE(m_pList->Open("LIST.txt", WAREHOUSE_FORMAT_CSV));
        EXPECT_EQ(Dump(), row.sAsCsv);
        ASSERT_TRUE(m_pList->Open("list.txt", WAREHOUSE_FORMAT_TEXT));
        EXPECT_EQ(Dump(), row.sAsText);
        ASSERT_TRUE(Open("list.csv", row.sText));
        EXPECT_EQ(Dump(), row.sAsCsv) << "by the file's name";
    }
}

TEST_F(PropertyListTest, NamesItsFileAndSeesTheContentsOfTheMoment)
{
    String_T<256> sName("stale");
    char szPath[1024] = "stale", szShort[6];
    EXPECT_FALSE(m_pList->GetFileName(sName) || m_pList->GetFileFullPath(szPath, 1024) || m_pList->FindProp("a"));
    EXPECT_STREQ(szPath, "");
    EXPECT_EQ(Dump(), "");
    ASSERT_TRUE(Open("List.txt", "alone\nColor RED\n"));
    EXPECT_TRUE(m_pList->FindProp("ALONE") && m_pList->FindProp("color"));
    EXPECT_FALSE(m_pList->FindProp("red") || m_pList->FindProp(""));
    EXPECT_TRUE(m_pList->GetFileName(sName) && m_pList->GetFileFullPath(szPath, 1024));
    EXPECT_STREQ(sName, "list.txt");
    EXPECT_EQ(szPath, std::string(*FileStream("list.txt")->pPath) + "list.txt");
    EXPECT_TRUE(m_pList->GetFileFullPath(szShort, 6));
    EXPECT_EQ(szShort, std::string(szPath, 5));

    Folder.Write("List.txt", "bb 22\na 3\n");
    FileStream("list.txt")->Refresh();
    EXPECT_EQ(Dump(), "bb=22 a=3 ");
    EXPECT_FALSE(m_pList->Open("missing.txt"));
    EXPECT_FALSE(m_pList->StartProp()) << "the former file is closed";
    EXPECT_EQ(FileStream("list.txt")->GetOpensCount(), 0);
    EXPECT_EQ(Log.GetText(), "");
}

TEST_F(PropertyListTest, StatesWhatItRequires)
{
    ASSERT_TRUE(Open("list.txt", "longer value\nx y\n") && m_pList->StartProp() && m_pList->StartVal("longer"));
    char szSmall[4];
    std::tuple<bool, std::function<bool()>, char const *> const dRows[] = {
        { true, [&] { return m_pList->NextProp(szSmall, 4) && !std::strcmp(szSmall, "lon"); },
            "int(strlen(m_Names[0])) < nMaxLength" },
        { true, [&] { return m_pList->NextVal(szSmall, 4) && !std::strcmp(szSmall, "val"); },
            "int(strlen(m_List[0])) < nMaxLength" },
        { false, [&] { return m_pList->NextProp(szSmall, 1); }, "nMaxLength > 1" },
        { false, [&] { return m_pList->NextVal(nullptr, 4); }, "sBuffer" },
        { false, [&] { return m_pList->StartVal(nullptr); }, "sPropName" },
        { false, [&] { return m_pList->FindProp(nullptr); }, "sPropName" },
        { false, [&] { return m_pList->Open(nullptr); }, "sFileName" },
    };
    for (auto const & [bExpected, fnCall, szCondition] : dRows)
    {
        bool bResult = !bExpected;
        EXPECT_EQ(FailedConditions([&] { bResult = fnCall(); }), szCondition);
        EXPECT_EQ(bResult, bExpected) << szCondition;
    }
}

TEST_F(PropertyListTest, TellsThousandsOfNamesApart)
{
    std::string sText, sExpected;
    for (int i = 0; i < 30'000; ++i)
    {
        std::string const sName = "Name_" + std::to_string(i * 7919 % 10'000);
        sText += sName + " " + std::to_string(i) + "\n";
        sExpected += i < 10'000 ? "n" + sName.substr(1) + " " : "";
    }
    ASSERT_TRUE(Open("list.txt", sText));
    std::string sNames;
    String_T<256> sName;
    for (m_pList->StartProp(); m_pList->NextProp(sName);)
    {
        sNames += std::string(sName) + " ";
    }
    EXPECT_EQ(sNames, sExpected);
    EXPECT_EQ(Values("NAME_7919"), "1,10001,20001");
}
