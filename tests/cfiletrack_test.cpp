#include "tests/machine_support.h"
#include "tests/media_fixture.h"
#include "zqcore/cfiletrack.h"
#include "zqcore/cfiletrack_internal.h"

namespace
{
    // Number of sleeps of the lock test, and what happens at each of them. A sleep takes no time here.
    int g_nSleeps = 0;
    std::function<void(int nSleeps)> g_fnAtSleep;

    // Fixture with a tree of files, which Track makes known and watches, and a receiver that stores the changes.
    class FileTrack : public MediaTest
    {
    protected:
        FileTrack()
        {
            g_nSleeps = 0;
            g_fnAtSleep = [](int) {};
            g_fnTrackSleep = [](int) { g_fnAtSleep(++g_nSleeps); };
            g_FileTrackChangesCallbacker.Add(NoteReport, false);
            Make({ { "a.txt", "a" }, { "b.txt", "b" }, { "sub/c.txt", "c" }, { "loop/d.csv", "d" },
                { "\u00E9.txt", "e" } });
            fs::create_directory_symlink("..", m_Folder.Join("loop/up"));
        }

        ~FileTrack() override
        {
            FileTrackShutdown();
            g_FileTrackChangesCallbacker.Reset();
            g_fnTrackSleep = m_fnSleep;
        }

        void SetUp() override { NEEDS_WATCHES; }

        void Track()
        {
            ASSERT_TRUE(Scan());
            FileTrackChanges(m_Folder.GetPath().c_str());
        }

        // Runs a command in the tree. Returns whether it succeeded.
        bool Run(std::string const & sCommand) const
        {
            return RunShell("cd " + m_Folder.GetPath() + " && { " + sCommand + "; } >/dev/null 2>&1").iStatus == 0;
        }

        // Reports the changes and returns the names that the receiver got, joined by blanks.
        static std::string ReportChanges()
        {
            s_dReported.clear();
            FileTrackDoWork();
            std::string sAll;
            for (std::string const & sName : s_dReported)
            {
                sAll += (sAll.empty() ? "" : " ") + sName;
            }
            return sAll;
        }

        // Runs a command in the tree, expects that it succeeds, and returns what ReportChanges returns.
        std::string ChangesOf(std::string const & sCommand) const
        {
            EXPECT_TRUE(Run(sCommand)) << sCommand;
            return ReportChanges();
        }

        void (*const m_fnSleep)(int) = g_fnTrackSleep;
    };

    // A command, whose first word is the program that it needs, and the names that the tracker reports after it.
    struct Program_s
    {
        std::string sCommand, sReported;
    };

    void PrintTo(Program_s const & Program, std::ostream * pOut)
    {
        *pOut << Program.sCommand;
    }

    class FileTrackProgram : public FileTrack, public testing::WithParamInterface<Program_s>
    {};
}

TEST_P(FileTrackProgram, ReportsEachChangeOnce)
{
    auto const & [sCommand, sReported] = GetParam();
    std::string const sProgram = sCommand.substr(0, sCommand.find(' '));
    SKIP_IF(!Run("command -v " + sProgram), "no " << sProgram << " on this machine");
    Track();
    EXPECT_EQ(ChangesOf(sCommand), sReported) << sCommand;
    EXPECT_EQ(ReportChanges(), "") << "said again";
}

