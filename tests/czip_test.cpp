#include "tests/machine_support.h"
#include "tests/media_fixture.h"

#include "zqcore/cfileasync.h"
#include "zqcore/ctexterror.h"
#include "zqcore/czip.h"

#include <random>
#include <zip.h>

namespace
{
    void RunExample()
    {
#include "examples/czip_1.inl"
    }
}

class FileZipTest : public MediaTest
{
protected:
    // A change of an entry's directory record: nBytes at nAt get the value, or are reduced by nLess.
    struct Patch_s
    {
        std::size_t nAt = 0;
        std::size_t nBytes = 0;
        std::uint32_t nValue = 0;
        std::uint32_t nLess = 0;
    };
    // Offsets in an entry's directory record (APPNOTE.TXT 4.3.12). 4.4 explains the fields and their values.
    static constexpr std::size_t MADE_BY = 4, FLAGS = 8, METHOD = 10, CRC = 16, STORED = 20, SIZE = 24, ATTRIBUTES = 38,
                                 HEADER = 42, NAME = 46;
    using Entries_t = std::vector<std::pair<std::string, std::string>>;

    // Writes an archive and returns its path. An entry `=name` is stored as `name`. Others are deflated.
    std::string Zip(std::string const & sArchive, Entries_t const & dEntries)
    {
        std::string const sPath = m_Folder.Join(sArchive);
        zip_t * const pZip = zip_open(sPath.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
        for (auto const & [sMarked, sContents] : dEntries)
        {
            bool const bStored = sMarked[0] == '=';
            zip_source_t * const pSource = zip_source_buffer(pZip, sContents.data(), sContents.size(), 0);
            zip_int64_t const iEntry = zip_file_add(pZip, sMarked.c_str() + bStored, pSource, ZIP_FL_ENC_UTF_8);
            EXPECT_GE(iEntry, 0) << sMarked;
            zip_set_file_compression(
                pZip, static_cast<zip_uint64_t>(iEntry), bStored ? ZIP_CM_STORE : ZIP_CM_DEFLATE, 0);
        }
        EXPECT_EQ(zip_close(pZip), 0) << zip_strerror(pZip);
        return sPath;
    }

    // Changes the directory record of a name.
    void Patch(std::string const & sArchive, std::string const & sName, Patch_s const & Change)
    {
        std::string sBytes = m_Folder.Read(sArchive);
        std::size_t const nRecord = sBytes.rfind(sName) - NAME;
        ASSERT_EQ(sBytes.substr(nRecord, 4), "PK\1\2") << sName;
        std::uint32_t nValue = Change.nValue;
        if (Change.nLess > 0)
        {
            std::memcpy(&nValue, &sBytes[nRecord + Change.nAt], Change.nBytes);
            nValue -= Change.nLess;
        }
        std::memcpy(&sBytes[nRecord + Change.nAt], &nValue, Change.nBytes);
        m_Folder.Write(sArchive, sBytes);
    }

    bool Mount(std::string const & sArchive, ZipOrder_e eOrder = ZipOrder_e::Over, bool bRelativeNames = false)
    {
        return FileZipMount(m_Folder.Join(sArchive).c_str(), eOrder, bRelativeNames);
    }

    // Returns random letters, the same ones in each run.
    static std::string Noise(std::size_t nBytes)
    {
        std::mt19937 Random(7);
        std::string sBytes(nBytes, '\0');
        std::generate(sBytes.begin(), sBytes.end(), [&] { return "abcdefgh"[Random() & 7]; });
        return sBytes;
    }

    // Waits for the end of the request for a file.
    static void Await(char const * szName)
    {
        while (!FileAsyncIsLoadedSlow(FileStream(szName)))
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    // Opens and closes a file, and returns its contents in between.
    static std::string Opened(char const * szName)
    {
        File_c * const pFile = FileOpen(szName);
        std::string const sContents = Contents(pFile);
        FileClose(pFile);
        return sContents;
    }
};

TEST_F(FileZipTest, ReadsWholeFilesRangesAndStreamsUntilTheModuleEnds)
{
    std::string const sBig = Noise(600000);
    Zip("a.zip", { { "dir/", "" }, { "dir/Deflated.bin", sBig }, { "=stored.bin", sBig }, { "one.bin", "1" } });
    ASSERT_TRUE(Mount("a.zip"));
    EXPECT_EQ(Keys(), "deflated.bin one.bin stored.bin");
    EXPECT_EQ(Opened("any/ONE.bin"), "1");
    for (char const * szName : { "deflated.bin", "stored.bin" })
    {
        SCOPED_TRACE(szName);
        File_c * const pFile = FileStream(szName);
        std::ptrdiff_t const nBlocks = FileBlocks();
        EXPECT_TRUE(Opened(szName) == sBig);
        EXPECT_EACH(!pFile->pData, FileBlocks() == nBlocks, pFile->iReads == 1, pFile->iLength == 600000,
            pFile->ftLastWriteTime > 0, !pFile->pPath);
        std::string sBuffer(sBig.size(), '?');
        EXPECT_FALSE(pFile->Open(sBuffer.data()));
        EXPECT_TRUE(sBuffer == sBig);
        for (auto const & [nAt, nAsked, nGot] : Rows_t<std::uint32_t, std::uint32_t, std::uint32_t>{
                 { 0, 600000, 600000 }, { 300001, 5, 5 }, { 599999, 9, 1 } })
        {
            std::uint32_t nLength = nAsked;
            EXPECT_EQ(pFile->Load(nAt, reinterpret_cast<unsigned char *>(sBuffer.data()), nLength), nAsked == nGot);
            EXPECT_EACH(nLength == nGot, sBuffer.substr(0, nGot) == sBig.substr(nAt, nGot)) << nAt;
        }
        FileStored_c * const pStream = FileOpenStored(szName);
        // Origins: 0 is the start, 1 the current position, 2 the end.
        for (auto const & [nOffset, iOrigin, nAt] :
            Rows_t<long, int, std::size_t>{ { 500000, 0, 500000 }, { -450000, 1, 50010 }, { -10, 2, 599990 },
                { 0, 0, 0 }, { 300000, 1, 300010 }, { 600000, 0, 600000 }, { -600000, 2, 0 } })
        {
            char dRead[10];
            SCOPED_TRACE(nAt);
            EXPECT_EQ(pStream->SeekStored(nOffset, iOrigin), 1);
            EXPECT_EQ(pStream->TellStored(), static_cast<long>(nAt));
            std::size_t const nRead = pStream->ReadStored(dRead, 2, 5);
            EXPECT_EQ(std::string_view(dRead, nRead), std::string_view(sBig).substr(nAt, 10));
            EXPECT_EQ(pStream->IsEof(), nAt >= 599990);
        }
        EXPECT_EACH(pStream->SeekStored(1, 0) == 1, pStream->SeekStored(LONG_MAX, 1) == 0,
            pStream->SeekStored(-1, 0) == 0, pStream->FileSize() == 600000);
        pStream->CloseStored();
    }
    ASSERT_TRUE(StartModule(ModuleFile_c::Get()));
    FileAsyncOpen(FileStream("deflated.bin"), nullptr);
    Await("deflated.bin");
    EXPECT_TRUE(Contents(FileStream("deflated.bin")) == sBig);
    FileClose(FileStream("deflated.bin"));
    Module_c::ShutdownAllModules();
    EXPECT_EQ(g_dOpenTracks.GetLength(), 0) << "the end of the module unmounts";
}

TEST_F(FileZipTest, TheHeadersExampleRuns)
{
    CurrentFolderScope_c const Current(m_Folder.GetPath());
    Make({ { "media/", "" } });
    Zip("media/patch1.zip", { { "levels.csv", "one;two" } });
    RunExample();
    EXPECT_THAT(m_Log.GetText(), testing::EndsWith("media\\patch1.zip\\levels.csv has 7 bytes\n"));
}

TEST_F(FileZipTest, MountsOverOrUnderAndUnmountsWhenNothingIsInUse)
{
    Make({ { "a.txt", "folder" }, { "b.txt", "folder" } });
    ASSERT_TRUE(Scan());
    Zip("1.zip", { { "a.txt", "one" }, { "new.txt", "one" } });
    Zip("2.zip", { { "sub/a.txt", "two" }, { "sub/b.txt", "two" } });
    ASSERT_TRUE(Mount("1.zip"));
    ASSERT_TRUE(Mount("2.zip", ZipOrder_e::Under, true));
    EXPECT_EQ(Keys(), "a.txt b.txt new.txt sub\\a.txt sub\\b.txt");
    EXPECT_EACH(Opened("a.txt") == "one", Opened("b.txt") == "folder", Opened("sub/A.txt") == "one",
        Opened("sub\\b.txt") == "folder", !Mount("1.zip"));
    EXPECT_EQ(FileZipGetWhyNot(), "it is mounted already");
    auto const Unmount = [&](char const * szArchive) { return FileZipUnmount(m_Folder.Join(szArchive).c_str()); };
    ASSERT_TRUE(Unmount("2.zip"));
    ASSERT_TRUE(Mount("2.zip"));
    EXPECT_EACH(Opened("a.txt") == "two", Opened("b.txt") == "two");
    EXPECT_EQ(FileStream("a.txt")->GetFullPath(), (m_Folder.Join("2.zip") + "\\sub/a.txt").c_str());
    FileStored_c * const pStream = FileOpenStored("b.txt");
    FileOpen("a.txt");
    EXPECT_FALSE(Unmount("2.zip"));
    EXPECT_EACH(m_Log.Count("FileZipUnmount: \"a.txt\" is in use") == 1,
        m_Log.Count("FileZipUnmount: \"b.txt\" is in use") == 1);
    pStream->CloseStored();
    FileClose(FileStream("a.txt"));
    ASSERT_TRUE(Unmount("1.zip"));
    EXPECT_EACH(Opened("a.txt") == "two", !FileExists("new.txt"));
    ASSERT_TRUE(Unmount("2.zip"));
    EXPECT_EACH(Opened("a.txt") == "folder", Opened("b.txt") == "folder", !Unmount("2.zip"));
    ASSERT_TRUE(Mount("1.zip", ZipOrder_e::Under));
    EXPECT_EACH(Opened("a.txt") == "folder", Opened("new.txt") == "one");
}

TEST_F(FileZipTest, ZqtoolTreeNamesTheFileThatAnArchiveHides)
{
    NEEDS_ZQTOOL;
    Make({ { "a.txt", "folder" } });
    Zip("1.zip", { { "a.txt", "one" } });
    EXPECT_EQ(RunTool("tree --find a.txt " + m_Folder.GetPath() + " " + m_Folder.Join("1.zip")).sOutput,
        "a.txt opens " + m_Folder.Join("1.zip/a.txt") + ", 3 bytes\n  not " + m_Folder.Join("a.txt")
            + ": a file of an archive has its name\n");
}

TEST_F(FileZipTest, SkipsHostileEntriesWithALineEach)
{
    std::string const sLong(130, 'x'), sLonger = std::string(140, 'd') + "/" + std::string(120, 'x');
    // Values: flag 1 is encryption, method 12 is bzip2, 0120777 << 16 in the attributes is a link on Unix.
    Rows_t<std::string, Patch_s, std::string> const dRows = {
        { "../up.txt", {}, "its name has '..', '.' or an empty part" },
        { "a/./b.txt", {}, "its name has '..', '.' or an empty part" },
        { "a//b.txt", {}, "its name has '..', '.' or an empty part" },
        { "/etc/passwd", {}, "its name is absolute" },
        { "c:/x.txt", {}, "its name is absolute" },
        { "d/c:x.txt", {}, "its name begins with a drive" },
        { "a\\b.txt", {}, "its name has a '\\'" },
        { "x\ny.txt", {}, "its name has characters that can't be printed" },
        { sLong, {}, "its key has more than 127 characters" },
        { sLonger, {}, "its name has more than 255 characters" },
        { "link", { ATTRIBUTES, 4, 0120777u << 16 }, "it is a link or no regular file" },
        { "secret", { FLAGS, 2, 1 }, "it is encrypted" },
        { "bzip2", { METHOD, 2, 12 }, "it is neither stored nor deflated" },
        { "huge", { SIZE, 4, 0x80000000 }, "it has 2 GiB or more" },
        { "=unlike", { SIZE, 4, 9 }, "its sizes can't be true" },
        { "outside", { STORED, 4, 0x7FFFFFFF }, "its sizes can't be true" },
        { "nothing", { STORED, 4, 0 }, "its sizes can't be true" },
        { "inflated", { SIZE, 4, 0x7FFFFFFF }, "it would expand too much" },
        { "ratio", { SIZE, 4, 250 * 5000 + 1 }, "it would expand too much" },
        { "sub/twin.txt", {}, "it is a duplicate" },
    };
    Entries_t dEntries = { { "good.txt", "good" }, { "twin.txt", "first" }, { "bomb", std::string(2 << 20, '\0') } };
    for (auto const & [sMarked, Change, sReason] : dRows)
    {
        dEntries.emplace_back(sMarked, "hostile");
    }
    Zip("h.zip", dEntries);
    for (auto const & [sMarked, Change, sReason] : dRows)
    {
        if (Change.nBytes)
        {
            Patch("h.zip", sMarked.substr(sMarked[0] == '='), Change);
        }
        if (Change.nAt == ATTRIBUTES)
        {
            Patch("h.zip", sMarked, { MADE_BY, 2, 3 << 8 });   // on Unix
        }
    }
    Patch("h.zip", "ratio", { STORED, 4, 5000 });
    static int s_nSkips;
    s_nSkips = 0;
    CallbackScope_T const Skips(
        g_FileSkipCallbacker, [](FileSkip_t Skip) { s_nSkips += Skip.eWhy == FileSkip_e::InArchive; });
    ASSERT_TRUE(Mount("h.zip")) << m_Log.GetText();
    EXPECT_EQ(s_nSkips, 21);
    EXPECT_EQ(Keys(), "good.txt twin.txt");
    for (auto const & [sMarked, Change, sReason] : dRows)
    {
        std::string const sName(TextForLog(sMarked.c_str() + (sMarked[0] == '=')).CStr());
        EXPECT_EQ(
            m_Log.Count("FileZipMount: skipping \"" + sName + "\" of '" + m_Folder.Join("h.zip") + "', " + sReason), 1)
            << sName << m_Log.GetText();
    }
    EXPECT_EQ(m_Log.CountHolding("skipping \"bomb\""), 1);
    EXPECT_EQ(m_Log.CountHolding(": 2 files, 0 of them hide others, 0 are hidden, 21 skipped"), 1);
    EXPECT_EACH(Opened("good.txt") == "good", Opened("twin.txt") == "first", !FileStream("twin.txt")->bDuplicate);
}

TEST_F(FileZipTest, DamagedContentsFailWithAReasonAndLeaveNothing)
{
    FileSetEmptyAllowed(true);
    std::string const sText = Noise(40000);
    // Methods: 0 is stored, 8 is deflated.
    for (auto const & [sMarked, Change, sReason] : Rows_t<std::string, Patch_s, std::string>{
             { "f.bin", { CRC, 4, 1 }, "its data in the archive are damaged" },
             { "=f.bin", { CRC, 4, 1 }, "its data in the archive are damaged" },
             { "f.bin", { SIZE, 4, 39999 }, "its data in the archive are damaged" },
             { "f.bin", { SIZE, 4, 40001 }, "its contents do not have the size that the archive states" },
             { "f.bin", { STORED, 4, 99 }, "its data in the archive are damaged" },
             { "f.bin", { STORED, 4, 0, 1 }, "its data in the archive are damaged" },   // the end of the data is cut
             { "f.bin", { METHOD, 2, 0 }, "" },
             { "=f.bin", { METHOD, 2, 8 }, "its data in the archive are damaged" },
             { "f.bin", { HEADER, 4, 0x7FFFFFFF }, "its data can't be read from the archive" },
         })
    {
        SCOPED_TRACE(sMarked + " changed at " + std::to_string(Change.nAt));
        Zip("d.zip", { { sMarked, sText }, { "whole.txt", "whole" }, { "empty.txt", "" } });
        Patch("d.zip", "f.bin", Change);
        s_dReported.clear();
        ASSERT_TRUE(Mount("d.zip"));
        EXPECT_EQ(FileExists("f.bin"), !sReason.empty()) << "a deflated size is not that of a stored file";
        if (FileExists("f.bin"))
        {
            std::ptrdiff_t const nBlocks = FileBlocks();
            EXPECT_EQ(FileOpen("f.bin"), nullptr);
            EXPECT_EQ(FileGetWhyNot("f.bin"), sReason);
            EXPECT_EQ(s_dReported, std::vector<std::string>{ "f.bin" });
            EXPECT_LE(FileBlocks(), nBlocks + 1) << "the reason";
            if (FileStored_c * const pStream = FileOpenStored("f.bin"))
            {
                std::string sRead(50000, '?');
                EXPECT_EQ(pStream->ReadStored(sRead.data(), 1, 50000), 0u);
                pStream->CloseStored();
            }
        }
        EXPECT_EACH(Opened("whole.txt") == "whole", Opened("empty.txt").empty());
        FileReset();
    }
    FileSetEmptyAllowed(false);
}

TEST_F(FileZipTest, ACutOrAbsentArchiveFailsToMountWithAReason)
{
    Zip("w.zip", { { "=stored.txt", Noise(300) }, { "deflated.txt", Noise(300) } });
    std::string const sWhole = m_Folder.Read("w.zip");
    for (std::size_t nCut = 0; nCut < sWhole.size(); nCut += 7)
    {
        m_Folder.Write("w.zip", sWhole.substr(0, nCut));
        EXPECT_FALSE(Mount("w.zip")) << nCut;
        EXPECT_NE(FileZipGetWhyNot(), "") << nCut;
    }
    ExpectComplaints(1);
    EXPECT_FALSE(Mount("absent.zip"));
    EXPECT_EQ(FileZipGetWhyNot(), "No such file or directory");
}

TEST_F(FileZipTest, ADirectoryWithTooManyEntriesIsRefused)
{
    Entries_t dEntries;
    for (int i = 0; i <= ZIP_MAX_ENTRIES; ++i)
    {
        dEntries.emplace_back("=" + std::to_string(i), "");
    }
    Zip("many.zip", dEntries);
    EXPECT_FALSE(Mount("many.zip"));
    EXPECT_EQ(FileZipGetWhyNot(), "its directory has more entries or bytes than a mount allows");
}

TEST_F(FileZipTest, AWorkerThatCantBeLiftedReadsByAHandleOfItsOwn)
{
    NEEDS_NOBODY;
    constexpr int LIFTABLE = 77;   // status of the child
    std::string const sBig = Noise(300000);
    Zip("w.zip", { { "a.bin", sBig } });
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    auto const ReadAsynchronously = [&]
    {
        File_c * const pFile = StartModule(ModuleFile_c::Get()) && Mount("w.zip") ? FileStream("a.bin") : nullptr;
        FileAsyncOpen(pFile, nullptr);
        Await("a.bin");
        bool const bRead = Contents(pFile) == sBig, bLiftable = plat::ThreadCanBeLifted();
        int const nTracks = g_dOpenTracks.GetLength();
        Module_c::ShutdownAllModules();
        if (bLiftable)
        {
            return LIFTABLE;
        }
        EXPECT_TRUE(bRead);
        EXPECT_EQ(std::pair(nTracks, g_dOpenTracks.GetLength()), std::pair(2, 0)) << "while it is open, and after";
        return 0;
    };
    int const iStatus = StatusAsNobody(ReadAsynchronously);
    SKIP_IF(iStatus == LIFTABLE, "the system lets every thread leave the idle class");
    EXPECT_EQ(iStatus, 0);
}

TEST_F(FileZipTest, ThreadsAndAChildReadOneArchiveAtOnce)
{
    std::string const sBig = Noise(300000);
    Zip("t.zip", { { "a.bin", sBig }, { "=b.bin", sBig } });
    ASSERT_TRUE(Mount("t.zip"));
    auto const ReadAll = [&](int iThread)
    {
        char const * const szName = iThread % 2 ? "a.bin" : "b.bin";
        File_c * const pFile = FileStream(szName);
        for (int i = 0; i < 20; ++i)
        {
            EXPECT_EACH(FileOpen(pFile), Contents(pFile) == sBig) << szName << ' ' << i;   // no SCOPED_TRACE: it locks
            FileClose(pFile);
            std::string sRead(70000, '?');
            std::uint32_t nLength = 70000;
            auto const nAt = static_cast<std::uint32_t>(i * 10000);
            EXPECT_EACH(pFile->Load(nAt, reinterpret_cast<unsigned char *>(sRead.data()), nLength),
                sRead == sBig.substr(nAt, 70000))
                << szName << ' ' << i;
            FileStored_c * const pStream = pFile->OpenStored();
            EXPECT_EACH(pStream->SeekStored(i, 0), pStream->ReadStored(sRead.data(), 1, 70000) == 70000,
                sRead == sBig.substr(static_cast<std::size_t>(i), 70000))
                << szName << ' ' << i;
            pStream->CloseStored();
        }
    };
    bool const bForks = ForksBesideThreads();
    pid_t iChild = 0;   // its fork requires that no other thread holds a lock of the test library
    RunInThreads(4,
        [&](int iThread)
        {
            if (iThread == 3 && bForks)
            {
                iChild = StartChild(
                    [&]
                    {
                        ReadAll(0);
                        ReadAll(1);
                        return 0;
                    });
            }
            ReadAll(iThread);
        });
    EXPECT_EQ(bForks ? StatusOfChild(iChild) : 0, 0);
}
