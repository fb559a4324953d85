// The example host's command line, from outside.
#include "tests/test_support.h"

#include "zqcore/cfilesave.h"
#include "zqcore/cfilesave_internal.h"
#include "zqcore/cserialize.h"

#include <algorithm>

#ifdef ZQHOST_PATH
namespace
{
    using testing::HasSubstr;

    // Reason for which a test that sends signals is skipped in an emulator.
    constexpr char NO_SIGNALS[] = "the emulator gives a thread the storage of another one after a signal";

    // Runs the host, for 155 frames unless sArguments says otherwise. Returns what it says on standard error, and its
    // status: 2 bad command line, 3 no usable media or an output among them, 4 not loaded or saved, 5 stats not
    // written, 6 a service did not start, 7 not watched, 8 standard output full, 9 live memory not listed.
    Result_t RunHost(std::string const & sArguments, std::string const & sMedia = TEST_MEDIA_FOLDER,
        std::string const & sOutput = "/dev/null")
    {
        std::string const sFrames = sArguments.find("--frames") == std::string::npos ? "--frames 155 " : "";
        return RunShell(
            TEST_EMULATOR ZQHOST_PATH " --silent --media " + sMedia + " " + sFrames + sArguments + " 2>&1 >" + sOutput);
    }
}

TEST(ZqHost, LosesNoSaveThatItCannotLoad)
{
    TempFolder_c const Folder;
    std::string const sSave = Folder.Join("save"), sAll = "--log " + Folder.Join("log") + " --save " + sSave;
    {
        FileSave_c Save(sSave.c_str());
        EXPECT_THAT(RunHost(sAll), Ends(4, HasSubstr("in use by another program")));
        FileSaveWriter_c Writer(Save);
        BufferedWriteable_c Archive(Writer, 0x00020000);
        EXPECT_EACH(Archive.Open(), Archive.Close(), Writer.Commit());
    }
    std::string const sNewer = Folder.Read("save");
    EXPECT_THAT(
        RunHost(sAll), Ends(4, HasSubstr("it is of version 2.0, and this program reads 1.0; give another file")));
    EXPECT_EQ(Folder.Read("save"), sNewer);
    EXPECT_EQ(RunHost(sAll + " --new").iStatus, 0);
    EXPECT_EQ(Folder.Read("save.1"), sNewer);
    std::string const sPrevious = Folder.Read("save");
    EXPECT_EQ(RunHost(sAll).iStatus, 0);
    Folder.Write("save", sNewer.substr(1));
    EXPECT_EQ(RunHost(sAll).iStatus, 0);
    EXPECT_EACH(Folder.Read("save.1") == sPrevious, Folder.Read("save").size() > sPrevious.size() / 2)
        << "the previous save was not loaded";
    std::filesystem::remove(sSave);
    Folder.Write("save.1", sPrevious);
    EXPECT_EQ(RunHost(sAll).iStatus, 0);
    EXPECT_EQ(Folder.Read("save.1"), sPrevious) << "a save was rotated";
    EXPECT_GT(Folder.Read("save").size(), sPrevious.size() / 2) << "the previous save was not loaded";
    Folder.Write("save", "damaged");
    std::filesystem::remove(Folder.Join("save.1"));
    std::filesystem::create_symlink("save.1", Folder.Join("save.1"));
    EXPECT_THAT(RunHost(sAll), Ends(4, HasSubstr("of the saves before it")));
    EXPECT_EQ(Folder.Read("save"), "damaged");
    std::filesystem::remove(Folder.Join("save.1"));
    std::filesystem::remove(sSave);
    std::filesystem::create_symlink("save", sSave);
    EXPECT_THAT(RunHost(sAll), Ends(4, HasSubstr("Too many levels of symbolic links")));
    EXPECT_TRUE(std::filesystem::is_symlink(sSave));
}

