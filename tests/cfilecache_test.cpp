#include "tests/archive_support.h"
#include "tests/media_fixture.h"
#include "zqcore/ccrc.h"
#include "zqcore/cfilecache.h"
#include "zqcore/cfilehash.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfiletrack.h"
#include "zqcore/csha1.h"

using Folders_t = std::vector<std::string>;
using Files_t = std::vector<std::pair<std::string, std::string>>;   // folder and name

class FileCacheTest : public MediaTest
{
protected:
    FileCacheTest() { SetPQXMediaPath(m_Folder.MakeFolder("media").c_str()); }
    ~FileCacheTest() override { FilesystemCacheInit(nullptr); }

    static std::string Word(std::size_t n) { return std::string(reinterpret_cast<char const *>(&n), 4); }
    static std::string Text(std::string const & s) { return Word(s.size()) + s + '\0'; }
    static std::string Index(std::string const & s) { return Word(GetCrc32Polynomial(s.data(), int(s.size()))); }

    static std::string Cache(
        Folders_t const & dFolders, Files_t const & dFiles, std::uint32_t dwVersion = FILESYSTEMCACHE_VERSION)
    {
        std::string sBytes = Word(dwVersion) + Word(dFolders.size());
        std::for_each(dFolders.begin(), dFolders.end(), [&](auto const & s) { sBytes += Index(s) + Text(s); });
        sBytes += Word(dFiles.size());
        std::for_each(dFiles.begin(), dFiles.end(),
            [&](auto const & File) { sBytes += Index(File.first) + std::string(12, '\1') + Text(File.second); });
        return sBytes;
    }

