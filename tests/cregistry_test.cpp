#include "platform/checker.h"
#include "platform/common/registryrecord.h"
#include "zqcore/cregistry.h"

#include "tests/archive_support.h"
#include "tests/machine_support.h"
#include "tests/text_support.h"

#include "zqcore/cfilename.h"

#include <atomic>
#include <bit>
#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>

namespace
{
    namespace fs = std::filesystem;

    using plat::RegistryTree_e;
    using plat::RegistryType_e;

    constexpr RegistryTree_e USER = RegistryTree_e::User, MACHINE = RegistryTree_e::Machine;
    constexpr std::size_t RECORD_HEADER = 20;   // bytes of a record's file before the name

    using Model_t = std::map<std::string, std::map<std::string, std::string>>;   // values by folded key and name

    // Fixture that stores both trees in a folder of the test.
    class RegistryTest : public testing::Test
    {
    protected:
        RegistryTest()
        {
            plat::RegistrySetFolder(MACHINE, m_Folder.Join("not/yet/machine").c_str());
            plat::RegistrySetFolder(USER, m_Folder.Join("user").c_str());
        }
        ~RegistryTest() override
        {
            plat::RegistrySetFolder(MACHINE, nullptr);
            plat::RegistrySetFolder(USER, nullptr);
            plat::RegistrySetPlatform(0);
        }

        // Writes a text to the user's tree. Returns whether that succeeds.
        static bool Write(char const * szKey, char const * szName, std::string const & sData)
        {
            return plat::RegistryWrite(USER, szKey, szName, RegistryType_e::Text, sData.data(), sData.size());
        }

        // Returns a text value of up to 60,000 characters, or "none" if there is no such value.
        static std::string Read(char const * szKey, char const * szName, RegistryTree_e eTree = USER)
        {
            std::string sData(60000, '?');
            std::size_t nSize = sData.size();
            RegistryType_e eType = RegistryType_e::Untyped;
            bool const bRead = plat::RegistryRead(eTree, szKey, szName, eType, sData.data(), nSize);
            sData.resize(nSize);
            return bRead && eType == RegistryType_e::Text ? sData : "none";
        }

        // Returns what GetKeyInfo reports of the open key: the number of subkeys, the length of their longest name, the
        // number of values, the length of their longest name, and the size of the largest value.
        static std::vector<int> Figures(Registry_c & Registry)
        {
            _tag_KEY_INFO Found{};
            EXPECT_TRUE(Registry.GetKeyInfo(&Found));
            auto const dFigures = { Found.dwSubKeys, Found.dwMaxSubKeyLength, Found.dwValues,
                Found.dwMaxValueNameLength, Found.dwMaxValueLength };
            return std::vector<int>(dFigures.begin(), dFigures.end());
        }

        // Returns the names of the subkeys of the open key, each followed by a blank.
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

        // Expects the values of all keys of a model.
        static void ExpectValues(Model_t const & dModel)
        {
            Registry_c Registry;
            for (auto const & [sKey, dValues] : dModel)
            {
                ASSERT_TRUE(Registry.OpenKey(sKey.c_str(), 0));
                EXPECT_EQ(Figures(Registry)[2], static_cast<int>(dValues.size())) << "number of values";
                for (auto const & [sName, sData] : dValues)
                {
                    ASSERT_EQ(Read(sKey.c_str(), sName.c_str()), sData) << sKey << " " << sName;
                }
            }
        }

        // Returns how many files of unfinished writes a key has.
        std::ptrdiff_t BusyFiles(char const * szKeyFolder) const
        {
            return std::count_if(fs::directory_iterator(m_Folder.Join(szKeyFolder)), {},
                [](auto const & Entry) { return Entry.path().filename().string()[0] == plat::BUSY_MARK; });
        }

        TempFolder_c const m_Folder;
    };
}

