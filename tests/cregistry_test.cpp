#include "zqcore/cregistry.h"

#include "tests/archive_support.h"
#include "tests/test_support.h"

#include <atomic>
#include <bit>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <random>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
    namespace fs = std::filesystem;

    using plat::RegistryTree_e;
    using plat::RegistryType_e;

    constexpr RegistryTree_e USER = RegistryTree_e::User, MACHINE = RegistryTree_e::Machine;

    std::string Lower(std::string sText)
    {
        std::transform(sText.begin(), sText.end(), sText.begin(),
            [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
        return sText;
    }

    // Both trees stand in a folder of the test.
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

        static bool Write(char const * szKey, char const * szName, std::string const & sData)
        {
            return plat::RegistryWrite(USER, szKey, szName, RegistryType_e::Text, sData.data(), sData.size());
        }

        // A text of up to 60,000 characters, or "none".
        static std::string Read(char const * szKey, char const * szName, RegistryTree_e eTree = USER)
        {
            std::string sData(60000, '?');
            std::size_t nSize = sData.size();
            RegistryType_e eType = RegistryType_e::Untyped;
            bool const bRead = plat::RegistryRead(eTree, szKey, szName, eType, sData.data(), nSize);
            sData.resize(nSize);
            return bRead && eType == RegistryType_e::Text ? sData : "none";
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

        // The files of writers at work in a key, each name followed by a blank.
        std::string BusyFiles(char const * szKeyFolder) const
        {
            std::string sBusy;
            for (auto const & Entry : std::filesystem::directory_iterator(m_Folder.Join(szKeyFolder)))
            {
                std::string const sName = Entry.path().filename().string();
                sBusy += sName[0] == '~' ? sName + " " : "";
            }
            return sBusy;
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
    plat::RegistryWrite(USER, "software\\TEST", "d", RegistryType_e::Untyped, &dDouble, 8);
    EXPECT_TRUE(Registry.WriteValue("i", -5) && Registry.WriteValue("f", 0.1f) && Registry.WriteString("four", "1234"));
    EXPECT_TRUE(Registry.WriteString("t", "some text") && Registry.WriteData("b", "\0\1\2", 3));
    EXPECT_TRUE(Registry.WriteData("four bytes", "\x0D\0\0\0", 4));

    // The bits of ReadInt and ReadFloat, 77 by default; what ReadValue gives by type, and the float, 99 before.
    for (auto const & [szName, iBits, bInt, bDouble, bFloat, fFloat] :
        Rows_t<char const *, int, bool, bool, bool, float>{ { "i", -5, true, false, false, 0.0f },
            { "f", std::bit_cast<int>(0.1f), false, false, true, 0.1f }, { "d", 77, false, true, true, -1.0f / 3.0f },
            { "four", 77, false, false, false, 0.0f }, { "t", 77, false, false, false, 99.0f },
            { "b", 77, false, false, false, 0.0f }, { "four bytes", 13, false, false, false, 0.0f },
            { "none", 77, false, false, false, 99.0f } })
    {
        SCOPED_TRACE(szName);
        int i = 99;
        double d = 99.0;
        float f = 99.0f;
        EXPECT_EQ(Registry.ReadInt(szName, 77), iBits);
        EXPECT_EQ(std::bit_cast<int>(Registry.ReadFloat(szName, std::bit_cast<float>(77))), iBits);
        EXPECT_TRUE((Registry.ReadValue(szName, &i) != 0) == bInt && i == (bInt ? iBits : 99));
        EXPECT_TRUE((Registry.ReadValue(szName, &d) != 0) == bDouble && d == (bDouble ? dDouble : 99.0));
        EXPECT_TRUE((Registry.ReadValue(szName, &f) != 0) == bFloat && f == fFloat);
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

    // By the path: the size comes out whether the value fits or not.
    for (auto const & [szName, nRoom, bRead, nSize] : { std::tuple("i", 4, true, 4u), std::tuple("i", 3, false, 4u),
             std::tuple("none", 4, false, 0u), std::tuple("t", 0, false, 9u) })
    {
        std::size_t nHave = static_cast<std::size_t>(nRoom);
        RegistryType_e eType = RegistryType_e::Untyped;
        std::memcpy(sBuffer, "????", 4);
        EXPECT_EQ(plat::RegistryRead(USER, "Software\\Test", szName, eType, sBuffer, nHave), bRead) << szName;
        EXPECT_EQ(nHave, nSize) << szName;
        EXPECT_EQ(std::memcmp(sBuffer, bRead ? "\xFB\xFF\xFF\xFF" : "????", 4), 0) << szName;
    }
    EXPECT_FALSE(Write("k", "huge", std::string(16 * 1024 * 1024 + 1, 'h')));
    EXPECT_FALSE(plat::RegistryKeyExists(USER, "k")) << "a refused value makes no key";
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
    EXPECT_TRUE(Info.dwSubKeys == 5 && Info.dwMaxSubKeyLength == 3 && Info.dwValues == 2);
    EXPECT_TRUE(Info.dwMaxValueNameLength == 12 && Info.dwMaxValueLength == 4);
    auto const tNow = static_cast<plat::FileTime_t>(std::time(nullptr) + 11644473600) * 10000000;
    EXPECT_NEAR(static_cast<double>(Info.ftLastWrite), static_cast<double>(tNow), 1e8);
    plat::RegistrySetPlatform(2);
    Registry_c Doubled;
    EXPECT_TRUE(Doubled.OpenKey("top", 0) && Doubled.GetKeyInfo(&Info));
    EXPECT_TRUE(Info.dwMaxSubKeyLength == 6 && Info.dwMaxValueNameLength == 24 && Info.dwMaxValueLength == 4);

    EXPECT_FALSE(Registry.DeleteKey("b", 0) || Registry.DeleteKey("none", 1) || Registry.DeleteKey(nullptr, 1));
    EXPECT_TRUE(Registry.DeleteKey("B", 1) && Registry.DeleteKey("zz\\.x", 0));
    EXPECT_EQ(SubKeys(Registry), "= A Zz \xC3\x84 ");
    EXPECT_EQ(Read("top", "longest name"), "abc") << "the current key is what it was";
    EXPECT_FALSE(plat::RegistryKeyExists(USER, "top\\b"));
    m_Folder.Write("user/top/a/foreign", "x");
    EXPECT_FALSE(Registry.DeleteKey("a", 1)) << "what is not the store's is left alone";
    Registry_c Inner;
    EXPECT_TRUE(Inner.OpenKey("top\\zz", 0) && Inner.DeleteKey("", 0));
    EXPECT_FALSE(Inner.WriteValue("i", 1) || Inner.DeleteKey("", 0)) << "a deleted key takes nothing";
    Registry_c Again;
    EXPECT_TRUE(Again.CreateKey("top\\zz"));
    EXPECT_FALSE(Inner.WriteValue("i", 1) || Inner.DeleteKey("", 0)) << "nor reaches a new one of its name";
    EXPECT_TRUE(Again.OpenKey("", 0));
    EXPECT_FALSE(Again.DeleteKey("", 0)) << "a tree stays";
}

TEST_F(RegistryTest, APathLeadsToItsKeyAlone)
{
    ASSERT_TRUE(Write("SOFTWARE\\House", "Install", "dir") && Write("..\\etc", "..", "out"));
    for (char const * szKey : { "software\\HOUSE", "software\\house\\", "\\software\\\\House" })
    {
        EXPECT_EQ(Read(szKey, "INSTALL"), "dir") << szKey;
        EXPECT_EQ(Read(szKey, "INSTALL", MACHINE), "none") << "the trees are apart";
    }
    EXPECT_TRUE(Write("", "", "root") && Read(nullptr, nullptr) == "root");
    EXPECT_FALSE(plat::RegistryKeyExists(USER, "SOFTWARE\\House\\Install") || plat::RegistryKeyExists(MACHINE, ""));
    EXPECT_FALSE(Write("key", std::string(256, 'n').c_str(), "x") || Write(std::string(256, 'k').c_str(), "name", "x"));
    EXPECT_FALSE(std::filesystem::exists(m_Folder.Join("etc"))) << "no name leads out of the store";
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
    std::map<std::string, std::map<std::string, std::string>> dModel;   // values by folded key and name
    Registry_c Registry;
    for (int iStep = 0; iStep < 3000; ++iStep)
    {
        std::string const sKey = dKeys[fnRandom(13)], sName = dNames[fnRandom(13)], sOther = dNames[fnRandom(13)];
        std::string const sModelKey = Lower(sKey), sModelName = Lower(sName), sModelOther = Lower(sOther);
        bool const bKey = dModel.count(sModelKey) != 0;
        ASSERT_EQ(Registry.OpenKey(sKey.c_str(), 0) != 0, bKey) << sKey;
        auto * const pValues = bKey ? &dModel[sModelKey] : nullptr;
        bool const bHas = bKey && pValues->count(sModelName) != 0;
        bool const bRenamed = bHas && !pValues->count(sModelOther);
        switch (fnRandom(7))
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
            EXPECT_EQ(Registry.WriteString(sName.c_str(), std::to_string(iStep).c_str()) != 0, bKey);
            bKey ? void((*pValues)[sModelName] = std::to_string(iStep)) : void();
            break;
        case 4:
            EXPECT_EQ(Registry.DeleteValue(sName.c_str()) != 0, bHas);
            bHas ? pValues->erase(sModelName) : 0;
            break;
        case 5:
            EXPECT_EQ(Registry.RenameValue(sName.c_str(), sOther.c_str()) != 0, bRenamed);
            if (bRenamed)
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
            EXPECT_TRUE(Registry.GetKeyInfo(&Info) && Info.dwValues == dValues.size());
            for (auto const & [sAnyName, sData] : dValues)
            {
                ASSERT_EQ(Read(sAnyKey.c_str(), sAnyName.c_str()), sData)
                    << sAnyKey << " " << sAnyName << " step " << iStep;
            }
        }
    }
}

TEST_F(RegistryTest, ReadsNoValueFromADamagedFile)
{
    ASSERT_TRUE(Write("Key", "Name", "value"));
    std::string const sFile = "user/key/=name", sWhole = m_Folder.Read(sFile);
    EXPECT_EQ(sWhole.size(), 20u + 4 + 5);
    EXPECT_EQ(m_Folder.Read("user/key/@key").substr(20), "Key");
    Registry_c Registry;
    EXPECT_TRUE(Registry.OpenKey("Key", 0) && Registry.WriteValue("Width", 1024));
    EXPECT_EQ(Hex(m_Folder.Read("user/key/=width")),
        DumpOfPage(TEST_MEDIA_FOLDER "/../../docs/formats.md", "registryrecord"));
    EXPECT_TRUE(Registry.WriteData((std::string(254, 'N') + ".").c_str(), "", 0));
    EXPECT_TRUE(std::filesystem::exists(m_Folder.Join("user/key/=" + std::string(237, 'n') + "~C2C9B77716554469")));
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
    ASSERT_EQ(unlink(m_Folder.Join(sFile).c_str()), 0);
    ASSERT_EQ(mkfifo(m_Folder.Join(sFile).c_str(), 0600), 0);
    EXPECT_EQ(Read("Key", "Name"), "none") << "a pipe is not waited for";
    ASSERT_TRUE(Write("Key", "Name", "again"));
    EXPECT_EQ(Read("Key", "Name"), "again");
    EXPECT_EQ(fs::status(m_Folder.Join(sFile)).permissions(), fs::perms(0600));
    umask(022);
    ASSERT_TRUE(plat::RegistryWrite(MACHINE, "Key", "Name", RegistryType_e::Text, "x", 1));
    EXPECT_EQ(fs::status(m_Folder.Join("not/yet/machine/key/=name")).permissions(), fs::perms(0644));
    fs::create_directory_symlink(m_Folder.MakeFolder("victim"), m_Folder.Join("user/key/planted"));
    EXPECT_FALSE(Write("Key\\Planted", "Name", "x"));
    EXPECT_TRUE(fs::is_empty(m_Folder.Join("victim")));
}

TEST_F(RegistryTest, KilledWritersAndRenamersLoseAndHalveNothing)
{
    std::string const dTexts[] = { std::string(5000, 'a'), std::string(50000, 'b') };
    ASSERT_TRUE(Write("k", "w", dTexts[0]) && Write("k", "x", dTexts[1]));
    std::mt19937 Random(8);
    int nX = 0, nY = 0;
    for (int iRound = 0; iRound < 300; ++iRound)
    {
        auto const fnWrite = [](bool bRename)
        {
            Registry_c Writer;
            Writer.OpenKey("k", 0);
            for (int i = 0;; ++i)
            {
                Write("k", "w", std::string(i % 2 ? 50000 : 5000, i % 2 ? 'b' : 'a'));
                if (!bRename)
                {
                    continue;
                }
                Writer.RenameValue("x", "y");
                Writer.RenameValue("y", "x");
                // A renamer that was killed leaves both names.
                Writer.ValueExists("x") && Writer.ValueExists("y") ? Writer.DeleteValue("y") : 0;
            }
            return 0;
        };
        pid_t const dChildren[] = { StartChild([=] { return fnWrite(true); }),
            StartChild([=] { return fnWrite(false); }) };
        usleep(static_cast<useconds_t>(500 + Random() % 2000));
        for (int iRead = 0; iRead < 6; ++iRead)
        {
            if (iRead == 3)
            {
                std::for_each(dChildren, dChildren + 2, [](pid_t iChild) { kill(iChild, SIGKILL); });
                std::for_each(dChildren, dChildren + 2, StatusOfChild);
            }
            std::string const sText = Read("k", "w");
            EXPECT_TRUE(sText == dTexts[0] || sText == dTexts[1]) << sText.size() << " bytes in round " << iRound;
        }
        bool const bX = Read("k", "x") == dTexts[1], bY = Read("k", "y") == dTexts[1];
        EXPECT_TRUE(bX || bY) << iRound;
        nX += !bY;
        nY += !bX;
    }
    // How many rounds see a rename depends on the machine's load.
    EXPECT_GT(nX, 0);
    EXPECT_GT(nY, 0) << "no rename succeeded";
    EXPECT_TRUE(Write("k", "w", "last"));
    EXPECT_EQ(BusyFiles("user/k"), "") << "what killed writers left is swept away";
}

TEST_F(RegistryTest, RenamersAndDeletersGetTheirTurnAndAStalledProcessIsGivenUpOn)
{
    pid_t dWriters[2];
    for (pid_t & iWriter : dWriters)
    {
        iWriter = StartChild(
            []
            {
                while (Write("k", "w", "text"))
                    ;
                return 1;
            });
    }
    ASSERT_TRUE(Write("k", "x", "value"));
    Registry_c Registry;
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_TRUE(Registry.OpenKey("k", 1) && Registry.RenameValue(i % 2 ? "y" : "x", i % 2 ? "x" : "y")) << i;
    }
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_TRUE(Registry.OpenKey("", 0) && Registry.DeleteKey("k", i % 2)) << i;
        ASSERT_TRUE(Write("k", "x", "value"));
    }
    for (pid_t const iWriter : dWriters)
    {
        EXPECT_EQ(waitpid(iWriter, nullptr, WNOHANG), 0) << "no write failed";
        kill(iWriter, SIGKILL);
        StatusOfChild(iWriter);
    }
    int const iStalled = open(m_Folder.Join("user/k").c_str(), O_RDONLY);
    ASSERT_EQ(flock(iStalled, LOCK_EX), 0);
    auto const tStart = std::chrono::steady_clock::now();
    EXPECT_FALSE(Write("k", "x", "other"));
    double const fSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
    EXPECT_NEAR(fSeconds, 6, 1);
    close(iStalled);
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
        auto const fnChild = [&] { return Registry.WriteValue("i", i) && Registry.RenameValue("i", "j") ? 0 : 1; };
        EXPECT_EQ(StatusOfChild(StartChild(fnChild)), 0) << i;
        EXPECT_TRUE(Registry.ReadInt("j", -1) == i && Registry.DeleteValue("j")) << i;
    }
    bEnd = true;
    Writer.join();

    auto const fnDaemon = []
    {
        int const iFile = open("/dev/null", O_RDONLY);
        {
            Registry_c Kept;
            Kept.CreateKey("k");
            for (int i = 3; i < 64; ++i)
            {
                dup2(iFile, i);   // as a daemon that closes all descriptors and opens its own
            }
            if (Kept.WriteValue("i", 1))
            {
                return 1;
            }
        }
        int nOpen = 0;
        for (int i = 3; i < 64; ++i)
        {
            nOpen += fcntl(i, F_GETFD) >= 0;
        }
        return nOpen == 61 ? 0 : 2;
    };
    EXPECT_EQ(StatusOfChild(StartChild(fnDaemon)), 0);
}

