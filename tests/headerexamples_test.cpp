// The examples of public headers that need surroundings, or whose results are tested, and the names of tests in
// docs/reliability.md. The build cuts out all examples, and makes tests of the other ones (examples.cmake), except that
// of czip.h, which czip_test.cpp has.
#include "tests/media_fixture.h"
#include "zqcore/cbreakpoint.h"
#include "zqcore/cclipboard.h"
#include "zqcore/cfilecache.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/cfilesave.h"
#include "zqcore/cfiletrack.h"
#include "zqcore/cgcobject.h"
#include "zqcore/clog.h"
#include "zqcore/cpropertylist.h"
#include "zqcore/cregistry.h"
#include "zqcore/cserializer.h"
#include "zqcore/cserializestd.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/cwarehouse.h"

#include <fstream>

namespace
{
    struct Unit_c
    {
        void Serialize(Serializeable_c & Archive);

        int m_iHealth = 0;
        float m_fSpeed = 0.0f;
        String_T<32> m_sName;
    };

// clang-format off
#include "examples/cserialize_1.inl"
#include "examples/cserializer_1.inl"
#include "examples/cserializer_2.inl"
void CollectNodes()
{
#include "examples/cgcobject_1.inl"
}
    // clang-format on

    class HeaderExamples : public MediaTest
    {
    protected:
        static bool Save(Unit_c & Unit)
        {
#include "examples/cserialize_2.inl"
            return bSaved;
        }
        static std::pair<bool, bool> LoadAndSave(Unit_c & Unit)
        {
#include "examples/cfilesave_1.inl"
#include "examples/cfilesave_2.inl"
            return { bLoaded, bSaved };
        }
        static bool Load(Unit_c & Unit)
        {
#include "examples/cserialize_3.inl"
            return bLoaded;
        }
        static bool Undo(Unit_c & Unit)
        {
#include "examples/cserialize_4.inl"
            return bUndone;
        }

        CurrentFolderScope_c const m_Current{ m_Folder.GetPath() };
    };
}

TEST_F(HeaderExamples, ASaveIsFoundAndLoaded)
{
    Unit_c Unit{ 7, 1.5f, "Ogre" }, Loaded;
    EXPECT_EACH(Save(Unit), Load(Loaded), Undo(Loaded));
    EXPECT_EACH(Loaded.m_iHealth == 7, Loaded.m_fSpeed == 1.5f, Loaded.m_sName == "Ogre");
#include "examples/cfilereplace_1.inl"
    EXPECT_TRUE(bSaved);
    EXPECT_EQ(m_Folder.Read("saves/two.arc"), m_Folder.Read("saves/one.arc"));
    EXPECT_EQ(LoadAndSave(Unit), std::pair(false, true));
    EXPECT_EQ(LoadAndSave(Loaded = {}), std::pair(true, true));
    EXPECT_STREQ(Loaded.m_sName, "Ogre");
}

TEST_F(HeaderExamples, ARefusedSheetSaysWhere)
{
    Serve("levels.csv", "level,price\n1");
#include "examples/ctexterror_1.inl"
    EXPECT_EQ(m_Log.CountHolding("levels.csv(2,2): the last row has no end"), 1);
}

TEST_F(HeaderExamples, AWatchIsArmedOrRefusedWithAComplaint)
{
#include "examples/cbreakpoint_1.inl"
    ExpectComplaints(m_Log.CountHolding("traps: no"));
}

TEST_F(HeaderExamples, ATextIsShared)
{
    plat::ClipboardSetFolder(m_Folder.GetPath().c_str());
    EXPECT_TRUE(StartModule(ModuleClipboard_c::Get()));
#include "examples/cclipboard_1.inl"
    EXPECT_EQ(m_Log.Count("The clipboard holds: 3 ogres"), 1);
    Module_c::ShutdownAllModules();
    plat::ClipboardSetFolder(nullptr);
}

TEST_F(HeaderExamples, NodesAreCollected)
{
    std::ptrdiff_t const nBlocks = g_MemoryCounters.nTotalCount;
    CollectNodes();
    EXPECT_EQ(g_MemoryCounters.nTotalCount, nBlocks);
}

TEST_F(HeaderExamples, LevelsAreReadAndScanned)
{
    Serve("levels.csv", "level\n");
#include "examples/cfile_1.inl"
    EXPECT_EQ(m_Log.Count("levels.csv has 6 bytes"), 1);
    Make({ { "media/levels/one.lvl", "1" }, { "media/sources/one.max", "1" } });
#include "examples/cfilepath_1.inl"
    EXPECT_EQ(m_Log.Count("1 levels"), 1);
    EXPECT_EQ(Keys(), "levels.csv one.lvl");
    g_sExcludedFolders.Reset();
}

TEST_F(HeaderExamples, ACacheIsWrittenAndLoaded)
{
    Make({ { "media/levels.csv", "1" } });
    for (char const * const szKeys : { "levels.csv", "filesystemcache.bin levels.csv" })
    {
#include "examples/cfilecache_1.inl"
        EXPECT_EQ(RunForKeys(), szKeys);
    }
    FilesystemCacheInit("");
    FilesystemCacheCheck(false);
    ModuleFile_c::Get()->SetCacheFile("");
    ModuleFile_c::Get()->CheckCache(false);
}