TEST_F(RegistryTest, ReadsEachTypeOnlyAsWhatItHolds)
{
    Registry_c Registry;
    EXPECT_EACH(!Registry.WriteValue("i", 1), !Registry.ValueExists("i"), !Registry.DeleteKey("x", 1)) << "no key open";
    ASSERT_TRUE(Registry.CreateKey("Software\\Test"));
    double const fDouble = -1.0 / 3.0;
    plat::RegistryWrite(USER, "software\\TEST", "d", RegistryType_e::Untyped, &fDouble, sizeof(fDouble));
    EXPECT_EACH(Registry.WriteValue("i", -5), Registry.WriteValue("f", 0.1f), Registry.WriteString("four", "1234"),
        Registry.WriteString("t", "some text"), Registry.WriteData("b", "\0\1\2", 3),
        Registry.WriteData("four bytes", "\x0D\0\0\0", 4));

    // iBits is what ReadInt and ReadFloat return, 77 by default. bInt, bDouble and bFloat are the results of ReadValue.
    // fFloat is the float after ReadValue, 99 before.
    for (auto const & [szName, iBits, bInt, bDouble, bFloat, fFloat] :
        Rows_t<char const *, int, bool, bool, bool, float>{ { "i", -5, true, false, false, 0.0f },
            { "f", std::bit_cast<int>(0.1f), false, false, true, 0.1f }, { "d", 77, false, true, true, -1.0f / 3.0f },
            { "four", 77, false, false, false, 0.0f }, { "t", 77, false, false, false, 99.0f },
            { "b", 77, false, false, false, 0.0f }, { "four bytes", 13, false, false, false, 0.0f },
            { "none", 77, false, false, false, 99.0f } })
    {
        int iRead = 99;
        double fWide = 99.0;
        float fNarrow = 99.0f;
        bool const bIsInt = Registry.ReadValue(szName, &iRead), bIsDouble = Registry.ReadValue(szName, &fWide),
                   bIsFloat = Registry.ReadValue(szName, &fNarrow);
        EXPECT_EQ(Registry.ReadInt(szName, 77), iBits) << szName;
        EXPECT_EQ(std::bit_cast<int>(Registry.ReadFloat(szName, std::bit_cast<float>(77))), iBits) << szName;
        EXPECT_EQ(std::tuple(bIsInt, iRead, bIsDouble, fWide, bIsFloat, fNarrow),
            std::tuple(bInt, bInt ? iBits : 99, bDouble, bDouble ? fDouble : 99.0, bFloat, fFloat))
            << szName;
    }
    _tag_DATA_INFO Info = { 9, 9 };   // REG_BINARY of Windows is 3
    EXPECT_EACH(!Registry.GetDataInfo("none", &Info), Info.dwType == 0, Info.dwSize == 0,
        Registry.GetSizeValue("none") == -1, Registry.GetDataInfo("B", &Info), Info.dwType == 3, Info.dwSize == 3);
}

TEST_F(RegistryTest, ReadsNothingIntoTooSmallABuffer)
{
    Registry_c Registry;
    EXPECT_EACH(Registry.CreateKey("Software\\Test"), Registry.WriteString("t", "some text"),
        Registry.WriteData("b", "\0\1\2", 3), Registry.WriteValue("i", -5));
    char szBuffer[16] = "not touched";
    EXPECT_EACH(!Registry.ReadString("t", szBuffer, 8), !Registry.ReadString("b", szBuffer, sizeof(szBuffer)),
        !Registry.ReadData("t", szBuffer, sizeof(szBuffer)), !Registry.ReadData("b", szBuffer, 2));
    EXPECT_STREQ(szBuffer, "not touched");
    EXPECT_TRUE(Registry.ReadString("t", szBuffer, 9));
    EXPECT_STREQ(szBuffer, "some texted") << "exactly as long, no terminator added";
    EXPECT_TRUE(Registry.ReadData("b", szBuffer, sizeof(szBuffer)));
    EXPECT_EQ(std::string(szBuffer, 4), std::string("\0\1\2e", 4));

    // A read by the path returns the size whether the value fits or not.
    for (auto const & [szName, nRoom, bRead, nSize] : Rows_t<char const *, std::size_t, bool, std::size_t>{
             { "i", 4, true, 4 }, { "i", 3, false, 4 }, { "none", 4, false, 0 }, { "t", 0, false, 9 } })
    {
        std::size_t nHave = nRoom;
        RegistryType_e eType = RegistryType_e::Untyped;
        std::memcpy(szBuffer, "????", 4);
        EXPECT_EQ(plat::RegistryRead(USER, "Software\\Test", szName, eType, szBuffer, nHave), bRead) << szName;
        EXPECT_EQ(nHave, nSize) << szName;
        EXPECT_EQ(std::string(szBuffer, 4), bRead ? "\xFB\xFF\xFF\xFF" : "????") << szName;
    }
}