INSTANTIATE_TEST_SUITE_P(Real, FileTrackProgram,
    testing::ValuesIn(std::vector<Program_s>{ { "echo 1 > a.txt; echo 2 > b.txt; echo 3 > a.txt", "a.txt b.txt" },
        { "cp -f --remove-destination b.txt a.txt", "a.txt" },
        { "cp -r sub new/ && mkdir deep && cp -r sub deep", "c.txt c.txt" }, { "rm a.txt && mv b.txt a.txt", "a.txt" },
        { "mv a.txt a.bak && echo x > n && mv n a.txt && rm a.bak", "a.txt" },
        { "rm -r sub && mkdir sub && mv b.txt sub/c.txt", "c.txt" }, { "mv sub dir && echo x > dir/c.txt", "c.txt" },
        { "mkdir -p n/e/w && echo x > n/e/w/a.txt", "a.txt" }, { "touch a.txt", "a.txt" },
        { "sed -i s/a/b/ a.txt", "a.txt" }, { "perl -i.bak -pe s/a/b/ a.txt", "a.txt" },
        { "vim -es -u NONE -c s/a/b/ -c wq a.txt", "a.txt" },
        { "vim -es -u NONE -c 'set backup backupcopy=no' -c s/a/b/ -c wq a.txt", "a.txt" },
        { "rsync -I b.txt sub/c.txt", "c.txt" },
        { "echo \u00E9 > \u00E9.txt; echo x > \u0436.txt; echo x > unknown.txt", "\u00E9.txt" },
        // No receiver is called: a file is created, is deleted, is renamed to a free name, or only changes its mode.
        { "rm a.txt && touch a.txt", "" }, { "echo x > a.txt; rm a.txt b.txt; rm -r sub", "" },
        { "mv sub dir; mv loop/d.csv d", "" }, { "sleep 0.02; mkdir n && mv a.txt n", "" },
        { "chmod 600 a.txt", "" } }));

TEST_F(FileTrack, FollowsFoldersIntoNewOnesAndNotInACircle)
{
    TempFolder_c const Outside;
    fs::create_directory_symlink(Outside.GetPath(), m_Folder.MakeFolder("b") + "/link");
    Track();
    EXPECT_EQ(ChangesOf("mkdir n; mv sub n"), "");   // n was not watched when sub appeared
    EXPECT_EQ(ChangesOf("echo x > n/sub/c.txt"), "c.txt");
    EXPECT_EQ(ChangesOf("mv b " + Outside.GetPath()), "");   // below the folder that its own link leads to
    EXPECT_EQ(ChangesOf("echo x > " + Outside.GetPath() + "/x.txt; echo x > a.txt"), "a.txt");
}

TEST_F(FileTrack, KnowsNamesWhoseFilesWentOrWereExchanged)
{
    auto const Exchange = [this](char const * szA, char const * szB)
    { return ExchangeFiles(m_Folder.Join(szA), m_Folder.Join(szB)); };
    Track();
    EXPECT_EQ(ChangesOf("mv a.txt a.bak; rm -r sub; touch temp; mv temp gone"), "");
    EXPECT_EQ(ChangesOf("mv a.bak a.txt; mkdir sub; cp b.txt n; mv n sub/c.txt"), "a.txt c.txt");
    for (auto const & [szA, szB, szReported] : Rows_t<char const *, char const *, char const *>{
             { "a.txt", "loop/d.csv", "d.csv a.txt" }, { "a.txt", "gone", "a.txt" }, { "gone", "a.txt", "a.txt" } })
    {
        ASSERT_TRUE(Exchange(szA, szB));
        EXPECT_EQ(ReportChanges(), szReported) << szA;
        EXPECT_EQ(ChangesOf("echo x > n; mv n a.txt; echo x > n; mv n loop/d.csv"), "a.txt d.csv") << szA;
    }
    EXPECT_EACH(Exchange("sub", "loop"), Exchange("sub", "b.txt"));   // a folder with a folder, then with a file
    EXPECT_EQ(ReportChanges(), "");
    EXPECT_EQ(ChangesOf("echo x > b.txt/d.csv; echo x > loop/c.txt"), "d.csv c.txt");
}

TEST_F(FileTrack, AChildOfAForkWatchesForItself)
{
    Track();
    ASSERT_TRUE(Run("echo x > a.txt"));
    auto const TrackInChild = [this]
    {
        EXPECT_EQ(ReportChanges(), "");
        EXPECT_EQ(ChangesOf("echo x > b.txt"), "b.txt");
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(TrackInChild)), 0);
    EXPECT_EQ(ReportChanges(), "a.txt b.txt") << "the child consumed no change of the parent";
    EXPECT_EQ(ChangesOf("echo x > sub/c.txt"), "c.txt");
}