    // Writes sBytes to outside/cache.bin and loads it as the cache. Expects sound tables in any case. Returns whether
    // no Abort ended the load.
    bool Survives(std::string const & sBytes)
    {
        FilesystemCacheInit(m_Folder.Write("outside/cache.bin", sBytes).c_str());
        bool const bSurvived = SurvivesWithoutAbort([&] { EXPECT_TRUE(FilesystemCacheLoad()); });
        for (auto * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
        {
            String_T<256> const * const pPath = pSlot->pObject->pPath;
            if (pPath && pSlot->pObject->sName != "cache.bin")   // whose folder need not be there
            {
                EXPECT_EQ(g_sPaths.FindByName(*pPath), pPath);
            }
        }
        return bSurvived;
    }

    // Empties the tables, and then does what Survives does.
    bool SurvivesAlone(std::string const & sBytes)
    {
        FileReset();
        return Survives(sBytes);
    }
    void Save(std::string const & sName) const { FilesystemCacheSave(m_Folder.Join(sName).c_str()); }

    // Does what MediaTest::RunForKeys does, with the cache at sCache. Scans the root only if that can't be used or
    // sCache is empty.
    static std::string RunForKeys(std::string const & sCache)
    {
        FilesystemCacheInit(sCache.c_str());
        ModuleFile_c::Get()->ReadMedia(sCache.empty());
        std::string const sKeys = MediaTest::RunForKeys();
        ModuleFile_c::Get()->ReadMedia(true);
        return sKeys;
    }
};

TEST_F(FileCacheTest, WritesTheExampleOfTheFormatsPageAndReadsItInAnotherPlace)
{
    CurrentFolderScope_c const Scope(m_Folder.GetPath());
    Make({ { "media/ogre.msh", "mesh!" }, { "media/units/Ogre.CSV", "a,b" }, { "media/units/lone.csv", "" },
        { "media/maps/", "" }, { "media/filesystemcache.bin", "x" }, { "media2/outside.csv", "" } });
    SetPQXMediaPath("Media");
    EXPECT_EACH(FileAddSearchPath("media", true, false), FileAddSearchPath("media2", true, false));
    FileStream("ogre.msh")->ftCreationTime = 0x01DA3C89A0B3C000;
    FileStream("ogre.csv")->ftCreationTime = 0x01DA3C89A0B3C0FF;
    FileStream("lone.csv")->pPath = nullptr;
    FilesystemCacheSave("media\\FilesystemCache.bin");
    EXPECT_EQ(Hex(m_Folder.Read("media/filesystemcache.bin")), DumpOfPage(FORMATS_PAGE, "filesystemcache"));
    FileReset();
    fs::rename("media", "Moved");
    SetPQXMediaPath((m_Folder.Join("Moved") + "\\/").c_str());
    FilesystemCacheInit("moved/filesystemcache.bin");
    ASSERT_TRUE(FilesystemCacheLoad());
    EXPECT_EQ(Keys(), "filesystemcache.bin ogre.csv ogre.msh");
    EXPECT_TRUE(g_sPaths.FindByName(Folded("moved/maps\\").c_str()));
    File_c & File = *FileStream("ogre.csv");
    EXPECT_EQ(
        std::tuple(File.iLength, File.ftCreationTime, File.ftLastWriteTime), std::tuple(3, 0x01DA3C89A0B3C0FFu, 0u));
    EXPECT_EQ(Contents(FileOpen("ogre.csv")), "a,b");
    EXPECT_EQ(FileStream("filesystemcache.bin")->GetOpensCount(), 0);
}

TEST_F(FileCacheTest, TheModuleStartsFromTheCacheAndWritesItAnew)
{
    std::string const sCache = m_Folder.Join("media/filesystemcache.bin");
    Make({ { "media/declarations/a.csv", "a" }, { "media/profiles/p", "p" }, { "media/mapscache/deep/m", "m" } });
    EXPECT_EQ(RunForKeys(sCache), "a.csv m p") << "scanned, as there is no cache";
    EXPECT_EACH(g_sFilesystemCacheName.IsEmpty(), !fs::exists(sCache));
    m_Folder.Write("media/filesystemcache.bin", "x");
    EXPECT_EQ(RunForKeys(""), "a.csv filesystemcache.bin m p");
    std::string const sBytes = m_Folder.Read("media/filesystemcache.bin");
    EXPECT_THAT(sBytes, testing::AllOf(testing::HasSubstr("a.csv"), testing::Not(testing::HasSubstr("profiles"))));
    auto const Hash = [] { return Hex({ reinterpret_cast<char const *>(FileGetMediaHash()), SHA1_HASH_SIZE }); };
    // This is the SHA-1 of the name a.csv and the file's length, 1, in 4 bytes.
    std::string const sHash = "DC 95 3C 59 0F F2 B0 EA D2 22 6F D3 08 4C 3F 6A 86 3C 64 85";
    EXPECT_EQ(Hash(), sHash);
    FileBuildMediaHash(true);   // of no file

    Make({ { "media/declarations/new.csv", "" }, { "media/profiles/q", "" } });
    g_AddSubfolderCallbacker.Add(NoteReport, false);
    EXPECT_EQ(RunForKeys(sCache), "a.csv filesystemcache.bin m p q");
    g_AddSubfolderCallbacker.Reset();
    std::string const sDeep = Folded("media/mapscache/deep\\");
    EXPECT_EQ(s_dReported, (Folders_t{ Folded("media/profiles\\"), Folded("media/mapscache\\"), sDeep }));
    EXPECT_EQ(m_Folder.Read("media/filesystemcache.bin"), sBytes);
    EXPECT_EQ(Hash(), sHash);

    CurrentFolderScope_c const Scope(m_Folder.Join("media"));
    SetPQXMediaPath(".");
    RunForKeys("");
    EXPECT_EQ(RunForKeys(sCache), "a.csv filesystemcache.bin m new.csv p q");
}

TEST_F(FileCacheTest, TheModuleDropsWhatChangesInARunBeforeTheSave)
{
    m_Folder.Write("media/filesystemcache.bin", "old");
    ASSERT_TRUE(StartModule(ModuleFile_c::Get()));
    for (char const * szName : { "$$$pqxautosave/s", "$$$pqxbackup/t", "mapscache/u", "profiles/v", "kept/w" })
    {
        EXPECT_TRUE(FileAddOneFile(m_Folder.Write(std::string("media/") + szName, "x").c_str())) << szName;
    }
    Module_c::ShutdownAllModules();
    EXPECT_TRUE(SurvivesAlone(m_Folder.Read("media/filesystemcache.bin")));
    EXPECT_EQ(Keys(), "cache.bin w");
    EXPECT_EQ(g_sPaths.FindByName(Folded("media/$$$pqxbackup\\").c_str()), nullptr);
}

TEST_F(FileCacheTest, DamageEndsInItsComplaintOrInSoundTables)
{
    NEEDS_ZQTOOL;
    std::string const sWhole = Cache({ "\\", "\\s\\" }, { { "\\", "a.txt" }, { "\\s\\", "b" } });
    std::string const sHead = Word(FILESYSTEMCACHE_VERSION);
    EXPECT_TRUE(SurvivesAlone(sWhole));
    EXPECT_EQ(g_sPaths.FindByName(Folded("outside\\").c_str()), nullptr) << "no folder of media";
    EXPECT_TRUE(SurvivesAlone(sWhole + '\0')) << "what follows is not read";
    EXPECT_TRUE(SurvivesAlone(Cache({ "\\" }, {}, FILESYSTEMCACHE_VERSION + 1) + "more")) << "of a newer minor version";
    for (std::size_t i = 0; i < sWhole.size(); ++i)
    {
        EXPECT_FALSE(SurvivesAlone(sWhole.substr(0, i))) << i;
        bool const bSurvives = SurvivesAlone(std::string(sWhole).replace(i, 1, 1, static_cast<char>(~sWhole[i])));
        if (i % 3 == 0)
        {
            EXPECT_EQ(RunTool("cache " + m_Folder.Join("outside/cache.bin")).iStatus, bSurvives ? 0 : 1) << i;
        }
    }
    Folders_t dFolders(PATH_TABLE_FOLDERS + 1);   // one more than the table has slots
    Files_t dFiles(FileTable_t::iMask + 2);       // the same of files
    for (std::size_t i = 0; i < dFiles.size(); ++i)
    {
        dFolders[i % dFolders.size()] = '\\' + std::to_string(i % dFolders.size()) + '\\';
        dFiles[i] = { "\\", std::to_string(i) };
    }
    for (auto const & [sBytes, sComplaint] : Rows_t<std::string, std::string>{
             { Cache({}, {}, 0x20000), "archive 'cache.bin' is v.2.0, and this binary only supports v.1.2" },
             { Cache({ "\\s\\", "\\s\\" }, {}), "Path duplicated  '" + Folded("media\\s\\") + "'\n" },
             { Cache({ "\\" }, { { "\\", "a" }, { "\\", "a" } }), "File duplicated: a" },
             { Cache({}, { { "abc", "lost" } }), "Can't assotiate index 0x352441C2 of lost with any path\n" },
             { Cache(dFolders, {}), "Path hash is small" }, { Cache({ "\\" }, dFiles), "File hash is small" },
             { sHead + Word(1) + Word(7) + Text("\\x\\"),
                 "nIndex == GetCrc32Polynomial ( pPath->GetDataPtr (), pPath->Length () )" },
             { Cache({ "x\\" }, {}), "at byte 19: not the text" }, { Cache({ "\\x" }, {}), "not the text" },
             { Cache({ std::string(256, 'x') }, {}), "no whole folder" },
             { Cache({ "\\" }, { { "\\", "" } }), "no whole file" }, { sHead + Word(~0u), "no count" } })
    {
        m_Log.Clear();
        EXPECT_FALSE(SurvivesAlone(sBytes)) << sComplaint;
        EXPECT_NE(m_Log.GetText().find(sComplaint), std::string::npos) << sComplaint << "\n" << m_Log.GetText();
    }
}

TEST_F(FileCacheTest, AFolderThatCantBeEnteredLeavesNoDanglingFile)
{
    constexpr unsigned FOLDERS = PathTable_t::iMaxProbes + 1;   // one more than a chain has slots
    Folders_t dFolders;   // of one hash: a letter may change places with the one 32 further on
    for (unsigned i = 0; i < FOLDERS; ++i)
    {
        dFolders.push_back('\\' + std::string(44, 'x') + '\\');
        for (unsigned iBit = 0; iBit < 12; ++iBit)
        {
            dFolders[i][1 + iBit + (i >> iBit & 1) * 32] = 'a';
        }
    }
    EXPECT_TRUE(SurvivesAlone(Cache(dFolders, { { dFolders[0], "first.txt" }, { dFolders.back(), "last.txt" } })));
    EXPECT_EQ(m_Log.CountHolding("Global path hash addition error..."), 1) << m_Log.GetText();
    EXPECT_EACH(FileGetPath("first.txt"), FileExists("last.txt"), !FileGetPath("last.txt"));

    std::string const sLong = '\\' + std::string(255 - 2 - m_Folder.Join("media").size(), 'x') + '\\';
    EXPECT_TRUE(SurvivesAlone(Cache({ sLong, "\\x" + sLong }, { { sLong, "in" }, { "\\x" + sLong, "out" } })));
    EXPECT_EQ(Keys(), "cache.bin in");
    EXPECT_EQ(m_Log.CountHolding("its path is too long"), 1);
}

TEST_F(FileCacheTest, FilesRegisteredBeforeStayAndKeepTheirFolders)
{
    for (char const * szFile : { "media/sub/same", "media/new/n", "outside/o" })
    {
        ASSERT_TRUE(FileAddOneFile(m_Folder.Write(szFile, szFile).c_str())) << szFile;
    }
    File_c const * const pSame = FileStream("same");
    EXPECT_TRUE(Survives(Cache({ "\\sub\\" }, { { "\\sub\\", "same" } })));
    auto * const pOver = ZQ_NEW MemoryFile_c("x");
    pOver->sName = "same";
    EXPECT_EQ(FileAddObject(pOver, true), HASH_ADDED);
    EXPECT_TRUE(Survives(Cache({ "\\sub\\" }, { { "\\sub\\", "same" } }))) << "hidden meanwhile";
    delete pOver;
    EXPECT_EQ(FileOpen("same"), pSame);
    Save("again.bin");
    EXPECT_TRUE(FileResetFiles(m_Folder.Join("outside").c_str()));
    EXPECT_EQ(Keys(), "n same");
    EXPECT_FALSE(Survives(Cache({ "\\" }, { { "\\", "same" } }))) << "another of this name";
    EXPECT_TRUE(SurvivesAlone(m_Folder.Read("again.bin"))) << "each file has its folder there";
    EXPECT_EQ(Keys(), "cache.bin n same");
}

TEST_F(FileCacheTest, AFileThatATwinHidesIsNotSaved)
{
    std::string const sOne = 'a' + std::string(31, 'x') + 'b', sTwo = 'b' + std::string(31, 'x') + 'a';   // of one hash
    Make({ { "media/" + sOne, "1" }, { "media/" + sTwo, "2" }, { "media/in/" + sTwo, "3" } });
    FileAddSearchPath(m_Folder.Join("media").c_str(), false, false);
    FileKill(FileStream(sOne.c_str()));   // the next of this hash gets its slot unseen
    File_c * const pTwin = FileStream(sTwo.c_str());
    FileAddSearchPath(m_Folder.Join("media/in").c_str(), false, false);
    EXPECT_NE(FileStream(sTwo.c_str()), pTwin);
    Save("twins.bin");
    EXPECT_EQ(FailedConditions([&] { FileKill(pTwin); }), "");
    EXPECT_TRUE(SurvivesAlone(m_Folder.Read("twins.bin")));
    EXPECT_EQ(Contents(FileOpen(sTwo.c_str())), "3");
}

TEST_F(FileCacheTest, WhatAKilledSaveLeavesIsNeverRegistered)
{
    m_Folder.Write("media/a.txt", "");
    Scan();
    static constexpr rlim_t DISK_SIZE = 30;
    auto const SaveUntilKilled = [this]
    {
        FullDisk_c const Full(DISK_SIZE);
        std::signal(SIGXFSZ, SIG_DFL);   // a write that fails ends the process
        Save("media/C.bin");
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(SaveUntilKilled)), -1);
    auto const IsCut = [](auto const & Entry) { return Entry.file_size() == DISK_SIZE; };
    fs::path const Left = std::find_if(fs::directory_iterator(m_Folder.Join("media")), {}, IsCut)->path();
    FileReset();
    Scan();
    FileRefresh();
    EXPECT_FALSE(FileAddOneFile(Left.c_str()));
    EXPECT_EQ(Keys(), "a.txt");
    EXPECT_TRUE(SurvivesAlone(
        Cache({ "\\" }, { { "\\", std::string(FoldedName_c(Left.c_str()).GetText()) }, { "\\", "a.txt" } })));
    EXPECT_EQ(Keys(), "a.txt cache.bin");
}