TEST_F(RegistryTest, AFailedReadKeepsTheBufferWhileOthersChangeTheType)
{
    Registry_c Registry;
    EXPECT_EACH(Registry.CreateKey("k"), Registry.WriteString("v", "text"));
    std::atomic<bool> bEnd = false;
    std::thread Writer(
        [&bEnd]
        {
            Registry_c Other;
            Other.OpenKey("k", 0);
            while (!bEnd)
            {
                EXPECT_EACH(Other.WriteData("v", "\1\2\3\4\5\6\7", 7), Other.WriteString("v", "text"));
            }
        });
    std::set<std::string> dTexts, dDatas;
    for (int i = 0; i < 5000; ++i)
    {
        char szText[8] = "kept", dData[8] = "kept";
        int const bText = Registry.ReadString("v", szText, sizeof(szText)),
                  bData = Registry.ReadData("v", dData, sizeof(dData));
        dTexts.insert(std::to_string(bText) + szText);
        dDatas.insert(std::to_string(bData) + dData);
    }
    bEnd = true;
    Writer.join();
    EXPECT_THAT(dTexts, testing::IsSubsetOf({ "0kept", "1text" }));
    EXPECT_THAT(dDatas, testing::IsSubsetOf({ "0kept", "1\1\2\3\4\5\6\7" }));
}

TEST_F(RegistryTest, ReadsIntoTextObjectsIntegersAndEnumerators)
{
    enum class Mode_e
    {
        Window,
        Full
    };
    static constexpr EnumName_T<Mode_e> MODES[] = { { "window", Mode_e::Window }, { "full", Mode_e::Full } };
    Registry_c Registry;
    EXPECT_EACH(Registry.CreateKey("Test\\Subkey"), Registry.CreateKey("Test"));
    std::string sText = "stale";
    String_T<5> sShort("old");
    String_T<6> sName("old");
    EXPECT_EACH(Registry.WriteString("t", "FULL"), Registry.ReadString("t", sText), sText == "FULL",
        Registry.ReadString("t", sShort), sShort == "FULL", Registry.WriteString("t", "longer"));
    EXPECT_EACH(!Registry.ReadString("t", sShort), sShort == "FULL", Registry.ReadString("t", sText), sText == "longer",
        !Registry.ReadString("none", sText), sText == "longer");
    FileName_c sPath;
    EXPECT_EACH(Registry.ReadString("t", sPath), sPath == "longer",
        Registry.WriteString("t", std::string(256, 'l').c_str()), !Registry.ReadString("t", sPath), sPath == "longer",
        Registry.ReadString("t", sText), sText.size() == 256);
    EXPECT_EACH(!Registry.EnumKey(0, sName), sName == "old", Registry.EnumKey(0, sText), sText == "Subkey");
    EXPECT_EACH(Registry.WriteData("t", "data", 4), !Registry.ReadString("t", sText), sText == "Subkey",
        Registry.WriteString("t", ""), Registry.ReadString("t", sText), sText.empty());

    Mode_e eMode = Mode_e::Window;
    EXPECT_EACH(!Registry.ReadValue("t", &eMode, MODES), Registry.WriteString("t", "FULL"),
        Registry.ReadValue("t", &eMode, MODES), eMode == Mode_e::Full);
    std::uint32_t nWide = 7;
    std::int16_t iSmall = 7;
    std::uint8_t nByte = 7;
    std::int64_t iLong = 7;
    EXPECT_EACH(Registry.WriteValue("u", 0xFFFFFFFEu), Registry.ReadValue("u", &nWide), nWide == 0xFFFFFFFEu,
        Registry.ReadValue("u", &iSmall), iSmall == -2, Registry.ReadValue("u", &iLong), iLong == -2,
        !Registry.ReadValue("u", &nByte), nByte == 7, !Registry.ReadValue("t", &nWide), nWide == 0xFFFFFFFEu);
}

