#include "tests/machine_support.h"
#include "tests/media_fixture.h"
#include "zqcore/cfilelog.h"
#include "zqcore/clogf.h"

class FileTrackerTest : public MediaTest
{
protected:
    ~FileTrackerTest() override { g_iMaxOpenFiles = m_iFirstLimit; }

    static void * Handle(std::intptr_t iHandle) { return reinterpret_cast<void *>(iHandle); }

    // Notes the handles from iFirst to iLast as open, each under sPrefix and its number. Returns the line for each in
    // the tracker's list.
    static std::string Open(int iFirst, int iLast, std::string const & sPrefix)
    {
        std::string sLines;
        for (int i = iFirst; i <= iLast; ++i)
        {
            FileOpenTracker(Handle(i), (sPrefix + std::to_string(i)).c_str());
            sLines += "Opened file: '" + sPrefix + std::to_string(i) + "'\n";
        }
        return sLines;
    }

    static void Close(int iFirst, int iLast)
    {
        for (int i = iFirst; i <= iLast; ++i)
        {
            FileCloseTracker(Handle(i));
        }
    }

private:
    int const m_iFirstLimit = g_iMaxOpenFiles;
};

TEST_F(FileTrackerTest, ComplainsAboveEachLimitOnceAndLogsTheList)
{
    ExpectComplaints(2);
    std::string sOpened = Open(1, 50, "lim");
    EXPECT_EQ(m_Log.GetText(), "");
    sOpened += Open(51, 51, "lim");
    EXPECT_EQ(m_Log.GetText(), "CreateFile(): limit of 50 opened files exceeded on opening file 'lim51'!\n" + sOpened);
    Close(51, 51);
    Open(51, 61, "lim");
    EXPECT_EQ(m_Log.CountHolding("opened files exceeded"), 2);
    EXPECT_EQ(m_Log.CountHolding("limit of 60 opened files exceeded on opening file 'lim61'!"), 1);
    Close(1, 61);
}

TEST_F(FileTrackerTest, ComplainsOfFailedOpensUnlessTheyArePacksOrBinaries)
{
    ExpectComplaints(4);
    for (auto const & [szTemplate, szName, bQuiet] : Rows_t<char const *, char const *, bool>{
             { "media*.zq", "track1.txt", false }, { "media*.zq", "media7.ZQ", true },
             { "media*.zq", "Cache.BIN", true }, { "media*.zq", nullptr, true }, { "media*.zq", "track2.zqx", false },
             { "p*.pak", "track3.zq", false }, { "p*.pak", "track4.Pak", true }, { "media*.zq", "q", false } })
    {
        m_Log.Clear();
        FileSetMediaTemplate(szTemplate);
        FileOpenTracker(Handle(0), szName);
        FileOpenTracker(Handle(-1), szName);   // the same text again, which Achtung drops
        std::string const sName = szName ? szName : "";
        EXPECT_EQ(m_Log.GetText(), bQuiet ? "" : "CreateFile(): opening of file '" + sName + "' failed!\n") << sName;
    }
    FileCloseTracker(Handle(0));
    FileCloseTracker(Handle(-1));
    EXPECT_EQ(m_Dialogs.CountHolding("CloseHandle()"), 0);
    FileSetMediaTemplate("media*.zq");
}

TEST_F(FileTrackerTest, CountsHandlesForWhichItHasNoRoom)
{
    ExpectComplaints(5);
    std::string const sUnknown = "CloseHandle(): closing more files than we've opened";
    Open(7, 7, "x");
    Close(8, 8);
    EXPECT_EQ(m_Dialogs.CountHolding(sUnknown), 1);
    Close(7, 7);
    g_iMaxOpenFiles = 1000;
    Open(1, FILE_OPEN_TRACKS + 2, "full");
    EXPECT_EQ(g_dOpenTracks.GetLength(), FILE_OPEN_TRACKS);
    EXPECT_EQ(m_Dialogs.CountHolding("iAccessIndex >= 0 && iAccessIndex <= LENGTH"), 2);
    Close(1, FILE_OPEN_TRACKS + 2);
    EXPECT_EQ(m_Dialogs.CountHolding(sUnknown), 1);
    Close(9, 9);
    EXPECT_EQ(m_Dialogs.CountHolding(sUnknown), 2);
    g_iMaxOpenFiles = 0;
    Open(7, 7, "x");
    EXPECT_EQ(m_Log.CountHolding("limit of 0 opened files exceeded on opening file 'x7'!"), 1);
    Close(7, 7);
}