TEST_F(RegistryTest, ManyValuesAndKeysAndDeepTreesCostNoMoreEach)
{
    constexpr int MANY = 3000, DEEP = 200;
    std::error_code Ignored;
    TempFolder_c const Memory(std::filesystem::exists("/dev/shm", Ignored) ? "/dev/shm" : m_Folder.GetPath());
    plat::RegistrySetFolder(USER, Memory.GetPath().c_str());
    Registry_c Registry;
    ASSERT_TRUE(Registry.CreateKey("top"));
    std::clock_t const tStart = std::clock();   // processor time, which other programs don't stretch
    char szName[260] = "";
    for (int iRound = 0; iRound < 2; ++iRound)
    {
        std::string sDeep = "top\\deep";
        for (int i = 0; i < MANY; ++i)
        {
            std::string const sName = std::to_string(i);
            Registry_c Other;
            EXPECT_TRUE(Registry.WriteValue(sName.c_str(), i) && Other.CreateKey(("top\\K" + sName).c_str()));
            sDeep += i < DEEP ? "\\deep" : "";
        }
        EXPECT_TRUE(plat::RegistryWrite(USER, sDeep.c_str(), "v", RegistryType_e::Untyped, nullptr, 0));
        int nKeys = 0;
        for (; Registry.EnumKey(nKeys, szName, sizeof(szName)); ++nKeys)
        {}
        EXPECT_EQ(nKeys, MANY + 1);
        for (int i = 0; i < (iRound == 0 ? MANY : 0); ++i)
        {
            EXPECT_TRUE(Registry.EnumKey(0, szName, sizeof(szName)) && Registry.DeleteKey(szName, 1)) << szName;
            EXPECT_TRUE(Registry.DeleteValue(std::to_string(i).c_str()));
        }
    }
    rlimit Former;
    getrlimit(RLIMIT_NOFILE, &Former);
    rlimit const Few = { 40, Former.rlim_max };
    setrlimit(RLIMIT_NOFILE, &Few);
    EXPECT_TRUE(Registry.OpenKey("", 0) && Registry.DeleteKey("top", 1)) << "with few descriptors";
    setrlimit(RLIMIT_NOFILE, &Former);
    EXPECT_FALSE(plat::RegistryKeyExists(USER, "top"));
    EXPECT_LT(std::clock() - tStart, 5 * CLOCKS_PER_SEC);
}

