#include "tests/media_fixture.h"
#include "zqcore/cfilehash.h"
#include "zqcore/csha1.h"

using namespace std::string_literals;

using FileHashTest = MediaTest;

TEST_F(FileHashTest, CoversNamesAndSizesOfTheTables)
{
    auto const Covers = [](bool bAllCsv, std::string const & sMessage)
    {
        SHA1Context Message;
        SHA1Reset(&Message);
        SHA1Input(&Message, reinterpret_cast<unsigned char const *>(sMessage.data()), sMessage.size());
        unsigned char dDigest[SHA1_HASH_SIZE];
        SHA1Result(&Message, dDigest);
        FileBuildMediaHash(bAllCsv);
        return std::memcmp(FileGetMediaHash(), dDigest, SHA1_HASH_SIZE) == 0;
    };
    EXPECT_TRUE(Covers(true, ""));
    Make({ { "top.csv", "12345" }, { "Declarations/B.CSV", "12" }, { "my_DECLARATIONS/sub/a.Csv", "1" },
        { "Declarations/c.txt", "" }, { "declarations2/d.csv", "123" }, { "Declarations/csv", "" } });
    Scan();
    FileStream("top.csv")->pPath = nullptr;   // without a folder, so no declaration
    EXPECT_TRUE(Covers(false, "b.csv\2\0\0\0a.csv\1\0\0\0"s));
    EXPECT_TRUE(Covers(true, "top.csv\5\0\0\0d.csv\3\0\0\0b.csv\2\0\0\0a.csv\1\0\0\0"s));
    m_Folder.Write("Declarations/B.CSV", "xyz");
    EXPECT_TRUE(Covers(false, "b.csv\2\0\0\0a.csv\1\0\0\0"s)) << "the new size is not seen yet";
    FileClose(FileOpen("b.csv"));
    EXPECT_TRUE(Covers(false, "b.csv\3\0\0\0a.csv\1\0\0\0"s));
}