TEST_F(RegistryTest, ListsKeysWithTheirFigures)
{
    Registry_c Registry;
    ASSERT_TRUE(Registry.CreateKey("top"));
    EXPECT_EQ(Figures(Registry), (std::vector{ 0, 1, 0, 0, 0 }));
    for (char const * szKey : { "top\\b\\c\\d", "top\\A", "top\\\xC3\x84", "top\\Zz\\.x", "top\\=" })
    {
        EXPECT_TRUE(Registry_c().CreateKey(szKey)) << szKey;
    }
    EXPECT_EQ(SubKeys(Registry), "= A b Zz \xC3\x84 ") << "by folded bytes, as they were spelled";
    char szName[3] = "??";
    EXPECT_EACH(!Registry.EnumKey(3, szName, 2), !Registry.EnumKey(-1, szName, 3), !Registry.EnumKey(5, szName, 3));
    EXPECT_STREQ(szName, "??");
    EXPECT_TRUE(Registry.EnumKey(3, szName, 3));
    EXPECT_EACH(Registry.WriteString("longest name", "abc"), Registry.WriteValue("i", 1));
    EXPECT_EQ(Figures(Registry), (std::vector{ 5, 3, 2, 12, 4 }));
    _tag_KEY_INFO Info;
    EXPECT_TRUE(Registry.GetKeyInfo(&Info));
    std::int64_t const tNow = (std::time(nullptr) + plat::FILE_TIME_SECONDS_TO_1970) * plat::FILE_TIME_TICKS;
    EXPECT_NEAR(static_cast<double>(Info.ftLastWrite), static_cast<double>(tNow), 10.0 * plat::FILE_TIME_TICKS);
    plat::RegistrySetPlatform(plat::REGISTRY_PLATFORM_NT);
    Registry_c Doubled;
    EXPECT_TRUE(Doubled.OpenKey("top", 0));
    EXPECT_EQ(Figures(Doubled), (std::vector{ 5, 6, 2, 24, 4 })) << "lengths of wide characters";
}

TEST_F(RegistryTest, DeletesKeysAndLeavesWhatIsNotItsOwn)
{
    Registry_c Registry, Inner, Again;
    EXPECT_EACH(Registry.CreateKey("top\\b\\c"), Registry.CreateKey("top\\zz\\.x"), Registry.CreateKey("top\\a"));
    ASSERT_TRUE(Registry.OpenKey("top", 0));
    EXPECT_EACH(!Registry.DeleteKey("b", 0), !Registry.DeleteKey("none", 1), !Registry.DeleteKey(nullptr, 1));
    EXPECT_EACH(Registry.DeleteKey("B", 1), Registry.DeleteKey("zz\\.x", 0));
    EXPECT_EQ(SubKeys(Registry), "a zz ") << "the open key stays open";
    m_Folder.Write("user/top/a/foreign", "x");
    EXPECT_FALSE(Registry.DeleteKey("a", 1)) << "what is not the store's is left alone";
    fs::create_directory_symlink(m_Folder.MakeFolder("victim"), m_Folder.Join("user/top/planted"));
    EXPECT_FALSE(Write("top\\Planted", "Name", "x"));
    EXPECT_TRUE(fs::is_empty(m_Folder.Join("victim")));
    EXPECT_EACH(Inner.OpenKey("top\\zz", 0), !Inner.DeleteKey("\\", 1), !Inner.DeleteKey("\\\\", 0),
        Again.OpenKey("top\\zz", 0))
        << "a path without a name is no key";
    EXPECT_TRUE(Inner.DeleteKey("", 0));
    EXPECT_EACH(!Inner.WriteValue("i", 1), !Inner.DeleteKey("", 0)) << "a deleted key accepts nothing";
    EXPECT_TRUE(Again.CreateKey("top\\zz"));
    EXPECT_EACH(!Inner.WriteValue("i", 1), !Inner.DeleteKey("", 0)) << "nor reaches a new one of its name";
    EXPECT_EACH(Again.OpenKey("", 0), !Again.DeleteKey("", 0)) << "a tree stays";
}

TEST_F(RegistryTest, APathLeadsToItsKeyAlone)
{
    EXPECT_EACH(Write("SOFTWARE\\House", "Install", "dir"), Write("..\\etc", "..", "out"), Write("", "", "root"));
    for (char const * szKey : { "software\\HOUSE", "software\\house\\", "\\software\\\\House" })
    {
        EXPECT_EQ(Read(szKey, "INSTALL"), "dir") << szKey;
        EXPECT_EQ(Read(szKey, "INSTALL", MACHINE), "none") << szKey << ": the trees are apart";
    }
    EXPECT_EQ(Read(nullptr, nullptr), "root");
    EXPECT_EACH(!plat::RegistryKeyExists(USER, "SOFTWARE\\House\\Install"), !plat::RegistryKeyExists(MACHINE, ""));
    EXPECT_FALSE(fs::exists(m_Folder.Join("etc"))) << "no name leads out of the store";
    Registry_c Registry;
    EXPECT_EACH(Registry.OpenKey("Software\\House", 0), !Registry.OpenKey("Software\\None", 0),
        !Registry.ValueExists("Install"))
        << "the previous key is closed";
    EXPECT_EACH(Registry.OpenKey("Software\\None", 1), Registry.OpenKey("SOFTWARE\\none", 0));
}

