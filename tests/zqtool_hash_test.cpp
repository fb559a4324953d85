#include "tests/hash_support.h"
#include "tests/test_support.h"

namespace
{
    class ZqtoolHash : public testing::Test
    {
    protected:
        ZqtoolHash() { m_Folder.Write("abc", "abc"); }

        TempFolder_c const m_Folder;
        CurrentFolderScope_c const m_Current{ m_Folder.GetPath() };
    };
}

TEST_F(ZqtoolHash, ListsAreThoseOfSha1sum)
{
    std::filesystem::rename(m_Folder.Write("long", std::string(100000, 'x')), "we\\ird\nname");
    std::string const sList = RunTool("hash abc we*").sOutput;
    EXPECT_EQ(sList, RunShell("sha1sum abc we*").sOutput);
    EXPECT_THAT(sList, testing::StartsWith(ABC_SHA1 + std::string("  abc\n\\")));
    m_Folder.Write("list", sList);
    Result_t const Checked = RunTool("hash --check list");
    EXPECT_THAT(Checked, Ends(0, std::string("abc: OK\n\\we\\\\ird\\nname: OK\n")));
    EXPECT_EQ(RunShell("sha1sum --check list").sOutput, Checked.sOutput);
}

TEST_F(ZqtoolHash, PrintsOtherAlgorithmsAndForms)
{
    EXPECT_EQ(RunTool("hash --algorithm crc32 - <abc").sOutput, "352441c2  -\n");
    EXPECT_EQ(RunTool("hash --json abc").sOutput,
        "{\"files\":[{\"file\":\"abc\",\"algorithm\":\"sha1\",\"hash\":\"" + std::string(ABC_SHA1) + "\"}]}\n");
    EXPECT_EQ(
        RunTool("hash --text abc").sOutput, "352441c2  crc32\n00000129  name\n" + std::string(ABC_SHA1) + "  sha1\n");
}

TEST_F(ZqtoolHash, ReportsWhatDiffersAndWhatIsNoList)
{
    std::string const sNoHash = "list(1): not a hash of 8 or 40 digits";
    for (auto const & [sList, sExpected] : Rows_t<std::string, std::string>{ { "", "list: the list is empty\n" },
             { "352441C2 *abc\r\n352441c3  abc\n", "abc: OK\nabc: FAILED\n" },
             { std::string(ABC_SHA1) + "  absent\n", "absent: FAILED, there is no such file\n" },
             { "352441c2 abc\n", sNoHash }, { "12  abc\n", sNoHash }, { "352441c2  \n", sNoHash },
             { "352441c2  abc" + std::string(1, '\0') + "d\n", sNoHash }, { "\\352441c2  a\\bc\n", sNoHash } })
    {
        m_Folder.Write("list", sList);
        EXPECT_THAT(RunTool("hash --check list"), Ends(1, testing::HasSubstr(sExpected))) << sList;
    }
    m_Folder.Write("crc", "352441c2  abc\n");
    // Statuses: 0 all files agree; 1 a file differs or can't be read, or its list is wrong; 2 wrong arguments.
    for (auto const & [sArguments, iStatus] :
        Rows_t<std::string, int>{ { "absent abc", 1 }, { ".", 1 }, { "--check absent", 1 }, { "--check absent abc", 2 },
            { "--check crc", 0 }, { "--algorithm crc32 --check crc", 0 }, { "--algorithm sha1 --check crc", 1 },
            { "- < .", 1 }, { "- <&-", 1 }, { "--check - < .", 1 }, { "--algorithm name abc", 2 },
            { "--algorithm md5 abc", 2 }, { "", 2 } })
    {
        EXPECT_EQ(RunTool("hash " + sArguments).iStatus, iStatus) << sArguments;
    }
}