TEST_F(FileTrackerTest, OpensAreReportedOnlyWhileResourcesAreCollected)
{
    Make({ { "a.txt", "x" }, { "b.txt", "x" } });
    ASSERT_TRUE(Scan());
    g_FileOpenCallbacker.Add(NoteReport, false);
    FileClose(FileOpen("a.txt"));
    g_bCollectResource = true;
    FileClose(FileOpen("a.txt"));
    FileOpenStored("b.txt")->CloseStored();
    unsigned char cByte;
    std::uint32_t nLength = 1;
    FileStream("b.txt")->Load(0, &cByte, nLength);
    FileOpenToResponseLog("c", 0);
    EXPECT_EQ(FailedConditions([] { FileOpenToResponseLog(nullptr, 0); }), "sFileName");
    g_FileOpenCallbacker.Add([](char const *) { throw 1; }, false);
    EXPECT_THROW(FileOpen("b.txt"), int);
    EXPECT_THROW(FileOpenStored("b.txt"), int);
    EXPECT_EQ(g_dOpenTracks.GetLength(), 0);
    g_bCollectResource = false;
    FileOpenToResponseLog(nullptr, 0);
    g_FileOpenCallbacker.Reset();
    EXPECT_EQ(s_dReported, (std::vector<std::string>{ Folded("a.txt"), Folded("b.txt"), Folded("b.txt"), "c" }));
}

class FileLogTest : public MediaTest
{
protected:
    FileLogTest()
    {
        Make({ { "a.txt", "x" }, { "b.txt", "yy" }, { "Logs/", "" }, { "rel/r.txt", "deep" }, { "once.txt", "1" } });
        SetPQXMediaPath(m_Folder.GetPath().c_str());
        FileAddSearchPath(m_Folder.GetPath().c_str(), false, true);
        FileAddSearchPath(m_Folder.Join("rel").c_str(), false, true);
        g_FileOpenCallbacker.Add(ResourceLoadCallback, false);
    }

    ~FileLogTest() override
    {
        FileOpenLogDisable();
        FileOpenLogMode(FILE_LOG_PLAIN | FILE_LOG_CLEAN);
        g_FileOpenCallbacker.Reset();
    }

    // Reads a, a and b from the disk.
    static void Run()
    {
        for (char const * szName : { "a.txt", "a.txt", "b.txt" })
        {
            FileClose(FileOpen(szName));
        }
    }

    // Returns the plain, the clean and the prefetch log, each with a blank after it: "a" for a.txt, "b" for b.txt, "?"
    // for others.
    std::string Read(std::string const & sName) const
    {
        std::string sAll;
        for (char const * szEnding : { ".rsp", "_clean.rsp", "_prefetch.rsp" })
        {
            std::istringstream Lines(m_Folder.Read("Logs/" + sName + szEnding));
            for (std::string sLine; std::getline(Lines, sLine);)
            {
                sAll += sLine == Folded("a.txt") ? "a" : (sLine == Folded("b.txt") ? "b" : "?");
            }
            sAll += " ";
        }
        return sAll;
    }
};