TEST_F(RegistryTest, NamesAndValuesBeyondTheLimitsAreRefusedAndMakeNoKey)
{
    std::string const sTooLong(plat::NAME_LIMIT + 1, 'n'), sHuge(plat::VALUE_LIMIT + 1, 'h');
    EXPECT_EACH(
        !Write("key", sTooLong.c_str(), "x"), !Write(sTooLong.c_str(), "name", "x"), !Write("k", "huge", sHuge));
    EXPECT_EACH(!plat::RegistryKeyExists(USER, "key"), !plat::RegistryKeyExists(USER, "k"));
}

TEST_F(RegistryTest, BehavesAsAPlainModel)
{
    std::mt19937 Random(8);
    auto const fnRandom = [&](int n) { return static_cast<int>(Random() % static_cast<unsigned>(n)); };
    std::string const sLong(254, 'n'), sLongA = "\xC3\x84" + sLong.substr(2) + "a", sLongB = sLong + "B";
    std::string const dKeys[] = { "a", "A\\b", "a\\B\\c", "d", "D\\x y", "d\\%41", "d\\A", "..\\.", "@KEY",
        "~1\\=install", "\x01\xFF\n/", sLongA + "\\" + sLongB, sLongA + "\\" + sLong + "c" };
    std::string const dNames[] = { "", "one", "ONE", "a\\b", "\xC3\xA4/%41", "A", "%41", "=~@.", "..", "@key", "~",
        sLongA, sLongB };
    auto const fnPick = [&Random](auto const & dTexts) { return dTexts[Random() % std::size(dTexts)]; };
    Model_t dModel;
    Registry_c Registry;
    for (int iStep = 0; iStep < 3000; ++iStep)
    {
        SCOPED_TRACE(iStep);
        std::string const sKey = fnPick(dKeys), sName = fnPick(dNames), sOther = fnPick(dNames);
        std::string const sModelKey = Lower(sKey), sModelName = Lower(sName), sModelOther = Lower(sOther);
        bool const bKey = dModel.count(sModelKey) != 0;
        ASSERT_EQ(Registry.OpenKey(sKey.c_str(), 0) != 0, bKey) << sKey;
        std::map<std::string, std::string> dNone;
        auto & dValues = bKey ? dModel[sModelKey] : dNone;
        bool const bHas = dValues.contains(sModelName), bRenamed = bHas && !dValues.contains(sModelOther);
        switch (fnRandom(7))
        {
        case 0:
        case 1:
            for (std::size_t i = 0; i != std::string::npos;)
            {
                i = sModelKey.find('\\', i + 1);
                dModel[sModelKey.substr(0, i)];
            }
            EXPECT_TRUE(Registry.CreateKey(sKey.c_str()));
            break;
        case 2:
        case 3:
            EXPECT_EQ(Registry.WriteString(sName.c_str(), std::to_string(iStep).c_str()) != 0, bKey);
            dValues[sModelName] = std::to_string(iStep);
            break;
        case 4:
            EXPECT_EQ(Registry.DeleteValue(sName.c_str()) != 0, bHas);
            dValues.erase(sModelName);
            break;
        case 5:
            EXPECT_EQ(Registry.RenameValue(sName.c_str(), sOther.c_str()) != 0, bRenamed);
            if (bRenamed)
            {
                dValues[sModelOther] = dValues[sModelName];
                dValues.erase(sModelName);
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
        ASSERT_NO_FATAL_FAILURE(ExpectValues(dModel));
    }
}

TEST_F(RegistryTest, FilesHaveTheDocumentedFormAndTheRightsOfTheirTree)
{
    ASSERT_TRUE(Write("Key", "Name", "value"));
    EXPECT_EQ(m_Folder.Read("user/key/=name").size(), RECORD_HEADER + 4 + 5);
    EXPECT_EQ(m_Folder.Read("user/key/@key").substr(RECORD_HEADER), "Key");
    Registry_c Registry;
    EXPECT_EACH(Registry.OpenKey("Key", 0), Registry.WriteValue("Width", 1024));
    EXPECT_EQ(Hex(m_Folder.Read("user/key/=width")), DumpOfPage(FORMATS_PAGE, "registryrecord"));
    EXPECT_TRUE(Registry.WriteData((std::string(254, 'N') + ".").c_str(), "", 0));
    EXPECT_TRUE(fs::exists(m_Folder.Join("user/key/=" + std::string(237, 'n') + "~C2C9B77716554469")));
    EXPECT_EQ(fs::status(m_Folder.Join("user/key/=name")).permissions(), fs::perms(0600));
    ASSERT_TRUE(plat::RegistryWrite(MACHINE, "Key", "Name", RegistryType_e::Text, "x", 1));
    EXPECT_EQ(fs::status(m_Folder.Join("not/yet/machine/key/=name")).permissions(), fs::perms(0644));
}

TEST_F(RegistryTest, ReadsNoValueFromADamagedFile)
{
    ASSERT_TRUE(Write("Key", "Name", "value"));
    std::string const sFile = "user/key/=name", sWhole = m_Folder.Read(sFile);
    for (std::size_t iByte = 0; iByte < sWhole.size(); ++iByte)
    {
        std::string sDamaged = sWhole;
        sDamaged[iByte] = static_cast<char>(sDamaged[iByte] ^ 0x10);
        for (std::string const & sBad : { sDamaged, sWhole.substr(0, iByte), sWhole + sDamaged[iByte] })
        {
            m_Folder.Write(sFile, sBad);
            EXPECT_EQ(Read("Key", "Name"), "none") << "changed, or cut or grown to " << sBad.size() << " at " << iByte;
        }
    }
    std::string const sLong(plat::NAME_LIMIT + 1, 'n');
    // Intact records that can't be values: 2 and 5 are no types, and a name is longer than NAME_LIMIT.
    for (plat::Record_t const & Record : { plat::Record_t{ RegistryType_e{ 2 }, "Name", "value" },
             plat::Record_t{ RegistryType_e{ 5 }, "Name", "value" },
             plat::Record_t{ RegistryType_e::Text, sLong, "value" } })
    {
        plat::StoreHandle_t const hKey = plat::StoreOpenPath(m_Folder.Join("user/key").c_str());
        ASSERT_TRUE(plat::StoreRecord(hKey, "=name", Record, true));
        plat::StoreClose(hKey);
        EXPECT_EQ(Read("Key", "Name"), "none") << static_cast<int>(Record.eType) << ' ' << Record.sName;
    }
    fs::remove(m_Folder.Join(sFile));
    MakePipe(m_Folder.Join(sFile));
    EXPECT_EQ(Read("Key", "Name"), "none") << "a pipe is not waited for";
    ASSERT_TRUE(Write("Key", "Name", "again"));
    EXPECT_EQ(Read("Key", "Name"), "again");
}

TEST_F(RegistryTest, KilledWritersAndRenamersLoseAndHalveNothing)
{
    std::string const dTexts[] = { std::string(5000, 'a'), std::string(50000, 'b') };
    EXPECT_EACH(Write("k", "w", dTexts[0]), Write("k", "x", dTexts[1]));
    std::mt19937 Random(8);
    int nX = 0, nY = 0;                                      // rounds that leave only x, and only y
    int const nRounds = plat::ADDRESS_CHECKER ? 100 : 300;   // under it a fork takes ten times as long
    for (int iRound = 0; iRound < nRounds; ++iRound)
    {
        unsigned const tMost = nY > 0 ? 2000 : 2000u << iRound / 50;   // microseconds; more until a rename succeeds
        auto const fnWrite = [&dTexts]
        {
            for (int i = 0;; ++i)
            {
                Write("k", "w", dTexts[i % 2]);
            }
            return 0;
        };
        auto const fnRename = []
        {
            Registry_c Renamer;
            while (Renamer.OpenKey("k", 0))
            {
                Renamer.RenameValue("x", "y");
                Renamer.RenameValue("y", "x");
                // A renamer that is killed may leave both names.
                if (Renamer.ValueExists("x") && Renamer.ValueExists("y"))
                {
                    Renamer.DeleteValue("y");
                }
            }
            return 0;
        };
        pid_t const dChildren[] = { StartChild(fnRename), StartChild(fnWrite) };
        std::this_thread::sleep_for(std::chrono::microseconds(500 + Random() % tMost));
        for (int iRead = 0; iRead < 6; ++iRead)
        {
            if (iRead == 3)
            {
                std::ranges::for_each(dChildren, KillChild);
            }
            EXPECT_THAT(Read("k", "w"), testing::AnyOf(dTexts[0], dTexts[1])) << "round " << iRound;
        }
        bool const bX = Read("k", "x") == dTexts[1], bY = Read("k", "y") == dTexts[1];
        EXPECT_TRUE(bX || bY) << "a value is lost in round " << iRound;
        nX += !bY;
        nY += !bX;
    }
    EXPECT_GT(nX, 0);
    EXPECT_GT(nY, 0) << "no rename succeeded";
    EXPECT_TRUE(Write("k", "w", "last"));
    EXPECT_EQ(BusyFiles("user/k"), 0) << "what killed writers leave is swept away";
}

TEST_F(RegistryTest, RenamersAndDeletersGetTheirTurnAndAStalledProcessIsGivenUpOn)
{
    auto const fnWrite = []
    {
        while (Write("k", "w", "text"))
        {}
        return 1;
    };
    pid_t const dWriters[] = { StartChild(fnWrite), StartChild(fnWrite) };
    ASSERT_TRUE(Write("k", "x", "value"));
    Registry_c Registry;
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_EACH(Registry.OpenKey("k", 1), Registry.RenameValue("x", "y"), Registry.OpenKey("", 0),
            Registry.DeleteKey("k", i % 2), Write("k", "x", "value"))
            << i;
    }
    EXPECT_EACH(KillChild(dWriters[0]), KillChild(dWriters[1])) << "a write failed";
    {
        FolderLock_c const OfStalledProcess(m_Folder.Join("user/k"));
        auto const tStart = std::chrono::steady_clock::now();
        EXPECT_FALSE(Write("k", "x", "other"));
        double const tSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
        EXPECT_GE(tSeconds, 5.0);
        EXPECT_LT(tSeconds, 30.0);   // a loaded machine takes longer
    }
    EXPECT_EQ(Read("k", "x"), "value");
}

TEST_F(RegistryTest, ParentAndChildGoOnWithAnOpenKey)
{
    Registry_c Registry;
    ASSERT_TRUE(Registry.CreateKey("k"));
    std::atomic<bool> bEnd = false;
    std::thread Writer(
        [&]
        {
            while (!bEnd)
            {
                Write("k", "other", std::string(30000, 'o'));
            }
        });
    for (int i = 0; i < 100; ++i)
    {
        auto const fnChild = [&]
        {
            EXPECT_EACH(Registry.WriteValue("i", i), Registry.RenameValue("i", "j"));
            return 0;
        };
        EXPECT_EQ(StatusOfChild(StartChild(fnChild)), 0) << i;
        EXPECT_EQ(Registry.ReadInt("j", -1), i);
        EXPECT_TRUE(Registry.DeleteValue("j")) << i;
    }
    bEnd = true;
    Writer.join();

    auto const fnDaemon = []
    {
        std::vector<int> dHandles(61);   // 3 to 63
        std::iota(dHandles.begin(), dHandles.end(), 3);
        auto pKept = std::make_unique<Registry_c>();
        pKept->CreateKey("k");
        ReplaceHandles(dHandles);
        EXPECT_FALSE(pKept->WriteValue("i", 1));
        pKept.reset();
        EXPECT_EACH(AreOpen(dHandles), !AreOpen({ 64 }));
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(fnDaemon)), 0) << "it uses or closes another's descriptor";
}

