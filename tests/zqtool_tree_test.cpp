#include "tests/test_support.h"

#include <nlohmann/json.hpp>

namespace
{
    namespace fs = std::filesystem;
    using testing::EndsWith, testing::HasSubstr;

    // Fixture with media that hold findings of many kinds, in the current folder.
    class ZqtoolTree : public testing::Test
    {
    protected:
        ZqtoolTree()
        {
            for (auto const & [szName, szText] :
                Rows_t<char const *, char const *>{ { "a/Bay.map", "one" }, { "B/bay.map", "two2" },
                    { "empty.txt", "" }, { "A.txt", "1" }, { "a.txt", "2" }, { "Foo/1.txt", "1" }, { "foo/2.txt", "2" },
                    { "q:x", "" }, { "bad\xFF.txt", "" }, { "gamedata/storm/s.txt", "1" },
                    { "gamedata/pqx/p.txt", "22" }, { "_configdependeddata/lo/lo.txt", "333" }, { ".svn/entries", "1" },
                    { "e\033[31m\n1 found.txt", "" } })
            {
                m_Folder.Write(std::string("media/") + szName, szText);
            }
            m_Folder.Write("media/" + std::string(130, 'n'), "1");
            m_Folder.MakeFolder("media/" + std::string(200, 'p') + "/" + std::string(100, 'p'));
            fs::create_symlink("nothing", m_Folder.Join("media/gone"));
            fs::create_directory_symlink("../a", m_Folder.Join("media/B/loop"));
            MakePipe(m_Folder.Join("media/pipe"));
        }

        TempFolder_c m_Folder;
        CurrentFolderScope_c m_Current{ m_Folder.GetPath() };
    };
}

TEST_F(ZqtoolTree, ShowsWhatTheScanMakesOfAFolder)
{
    Result_t const Result = RunTool("tree media/ --game storm");
    EXPECT_THAT(Result, Ends(1, HasSubstr("media: 7 files in 8 folders, 7 bytes, scanned in ")));
    EXPECT_EQ(Result.sOutput.find('\033'), std::string::npos) << "names command no terminal";
    EXPECT_EQ(Result.sOutput.find("\n1 found"), std::string::npos) << "names begin no line";
    EXPECT_EQ(Result.sOutput.find("hidden by an archive"), std::string::npos);
    for (std::string const sLines : { "duplicates (1): a bare name opens the file found first\n"
                                      "  media/B/bay.map  another file has its name: media/a/Bay.map\n",
             "names that differ in case only (2)\n"
             "  media/A.txt  it differs from another file in case only: media/a.txt\n"
             "  media/Foo    it differs from another entry in case only: media/foo\n",
             "  it has no bytes\n", "not entered\n  media/gone  it leads nowhere\n",
             "not entered\n  media/bad\xEF\xBF\xBD.txt  its name is not UTF-8\n"
             "  media/q:x       its name begins like a drive\n",
             "pp  its path is too long\n", "media/pipe  it is no regular file\n", "\n11 found\n",
             "media/B/loop  it is a link to a folder of this scan\n",
             "media/_configdependeddata/lo  it is of another configuration: 1 file, 3 bytes\n",
             "media/gamedata/pqx  it is of another game: 1 file, 2 bytes\n",
             "media/.svn  its name is excluded: 1 file, 1 byte\n" })
    {
        EXPECT_THAT(Result.sOutput, HasSubstr(sLines));
    }
    EXPECT_THAT(Result.sOutput,
        HasSubstr(std::string(130, 'n') + "  its name is cut to 127 characters: " + std::string(127, 'n') + "\n"));

    auto const Json = nlohmann::json::parse(RunTool("tree media --config lo --json").sOutput);
    EXPECT_EQ(Json["files"], 9);
    EXPECT_EQ(Json["found"].size(), 11u);
    EXPECT_EQ(Json["found"][0], (nlohmann::json{ { "kind", "duplicate" }, { "path", "media/B/bay.map" },
                                    { "why", "another file has its name" }, { "other", "media/a/Bay.map" } }));
    EXPECT_EQ(RunTool("tree media/gamedata/pqx").iStatus, 0);
}

TEST_F(ZqtoolTree, ReportsEachEntryOnce)
{
    std::string const sCut(130, 'n');
    for (std::string const sName : { "Maps/a", "maps/a", "maps/A", "Maps/b" })
    {
        m_Folder.Write("twins/" + sName, "1");
    }
    m_Folder.Write("cut/" + sCut, "");
    EXPECT_THAT(RunTool("tree twins"),
        Ends(1, EndsWith("names that differ in case only (2)\n"
                         "  twins/Maps    it differs from another entry in case only: twins/maps\n"
                         "  twins/maps/A  it differs from another file in case only: twins/maps/a\n"
                         "\n2 found\n")));
    EXPECT_THAT(RunTool("tree cut"),
        Ends(1, EndsWith("\nnames that are cut (1): such a file can't be opened\n  cut/" + sCut
                         + "  its name is cut to 127 characters: " + sCut.substr(3) + "\n\n1 found\n")));
    for (auto const & [szPaths, szOutput] :
        Rows_t<char const *, char const *>{ { "media ./media/", "./media: it is the same as media\n" },
            { "media media/a", "media/a: it is in media\n" }, { "media/B/../a .", ".: it holds media/B/../a\n" } })
    {
        EXPECT_THAT(RunTool(std::string("tree ") + szPaths), Ends(1, szOutput));
    }
}