TEST_F(FileCacheTest, IsWrittenAfterWholeScansOnlyAndALoadThatFailsScans)
{
    NEEDS_NOBODY;
    Make({ { "media/good", "" }, { "media/sub/in", "" }, { "media/c.bin", "old" } });
    // A link that the system may not follow, for lack of a right, is one bad entry of its folder.
    fs::create_symlink("sub/closed/x", m_Folder.Join("media/bad"));
    fs::permissions(m_Folder.MakeFolder("media/sub/closed"), fs::perms::none);
    auto const SaveAsUser = [this]
    {
        Scan();
        m_Log.Clear();
        Save("media/c.bin");
        EXPECT_EQ(Keys(), "c.bin good in");
        EXPECT_EQ(m_Log.CountHolding("no cache is written"), 1);
        return 0;
    };
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    fs::permissions(m_Folder.Join("media"), fs::perms::all);
    EXPECT_EQ(StatusAsNobody(SaveAsUser), 0);
    EXPECT_EQ(m_Folder.Read("media/c.bin"), "old");
    fs::permissions(m_Folder.Join("media/sub/closed"), fs::perms::all);
    EXPECT_EACH(Scan(), FileScanIsWhole(m_Folder.Join("media").c_str()));
    Save("media/c.bin");
    EXPECT_TRUE(SurvivesAlone(m_Folder.Read("media/c.bin")));

    static std::string s_sGone;
    s_sGone = m_Folder.Write("media/filesystemcache.bin", Cache({ "\\" }, {}));
    g_bCollectResource = true;
    g_FileOpenCallbacker.Add([](char const *) { fs::remove(s_sGone); }, false);
    FileReset();
    EXPECT_EQ(RunForKeys(s_sGone), "c.bin good in") << "and the module has written no cache of that scan";
    g_bCollectResource = false;
    EXPECT_EQ(m_Dialogs.GetCount(), 0);
}