TEST_F(HeaderExamples, OpensAreListed)
{
    SetPQXMediaPath(".");
    Make({ { "Logs/", "" }, { "levels.csv", "1" } });
    {
        EXPECT_TRUE(StartModule(ModuleFile_c::Get()));
#include "examples/cfilelog_1.inl"
    }
    Module_c::ShutdownAllModules();
    EXPECT_EQ(m_Folder.Read("Logs/start_clean.rsp"), ".\\levels.csv\n");
}

TEST_F(HeaderExamples, AGameHasItsOwnMedia)
{
    Make({ { "media/gamedata/pqx/levels.csv", "1" }, { "media/gamedata/other/levels.csv", "1" } });
#include "examples/cfilemedia_1.inl"
    EXPECT_TRUE(bReady);
    EXPECT_EQ(m_Log.CountHolding("File duplication"), 0);
    FileSetSplit(nullptr);
}

TEST_F(HeaderExamples, AChangedFileIsReadAgain)
{
    Make({ { "media/levels.csv", "1" } });
    EXPECT_TRUE(FileAddSearchPath("media", true, false));
    File_c * const pLevels = FileOpen("levels.csv");
#include "examples/cfiletrack_1.inl"
    Make({ { "media/levels.csv", "level" } });
    FileTrackDoWork();
    EXPECT_EQ(Contents(pLevels), "level");
    FileClose(pLevels);
    FileTrackShutdown();
    g_FileTrackChangesCallbacker.Reset();
}

TEST_F(HeaderExamples, ReadersFindWhatFilesHold)
{
    Serve("levels.csv", "level,price\ncastle,2.5\n");
    Serve("levels.txt", "monsters ogre\nmonsters elf\n");
    Serve("units.txt", "@head health\nogre 100\n");
    {
#include "examples/cpropertylist_1.inl"
        EXPECT_EQ(std::tuple(m_Log.Count("ogre"), m_Log.Count("elf")), std::tuple(1, 1));
    }
#include "examples/cspreadsheet_1.inl"
#include "examples/cwarehouse_1.inl"
    EXPECT_EACH(fPrice == 2.5f, iHealth == 100);
}

TEST_F(HeaderExamples, AWrittenValueIsRead)
{
    plat::RegistrySetFolder(plat::RegistryTree_e::User, m_Folder.Join("user").c_str());
#include "examples/cregistry_1.inl"
    EXPECT_EQ(iWidth, 1280);
    plat::RegistrySetFolder(plat::RegistryTree_e::User, nullptr);
}

TEST_F(HeaderExamples, ItemsComeBackByTheirClass)
{
    Serializer_T<Item_c> Items("Item");   // the static ones are gone if the module has ended in this process
    Serializer_T<Sword_c, Item_c> Swords("Sword");
    Item_c Sack, *pItem = &Sack;
    Sword_c Sword;
    Sack.m_dParts = { &Sword, &Sack };
    Sword.m_sName = "Needle";
    Sword.m_iEdge = 9;
    MemoryWriteable_c Writer(1);
    EXPECT_TRUE(Writer.Open());
    Pass(Writer, pItem);
    MemoryReadable_c Reader(Writer.GetBytes(), 1);
    EXPECT_TRUE(Reader.Open());
    Pass(Reader, pItem);
    ASSERT_EQ(pItem->m_dParts.size(), 2u);
    EXPECT_EACH(!Reader.IsFailed(), pItem != &Sack, pItem->m_dParts[1] == pItem);
    auto * const pSword = dynamic_cast<Sword_c *>(pItem->m_dParts[0]);
    ASSERT_TRUE(pSword);
    EXPECT_EACH(pSword->m_iEdge == 9, pSword->m_sName == "Needle");
    delete pSword;
    delete pItem;
}

TEST(Reliability, PageNamesTestsThatExist)
{
    std::set<std::string> dTests;
    auto const & All = *testing::UnitTest::GetInstance();
    for (int iSuite = 0; iSuite < All.total_test_suite_count(); ++iSuite)
    {
        testing::TestSuite const & Suite = *All.GetTestSuite(iSuite);
        std::string const sSuite = Suite.name();
        for (int i = 0; i < Suite.total_test_count(); ++i)
        {
            std::string const sTest = Suite.GetTestInfo(i)->name();
            dTests.insert(sSuite.substr(sSuite.find('/') + 1) + '.' + sTest.substr(0, sTest.find('/')));
        }
    }
#ifndef TEST_LOOKUP
    dTests.insert("IndexFile.OfAnythingElseIsIgnored");   // their library is not built here
    dTests.insert("SplitUnits.DamagedFilesCostVariablesAlone");
#endif
    std::ifstream Page(TEST_SOURCE_FOLDER "/docs/reliability.md");
    int nNamed = 0;
    for (std::string sPart; std::getline(Page, sPart, '`');)
    {
        std::size_t const nPoint = sPart.find('.');
        auto const IsCapital = [&sPart](std::size_t i)
        { return i < sPart.size() && sPart[i] >= 'A' && sPart[i] <= 'Z'; };
        bool const bTest = nPoint != std::string::npos && IsCapital(0) && IsCapital(nPoint + 1)
                           && sPart.find_first_of(" |\n") == std::string::npos;
        if (bTest)
        {
            ++nNamed;
#ifndef TEST_ZIP
            if (sPart.starts_with("FileZipTest."))
            {
                continue;   // the component is not built here
            }
#endif
            EXPECT_TRUE(dTests.contains(sPart)) << sPart;
        }
    }
    EXPECT_GT(nNamed, 20);
}
