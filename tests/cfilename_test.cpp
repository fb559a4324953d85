#include "tests/test_support.h"
#include "zqcore/cfilename.h"

#include <array>

TEST(FileName, SplitsAPathIntoFourParts)
{
    std::string const sLong(300, 'n');
    std::string const sCut(255, 'n');
    for (auto const & [szPath, szDrive, szDir, szName, szExt] : std::initializer_list<std::array<char const *, 5>>{
             { "c:\\media\\maps/town.tar.gz", "c:", "\\media\\maps/", "town.tar", ".gz" },
             { "c:town", "c:", "", "town", "" }, { "/a.b/c", "", "/a.b/", "c", "" }, { "a.b\\", "", "a.b\\", "", "" },
             { ".profile", "", "", "", ".profile" }, { "x.", "", "", "x", "." }, { "", "", "", "", "" },
             { "d:", "d:", "", "", "" }, { sLong.c_str(), "", "", sCut.c_str(), "" } })
    {
        FileName_c const Name(szPath);
        EXPECT_STREQ(Name.GetDrive(), szDrive) << szPath;
        EXPECT_STREQ(Name.GetDir(), szDir) << szPath;
        EXPECT_STREQ(Name.GetName(), szName) << szPath;
        EXPECT_STREQ(Name.GetExt(), szExt) << szPath;
        EXPECT_STREQ(Name.GetFileName(), Name.GetName() + Name.GetExt()) << szPath;
    }
}