TEST_F(RegistryTest, ManyValuesAndKeysAndDeepTreesCostNoMoreEach)
{
    constexpr int MANY = 3000, DEEP = 200;
    std::error_code Ignored;
    TempFolder_c const Memory(fs::exists("/dev/shm", Ignored) ? "/dev/shm" : m_Folder.GetPath());
    plat::RegistrySetFolder(USER, Memory.GetPath().c_str());
    Registry_c Registry;
    ASSERT_TRUE(Registry.CreateKey("top"));
    std::clock_t const tStart = std::clock();   // processor time, which other programs do not stretch
    std::string sDeep = "top\\deep";
    for (int i = 0; i < MANY; ++i)
    {
        std::string const sName = std::to_string(i);
        EXPECT_EACH(Registry.WriteValue(sName.c_str(), i), Registry_c().CreateKey(("top\\K" + sName).c_str()));
        sDeep += i < DEEP ? "\\deep" : "";
    }
    EXPECT_TRUE(plat::RegistryWrite(USER, sDeep.c_str(), "v", RegistryType_e::Untyped, nullptr, 0));
    std::string const sNames = SubKeys(Registry);
    EXPECT_EQ(std::count(sNames.begin(), sNames.end(), ' '), MANY + 1);
    for (int i = 0; i < MANY / 2; ++i)
    {
        char szName[260] = "";
        EXPECT_EACH(Registry.EnumKey(1, szName, sizeof(szName)), Registry.DeleteKey(szName, 1),
            Registry.DeleteValue(std::to_string(i).c_str()));
    }
    FewDescriptors_c const Few(40);
    EXPECT_EACH(Registry.OpenKey("", 0), Registry.DeleteKey("top", 1));
    EXPECT_FALSE(plat::RegistryKeyExists(USER, "top"));
    EXPECT_LT(std::clock() - tStart, 5 * CLOCKS_PER_SEC);
}