TEST_F(RegistryTest, AFullDiskKeepsTheOldValueAndMakesNoKeyWithoutItsSpelling)
{
    ASSERT_TRUE(Write("Key", "name", "old"));
    {
        FullDisk_c const Full(21);
        EXPECT_FALSE(Write("Key", "name", "new"));
        EXPECT_FALSE(Registry_c().CreateKey("Key\\Other"));
    }
    EXPECT_EQ(Read("Key", "name") + BusyFiles("user/key"), "old");
    EXPECT_FALSE(plat::RegistryKeyExists(USER, "key\\other"));
    // What killed processes left: a key without a spelling and half a record.
    ASSERT_EQ(unlink(m_Folder.Join("user/key/@key").c_str()), 0);
    m_Folder.Write("user/key/~", "half");
    EXPECT_TRUE(Write("KEY", "name", "value"));
    Registry_c Registry;
    EXPECT_TRUE(Registry.OpenKey("", 0) && SubKeys(Registry) == "KEY ") << SubKeys(Registry);
    EXPECT_EQ(Read("Key", "name") + BusyFiles("user/key"), "value");
}

TEST_F(RegistryTest, WhatMayOnlyBeReadIsReadAndNotChanged)
{
    Registry_c Registry(MACHINE);
    EXPECT_TRUE(Registry.CreateKey("k") && Registry.WriteValue("i", 5));
    EXPECT_TRUE(Registry.CreateKey("own") && Registry.WriteValue("i", 6));   // of which the tree can't be written
    std::string const sTree = m_Folder.Join("not/yet/machine"), sKey = sTree + "/k", sOwn = sTree + "/own";
    ASSERT_EQ(chmod(sOwn.c_str(), 0777) + chmod(sKey.c_str(), 0555) + chmod(sTree.c_str(), 0555), 0);
    auto const fnOpen = []
    {
        // The superuser may write everywhere, and becomes somebody else.
        bool const bOrdinary = geteuid() != 0 || setresuid(65534, 65534, 65534) == 0;
        Registry_c Key(MACHINE), Own(MACHINE);
        bool const bRead = Key.OpenKey("k", 0) && !Key.WriteValue("i", 7) && !Key.WriteValue("j", 7)
                           && !Key.RenameValue("i", "j") && !Key.DeleteValue("i") && Key.ReadInt("i", 0) == 5;
        bool const bKept = Own.OpenKey("own", 0) && !Own.DeleteKey("", 1) && Own.ReadInt("i", 0) == 6;
        return !bOrdinary ? 2 : bRead && bKept && !Key.CreateKey("new") ? 0 : 1;
    };
    int const iResult = StatusOfChild(StartChild(fnOpen));
    ASSERT_EQ(chmod(sTree.c_str(), 0755) + chmod(sKey.c_str(), 0755), 0);
    SKIP_IF(iResult == 2, "this superuser can't become an ordinary user");
    EXPECT_EQ(iResult, 0);
}
