#include "zqcore/cregistry.h"

#include "tests/test_support.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{
    using plat::RegistryTree_e;

    std::string Lower(std::string sText)
    {
        std::transform(sText.begin(), sText.end(), sText.begin(),
            [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
        return sText;
    }

    class RegistryTest : public testing::Test
    {
    protected:
        RegistryTest() { plat::RegistrySetFolder(RegistryTree_e::User, m_Folder.Join("user").c_str()); }
        ~RegistryTest() override
        {
            plat::RegistrySetFolder(RegistryTree_e::User, nullptr);
            plat::RegistrySetPlatform(0);
        }

        // A text of up to 60,000 characters, or "none".
        static std::string Text(Registry_c & Registry, char const * szName)
        {
            std::string sText(60000, '?');
            int const nSize = Registry.GetSizeValue(szName);
            bool const bRead = Registry.ReadString(szName, sText.data(), static_cast<std::uint32_t>(sText.size())) != 0;
            return bRead ? sText.substr(0, static_cast<std::size_t>(nSize)) : "none";
        }

        // The names of the subkeys of the open key, joined by blanks.
        static std::string SubKeys(Registry_c & Registry)
        {
            std::string sNames;
            char szName[260];
            for (int i = 0; Registry.EnumKey(i, szName, sizeof(szName)); ++i)
            {
                sNames += std::string(szName) + " ";
            }
            return sNames;
        }

        TempFolder_c const m_Folder;
    };
}

TEST_F(RegistryTest, ReadsWhatWasWrittenByTypeAndSize)
{
    Registry_c Registry;
    EXPECT_FALSE(Registry.WriteValue("i", 1) || Registry.ValueExists("i") || Registry.DeleteKey("x", 1))
        << "no key open";
    ASSERT_TRUE(Registry.CreateKey("Software\\Test"));
    double const dDouble = -1.0 / 3.0;
    plat::RegistryWrite(RegistryTree_e::User, "software\\TEST", "d", plat::RegistryType_e::None, &dDouble, 8);
    EXPECT_TRUE(Registry.WriteValue("i", -5) && Registry.WriteValue("f", 0.1f) && Registry.WriteString("four", "1234"));
    EXPECT_TRUE(Registry.WriteString("t", "some text") && Registry.WriteData("b", "\0\1\2", 3));
    EXPECT_TRUE(Registry.WriteData("four bytes", "\x0D\0\0\0", 4));

    // Each value as each reader sees it; a variable is 99 before, and after most failures.
    struct Row_s
    {
        char const * szName;
        int iBits;   // of ReadInt and ReadFloat, 77 by default
        bool bInt, bDouble, bFloat;
        float fFloat;
    };
    for (Row_s const & Row :
        { Row_s{ "i", -5, true, false, false, 0.0f }, { "f", std::bit_cast<int>(0.1f), false, false, true, 0.1f },
            { "d", 77, false, true, true, -1.0f / 3.0f }, { "four", 77, false, false, false, 0.0f },
            { "t", 77, false, false, false, 99.0f }, { "b", 77, false, false, false, 0.0f },
            { "four bytes", 13, false, false, false, 0.0f }, { "none", 77, false, false, false, 99.0f } })
    {
        SCOPED_TRACE(Row.szName);
        int i = 99;
        double d = 99.0;
        float f = 99.0f;
        EXPECT_EQ(Registry.ReadInt(Row.szName, 77), Row.iBits);
        EXPECT_EQ(std::bit_cast<int>(Registry.ReadFloat(Row.szName, std::bit_cast<float>(77))), Row.iBits);
        EXPECT_TRUE((Registry.ReadValue(Row.szName, &i) != 0) == Row.bInt && i == (Row.bInt ? Row.iBits : 99));
        EXPECT_TRUE((Registry.ReadValue(Row.szName, &d) != 0) == Row.bDouble && d == (Row.bDouble ? dDouble : 99.0));
        EXPECT_TRUE((Registry.ReadValue(Row.szName, &f) != 0) == Row.bFloat && f == Row.fFloat);
    }

    char sBuffer[16] = "untouched";
    EXPECT_FALSE(Registry.ReadString("t", sBuffer, 8) || Registry.ReadString("b", sBuffer, 16)
                 || Registry.ReadData("t", sBuffer, 16) || Registry.ReadData("b", sBuffer, 2));
    EXPECT_STREQ(sBuffer, "untouched");
    EXPECT_TRUE(Registry.ReadString("t", sBuffer, 9));
    EXPECT_STREQ(sBuffer, "some text") << "exactly as long, no terminator added";
    EXPECT_TRUE(Registry.ReadData("b", sBuffer, 16) && std::memcmp(sBuffer, "\0\1\2e", 4) == 0);
    _tag_DATA_INFO Info = { 9, 9 };
    EXPECT_FALSE(Registry.GetDataInfo("none", &Info));
    EXPECT_TRUE(Info.dwType == 0 && Info.dwSize == 0 && Registry.GetSizeValue("none") == -1);
    EXPECT_TRUE(Registry.GetDataInfo("B", &Info) && Info.dwType == 3 && Info.dwSize == 3);
    EXPECT_TRUE(Registry.DeleteValue("B") && !Registry.DeleteValue("b"));
    EXPECT_FALSE(Registry.OpenKey("Software\\None", 0) || Registry.ValueExists("t")) << "the former key is closed";
    EXPECT_TRUE(Registry.OpenKey("Software\\None", 1) && Registry.OpenKey("SOFTWARE\\none", 0));
}

TEST_F(RegistryTest, TellsOfKeysAndDeletesTrees)
{
    Registry_c Registry;
    ASSERT_TRUE(Registry.CreateKey("top"));
    _tag_KEY_INFO Info;
    EXPECT_TRUE(Registry.GetKeyInfo(&Info));
    EXPECT_TRUE(Info.dwSubKeys == 0 && Info.dwMaxSubKeyLength == 1 && Info.dwValues == 0);
    for (char const * szKey : { "top\\b\\c\\d", "top\\A", "top\\\xC3\x84", "top\\Zz\\.x", "top\\b\\e", "top\\=" })
    {
        Registry_c Other;
        EXPECT_TRUE(Other.CreateKey(szKey) && Other.WriteString("value", "v")) << szKey;
    }
    EXPECT_EQ(SubKeys(Registry), "= A b Zz \xC3\x84 ") << "by folded bytes, as they were spelled";
    char szName[3] = "??";
    EXPECT_FALSE(Registry.EnumKey(3, szName, 2) || Registry.EnumKey(-1, szName, 3) || Registry.EnumKey(5, szName, 3));
    EXPECT_STREQ(szName, "??");
    EXPECT_TRUE(Registry.EnumKey(3, szName, 3));
    Registry.WriteString("longest name", "abc");
    Registry.WriteValue("i", 1);
    EXPECT_TRUE(Registry.GetKeyInfo(&Info));
    EXPECT_EQ(Info.dwSubKeys, 5u);
    EXPECT_EQ(Info.dwMaxSubKeyLength, 3u);
    EXPECT_EQ(Info.dwValues, 2u);
    EXPECT_EQ(Info.dwMaxValueNameLength, 12u);
    EXPECT_EQ(Info.dwMaxValueLength, 4u);
    auto const tNow = static_cast<plat::FileTime_t>(std::time(nullptr) + 11644473600) * 10000000;
    EXPECT_NEAR(static_cast<double>(Info.ftLastWrite), static_cast<double>(tNow), 1e8);
    plat::RegistrySetPlatform(2);
    Registry_c Doubled;
    EXPECT_TRUE(Doubled.OpenKey("top", 0) && Doubled.GetKeyInfo(&Info));
    EXPECT_TRUE(Info.dwMaxSubKeyLength == 6 && Info.dwMaxValueNameLength == 24 && Info.dwMaxValueLength == 4);

    EXPECT_FALSE(Registry.DeleteKey("b", 0) || Registry.DeleteKey("none", 1) || Registry.DeleteKey(nullptr, 1));
    EXPECT_TRUE(Registry.DeleteKey("B", 1) && Registry.DeleteKey("zz\\.x", 0));
    EXPECT_EQ(SubKeys(Registry), "= A Zz \xC3\x84 ");
    EXPECT_EQ(Text(Registry, "longest name"), "abc") << "the current key is what it was";
    EXPECT_FALSE(plat::RegistryKeyExists(RegistryTree_e::User, "top\\b"));
    m_Folder.Write("user/top/a/foreign", "x");
    EXPECT_FALSE(Registry.DeleteKey("a", 1)) << "what is not the store's is left alone";
    Registry_c Inner;
    EXPECT_TRUE(Inner.OpenKey("top\\zz", 0) && Inner.DeleteKey("", 0));
    EXPECT_FALSE(Inner.WriteValue("i", 1) || Inner.DeleteKey("", 0)) << "a deleted key takes nothing";
    Registry_c Again;
    EXPECT_TRUE(Again.CreateKey("top\\zz"));
    EXPECT_FALSE(Inner.WriteValue("i", 1) || Inner.DeleteKey("", 0)) << "nor reaches a new one of its name";
    Registry_c Root;
    EXPECT_TRUE(Root.OpenKey("", 0));
    EXPECT_FALSE(Root.DeleteKey("", 0)) << "a tree stays";
}

TEST_F(RegistryTest, OpensForWritingOnlyWhatCanBeWritten)
{
    plat::RegistrySetFolder(RegistryTree_e::Machine, m_Folder.Join("machine").c_str());
    Registry_c Registry(RegistryTree_e::Machine);
    EXPECT_TRUE(Registry.CreateKey("k") && Registry.WriteValue("i", 5));
    std::filesystem::permissions(m_Folder.Join("machine/k"), std::filesystem::perms(0555));
    pid_t const iChild = fork();
    if (iChild == 0)
    {
        // The superuser may write everywhere, and becomes somebody else.
        bool const bOrdinary = geteuid() != 0 || setresuid(65534, 65534, 65534) == 0;
        bool const bOpen = Registry_c(RegistryTree_e::Machine).OpenKey("k", 0) != 0;
        bool const bThere = plat::RegistryKeyExists(RegistryTree_e::Machine, "k");
        _exit(!bOrdinary ? 2 : !bOpen && bThere ? 0 : 1);
    }
    int iStatus = -1;
    waitpid(iChild, &iStatus, 0);
    std::filesystem::permissions(m_Folder.Join("machine/k"), std::filesystem::perms(0755));
    plat::RegistrySetFolder(RegistryTree_e::Machine, nullptr);
    if (WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 2)
    {
        GTEST_SKIP() << "this superuser can't become an ordinary user";
    }
    EXPECT_EQ(iStatus, 0);
}

TEST_F(RegistryTest, BehavesAsAPlainModel)
{
    std::mt19937 Random(8);
    auto const fnRandom = [&](int n) { return static_cast<int>(Random() % static_cast<unsigned>(n)); };
    char const * const dKeys[] = { "a", "A\\b", "a\\B\\c", "d", "D\\x y", "d\\%41" };
    char const * const dNames[] = { "", "one", "ONE", "two", "a\\b", "\xC3\xA4/%41", "=~@." };
    std::map<std::string, std::map<std::string, std::string>> dModel;   // values by folded key and name
    Registry_c Registry;
    for (int iStep = 0; iStep < 3000; ++iStep)
    {
        std::string const sKey = dKeys[fnRandom(6)], sName = dNames[fnRandom(7)], sOther = dNames[fnRandom(7)];
        std::string const sModelKey = Lower(sKey), sModelName = Lower(sName), sModelOther = Lower(sOther);
        bool const bKey = dModel.count(sModelKey) != 0;
        bool const bOpen = Registry.OpenKey(sKey.c_str(), 0) != 0;
        ASSERT_EQ(bOpen, bKey) << sKey;
        auto * const pValues = bKey ? &dModel[sModelKey] : nullptr;
        bool const bHas = bKey && pValues->count(sModelName) != 0;
        switch (fnRandom(8))
        {
        case 0:
        case 1:
            for (std::size_t i = sModelKey.find('\\'); i != std::string::npos; i = sModelKey.find('\\', i + 1))
            {
                dModel[sModelKey.substr(0, i)];
            }
            dModel[sModelKey];
            EXPECT_TRUE(Registry.CreateKey(sKey.c_str()));
            break;
        case 2:
        case 3:
        case 4:
            EXPECT_EQ(Registry.WriteString(sName.c_str(), std::to_string(iStep).c_str()) != 0, bKey);
            if (bKey)
            {
                (*pValues)[sModelName] = std::to_string(iStep);
            }
            break;
        case 5:
            EXPECT_EQ(Registry.DeleteValue(sName.c_str()) != 0, bHas);
            bHas ? pValues->erase(sModelName) : 0;
            break;
        case 6:
            EXPECT_EQ(Registry.RenameValue(sName.c_str(), sOther.c_str()) != 0, bHas && !pValues->count(sModelOther));
            if (bHas && !pValues->count(sModelOther))
            {
                (*pValues)[sModelOther] = (*pValues)[sModelName];
                pValues->erase(sModelName);
            }
            break;
        default:
            if (fnRandom(4) == 0)
            {
                Registry.OpenKey("", 1);
                EXPECT_EQ(Registry.DeleteKey(sKey.c_str(), 1) != 0, bKey);
                std::erase_if(dModel, [&](auto const & Entry)
                    { return Entry.first == sModelKey || Entry.first.starts_with(sModelKey + "\\"); });
            }
        }
        for (auto const & [sAnyKey, dValues] : dModel)
        {
            ASSERT_TRUE(Registry.OpenKey(sAnyKey.c_str(), 0));
            _tag_KEY_INFO Info;
            EXPECT_TRUE(Registry.GetKeyInfo(&Info));
            EXPECT_EQ(Info.dwValues, dValues.size());
            for (auto const & [sAnyName, sData] : dValues)
            {
                ASSERT_EQ(Text(Registry, sAnyName.c_str()), sData) << sAnyKey << " " << sAnyName << " step " << iStep;
            }
        }
    }
}

TEST_F(RegistryTest, KilledWritersAndRenamersLoseAndHalveNothing)
{
    std::string const dTexts[] = { std::string(5000, 'a'), std::string(50000, 'b') };
    Registry_c Registry;
    ASSERT_TRUE(Registry.CreateKey("k") && Registry.WriteString("w", dTexts[0].c_str())
                && Registry.WriteString("x", dTexts[1].c_str()));
    std::mt19937 Random(8);
    for (int iRound = 0; iRound < 300; ++iRound)
    {
        pid_t const iChild = fork();
        if (iChild == 0)
        {
            alarm(60);   // ends it should the test not come to it
            Registry_c Writer;
            Writer.OpenKey("k", 0);
            for (int i = 0;; ++i)
            {
                Writer.WriteString("w", dTexts[i % 2].c_str());
                Writer.RenameValue("x", "y");
                Writer.RenameValue("y", "x");
                // A renamer that was killed leaves both names.
                Writer.ValueExists("x") && Writer.ValueExists("y") ? Writer.DeleteValue("y") : 0;
            }
        }
        usleep(static_cast<useconds_t>(500 + Random() % 2000));
        kill(iChild, SIGKILL);
        waitpid(iChild, nullptr, 0);
        std::string const sText = Text(Registry, "w");
        EXPECT_TRUE(sText == dTexts[0] || sText == dTexts[1]) << sText.size() << " bytes in round " << iRound;
        EXPECT_TRUE(Text(Registry, "x") == dTexts[1] || Text(Registry, "y") == dTexts[1]) << iRound;
    }
}

TEST_F(RegistryTest, TwoProcessesThatWriteAtOnceLoseNothing)
{
    constexpr int WRITERS = 2, VALUES = 150;
    std::vector<pid_t> dChildren;
    for (int iWriter = 0; iWriter < WRITERS; ++iWriter)
    {
        pid_t const iChild = fork();
        if (iChild == 0)
        {
            // Each makes the same keys, writes and renames values of its own, and deletes the keys of a third name.
            bool bGood = true;
            for (int i = 0; i < VALUES; ++i)
            {
                Registry_c Writer;
                std::string const sName = std::to_string(iWriter) + "." + std::to_string(i);
                bGood = bGood && Writer.CreateKey(("shared\\" + std::to_string(i / 10)).c_str())
                        && Writer.WriteString(("new " + sName).c_str(), sName.c_str())
                        && Writer.RenameValue(("new " + sName).c_str(), sName.c_str());
                plat::RegistryWrite(RegistryTree_e::User, "shared\\passing", "v", plat::RegistryType_e::None, "", 0);
                Writer.OpenKey("shared", 0);
                Writer.DeleteKey("passing", 1);
            }
            _exit(bGood ? 0 : 1);
        }
        dChildren.push_back(iChild);
    }
    for (pid_t const iChild : dChildren)
    {
        int iStatus = -1;
        waitpid(iChild, &iStatus, 0);
        EXPECT_EQ(iStatus, 0);
    }
    Registry_c Registry;
    for (int i = 0; i < VALUES; ++i)
    {
        ASSERT_TRUE(Registry.OpenKey(("shared\\" + std::to_string(i / 10)).c_str(), 0));
        for (int iWriter = 0; iWriter < WRITERS; ++iWriter)
        {
            std::string const sName = std::to_string(iWriter) + "." + std::to_string(i);
            EXPECT_EQ(Text(Registry, sName.c_str()), sName);
            EXPECT_FALSE(Registry.ValueExists(("new " + sName).c_str()));
        }
    }
}