TEST_F(FileCacheTest, IsNotWrittenIfALoadWouldFindNoRoom)
{
    ASSERT_TRUE(FileAddOneFile(m_Folder.Write("media/first", "x").c_str()));
    String_T<256> const * const pPath = FileStream("first")->pPath;
    int nAdded = 0;
    for (int i = 0; i < 14800; ++i)   // in this order all find room; in that of the table they do not
    {
        auto * const pFile = new FileOnDisk_c;
        pFile->sName = NewString("g%d.x", i);
        pFile->pPath = pPath;
        nAdded += FileAddObject(pFile, false) == HASH_ADDED;
    }
    EXPECT_EQ(nAdded, 14800);
    Save("media/c.bin");
    EXPECT_EACH(!fs::exists(m_Folder.Join("media/c.bin")), m_Log.CountHolding("would not find room") == 1);
}

TEST_F(FileCacheTest, ReportsWhichFolderHasChangedAndGoesWhereTheHostSays)
{
    Make({ { "media/a", "1" }, { "media/sub/b", "1" }, { "media/sub/deep/c", "1" } });
    ModuleFile_c & Module = *ModuleFile_c::Get();
    for (std::string const & sCache : { m_Folder.Join("media/filesystemcache.bin"),
             m_Folder.Join("media/../media/c.bin"), m_Folder.Join("else/where/c.bin") })
    {
        SCOPED_TRACE(sCache);
        Module.SetCacheFile(sCache.c_str());
        Module.CheckCache(false);
        FilesystemCacheCheck(false);
        RunForKeys(sCache);
        EXPECT_TRUE(fs::exists(sCache));
        Module.CheckCache(true);
        auto const fnStale = [&]
        {
            constexpr std::string_view HEAD = "the cache is not current, ";
            m_Log.Clear();
            RunForKeys(sCache);
            std::string const sLog = m_Log.GetText();
            std::size_t const nHead = sLog.find(HEAD), nReason = nHead + HEAD.size();
            return nHead == sLog.npos ? "" : sLog.substr(nReason, sLog.find('\n', nReason) - nReason);
        };
        EXPECT_EQ(fnStale(), "it has no whole list of times");
        EXPECT_EQ(fnStale(), "");
        EXPECT_EQ(fnStale(), "") << "the cache that a start from a cache leaves";
        m_Folder.Write("media/sub/b", "written into");
        EXPECT_EQ(fnStale(), "");
        fs::rename(m_Folder.Join("media/sub/deep/c"), m_Folder.Join("media/sub/deep/d"));
        EXPECT_EQ(fnStale(), "\"\\sub\\deep\\\" has changed");
        EXPECT_EQ(fnStale(), "");
        m_Folder.Write("media/new" + std::to_string(sCache.size()), "");
        EXPECT_EQ(fnStale(), "\"\\\" has changed");
        EXPECT_EQ(fnStale(), "");
        m_Folder.Write("torn", m_Folder.Read(sCache.substr(m_Folder.GetPath().size() + 1)).substr(0, 100));
        fs::rename(m_Folder.Join("torn"), sCache);
        EXPECT_EQ(fnStale(), "it has no whole list of times");
        fs::rename(m_Folder.Join("media/sub/deep/d"), m_Folder.Join("media/sub/deep/c"));
        EXPECT_EQ(fnStale(), "\"\\sub\\deep\\\" has changed");
    }
    std::string const sMedia = m_Folder.Join("media"), sCache = m_Folder.Join("else/where/c.bin");
    std::string const sKeys = RunForKeys(sCache);
    fs::rename(sMedia, m_Folder.Join("not mounted"));
    EXPECT_EQ(RunForKeys(sCache), "");
    fs::rename(m_Folder.Join("not mounted"), sMedia);
    EXPECT_EQ(RunForKeys(sCache), sKeys);
    Module.CheckCache(false);   // leaves the host's own setting
    RunForKeys("");
    FilesystemCacheInit(sCache.c_str());
    EXPECT_TRUE(FilesystemCacheIsCurrent());
    FilesystemCacheSave(sCache.c_str());   // of empty tables
    EXPECT_FALSE(FilesystemCacheIsCurrent()) << "it lacks the media root";
    Module.SetCacheFile(nullptr);
    FilesystemCacheCheck(false);
}