TEST_F(RegistryTest, AFailedDeletionOfATreeLeavesNoDeletedKeyInTheList)
{
    for (int i = 0; i < 20; ++i)   // a disk with a slow clock and no count of subfolders hides a change
    {
        Registry_c Registry;
        EXPECT_EACH(Registry_c().CreateKey("top\\a"), Registry_c().CreateKey("top\\b"), Registry.OpenKey("top", 1));
        m_Folder.Write("user/top/a/foreign", "x");
        EXPECT_EQ(SubKeys(Registry), "a b ");
        EXPECT_FALSE(Registry.DeleteKey("", 1));
        EXPECT_EQ(SubKeys(Registry), "a ");
    }
}

TEST_F(RegistryTest, ATreeThatCantBeMadeIsGivenUpOnAtOnce)
{
    plat::RegistrySetFolder(USER, "/proc/none/registry");
    Registry_c Registry;
    std::clock_t const tStart = std::clock();   // processor time, which other programs do not stretch
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EACH(!Registry.CreateKey("a"), !Registry.OpenKey("a", 1), !Write("a", "name", "x"));
    }
    EXPECT_LT(std::clock() - tStart, CLOCKS_PER_SEC);
}

TEST_F(RegistryTest, AFullDiskKeepsTheOldValueAndMakesNoKeyWithoutItsSpelling)
{
    ASSERT_TRUE(Write("Key", "name", "old"));
    {
        FullDisk_c const Full(RECORD_HEADER + 1);
        EXPECT_FALSE(Write("Key", "name", "new"));
        EXPECT_FALSE(Registry_c().CreateKey("Key\\Other"));
    }
    EXPECT_EACH(Read("Key", "name") == "old", BusyFiles("user/key") == 0, !plat::RegistryKeyExists(USER, "key\\other"));
    // Killed processes leave a key without a spelling and half a record.
    fs::remove(m_Folder.Join("user/key/@key"));
    m_Folder.Write("user/key/~", "half");
    EXPECT_TRUE(Write("KEY", "name", "value"));
    Registry_c Registry;
    EXPECT_EACH(Registry.OpenKey("", 0), SubKeys(Registry) == "KEY ", Read("Key", "name") == "value",
        BusyFiles("user/key") == 0);
}

