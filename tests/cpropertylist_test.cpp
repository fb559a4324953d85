#include "tests/media_fixture.h"
#include "zqcore/cpropertylist.h"

#include <memory>

namespace
{
    class PropertyListTest : public MediaTest
    {
    protected:
        bool Open(std::string const & sName, std::string const & sText)
        {
            m_pList = std::make_unique<PropertyList_c>();   // closes the previous one
            Serve(sName, sText);
            return m_pList->Open(sName.c_str());
        }

        // Walks over the values of a property. Returns them, joined by commas.
        std::string ReadValues(char const * szName)
        {
            std::string sAll;
            String_T<256> sValue("stale");
            bool const bAny = m_pList->StartVal(szName);
            while (m_pList->NextVal(sValue))
            {
                sAll += (sAll.empty() ? "" : ",") + std::string(sValue);
            }
            EXPECT_EACH(bAny == !sAll.empty(), !bAny || sValue.IsEmpty()) << sAll;
            return sAll;
        }

        // Walks over the names, and over the values of each name inside that. Returns all properties with all values.
        std::string ReadAll()
        {
            std::string sAll;
            String_T<256> sName("stale");
            bool const bAny = m_pList->StartProp();
            while (m_pList->NextProp(sName))
            {
                sAll += (sAll.empty() ? "" : " ") + std::string(sName) + "=" + ReadValues(sName);
            }
            EXPECT_EACH(bAny == !sAll.empty(), !bAny || sName.IsEmpty()) << sAll;
            return sAll;
        }

        std::unique_ptr<PropertyList_c> m_pList = std::make_unique<PropertyList_c>();
    };
}

TEST_F(PropertyListTest, ListsNamesAndValuesInTheOrderOfTheirLines)
{
    struct Row_s
    {
        char const * szText;
        char const *szAsText, *szAsCsv;   // dumps of the list in the two formats
    };
    Row_s const dRows[] = {
        { "color RED\ncolor blue\nSize 3\n@head v", "color=red,blue size=3 @head=v", "" },
        { "a x\nb y\nA x\na z", "a=x,x,z b=y", "" },
        { "alone\nalone # y\n# c d\n\na b c d\r\n", "a=b", "" },
        { "a;X;c\r\nb,  y z \r\n;no\nc;;no\n\"D d\";\"q;\"\"Q\"\"\"", "b,=y d d=;\"q;\"\"q\"\"\"",
            "a=x b=y z d d=q;\"q\"" },
        { "\"q n\" \"V w\n\"\"\n", "q n=v w", "q n=v w\n\"\n" },
        { "\xC4x \xC4Y\nopen \"value", "\xC4x=\xC4y open=value", "open=value" },
        { "\n", "", "" },
    };
    for (auto const & [szText, szAsText, szAsCsv] : dRows)
    {
        SCOPED_TRACE(szText);
        ASSERT_TRUE(Open("list.txt", szText));
        EXPECT_EQ(ReadAll(), szAsText);
        EXPECT_EQ(ReadAll(), szAsText) << "in a second walk";
        ASSERT_TRUE(m_pList->Open("LIST.txt", WAREHOUSE_FORMAT_CSV));
        EXPECT_EQ(ReadAll(), szAsCsv);
        ASSERT_TRUE(Open("list.csv", szText));
        EXPECT_EQ(ReadAll(), szAsCsv) << "by the file's name";
        ASSERT_TRUE(m_pList->Open("list.csv", WAREHOUSE_FORMAT_TEXT));
        EXPECT_EQ(ReadAll(), szAsText);
    }
}

