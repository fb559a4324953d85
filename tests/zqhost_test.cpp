// The example host's command line, from outside.
#include "tests/test_support.h"

#ifdef ZQHOST_PATH
namespace
{
    // What the host says on standard error, and its status: 2 bad command line, 4 not saved, 5 stats not written, 7 not
    // watched.
    Result_s RunHost(std::string const & sArguments)
    {
        return RunShell(TEST_EMULATOR ZQHOST_PATH " --silent --frames 155 --media " TEST_MEDIA_FOLDER " " + sArguments
                        + " 2>&1 >/dev/null");
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
             { sAll + Folder.Join("gone/stats"), 5, "can't write the stats" },
             { "--log " + Folder.Join("log") + " --save " + Folder.Join("save/deeper"), 4, "can't save" } })
    {
        Result_s const Result = RunHost(sArguments);
        EXPECT_EQ(Result.iStatus, iStatus) << sArguments << Result.sOutput;
        EXPECT_THAT(Result.sOutput, testing::HasSubstr(szSaid));
    }
    EXPECT_EQ(Folder.Read("folder/mine") + Folder.Read("game/log/pqx.sav/mine"), "xx");
    std::string const sSaved = Folder.Read("save");
    EXPECT_TRUE(!sSaved.empty() && !Folder.Read("stats").empty());
    for (auto const & [szKept, szDamaged] :
        Rows_t<char const *, char const *>{ { "save.old", "1" }, { "save.old1", "2" } })
    {
        Folder.Write("save", szDamaged);
        EXPECT_EQ(RunHost(sAll + sStats).iStatus, 0);
        EXPECT_EQ(Folder.Read(szKept), szDamaged) << "no kept save replaces another";
    }
    FullDisk_c const Full(sSaved.size() + 4000);   // room for the save and its log, but not for a batch
    EXPECT_EQ(RunHost(sAll + sStats).iStatus, 5);
}

TEST(ZqHost, KeepsItsWorldWhenTheTerminalGoes)
{
    TempFolder_c const Folder;
    std::string const sHost =
        TEST_EMULATOR ZQHOST_PATH " --silent --watch --media " TEST_MEDIA_FOLDER " --log " + Folder.GetPath();
    // The hang-up comes twice, and what the host prints to is gone.
    RunShell("cd " + Folder.GetPath() + "; { " + sHost
             + " & echo $! >pid; wait $!; echo $? >status; } 2>said | { grep -q Watching;"
               " exec <&-; kill -HUP $(cat pid); kill -HUP $(cat pid) 2>kill; }; wait");
    EXPECT_EQ(Folder.Read("status"), "0\n") << Folder.Read("said");
    EXPECT_GT(Folder.Read("pqx.sav").size(), 1000u);

    Result_s const Unwatched =
        RunShell("unshare -Ur sh -c 'echo 0 >/proc/sys/user/max_inotify_instances && " + sHost + " 2>&1 >/dev/null'");
    SKIP_IF(Unwatched.sOutput.find("unshare") != std::string::npos, Unwatched.sOutput);
    EXPECT_EQ(Unwatched.iStatus, 7);
    EXPECT_THAT(Unwatched.sOutput, testing::HasSubstr("raise fs.inotify.max_user_instances"));
}
#endif