TEST_F(RegistryTest, WhatMayOnlyBeReadIsReadAndNotChanged)
{
    NEEDS_NOBODY;
    Registry_c Registry(MACHINE);
    EXPECT_EACH(Registry.CreateKey("k"), Registry.WriteValue("i", 5));
    EXPECT_EACH(Registry.CreateKey("own"), Registry.WriteValue("i", 6));   // a key of a tree that can't be written
    std::string const sTree = m_Folder.Join("not/yet/machine"), sKey = sTree + "/k";
    fs::permissions(sTree + "/own", fs::perms(0777));
    fs::permissions(sKey, fs::perms(0555));
    fs::permissions(sTree, fs::perms(0555));
    auto const fnOpen = []
    {
        Registry_c Key(MACHINE), Own(MACHINE);
        EXPECT_EACH(Key.OpenKey("k", 0), !Key.WriteValue("i", 7), !Key.WriteValue("j", 7), !Key.RenameValue("i", "j"),
            !Key.DeleteValue("i"), Key.ReadInt("i", 0) == 5, !Registry_c(MACHINE).CreateKey("new"));
        EXPECT_EACH(Own.OpenKey("own", 0), !Own.DeleteKey("", 1), Own.ReadInt("i", 0) == 6);
        return 0;
    };
    int const iResult = StatusAsNobody(fnOpen);
    fs::permissions(sTree, fs::perms(0755));
    fs::permissions(sKey, fs::perms(0755));
    EXPECT_EQ(iResult, 0);
}
