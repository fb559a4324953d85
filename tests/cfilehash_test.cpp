#include "zqcore/cfilehash.h"

#include "tests/hash_support.h"
#include "tests/media_fixture.h"

using namespace std::string_literals;

namespace
{
    using FileHashTest = MediaTest;

    // Builds the hash and returns its bytes.
    std::string MediaHash(bool bAllCsv)
    {
        FileBuildMediaHash(bAllCsv);
        return std::string(reinterpret_cast<char const *>(FileGetMediaHash()), SHA1_HASH_SIZE);
    }
}

TEST_F(FileHashTest, CoversNamesAndSizesOfTheTables)
{
    EXPECT_EQ(MediaHash(true), Sha1Of(""));
    Make({ { "top.csv", "12345" }, { "Declarations/B.CSV", "12" }, { "my_DECLARATIONS/sub/a.Csv", "1" },
        { "Declarations/c.txt", "" }, { "declarations2/d.csv", "123" }, { "Declarations/csv", "" } });
    Scan();
    FileStream("top.csv")->pPath = nullptr;   // without a folder, so no declaration
    EXPECT_EQ(MediaHash(false), Sha1Of("b.csv\2\0\0\0a.csv\1\0\0\0"s));
    EXPECT_EQ(MediaHash(true), Sha1Of("top.csv\5\0\0\0d.csv\3\0\0\0b.csv\2\0\0\0a.csv\1\0\0\0"s));
    m_Folder.Write("Declarations/B.CSV", "xyz");
    EXPECT_EQ(MediaHash(false), Sha1Of("b.csv\2\0\0\0a.csv\1\0\0\0"s)) << "the new size is not seen yet";
    FileClose(FileOpen("b.csv"));
    EXPECT_EQ(MediaHash(false), Sha1Of("b.csv\3\0\0\0a.csv\1\0\0\0"s));
}