TEST_F(FileCacheTest, ARunThatKnowsNoMediaLeavesTheHostsCache)
{
    struct Failing_c : Module_c
    {
        Failing_c()
            : Module_c("Failing")
        {}
        bool Initialize() override { return false; }
    } Failing;
    Make({ { "media/a", "1" } });
    std::string const sCache = m_Folder.Join("c.bin");
    ModuleFile_c & Module = *ModuleFile_c::Get();
    Module.SetCacheFile(sCache.c_str());
    RunForKeys("");
    std::string const sSaved = m_Folder.Read("c.bin");
    EXPECT_THAT(sSaved, testing::HasSubstr(Text("a")));

    FilesystemCacheInit(sCache.c_str());
    Module_c::Register(&Failing);
    EXPECT_FALSE(StartModule(&Module));
    Module_c::ShutdownAllModules();
    EXPECT_EQ(m_Folder.Read("c.bin"), sSaved) << "a failed start";

    FilesystemCacheInit(nullptr);
    Module.ReadMedia(false);
    StartModule(&Module);
    Module_c::ShutdownAllModules();
    Module.ReadMedia(true);
    EXPECT_EQ(m_Folder.Read("c.bin"), sSaved) << "a run without a scan";
    EXPECT_EQ(RunForKeys(sCache), "a c.bin");
    Module.SetCacheFile(nullptr);
}

TEST_F(FileCacheTest, ASaveThatFailsLeavesTheOldCache)
{
    Make({ { "media/c.bin", "old" }, { "media/folder.bin/", "" } });
    Scan();
    {
        FullDisk_c const Full(20);
        Save("media/c.bin");
    }
    Save("media/folder.bin");
    Save("media/" + std::string(256, 'x'));
    ExpectComplaints(1);
    Save("media/c.bin/x.dat");
    EXPECT_EQ(m_Dialogs.CountHolding("CreateFile(): opening of file '" + m_Folder.Join("media/c.bin/x.dat")), 1);
    SetPQXMediaPath("\\");   // none
    Save("media/c.bin");
    FilesystemCacheInit(m_Folder.Join("media/c.bin").c_str());
    EXPECT_FALSE(FilesystemCacheLoad());
    EXPECT_EQ(m_Log.CountHolding("can't write the cache"), 5);
    EXPECT_EQ(m_Dialogs.GetCount(), 1);
    EXPECT_EQ(m_Folder.Read("media/c.bin"), "old");
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(m_Folder.Join("media")), {}), 2) << "nothing is left";
}
