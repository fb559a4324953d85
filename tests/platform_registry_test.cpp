#include "platform/registry.h"
#include "tests/test_support.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace
{
    using plat::RegistryTree_e;
    using plat::RegistryType_e;

    constexpr RegistryTree_e USER = RegistryTree_e::User;

    // Both trees stand in a folder of the test.
    class PlatformRegistry : public testing::Test
    {
    protected:
        PlatformRegistry()
        {
            plat::RegistrySetFolder(RegistryTree_e::Machine, m_Folder.Join("not/yet/machine").c_str());
            plat::RegistrySetFolder(USER, m_Folder.Join("user").c_str());
        }

        ~PlatformRegistry() override
        {
            plat::RegistrySetFolder(RegistryTree_e::Machine, nullptr);
            plat::RegistrySetFolder(USER, nullptr);
        }

        static bool Write(char const * szKey, char const * szName, std::string const & sData)
        {
            return plat::RegistryWrite(USER, szKey, szName, RegistryType_e::Text, sData.data(), sData.size());
        }

        // The data of a value, or "none".
        static std::string Read(char const * szKey, char const * szName, RegistryTree_e eTree = USER)
        {
            std::string sData(100000, '?');
            std::size_t nSize = sData.size();
            RegistryType_e eType = RegistryType_e::None;
            bool const bRead = plat::RegistryRead(eTree, szKey, szName, eType, sData.data(), nSize);
            sData.resize(nSize);
            return bRead && eType == RegistryType_e::Text ? sData : "none";
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

TEST_F(PlatformRegistry, TellsKeysAndNamesApartWithoutCase)
{
    struct Row_s
    {
        char const * szKey;
        char const * szName;
        char const * szSameKey; // another way to write the same key
        char const * szSameName;
    };
    std::string const sLong(120, 'n');
    Row_s const dRows[] = {
        { "SOFTWARE\\House\\Game\\Install", "InstallDir", "software\\house\\GAME\\install\\", "INSTALLDIR" },
        { "SOFTWARE\\House\\Game", "Install", "\\software\\\\house\\Game", "install" },
        { "SOFTWARE\\House\\Game", "", "software\\house\\game", nullptr },
        { "", "At the root", nullptr, "at the ROOT" },
        { "..\\..\\etc", "..", "..\\..\\ETC", ".." },
        { ".", ".", ".", "." },
        { "a/b", "c\\d", "A/B", "C\\d" },
        { "@key", "=", "@KEY", "=" },
        { "~1", "@key", "~1", "@KEY" },
        { "=install", "~", "=Install", "~" },
        { "100%41", "%41", "100%41", "%41" },
        { "100a", "a", "100A", "A" },
        { "\x01\xFF\n", "\xC3\xA4\t", "\x01\xFF\n", "\xC3\xA4\t" },
        { sLong.c_str(), sLong.c_str(), sLong.c_str(), sLong.c_str() },
    };
    for (Row_s const & Row : dRows)
    {
        EXPECT_TRUE(Write(Row.szKey, Row.szName, std::string("data of ") + Row.szKey + Row.szName));
    }
    for (Row_s const & Row : dRows)
    {
        std::string const sExpected = std::string("data of ") + Row.szKey + Row.szName;
        EXPECT_EQ(Read(Row.szKey, Row.szName), sExpected);
        EXPECT_EQ(Read(Row.szSameKey, Row.szSameName), sExpected);
        EXPECT_EQ(Read(Row.szKey, Row.szName, RegistryTree_e::Machine), "none") << "the trees are apart";
        EXPECT_TRUE(plat::RegistryKeyExists(USER, Row.szSameKey));
    }
    EXPECT_EQ(Read("SOFTWARE\\House", "InstallDir"), "none");
    EXPECT_FALSE(plat::RegistryKeyExists(USER, "SOFTWARE\\House\\Game\\InstallDir"));
    EXPECT_FALSE(plat::RegistryKeyExists(RegistryTree_e::Machine, ""));
    EXPECT_FALSE(Write("key", std::string(300, 'n').c_str(), "x"));
    EXPECT_FALSE(Write(std::string(300, 'k').c_str(), "name", "x"));
    EXPECT_FALSE(std::filesystem::exists(m_Folder.Join("etc"))) << "no name leads out of the store";
}

TEST_F(PlatformRegistry, KeepsTypeAndSize)
{
    std::uint32_t const dwValue = 0x01020304;
    constexpr RegistryTree_e eTree = RegistryTree_e::Machine;
    ASSERT_TRUE(plat::RegistryWrite(eTree, "k", "v", RegistryType_e::Dword, &dwValue, sizeof(dwValue)));
    ASSERT_TRUE(plat::RegistryWrite(eTree, "k", "empty", RegistryType_e::Binary, nullptr, 0));
    using Result_t = std::tuple<bool, std::size_t, RegistryType_e, std::uint32_t>;
    auto const fnRead = [](char const * szName, std::size_t nSize)
    {
        std::uint32_t dwBuffer = 7;
        RegistryType_e eType = RegistryType_e::None;
        bool const bRead = plat::RegistryRead(eTree, "k", szName, eType, &dwBuffer, nSize);
        return Result_t(bRead, nSize, eType, dwBuffer);
    };
    EXPECT_EQ(fnRead("v", 4), Result_t(true, 4, RegistryType_e::Dword, dwValue));
    EXPECT_EQ(fnRead("v", 3), Result_t(false, 4, RegistryType_e::Dword, 7));
    EXPECT_EQ(fnRead("empty", 0), Result_t(true, 0, RegistryType_e::Binary, 7));
    EXPECT_EQ(fnRead("none", 4), Result_t(false, 0, RegistryType_e::None, 7));
    std::string const sHuge(16 * 1024 * 1024 + 1, 'h');
    EXPECT_FALSE(Write("k", "huge", sHuge));
    EXPECT_FALSE(plat::RegistryKeyExists(USER, "k")) << "a refused value makes no key";
}

TEST_F(PlatformRegistry, ReadsNoValueFromADamagedFile)
{
    ASSERT_TRUE(Write("Key", "Name", "value"));
    std::string const sFile = m_Folder.Join("user/key/=name");
    std::string const sWhole = m_Folder.Read("user/key/=name");
    EXPECT_EQ(sWhole.size(), 20u + 4 + 5);
    EXPECT_EQ(m_Folder.Read("user/key/@key").substr(20), "Key");
    for (std::size_t iByte = 0; iByte < sWhole.size(); ++iByte)
    {
        std::string sDamaged = sWhole;
        sDamaged[iByte] = static_cast<char>(sDamaged[iByte] ^ 0x10);
        m_Folder.Write("user/key/=name", sDamaged);
        EXPECT_EQ(Read("Key", "Name"), "none") << "byte " << iByte << " changed";
        m_Folder.Write("user/key/=name", sWhole.substr(0, iByte));
        EXPECT_EQ(Read("Key", "Name"), "none") << "cut to " << iByte;
    }
    m_Folder.Write("user/key/=name", sWhole + "x");
    EXPECT_EQ(Read("Key", "Name"), "none");
    ASSERT_EQ(unlink(sFile.c_str()), 0);
    ASSERT_EQ(mkfifo(sFile.c_str(), 0600), 0);
    EXPECT_EQ(Read("Key", "Name"), "none") << "a pipe is not waited for";
    ASSERT_TRUE(Write("Key", "Name", "again"));
    EXPECT_EQ(Read("Key", "Name"), "again");
}

TEST_F(PlatformRegistry, ShowsWholeValuesWhileProcessesWriteAndAreKilled)
{
    constexpr int WRITERS = 4;
    constexpr int ROUNDS = 12;
    std::string const dValues[2] = { std::string(20000, 'a'), std::string(50000, 'b') };
    ASSERT_TRUE(Write("Shared", "value", dValues[0]));
    for (int iRound = 0; iRound < ROUNDS; ++iRound)
    {
        std::vector<pid_t> dWriters;
        for (int iWriter = 0; iWriter < WRITERS; ++iWriter)
        {
            pid_t const iChild = fork();
            if (iChild == 0)
            {
                alarm(60); // ends it should the test not come to it
                for (int iWrite = 0;; ++iWrite)
                {
                    Write("Shared", "value", dValues[(iWrite + iWriter) % 2]);
                }
            }
            dWriters.push_back(iChild);
        }
        for (int iRead = 0; iRead < 30; ++iRead)
        {
            std::string const sRead = Read("Shared", "value");
            EXPECT_TRUE(sRead == dValues[0] || sRead == dValues[1])
                << sRead.size() << " bytes: " << sRead.substr(0, 10);
        }
        for (pid_t const iWriter : dWriters)
        {
            kill(iWriter, SIGKILL);
            waitpid(iWriter, nullptr, 0);
        }
    }
    EXPECT_TRUE(Write("Shared", "value", "last"));
    EXPECT_EQ(Read("Shared", "value"), "last");
    EXPECT_EQ(BusyFiles("user/shared"), "") << "what killed writers left is swept away";
}

TEST_F(PlatformRegistry, LeavesTheFilesOfLivingWritersAlone)
{
    ASSERT_TRUE(Write("Key", "name", "value"));
    m_Folder.Write("user/key/~dead", "half");
    std::string const sLiving = m_Folder.Write("user/key/~living", "half");
    int const iLiving = open(sLiving.c_str(), O_RDONLY);
    ASSERT_EQ(flock(iLiving, LOCK_EX), 0);
    EXPECT_TRUE(Write("Key", "name", "value"));
    EXPECT_EQ(BusyFiles("user/key"), "~living ");
    close(iLiving);
}

TEST_F(PlatformRegistry, KeepsTheOldValueWhenTheNewOneCannotBeWritten)
{
    ASSERT_TRUE(Write("Key", "name", "old"));
    pid_t const iChild = fork();
    if (iChild == 0)
    {
        signal(SIGXFSZ, SIG_IGN);
        rlimit const Limit = { 1000, 1000 };
        bool const bLimited = setrlimit(RLIMIT_FSIZE, &Limit) == 0;
        _exit(bLimited && !Write("Key", "name", std::string(5000, 'n')) ? 0 : 1);
    }
    int iStatus = -1;
    waitpid(iChild, &iStatus, 0);
    EXPECT_EQ(iStatus, 0);
    EXPECT_EQ(Read("Key", "name"), "old");
    EXPECT_EQ(BusyFiles("user/key"), "");
}