TEST(ZqHost, FailsWhenItsMediaCannotBeReadOrItsOutputIsFull)
{
    NEEDS_ZQTOOL;
    TempFolder_c const Folder;
    std::string const sAll = "--log " + Folder.Join("log"), sStats = Folder.Join("stats");
    EXPECT_EQ(RunHost(sAll + " --stats " + sStats, TEST_MEDIA_FOLDER, "/dev/full").iStatus, 8);
    EXPECT_EQ(RunHost("--help", TEST_MEDIA_FOLDER, "/dev/full").iStatus, 8);
    EXPECT_EQ(RunShell(TEST_EMULATOR ZQTOOL_PATH " stats " + sStats + " 2>&1 >/dev/full").iStatus, 1);
    std::filesystem::copy(TEST_MEDIA_FOLDER, Folder.Join("media"), std::filesystem::copy_options::recursive);
    for (auto const & [szFile, szContents, iStatus, szSaid] : Rows_t<char const *, char const *, int, char const *>{
             { "gamedata/pqx/mission.scr", "", 3, "mission.scr is empty" },
             { "tables/goods.csv", "", 3, "goods.csv is empty" },
             { "sheets/balance.csv", "", 3, "balance.csv is empty" }, { "props/settings.prp", "", 6, "did not start" },
             { "props/settings.prp", "\xFF\xFEr", 6, "did not start" } })
    {
        std::string const sFile = std::string("media/") + szFile, sWhole = Folder.Read(sFile);
        EXPECT_FALSE(sWhole.empty());
        Folder.Write(sFile, szContents);
        EXPECT_THAT(RunHost(sAll, Folder.Join("media")), Ends(iStatus, HasSubstr(szSaid)));
        Folder.Write(sFile, sWhole);
    }
    std::filesystem::remove_all(Folder.Join("media/gamedata"));
    std::filesystem::create_symlink("gamedata", Folder.Join("media/gamedata"));   // whether it has the game is unknown
    EXPECT_THAT(RunHost(sAll, Folder.Join("media")), Ends(3, HasSubstr("can't read \"")));
}

TEST(ZqHost, AWorldThatHasCountedToItsLimitsLoadsAgain)
{
    TempFolder_c const Folder;
    std::filesystem::copy(TEST_MEDIA_FOLDER, Folder.Join("media"), std::filesystem::copy_options::recursive);
    // The last row of each of the first tables repeats the ident of another one.
    for (auto const & [szFile, szText] : Rows_t<char const *, char const *>{
             { "tables/goods.csv", "@head;name;price;spoils\nx;X;1-10;0\ny;Y;1-10;0\nX;Again;100-200;0\n" },
             { "tables/harbours.txt", "@head name makes output wants appetite quay\n"
                                      "a A x 1000000 y 1000000 1000000\nb B y 1000000 x 1000000 1000000\n"
                                      "c C x 1000000 y 1000000 1000000\nd D y 1000000 x 1000000 1000000\n"
                                      "A A y 1 x 1 1\n" },
             { "tables/routes.txt", "@head from to miles\nr a b 1\nq c d 1\nR a d 1000\n" },
             { "tables/winds.csv", "@head,name,knots,days\nw,W,10-20,1\nW,W,0-0,1\n" },
             { "tables/Ships.csv", "@head;name;hold;speed;crew;upkeep\nt;T;1000000;10-20;1-2;0\nT;T;1;1-1;1-1;0\n" },
             { "gamedata/pqx/fleet.csv", "@head;type;route;captain\ns;t;r;C\nu;t;q;C\n" },
             { "gamedata/pqx/rules.txt", "@head value\npurse 1000000\ndues 0\nport_hours 1\n" },
             { "gamedata/pqx/mission.scr", "mission \"None\"\n" },
             { "props/settings.prp", "rate 10000\nreport world\n" } })
    {
        Folder.Write(std::string("media/") + szFile, szText);
    }
    std::string const sAll = "--log " + Folder.Join("log") + " --save " + Folder.Join("save") + " --frames ";
    EXPECT_EQ(RunHost(sAll + "12500", Folder.Join("media"), Folder.Join("out")).iStatus, 0);
    EXPECT_THAT(Folder.Read("out"), HasSubstr(" 1000000000 "));
    EXPECT_THAT(Folder.Read("out"), HasSubstr("Landed: 1000000000 x, 1000000000 y"));
    for (char const * const szRow : { "goods.csv: row \"x", "harbours.txt: row \"a", "routes.txt: row \"r",
             "winds.csv: row \"w", "ships.csv: row \"t" })
    {
        EXPECT_THAT(Folder.Read("log/message.log"),
            HasSubstr(szRow + std::string("\" makes no sense or repeats an ident, and")));
    }
    EXPECT_EQ(RunHost(sAll + "1", Folder.Join("media")).iStatus, 0);
}

TEST(ZqHost, RefusesASaveWithNumbersThatNoGameHas)
{
    TempFolder_c const Folder;
    std::string const sSave = Folder.Join("save"), sAll = "--log " + Folder.Join("log") + " --save " + sSave;
    EXPECT_EQ(RunHost(sAll).iStatus, 0);
    std::string sBody = Folder.Read("save");
    ASSERT_GT(sBody.size(), SAVE_SEAL_SIZE + 16);
    sBody.resize(sBody.size() - SAVE_SEAL_SIZE);
    for (std::size_t const nFromEnd : { 16, 12, 8, 4 })   // of the last goal: crates, days, pay, state
    {
        std::string sWrong = sBody;
        sWrong.replace(sWrong.size() - nFromEnd, 4, "\xFF\xFF\xFF\x7F");
        {
            FileSave_c Save(sSave.c_str());
            FileSaveWriter_c Writer(Save);
            EXPECT_EACH(Writer.Write(sWrong.data(), sWrong.size()), Writer.Commit());
        }
        EXPECT_THAT(RunHost(sAll), Ends(4, HasSubstr("a goal has no good, no state or a wrong number"))) << nFromEnd;
    }
}

