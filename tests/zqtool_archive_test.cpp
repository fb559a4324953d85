#include "tests/archive_support.h"
#include "tests/test_support.h"

#include <sstream>

using namespace std::string_literals;

namespace
{
    using testing::HasSubstr;

    // Returns the bytes of an example of docs/formats.md.
    std::string Example(std::string const & sName)
    {
        std::string sBytes;
        std::istringstream Digits(DumpOfPage(FORMATS_PAGE, sName));
        for (std::string sByte; Digits >> sByte;)
        {
            sBytes += static_cast<char>(std::stoi(sByte, nullptr, 16));
        }
        return sBytes;
    }

    // Returns the bytes with their CRC-32 appended, as a save ends.
    std::string WithChecksum(std::string sBytes)
    {
        std::uint32_t const dwCrc = PlainCrc32(sBytes);
        return sBytes.append(reinterpret_cast<char const *>(&dwCrc), sizeof dwCrc);
    }

    // Returns the bytes after sNew has replaced those at nAt.
    std::string Changed(std::string sBytes, std::size_t nAt, std::string const & sNew)
    {
        return sBytes.replace(nAt, sNew.size(), sNew);
    }

    class ZqtoolArchive : public testing::Test
    {
    protected:
        // Shows a file. Expects the status iStatus. Returns what is printed, without the path.
        std::string Shown(
            std::string const & sName, std::string const & sBytes, int iStatus, std::string const & sOptions)
        {
            std::string const sFile = m_Folder.Write(sName, sBytes);
            Result_t const Result = RunTool("archive " + sOptions + " " + sFile);
            EXPECT_EQ(Result.iStatus, iStatus) << Result.sOutput;
            return Without(Result.sOutput, sFile);
        }

        TempFolder_c m_Folder;
        std::string m_sNames = "--names " + m_Folder.Write("names.txt", "# names\nABC\r\n Looks\nEmpty\nValue\n");
    };
}

TEST_F(ZqtoolArchive, ShowsThePartsThatAreRecognised)
{
    std::string const sArchive = Example("archive");
    EXPECT_EQ(Shown("a", sArchive, 0, m_sNames),
        ": archive, 64 bytes, version 1.3\n"
        "00000004  label \"ABC\"\n"
        "00000008  64 00 00 00 00 00 00 00 00 00 F8 3F              d..........?\n"
        "00000014  chunk \"Looks\", 21 bytes\n"
        "0000001C    text \"Ogre\"\n"
        "00000025    00 00 80 3F 00 00 00 40 00 00 40 40              ...?...@..@@\n"
        "00000031  chunk \"Empty\", 0 bytes\n"
        "00000039  00 00 00 00 00 80 3E                             ......>\n");
    EXPECT_EQ(Shown("a", Example("graph"), 0, ""), ": archive, 69 bytes, version 0.1\n"
                                                   "00000004  object graph\n"
                                                   "00000008  static objects: 1\n"
                                                   "00000010  46 02 00 00                                      F...\n"
                                                   "00000014  address #583\n"
                                                   "0000001C  pointer null\n"
                                                   "00000024  object #584 of class \"Unit\"\n"
                                                   "00000035    07 00 00 00                                      ....\n"
                                                   "00000039  end of \"Unit\"\n"
                                                   "0000003D  pointer #584\n");
    EXPECT_EQ(Shown("a", sArchive.substr(0, 4) + sArchive.substr(0x14, 0x25), 0, ""),   // chunks alone
        ": archive, 41 bytes, version 1.3\n"
        "00000004  chunk 0x34EABBF7, 21 bytes\n"
        "0000000C    text \"Ogre\"\n"
        "00000015    00 00 80 3F 00 00 00 40 00 00 40 40              ...?...@..@@\n"
        "00000021  chunk 0xA90612C0, 0 bytes\n");
    EXPECT_EQ(Shown("c.bin", Example("filesystemcache"), 0, ""),
        ": cache, 111 bytes, version 1.2\nThis is a cache of the file system: zqtool cache \n");
    std::string const sLong = "\3\0\1\0"s + std::string(70, '\x7F');
    EXPECT_THAT(Shown("a", sLong, 0, ""), testing::EndsWith("00000044  6 more bytes (--raw)\n"));
    EXPECT_THAT(Shown("a", sLong, 0, "--raw"),
        testing::EndsWith("00000044  7F 7F 7F 7F 7F 7F                                ......\n"));
    EXPECT_EQ(Shown("s.sav", Example("save"), 0, m_sNames + " --json"),
        R"({"files":[{"file":"","kind":"save","bytes":32,"version":"1.3","state":"sound","why_not":"","parts":[)"
        R"({"offset":4,"bytes":8,"depth":0,"kind":"chunk","name":"Value","crc":3702945584,"payload":4},)"
        R"({"offset":12,"bytes":4,"depth":1,"kind":"bytes","hex":"07000000"}],"problems":[]}]})"
        "\n");
}

