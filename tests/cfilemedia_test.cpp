#include "platform/registry.h"
#include "tests/machine_support.h"
#include "tests/media_fixture.h"
#include "zqcore/capp.h"
#include "zqcore/cfileasync.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfiletrack.h"

// Fixture with a registry of its own and a folder "current". It restores the settings of the media.
class FileMediaTest : public MediaTest
{
protected:
    FileMediaTest()
    {
        plat::RegistrySetFolder(plat::RegistryTree_e::Machine, m_Folder.MakeFolder("registry").c_str());
        m_Folder.MakeFolder("current");
    }

    ~FileMediaTest() override
    {
        plat::RegistrySetFolder(plat::RegistryTree_e::Machine, nullptr);
        g_sGameFolder = "";
        FileSetSplit("\\gamedata\\");   // the location, which the next call keeps
        FileSetSplit(nullptr);
        FileSetMediaTemplate("media*.zq");
    }

    // Writes the registry's text for the media root, with a terminator as other programs store it.
    void WriteInstallDir(std::string const & sText) const
    {
        ASSERT_TRUE(plat::RegistryWrite(plat::RegistryTree_e::Machine, m_sKey.c_str(), "InstallDir",
            plat::RegistryType_e::Text, sText.c_str(), sText.size() + 1));
    }

    std::string const m_sKey = std::string("SOFTWARE\\Brindle Harbor\\") + g_szApplicationName + "\\Install";
};

TEST_F(FileMediaTest, TakesOnlyATemplateWithOneStarBeforeADot)
{
    for (auto const & [szTemplate, bTaken] : Rows_t<char const *, bool>{ { "pack*.pk", true }, { "*.z", true },
             { "media.zq", false }, { "a*b*.zq", false }, { "media*zq", false }, { "media*", false } })
    {
        FileSetMediaTemplate("previous*.zq");
        EXPECT_EQ(FailedConditions([sz = szTemplate] { FileSetMediaTemplate(sz); }).empty(), bTaken) << szTemplate;
        EXPECT_EQ(FileGetMediaTemplate(), bTaken ? szTemplate : "previous*.zq") << szTemplate;
    }
}

TEST_F(FileMediaTest, TheSplitLetsOneGameIn)
{
    for (auto const & [szLocation, szGame, szFolder, bExcluded] :
        Rows_t<char const *, char const *, char const *, bool>{ { "\\g\\", "pqx\\", "c:\\g\\", false },
            { "\\g\\", "pqx\\", "c:\\g\\pqx\\in\\", false }, { "\\g\\", "pqx\\", "c:\\g\\mod\\", true },
            { "\\g\\", "pqx\\", "c:\\x\\mod\\", false }, { "\\g\\", "PQX\\", "c:\\g\\pqx\\", false },
            { "\\g\\", "PQX\\", "c:\\g\\pqx\\in\\", true }, { nullptr, "pqx\\", "c:\\g\\mod\\", false } })
    {
        g_sGameFolder = szGame;
        FileSetSplit(szLocation);
        EXPECT_EQ(FileSplitExcludes(szFolder), bExcluded) << szFolder << szGame;
    }
    EXPECT_NE(FailedConditions([] { FileSetSplit("gamedata\\"); }), "");
    EXPECT_FALSE(g_bSplit);
}

TEST_F(FileMediaTest, FindsTheMediaRootByThreeSourcesInOrder)
{
    CurrentFolderScope_c const Scope(m_Folder.Join("current"));
    EXPECT_EQ(GetPQXMediaPath(false), "");
    EXPECT_DEATH(
        {
            g_silentMode = true;
            LogToStandardError();
            GetPQXMediaPath(true);
        },
        "Error: no MEDIA.ZQ file, no PQXMEDIA environment variable, no registry key.\nPlease check your installation.");
    WriteInstallDir("/not/there\\");
    EXPECT_EQ(GetPQXMediaPath(false), "/not/there") << "the registry's text, though it names nothing";
    using Type_e = plat::RegistryType_e;
    for (auto const & [nBytes, nShown, eType] : Rows_t<std::size_t, std::size_t, Type_e>{
             { 256, 255, Type_e::Text }, { 257, 0, Type_e::Text }, { 100, 100, Type_e::Binary } })
    {
        std::string const sLong = "/" + std::string(nBytes - 1, 'n');
        ASSERT_TRUE(plat::RegistryWrite(
            plat::RegistryTree_e::Machine, m_sKey.c_str(), "InstallDir", eType, sLong.c_str(), nBytes));
        EXPECT_EQ(GetPQXMediaPath(false), sLong.substr(0, nShown).c_str()) << "cut, or too long to be read";
    }
    FileSetMediaTemplate("packs*.zq");
    m_Folder.Write("current/packs.zq", "");
    EXPECT_EQ(GetPQXMediaPath(true), ".");
    WriteInstallDir(m_Folder.GetPath() + "\\");
    EXPECT_EQ(GetPQXMediaPath(true), m_Folder.GetPath().c_str());
    for (auto const & [szPath, szRoot] : Rows_t<char const *, char const *>{
             { "/nowhere/at\\all\\", "/nowhere/at\\all" }, { "/a/", "/a" }, { "a\\\\", "a\\" } })
    {
        SetPQXMediaPath(szPath);
        EXPECT_EQ(GetPQXMediaPath(true), szRoot) << "one separator less";
    }
}