TEST_F(FileTrack, WaitsForWritersWithinLimits)
{
    NEEDS_LEASES;
    Track();
    // Tries that find the file open, the names reported, and the number in the line, 0 for no line.
    for (auto const & [nHeld, szReported, nSaid] : Rows_t<int, char const *, int>{ { 0, "a.txt b.txt", 0 },
             { 9, "a.txt b.txt", 0 }, { 10, "a.txt b.txt", 11 }, { 499, "a.txt b.txt", 500 }, { 500, "b.txt", 501 } })
    {
        m_Log.Clear();
        g_nSleeps = 0;
        Make({ { "a.txt", "x" }, { "b.txt", "x" } });
        std::FILE * pWriter = nHeld ? std::fopen(m_Folder.Join("a.txt").c_str(), "a") : nullptr;
        g_fnAtSleep = [pWriter, n = nHeld](int nSleeps)
        {
            if (nSleeps == n)
            {
                std::fclose(pWriter);
            }
        };
        EXPECT_EQ(ReportChanges(), szReported) << nHeld;
        std::string const sLine = "\n>>>FileTracker: Trying to refresh [" + m_Folder.GetPath() + "\\a.txt]( "
                                  + std::to_string(nSaid) + " lock-test failed ).\n ";
        EXPECT_EQ(m_Log.CountHolding(sLine), nSaid ? 1 : 0) << m_Log.GetText();
        EXPECT_EQ(m_Log.CountHolding("FileTracker"), nSaid ? 1 : 0);
        ReportChanges();   // the change of the writer's own close
    }
    Make({ { "a.txt", "y" }, { "b.txt", "y" }, { "x\u0436/c.txt", "y" } });
    g_nSleeps = 0;
    g_fnAtSleep = [&](int nSleeps)
    {
        if (nSleeps == 1)
        {
            fs::remove(m_Folder.Join("b.txt"));
        }
    };
    EXPECT_EQ(ReportChanges(), "a.txt")
        << "of the others one went away before its test, one is not at the narrowed path";
    EXPECT_EQ(g_nSleeps, 1);
    EXPECT_EACH(m_Log.CountHolding("\\b.txt]( 501 ") == 1, m_Log.CountHolding("\\x\\c.txt]( 501 ") == 1)
        << m_Log.GetText();
}

TEST_F(FileTrack, IgnoresTypesAndLosesABatchThatIsTooLarge)
{
    Track();
    FileTrackSetIgnoreExtList("csv .txt .CSV");
    Make({ { "a.txt", "x" }, { "loop/d.csv", "x" } });
    EXPECT_EQ(ReportChanges(), "d.csv");
    FileTrackSetIgnoreExtList("csv txt");
    for (auto const & [nLast, bFits] : Rows_t<std::size_t, bool>{ { 15, true }, { 16, false } })
    {
        Make({ { "a.txt", "x" } });     // of 24 bytes
        for (int i = 10; i < 29; ++i)   // of 12 and 2 * 99 each, rounded up to 212
        {
            m_Folder.Write(std::string(97, 'n') + std::to_string(i), "x");
        }
        m_Folder.Write(std::string(nLast, 'z'), "x");   // up to 4094, or over it
        EXPECT_EQ(ReportChanges(), bFits ? "a.txt" : "") << nLast;
        EXPECT_EQ(FileTrackGetProblem().StrPos("were lost: they need more than 4094 bytes") >= 0, !bFits);
    }
    Make({ { "a.txt", "x" } });
    EXPECT_EQ(ReportChanges(), "a.txt") << "the next batch";
}

TEST_F(FileTrack, IsEndedOrAskedFromAReceiver)
{
    Track();
    Make({ { "a.txt", "x" }, { "b.txt", "x" } });
    g_FileTrackChangesCallbacker.Add([](char const *) { FileTrackDoWork(); }, false);
    EXPECT_EQ(ReportChanges(), "a.txt b.txt");
    g_FileTrackChangesCallbacker.Add([](char const *) { FileTrackShutdown(); }, false);
    Make({ { "a.txt", "x" }, { "b.txt", "x" } });
    EXPECT_EQ(ReportChanges(), "a.txt");
    EXPECT_EQ(g_dOpenTracks.GetLength(), 0);
}

TEST_F(FileTrack, ANewWatchReplacesThePreviousOne)
{
    Track();
    FileTrackChanges((m_Folder.GetPath() + "\\SUB").c_str());
    EXPECT_EQ(g_dOpenTracks.GetLength(), 1);
    EXPECT_EQ(ChangesOf("echo x > a.txt; echo x > sub/c.txt"), "c.txt");
}