TEST_F(FileLogTest, EachResponseLogHasItsOpensAndNoForgedLine)
{
    auto const nHandles = CountHandles();
    // Masks and modes: 1 is the plain log, 2 the clean one, 4 that of prefetches.
    for (auto const & [szName, dwMask, dwMode, bAppend, szLogs] :
        Rows_t<char const *, std::uint32_t, std::uint32_t, bool, char const *>{ { nullptr, 7, 3, false, "aab ab  " },
            { "", 7, 4, true, "aab ab aab " }, { "thegame", 2, 7, true, "aab abab aab " },
            { "thegame", 7, 7, false, "aab ab aab " }, { "nowhere/x", 7, 7, false, "aab ab aab " } })
    {
        SCOPED_TRACE(testing::PrintToString(std::tuple(szName, dwMask, dwMode)));
        FileOpenLogMode(dwMode);
        FileOpenLogEnable(szName, dwMask, bAppend);
        Run();
        FileOpenLogDisable();
        EXPECT_FALSE(g_bCollectResource);
        EXPECT_EQ(Read("thegame"), szLogs);
    }
    FileOpenLogEnable("one", 7, false);
    m_Log.Clear();
    for (char const * szForged : { "x\na.txt", "\x1B[2J", "\u009B" })
    {
        FileOpenToResponseLog(szForged, 7);
    }
    EXPECT_EQ(m_Log.CountHolding("no response log lists \""), 3);
    FileOpenToResponseLog(Folded("b.txt").c_str(), FILE_LOG_PLAIN);
    Run();
    FileOpenLogEnable("two", FILE_LOG_CLEAN, false);   // closes the clean log of "one", and no other
    Run();
    EXPECT_EQ(CountHandles(), nHandles + 3);
    EXPECT_EQ(Read("one"), "baabaab ab aabaab ");
    EXPECT_EQ(Read("two"), " ab  ");
}

TEST_F(FileLogTest, ReportsAndClonesWhatWasLoaded)
{
    Make({ { "current/LoadedMedia/old.txt", "" }, { "outside/kept.txt", "" } });
    CurrentFolderScope_c const Scope(m_Folder.Join("current"));
    fs::create_directory_symlink(m_Folder.Join("outside"), "LoadedMedia/link");
    ModuleLog_c::SetLogPath(WideFromAscii(m_Folder.GetPath()).c_str());
    StartModule(ModuleLog_c::Get());
    Run();
    FileOpenStored("rel/r.txt")->CloseStored();
    Run();
    FileOpen("b.txt");
    FileStream("once.txt")->Open(nullptr);   // read once, and not by way of FileOpen
    FileDumpInfo();
    Module_c::ShutdownAllModules();
    ModuleLog_c::SetLogPath(L"");
    EXPECT_EQ(m_Folder.Read("fileopen_calls.log"), "a.txt                           4\n"
                                                   "b.txt                           3\n"
                                                   "rel\\r.txt                       2\n");
    m_Log.Clear();
    FileLogLoadedMedia();
    std::string const sCut = "------------ CUT ------------\n";
    EXPECT_EQ(m_Log.GetText(), "Media in memory...\n" + sCut + "2, b.txt\n" + sCut);
    FileClose(FileStream("b.txt"));
    FileCloneLoadedMedia();
    EXPECT_EQ(m_Folder.Read("current/LoadedMedia/a.txt"), "x");
    EXPECT_EQ(m_Folder.Read("current/LoadedMedia/b.txt"), "yy");
    EXPECT_EQ(m_Folder.Read("current/LoadedMedia/rel/r.txt"), "deep");
    EXPECT_EQ(std::distance(fs::directory_iterator("LoadedMedia"), fs::directory_iterator()), 3);
    EXPECT_TRUE(fs::exists(m_Folder.Join("outside/kept.txt")));
    NEEDS_NOBODY;
    Make({ { "current/LoadedMedia/keep/f", "" } });   // of another user
    fs::remove(m_Folder.Join("current/LoadedMedia/a.txt"));
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    fs::permissions(m_Folder.Join("current/LoadedMedia"), fs::perms::all);
    auto const CloneAsUser = []
    {
        FileCloneLoadedMedia();
        return 0;
    };
    EXPECT_EQ(StatusAsNobody(CloneAsUser), 0);
    EXPECT_EQ(m_Folder.Read("current/LoadedMedia/a.txt"), "x") << "beside what can't be deleted";
    fs::rename(m_Folder.Join("current/LoadedMedia"), m_Folder.Join("moved"));
    fs::create_directory_symlink(m_Folder.Join("moved"), "LoadedMedia");
    fs::remove(m_Folder.Join("moved/a.txt"));
    EXPECT_EQ(StatusAsNobody(CloneAsUser), 0);
    EXPECT_FALSE(fs::exists(m_Folder.Join("moved/a.txt"))) << "through a link that can't be deleted";
}