TEST_F(ZqtoolArchive, ReportsDamageWithItsOffsetAndTheStateOfASave)
{
    std::string const sArchive = Example("archive"), sGraph = Example("graph"), sSave = Example("save");
    // Without sExpected the tool finds nothing wrong.
    for (auto const & [sName, sBytes, sExpected] :
        Rows_t<std::string, std::string, std::string>{ { "a", "", ": byte 0x0: the archive ends before its version\n" },
            { "a", sArchive.substr(0, 0x2A), ": byte 0x18: chunk \"Looks\" has 21 bytes, 14 are left\n" },
            { "a", sArchive.substr(0, 0x17), "" },
            { "a", sArchive.substr(0, 0x1A), ": byte 0x14: chunk \"Looks\" has no length\n" },
            { "a", Changed(sArchive, 0x18, "\xFF\xFF\xFF\xFF"), ": byte 0x18: chunk \"Looks\" was never finished\n" },
            { "a", Changed(sArchive, 0x18, "\3"), ": byte 0x18: chunk \"Looks\" has a length below 4\n" },
            { "a", Changed(sArchive, 0x18, "\x28"), ": byte 0x31: chunk \"Empty\" begins in another chunk\n" },
            { "a", sGraph.substr(0, 0x37), ": byte 0x28: object \"Unit\" does not end\n" },
            { "a", Changed(sGraph, 0x2C, "\x40"), ": byte 0x2C: no name of a class is here\n" },
            { "a", Changed(sGraph, 0x41, "\x59\x63\x58\x02"), ": byte 0x41: an object ends that did not begin\n" },
            { "a", Changed(sGraph, 0x3D, "\1\1\1\1"), ": byte 0x3D: identifier 16843009 is out of range\n" },
            { "one.sav5", sArchive, "" },
            { "a.png", "\x89PNG\r\n\x1A\n",
                ": byte 0x0: this seems to be no archive: nothing in it but texts is recognised\n" },
            { "s.sav.1", sSave.substr(0, 0x14), ": damaged: it has no seal\n" },
            { "a", Changed(sSave, 0xD, "x"), ": damaged: its contents do not match its seal\n" },
            { "a", WithChecksum(Changed(sSave.substr(0, 28), 0x14, "\x11")),
                ": damaged: it is not of the length that its seal says\n" },
            { "a", WithChecksum(Changed(sSave.substr(0, 28), 0x13, "2")), ": newer: its seal is of a newer version\n" },
            { "a", WithChecksum(sSave.substr(0, 16)),
                ": older: it has the checksum of an older program and no seal\n" } })
    {
        EXPECT_THAT(Shown(sName, sBytes, sExpected.empty() ? 0 : 1, m_sNames), HasSubstr(sExpected));
    }
    EXPECT_THAT(Shown("a", sGraph.substr(0, 4) + sGraph.substr(0x28, 15), 1, m_sNames),
        testing::AllOf(HasSubstr(": byte 0x4: no identifier precedes this label of an object graph\n"),
            testing::Not(HasSubstr("does not end"))));
    EXPECT_THAT(
        Shown("a", sSave, 1, "--reads 1.2"), HasSubstr("newer: it is of version 1.3, and this program reads 1.2\n"));
    EXPECT_THAT(Shown("a", Changed(sSave, 0xD, "x"), 1, ""), HasSubstr("16 bytes, CRC-32 0x2AAF1655, found 0x"));
}

TEST_F(ZqtoolArchive, NoPrefixAndNoChangedByteCrashesIt)
{
    std::string const sGraph = Example("graph");
    for (std::size_t i = 0; i < sGraph.size(); ++i)
    {
        m_Folder.Write("many/" + std::to_string(i), sGraph.substr(0, i));
        m_Folder.Write("many/x" + std::to_string(i), Changed(sGraph, i, "\xFE"));
    }
    EXPECT_THAT(RunTool("archive --json " + m_Folder.Join("many/*")).iStatus, testing::AnyOf(0, 1));
}

TEST_F(ZqtoolArchive, MisuseAndUnreadableFilesHaveTheirStatus)
{
    // Statuses: 1 a file can't be read, 2 wrong arguments.
    for (auto const & [sArguments, iStatus] :
        Rows_t<std::string, int>{ { "", 2 }, { "--reads x a", 2 }, { "--reads '2. 29' a", 2 }, { "--reads +2.29 a", 2 },
            { m_Folder.Join("absent"), 1 }, { m_Folder.GetPath(), 1 } })
    {
        EXPECT_EQ(RunTool("archive " + sArguments).iStatus, iStatus) << sArguments;
    }
}