TEST_F(PropertyListTest, NamesItsFileAndSeesTheContentsOfTheMoment)
{
    String_T<256> sName("stale");
    char szPath[1024] = "stale", szShort[6];
    EXPECT_EACH(
        !m_pList->GetFileName(sName), !m_pList->GetFileFullPath(szPath, sizeof szPath), !m_pList->FindProp("a"));
    EXPECT_STREQ(szPath, "");
    EXPECT_EQ(ReadAll(), "");
    ASSERT_TRUE(Open("List.txt", "alone\nColor RED\n"));
    EXPECT_EACH(m_pList->FindProp("ALONE"), m_pList->FindProp("color"), !m_pList->FindProp("red"),
        !m_pList->FindProp(""), m_pList->GetFileName(sName), m_pList->GetFileFullPath(szPath, sizeof szPath));
    EXPECT_STREQ(sName, "list.txt");
    EXPECT_EQ(szPath, std::string(*FileStream("list.txt")->pPath) + "list.txt");
    EXPECT_TRUE(m_pList->GetFileFullPath(szShort, sizeof szShort));
    EXPECT_EQ(szShort, std::string(szPath, 5));

    m_Folder.Write("List.txt", "bb 22\na 3\n");
    FileStream("list.txt")->Refresh();
    EXPECT_EQ(ReadAll(), "bb=22 a=3");
    EXPECT_EACH(m_pList->StartProp(), m_pList->StartVal("a"), m_pList->Open("list.txt"));
    EXPECT_EACH(!m_pList->NextProp(sName), !m_pList->NextVal(sName)) << "the previous walks end";
    EXPECT_FALSE(m_pList->Open("missing.txt"));
    EXPECT_FALSE(m_pList->StartProp()) << "the previous file is closed";
    EXPECT_EQ(FileStream("list.txt")->GetOpensCount(), 0);
    EXPECT_EQ(m_Log.GetText(), "");
}

TEST_F(PropertyListTest, StatesWhatItRequires)
{
    EXPECT_EACH(Open("list.txt", "longer value\nx y\n"), m_pList->StartProp(), m_pList->StartVal("longer"));
    char szSmall[4] = "";
    // A row begins with what the buffer has after a call that succeeds, or with "refused".
    std::tuple<std::string, std::function<bool()>, char const *> const dRows[] = {
        { "lon", [&] { return m_pList->NextProp(szSmall, 4); }, "int(strlen(m_Names[0])) < nMaxLength" },
        { "val", [&] { return m_pList->NextVal(szSmall, 4); }, "int(strlen(m_List[0])) < nMaxLength" },
        { "refused", [&] { return m_pList->NextProp(szSmall, 1); }, "nMaxLength > 1" },
        { "refused", [&] { return m_pList->NextVal(nullptr, 4); }, "sBuffer" },
        { "refused", [&] { return m_pList->StartVal(nullptr); }, "sPropName" },
        { "refused", [&] { return m_pList->FindProp(nullptr); }, "sPropName" },
        { "refused", [&] { return m_pList->Open(nullptr); }, "sFileName" },
    };
    for (auto const & [sExpected, fnCall, szCondition] : dRows)
    {
        bool bDone = false;
        EXPECT_EQ(FailedConditions([&, &fn = fnCall] { bDone = fn(); }), szCondition);
        EXPECT_EQ(bDone ? szSmall : "refused", sExpected) << szCondition;
    }
}

TEST_F(PropertyListTest, KeepsThousandsOfNamesApart)
{
    std::string sText, sExpected;
    for (int i = 0; i < 30'000; ++i)
    {
        std::string const sName = "Name_" + std::to_string(i * 7919 % 10'000);
        sText += sName + " " + std::to_string(i) + "\n";
        sExpected += i < 10'000 ? "n" + sName.substr(1) + "\n" : "";
    }
    EXPECT_EACH(Open("list.txt", sText), m_pList->StartProp());
    std::string sNames;
    for (String_T<256> sName; m_pList->NextProp(sName);)
    {
        sNames += std::string(sName) + "\n";
    }
    EXPECT_EQ(sNames, sExpected);
    EXPECT_EQ(ReadValues("NAME_7919"), "1,10001,20001");
}
