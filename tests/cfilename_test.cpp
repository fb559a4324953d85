#include "zqcore/cfilename.h"

#include <gtest/gtest.h>

TEST(FileName, SplitsAPathIntoFourParts)
{
    struct Row_s
    {
        char const *szPath, *szDrive, *szDir, *szName, *szExt;
    };
    std::string const sLong(300, 'n');
    std::string const sCut(255, 'n');
    for (Row_s const & Row : { Row_s{ "c:\\media\\maps/town.tar.gz", "c:", "\\media\\maps/", "town.tar", ".gz" },
             { "c:town", "c:", "", "town", "" }, { "/a.b/c", "", "/a.b/", "c", "" }, { "a.b\\", "", "a.b\\", "", "" },
             { ".profile", "", "", "", ".profile" }, { "x.", "", "", "x", "." }, { "", "", "", "", "" },
             { "d:", "d:", "", "", "" }, { sLong.c_str(), "", "", sCut.c_str(), "" } })
    {
        FileName_c const Name(Row.szPath);
        EXPECT_STREQ(Name.GetDrive(), Row.szDrive) << Row.szPath;
        EXPECT_STREQ(Name.GetDir(), Row.szDir) << Row.szPath;
        EXPECT_STREQ(Name.GetName(), Row.szName) << Row.szPath;
        EXPECT_STREQ(Name.GetExt(), Row.szExt) << Row.szPath;
        EXPECT_STREQ(Name.GetFileName(), Name.GetName() + Name.GetExt()) << Row.szPath;
    }
}