TEST_F(FileMediaTest, TheModuleFillsTheTablesAndEmptiesThem)
{
    CurrentFolderScope_c const Scope(m_Folder.Join("current"));
    Make({ { "media/a.txt", "x" }, { "media/.SVN/b.txt", "" }, { "media/_svn/b.txt", "" }, { "media/CVS/b.txt", "" },
        { "media/$$$pqxautosave/b.txt", "" }, { "media/$$$pqxbackup/b.txt", "" }, { "media/Message.LOG", "" },
        { "media/.cvsignore", "" }, { "media/gamedata/pqx/p.txt", "" }, { "media/gamedata/mod/m.txt", "" } });
    std::string const sMedia = m_Folder.Join("media");
    m_Folder.Write("current/media.zq", "");
    std::ptrdiff_t const nBlocks = FileBlocks();
    for (auto const & [sSetting, sRegistry, szSplit, bRead, szKeys, sSource] :
        Rows_t<std::string, std::string, char const *, bool, char const *, std::string>{
            { sMedia, sMedia, "\\gamedata\\", true, "a.txt p.txt", "commandline - \"" + sMedia },
            { "", sMedia + "\\", nullptr, true, "a.txt m.txt p.txt", "registry - \"" + m_sKey },
            { "", sMedia, nullptr, false, "", "registry - \"" + m_sKey },
            { "", "", nullptr, true, "media.zq", "main pack - \"media.zq" } })
    {
        SCOPED_TRACE(sSource);
        m_Log.Clear();
        SetPQXMediaPath(sSetting.c_str());
        WriteInstallDir(sRegistry);
        FileSetSplit(szSplit);
        ModuleFile_c::Get()->ReadMedia(bRead);
        g_FileOpenCallbacker.Add(NoteReport, false);
        FileStayerRegister(".txt", nullptr);
        g_dCleanNames.Add("of an earlier run");
        EXPECT_EQ(RunForKeys(), szKeys);
        EXPECT_EACH(g_dStayerExts.IsEmpty(), g_dCleanNames.IsEmpty());
        EXPECT_EQ(m_Log.Count("FS game mode: normal"), 1);
        EXPECT_EQ(m_Log.Count("Media path in " + sSource + "\""), 1) << m_Log.GetText();
        EXPECT_EQ(Keys(), "");
        EXPECT_TRUE(g_FileOpenCallbacker.IsEmpty());
        EXPECT_EQ(FileBlocks(), nBlocks);
    }
    ModuleFile_c::Get()->ReadMedia(true);
}

TEST_F(FileMediaTest, TheIdleHeartbeatReportsChangesUntilTheShutdown)
{
    NEEDS_WATCHES;
    Make({ { "a.txt", "x" }, { "b.skip", "x" } });
    SetPQXMediaPath(m_Folder.GetPath().c_str());
    g_FileTrackChangesCallbacker.Add(NoteReport, false);
    for (std::size_t nReported : { 1u, 2u })   // the end of the first run empties the list
    {
        s_dReported.clear();
        ASSERT_TRUE(StartModule(ModuleFile_c::Get()));
        FileTrackChanges(m_Folder.GetPath().c_str());
        if (nReported == 1)
        {
            FileTrackSetIgnoreExtList(".skip");
        }
        Make({ { "a.txt", "y" }, { "b.skip", "y" } });
        Module_c::HeartbeatAllModulesIdle();
        EXPECT_EQ(s_dReported.size(), nReported) << testing::PrintToString(s_dReported);
        Module_c::ShutdownAllModules();
        Scan();
        Make({ { "a.txt", "z" } });
        FileTrackDoWork();
        EXPECT_EQ(s_dReported.size(), nReported) << "the watch goes with the module";
    }
    g_FileTrackChangesCallbacker.Reset();
}

// Serves the next test, which runs it in a process with a command line of its own.
TEST_F(FileMediaTest, DISABLED_PrintsTheGame)
{
    CurrentFolderScope_c const Scope(m_Folder.GetPath());
    RunForKeys();
    std::printf("<%s %i>", static_cast<char const *>(g_sSplitGame), FileIsAddon());
}

TEST_F(FileMediaTest, TakesTheGameFromTheCommandLine)
{
    fs::create_symlink(fs::read_symlink("/proc/self/exe"), m_Folder.Join("t"));   // a short name leaves room
    std::string const sStart =
        m_Folder.Join("t") + " --gtest_also_run_disabled_tests --gtest_filter=*.DISABLED_PrintsTheGame ";
    constexpr std::size_t LONGEST = 255;   // characters of the command line that are searched for the game
    for (auto const & [sArguments, szResult] : Rows_t<std::string, char const *>{ { "", "<\\gamedata\\pqx\\ 0>" },
             { "a --game one --game two", "<\\gamedata\\one\\ 1>" }, { "--GAME mod", "<\\gamedata\\pqx\\ 0>" },
             { "--game", "<\\gamedata\\pqx\\ 0>" },
             { std::string(LONGEST - sStart.size(), 'x') + " --game mod", "<\\gamedata\\pqx\\ 0>" } })
    {
        EXPECT_THAT(RunShell(TEST_EMULATOR + sStart + sArguments + " 2>&1").sOutput, testing::HasSubstr(szResult))
            << sArguments;
    }
}