TEST(ZqHost, SaysWhatCannotBeWrittenAndLeavesWhatIsNoFile)
{
    TempFolder_c const Folder;
    std::string const sAll = "--log " + Folder.Join("log") + " --save " + Folder.Join("save") + " --stats ";
    std::string const sStats = Folder.Join("stats");
    Folder.Write("folder/mine", "x");
    Folder.Write("game/log/pqx.sav/mine", "x");
    for (auto const & [sArguments, iStatus, szSaid] : Rows_t<std::string, int, char const *>{ { sAll + sStats, 0, "" },
             { "--log " + Folder.Join("log") + " --save " + Folder.Join("folder"), 2, "the save is no regular file" },
             { "--log " + Folder.Join("game/log"), 2, "the save is no regular file" },
             { sAll + "/dev/null", 2, "the stats is no regular file" },
             { sAll + sStats + " --game " + std::string(64, 'a'), 2, "of at most 63 bytes" },
             { sAll + sStats + " --game '\x1B[m'", 3, "no folder gamedata/\\x1B[m" },
             { sAll + Folder.Join("gone/stats"), 5, "can't write the stats" },
             { "--log " + Folder.Join("log") + " --save " + Folder.Join("save/deeper"), 4, "can't save" } })
    {
        EXPECT_THAT(RunHost(sArguments), Ends(iStatus, HasSubstr(szSaid))) << sArguments;
    }
    EXPECT_EACH(Folder.Read("folder/mine") == "x", Folder.Read("game/log/pqx.sav/mine") == "x");
    std::string const sSaved = Folder.Read("save");
    EXPECT_EACH(!sSaved.empty(), !Folder.Read("stats").empty());
    for (auto const & [szKept, szDamaged] :
        Rows_t<char const *, char const *>{ { "save.old", "1" }, { "save.old1", "2" } })
    {
        Folder.Write("save", szDamaged);
        EXPECT_EQ(RunHost(sAll + sStats).iStatus, 0);
        EXPECT_EQ(Folder.Read(szKept), szDamaged) << "no kept save replaces another";
    }
    std::string const sLimited = "ulimit -f 4; " TEST_EMULATOR ZQHOST_PATH " --silent --media " TEST_MEDIA_FOLDER " ";
    EXPECT_THAT(RunShell(sLimited + "--log " + Folder.Join("limited") + " 2>&1 >/dev/null"),
        Ends(4, HasSubstr("File too large")));
    FullDisk_c const Full(sSaved.size() + 4000);   // room for the save and its log, but not for a batch
    EXPECT_EQ(RunHost(sAll + sStats).iStatus, 5);
    FullDisk_c const Fuller(sSaved.size());
    EXPECT_THAT(RunHost("--allocations --log " + Folder.Join("log") + " --save " + Folder.Join("save")),
        Ends(9, HasSubstr("can't list the live memory")));
}

TEST(ZqHost, RefusesOutputsThatReplaceEachOtherOrTheMedia)
{
    TempFolder_c const Folder;
    std::string const sLog = Folder.Join("log"), sAll = "--log " + sLog, sSave = sLog + "/pqx.sav";
    EXPECT_EQ(RunHost(sAll).iStatus, 0);
    EXPECT_EQ(RunHost(sAll).iStatus, 0);   // keeps the first save as the previous one
    std::string const sSaved = Folder.Read("log/pqx.sav"), sPrevious = Folder.Read("log/pqx.sav.1");
    EXPECT_EACH(!sSaved.empty(), !sPrevious.empty());
    std::filesystem::create_symlink("log", Folder.Join("link"));
    std::filesystem::copy_file(sSave, Folder.Join("copy.sav"));
    std::filesystem::create_hard_link(sSave, Folder.Join("hard"));
    std::filesystem::copy(TEST_MEDIA_FOLDER, Folder.Join("media"), std::filesystem::copy_options::recursive);
    std::string const sGoods = Folder.Read("media/tables/goods.csv");
    for (auto const & [sArguments, iStatus, szSaid] : Rows_t<std::string, int, char const *>{
             { " --stats " + sLog + "/../log//PQX.sav", 2, "the save and the stats are one file" },
             { " --stats " + Folder.Join("link/pqx.sav"), 2, "the save and the stats are one file" },
             { " --stats " + Folder.Join("hard"), 2, "the save and the stats are one file" },
             { " --stats '" + Folder.GetPath() + "\\log\\pqx.sav'", 2, "the save and the stats are one file" },
             { " --cache --cache-file " + sSave, 2, "the save and the cache are one file" },
             { " --stats " + sSave + ".1", 2, "the stats and a previous save are one file" },
             { " --save " + sLog + "/message.log", 2, "the save and message.log are one file" },
             { " --save " + sLog + "/Harbour.log", 2, "the save and harbour.log are one file" },
             { " --stats " + sLog + "/allocations.csv", 2, "the stats and allocations.csv are one file" },
             { " --stats " + Folder.Join("media/tables/Goods.csv"), 3, "give another one with --stats" },
             { " --cache --cache-file " + Folder.Join("goods.csv"), 3, "give another one with --cache-file" },
             { " --game none --cache --cache-file " + Folder.Join("goods.csv"), 3, "no folder gamedata/none" },
             { " --save " + Folder.Join("media/filesystemcache.bin"), 3, "the place of the media's cache" } })
    {
        EXPECT_THAT(RunHost(sAll + sArguments, Folder.Join("media")), Ends(iStatus, HasSubstr(szSaid))) << sArguments;
    }
    EXPECT_EACH(Folder.Read("log/pqx.sav") == sSaved, Folder.Read("log/pqx.sav.1") == sPrevious,
        Folder.Read("media/tables/goods.csv") == sGoods, !std::filesystem::exists(Folder.Join("goods.csv")));
}