TEST_F(FileTrack, EndsWithItsFolder)
{
    ASSERT_TRUE(Scan());
    for (char const * szEnd : { "rm -r sub", "mv sub else" })
    {
        SCOPED_TRACE(szEnd);
        FileTrackChanges(m_Folder.Join("sub").c_str());
        EXPECT_EQ(std::string(FileTrackGetProblem()), "");
        m_Log.Clear();
        EXPECT_EQ(ChangesOf(szEnd + std::string(" && mkdir sub && echo x > sub/c.txt")), "");
        EXPECT_EQ(ReportChanges(), "") << "the second time";
        EXPECT_EQ(m_Log.CountHolding("/sub\" is watched no longer: it was moved or deleted"), 1) << m_Log.GetText();
        EXPECT_THAT(std::string(FileTrackGetProblem()),
            testing::AllOf(testing::HasSubstr("/sub\" is watched no longer"),
                testing::EndsWith(": it was moved or deleted, or the system refused to watch it again")));
    }
}

TEST_F(FileTrack, RefusesWhatItCantWatch)
{
    ExpectComplaints(1);
    FileTrackChanges(m_Folder.Join("a.txt").c_str());
    EXPECT_EQ(m_Log.Count("FileTrackChanges - Can't open directory \"" + m_Folder.Join("a.txt") + "\" handle... \n"), 1)
        << m_Log.GetText();
    EXPECT_EQ(m_Dialogs.CountHolding("opening of file '" + m_Folder.Join("a.txt") + "' failed!"), 1);
    EXPECT_FALSE(FileTrackIsOn());
    EXPECT_THAT(std::string(FileTrackGetProblem()), testing::EndsWith("/a.txt\" can't be watched: Permission denied"));
    // A limit, with its value, a folder that is made first, and the setting that the problem names, if there is one.
    for (auto const & [sLimit, nLimit, szFolder, szSetting] : Rows_t<std::string, int, char const *, char const *>{
             { "watches", 3, "sub", "" }, { "instances", 0, "sub", "fs.inotify.max_user_instances" },
             { "watches", 3, "one/too/many", "fs.inotify.max_user_watches" } })
    {
        m_Folder.MakeFolder(szFolder);
        auto const TrackLimited = [this, &sWhat = sLimit, n = nLimit, sz = szSetting]
        {
            if (!LimitWatches(sWhat, n))
            {
                return 2;
            }
            FileTrackChanges(m_Folder.GetPath().c_str());
            EXPECT_EACH(FileTrackGetProblem().IsEmpty() == !sz[0], FileTrackGetProblem().StrPos(sz) >= 0,
                FileTrackIsOn() == !sz[0], g_dOpenTracks.GetLength() == FileTrackIsOn());
            return 0;
        };
        int const iStatus = StatusOfChild(StartChild(TrackLimited));
        SKIP_IF(iStatus == 2, "the system refuses a namespace with few watches");
        EXPECT_EQ(iStatus, 0) << sLimit << szSetting;
    }
}

TEST_F(FileTrack, RefreshFindsNewFilesOfKnownFolders)
{
    ASSERT_TRUE(Scan());
    Make({ { "NEW.txt", "12" }, { "sub/a.txt", "twin" }, { "unseen/z.txt", "z" } });
    FileRefresh();
    std::ptrdiff_t const nBlocks = FileBlocks();
    FileRefresh();
    EXPECT_EQ(FileBlocks(), nBlocks) << "the second time";
    EXPECT_EQ(Keys(), "a.txt b.txt c.txt d.csv new.txt \u00E9.txt");
    EXPECT_EQ(FileStream("new.txt")->iLength, 0);
    EXPECT_EQ(Contents(FileOpen("new.txt")), "12");
    FileClose(FileStream("new.txt"));
    EXPECT_FALSE(FileStream("a.txt")->bDuplicate);
}

TEST_F(FileTrack, RefreshFindsFilesBesideOneThatABareNameAdded)
{
    {
        CurrentFolderScope_c const Current(m_Folder.GetPath());
        EXPECT_TRUE(FileAddOneFile("a.txt"));
        FileRefresh();
    }
    EXPECT_EQ(Keys(), "a.txt b.txt \u00E9.txt");
}