TEST_F(ZqtoolTree, SaysWhichFileANameOpensAndRefusesBadArguments)
{
    m_Folder.Write("empty/none.txt", "");
    std::filesystem::resize_file(m_Folder.Write("empty/huge.bin", ""), std::uintmax_t{ 1 } << 31);
    // Statuses: 0 the name opens a file and no other file has it, 1 otherwise.
    for (auto const & [szArguments, iStatus, szOutput] : Rows_t<char const *, int, char const *>{
             { "--find Any/BAY.map media", 1,
                 "Any/BAY.map opens media/a/Bay.map, 3 bytes\n  not media/B/bay.map: another file has its name\n" },
             { "--find s.txt media", 0, "s.txt opens media/gamedata/storm/s.txt, 1 byte\n" },
             { "--find p.txt --game storm media", 1,
                 "p.txt opens no file\n  not media/gamedata/pqx/p.txt: its folder is left out: media/gamedata/pqx, "
                 "it is of another game\n" },
             { "--find B/bay.map --relative media", 0,
                 "B/bay.map opens media/B/bay.map, 4 bytes\n  not media/a/Bay.map: it opens by another name\n" },
             { "--find no media", 1, "no opens no file\n" },
             { "--find none.txt empty", 0, "none.txt opens empty/none.txt, 0 bytes\n" },
             { "--find huge.bin empty", 1,
                 "huge.bin opens no file\n  not empty/huge.bin: it has 2 GiB or more and can't be opened\n" },
             { "nothing", 1, "nothing: there is no such folder\n" },
             { "--find bay.map --json media/a", 0,
                 "{\"name\":\"bay.map\",\"opens\":\"media/a/Bay.map\",\"bytes\":3,\"others\":[]}\n" } })
    {
        EXPECT_THAT(RunTool(std::string("tree ") + szArguments), Ends(iStatus, szOutput)) << szArguments;
    }
    for (char const * szArguments : { "", "--game Storm media", "--split \\a media", "--game a/b media" })
    {
        EXPECT_EQ(RunTool(std::string("tree ") + szArguments).iStatus, 2) << szArguments;
    }
}

TEST_F(ZqtoolTree, KnowsLargeFilesAndThoseThroughALink)
{
    std::string const sName(127, 'n');   // the longest that is not cut
    m_Folder.Write("outside/" + sName, "");
    m_Folder.Write("large/big.bin", "");
    fs::resize_file(m_Folder.Join("large/big.bin"), std::uintmax_t{ 1 } << 32);
    fs::create_directory_symlink("../outside", m_Folder.Join("large/link"));
    EXPECT_THAT(
        RunTool("tree large"), Ends(1, HasSubstr("large: 2 files in 2 folders, 4294967296 bytes, scanned in ")));
    EXPECT_THAT(
        RunTool("tree large").sOutput, EndsWith("\n  large/link/" + sName
                                                + "  it has no bytes\n\n"
                                                  "files of 2 GiB or more (1): they can't be opened\n  large/big.bin  "
                                                  "it has 2 GiB or more and can't be opened\n\n2 found\n"));
}

TEST_F(ZqtoolTree, SaysThatATreeIsNotMadeForBareNames)
{
    for (int i = 0; i < 30; ++i)
    {
        m_Folder.Write("many/" + std::to_string(i) + "/readme.txt", "1");
    }
    Result_t const Bare = RunTool("tree many");
    EXPECT_THAT(Bare.sOutput, HasSubstr("29 of 30 files have names that are taken"));
    EXPECT_THAT(Bare.sOutput, HasSubstr("  and 9 more, which --all shows\n"));
    EXPECT_THAT(RunTool("tree --relative many"), Ends(0, HasSubstr("many: 30 files in 31 folders")));
}

TEST_F(ZqtoolTree, ReportsWhatCantBeRead)
{
    NEEDS_NOBODY;
    m_Folder.MakeFolder("many/0");
    m_Folder.Write("many/1/readme.txt", "1");
    fs::permissions(m_Folder.Join("many/0"), fs::perms::none);
    fs::permissions(m_Folder.Join("many/1/readme.txt"), fs::perms::none);
    auto const fnRun = [] { return RunTool("tree --relative many >out.txt").iStatus; };
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    int const iStatus = StatusAsNobody(fnRun);
    fs::permissions(m_Folder.Join("many/0"), fs::perms::all);
    EXPECT_EQ(iStatus, 1);
    EXPECT_THAT(m_Folder.Read("out.txt"), HasSubstr("not readable (2)\n  many/0             it can't be read\n"
                                                    "  many/1/readme.txt  it can't be opened\n"));
}