TEST(ZqHost, RunsInAFolderOfAnyNameAndShowsWhatATerminalWouldObey)
{
    SKIP_IF(*TEST_EMULATOR != 0, NO_SIGNALS);
    TempFolder_c const Folder;
    std::string const sHome = "c\x1B[31m\xC3\xBC", sMedia = sHome + "/m\x1B[31m\xC3\xBC";
    Folder.MakeFolder(sHome + "/back");
    std::filesystem::copy(TEST_MEDIA_FOLDER, Folder.Join(sMedia), std::filesystem::copy_options::recursive);
    std::string sGoods = Folder.Read(sMedia + "/tables/goods.csv");
    for (std::string_view const sGood : { "Flour", "Timber" })
    {
        sGoods.replace(sGoods.find(sGood), sGood.size(), "\"x\nforged\"");
    }
    Folder.Write(sMedia + "/tables/goods.csv", sGoods);
    std::string const sHost = "cd '" + Folder.Join(sHome) + "'; { " ZQHOST_PATH " --silent --media '"
                              + Folder.Join(sMedia) + "' --save 'back\\slash' --stats stats --frames 480";
    Result_t const Run = RunShell(sHost + "; } 2>&1");
    EXPECT_THAT(Run, Ends(0, testing::Not(HasSubstr(" 0 bytes in "))));
    EXPECT_FALSE(Folder.Read(sHome + "/back/slash").empty());
    std::string const sLog = Folder.Read(sHome + "/logs/harbour.log");
    EXPECT_THAT(sLog, testing::AllOf(HasSubstr("crates of x\\nforged"), testing::Not(HasSubstr("\nforged"))));

    RunShell(sHost
             + " --watch & echo $! >pid; wait $!; echo $? >status; } 2>&1 | tee said |"
               " { grep -q Watching; kill -TERM $(cat pid); cat; }");
    EXPECT_EQ(Folder.Read(sHome + "/status"), "0\n");
    std::string const sSaid = Run.sOutput + Folder.Read(sHome + "/said");
    auto const IsControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\n'; };
    EXPECT_EQ(std::count_if(sSaid.begin(), sSaid.end(), IsControl), 0) << sSaid;
}

TEST(ZqHost, KeepsItsWorldWhenTheTerminalGoesAndSaysWhyItCannotWatch)
{
    SKIP_IF(*TEST_EMULATOR != 0, NO_SIGNALS);
    TempFolder_c const Folder;
    std::string const sHost =
        TEST_EMULATOR ZQHOST_PATH " --silent --watch --media " TEST_MEDIA_FOLDER " --log " + Folder.GetPath();
    // The hang-up comes twice. What the host prints to is gone.
    RunShell("cd " + Folder.GetPath() + "; { " + sHost
             + " & echo $! >pid; wait $!; echo $? >status; } 2>said | { grep -q Watching;"
               " exec <&-; kill -HUP $(cat pid); kill -HUP $(cat pid) 2>kill; }; wait");
    EXPECT_EQ(Folder.Read("status"), "0\n") << Folder.Read("said");
    EXPECT_GT(Folder.Read("pqx.sav").size(), 1000u);

    Result_t const Unwatched =
        RunShell("unshare -Ur sh -c 'echo 0 >/proc/sys/user/max_inotify_instances && " + sHost + " 2>&1 >/dev/null'");
    SKIP_IF(Unwatched.sOutput.find("unshare") != std::string::npos, Unwatched.sOutput);
    EXPECT_THAT(Unwatched, Ends(7, HasSubstr("raise fs.inotify.max_user_instances")));
}
#endif
