#include "tests/test_support.h"

#include <nlohmann/json.hpp>

namespace
{
    namespace fs = std::filesystem;
    using testing::HasSubstr;

    class ZqtoolCache : public testing::Test
    {
    protected:
        ZqtoolCache()
        {
            for (char const * szName : { "gone.txt", "maps/bay.map", "maps/old.map", "units/ogre.csv", "profiles/me" })
            {
                m_Folder.Write(std::string("media/") + szName, "12345");
            }
        }

        TempFolder_c m_Folder;
        CurrentFolderScope_c m_Current{ m_Folder.GetPath() };
    };
}

TEST_F(ZqtoolCache, BuildsAndComparesWithTheTree)
{
    std::string const sFacts = ": version 1.2, 3 folders, 4 files of 20 bytes, with the times of its folders\n";
    for (std::string const sCache : { "other.bin", "media/filesystemcache.bin" })
    {
        EXPECT_THAT(RunTool("cache --build media/ ./" + sCache), Ends(0, "./" + sCache + sFacts)) << "no profiles";
        EXPECT_THAT(RunTool("cache --check --root media " + sCache),
            Ends(0, sCache + sFacts + "compared with media\nit fits its tree\n"));
    }
    EXPECT_THAT(RunTool("cache --list other.bin").sOutput, HasSubstr("  maps/bay.map\n"));

    fs::remove(m_Folder.Join("media/gone.txt"));
    fs::rename(m_Folder.Join("media/maps/old.map"), m_Folder.Join("media/units/old.map"));
    m_Folder.Write("media/units/ogre.csv", "123456789");
    m_Folder.Write("media/new\n\033.txt", "1");
    EXPECT_THAT(RunTool("cache --check media/filesystemcache.bin"),
        Ends(1, "media/filesystemcache.bin" + sFacts
                    + "compared with media\nmissing   gone.txt\nnew       new\xEF\xBF\xBD\xEF\xBF\xBD.txt\n"
                      "changed   units/ogre.csv: 5 bytes, now 9\nmoved     maps/old.map: now units/old.map\n"
                      "outdated  a start that compares the folders would scan: \"\\maps\\\" has changed\n"));
    for (int i = 0; i < 30; ++i)
    {
        m_Folder.Write("media/more/" + std::to_string(i), "1");
    }
    EXPECT_THAT(RunTool("cache --check media/filesystemcache.bin").sOutput, HasSubstr("new       and 12 more, which"));
    EXPECT_THAT(RunTool("cache --check --all media/filesystemcache.bin").sOutput, HasSubstr("new       more/9\n"));
    auto const Json = nlohmann::json::parse(RunTool("cache --check --list --json media/filesystemcache.bin").sOutput);
    EXPECT_EQ(Json["check"]["missing"], nlohmann::json::array({ "gone.txt" }));
    EXPECT_EQ(Json["list"].size(), 4u);
}

TEST_F(ZqtoolCache, RefusesWhatIsNoCacheOrNoWholeTree)
{
    ASSERT_EQ(RunTool("cache --build media good.bin").iStatus, 0);
    m_Folder.Write("short.bin", m_Folder.Read("good.bin").substr(0, 40));
    m_Folder.Write("second.bin", std::string("\0\0\2\0", 4) + "more");
    fs::create_symlink("loop", m_Folder.Join("loop"));
    // Statuses: 1 a file is damaged, or can't be read or written, 2 wrong arguments.
    for (auto const & [szArguments, iStatus, szOutput] : Rows_t<char const *, int, char const *>{
             { "short.bin", 1, "short.bin: damaged at byte 39: no whole folder record\n" },
             { "second.bin", 1, "second.bin: damaged at byte 0: a cache of another major version\n" },
             { "none.bin", 1, "none.bin: there is no such file\n" }, { "loop", 1, "loop: it can't be read\n" },
             { "media", 1, "media: this is no regular file\n" },
             { "/dev/zero", 1, "/dev/zero: this is no regular file\n" },
             { "--build media media/gone.txt", 1,
                 "media/gone.txt: it is no cache of this version that can be read, so it is not replaced\n" },
             { "--build nothing new.bin", 1, "nothing: there is no such folder\n" },
             { "--build good.bin new.bin", 1, "good.bin: it is no folder\n" },
             { "--check --root good.bin good.bin", 1, "good.bin: it is no folder\n" },
             { "--build media media/gone.txt/x", 1, "media/gone.txt/x: it can't be written\n" },
             { "--build media --check good.bin", 2, "--check excludes --build" }, { "", 2, "FILE is required" } })
    {
        EXPECT_THAT(RunTool(std::string("cache ") + szArguments), Ends(iStatus, HasSubstr(szOutput))) << szArguments;
    }
    NEEDS_NOBODY;
    fs::permissions(m_Folder.Join("media/maps"), fs::perms::none);
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    auto const fnRun = [] { return RunTool("cache --build media part.bin >out.txt").iStatus; };
    int const iStatus = StatusAsNobody(fnRun);
    fs::permissions(m_Folder.Join("media/maps"), fs::perms::all);
    EXPECT_EQ(iStatus, 1);
    EXPECT_EQ(m_Folder.Read("out.txt"),
        "media/maps: it can't be read\n"
        "part.bin: no cache is written, since the scan missed 1 file or folder: zqtool tree lists them\n");
    EXPECT_FALSE(fs::exists(m_Folder.Join("part.bin")));
}
