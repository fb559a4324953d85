#include "tests/machine_support.h"
#include "tests/media_fixture.h"
#include "zqcore/ctexterror.h"

#include <climits>
#include <fstream>

using Reported_t = std::vector<std::string>;

using FileTest = MediaTest;

TEST_F(FileTest, FindsAFileByAnySpelling)
{
    ExpectComplaints(1);
    Make({ { "sub/Tree.Txt", "oak" }, { "rel/deep/leaf.txt", "green" } });
    SetPQXMediaPath(m_Folder.GetPath().c_str());
    ASSERT_TRUE(FileAddSearchPath(m_Folder.Join("sub").c_str(), true, false));
    ASSERT_TRUE(FileAddSearchPath(m_Folder.Join("rel").c_str(), true, true));
    // FileExists looks for bare names only. FileGetPath looks for whole keys only.
    for (auto const & [szName, szContents, bExists, bHasPath] : Rows_t<char const *, char const *, bool, bool>{
             { "tree.txt", "oak", true, true }, { "TREE.TXT", "oak", true, true },
             { "nowhere/else/Tree.txt", "oak", true, false }, { "c:\\x\\tree.txt", "oak", true, false },
             { "rel\\deep\\LEAF.txt", "green", false, true }, { "rel/deep/leaf.txt", "green", false, true },
             { "leaf.txt", "(none)", false, false }, { "tree.tx", "(none)", false, false } })
    {
        EXPECT_EQ(FileExists(szName), bExists) << szName;
        EXPECT_EQ(FileStream(szName) != nullptr, bExists) << szName;
        EXPECT_EQ(FileGetPath(szName) != nullptr, bHasPath) << szName;
        File_c * const pFile = FileOpen(szName);
        EXPECT_EQ(Contents(pFile), szContents) << szName;
        EXPECT_STREQ(pFile ? pFile->GetFileName() : szName, szName);
        FileClose(pFile);
    }
    EXPECT_EQ(m_Log.GetText(), "");
    EXPECT_EQ(FileStream("tree.txt")->GetFullPath(), (Folded("sub") + "\\tree.txt").c_str());
    EXPECT_TRUE(DirectoryExists(m_Folder.Join("SUB").c_str()));
    EXPECT_FALSE(DirectoryExists(m_Folder.Join("sub/tree.txt").c_str()));
    EXPECT_EACH(!FileExists(""), !FileExists((std::string(300, 'x') + "/tree.txt").c_str())) << "after the cut";
    EXPECT_EQ(FileOpen(""), nullptr);
    EXPECT_EQ(m_Dialogs.CountHolding("!NameString.empty()"), 1);
}

TEST_F(FileTest, TheExtensionFollowsTheLastDotButOneAtTheStart)
{
    FileOnDisk_c File;
    for (auto const & [szName, szExt] : Rows_t<char const *, char const *>{
             { "a.b.txt", "txt" }, { ".cvsignore", "" }, { "none", "" }, { "dot.", "" }, { "..x", "x" }, { "", "" } })
    {
        File.sName = szName;
        EXPECT_STREQ(File.GetExt(), szExt) << szName;
    }
}

TEST_F(FileTest, OpensShareOneReadUntilTheLastClose)
{
    Make({ { "a.txt", "abc" } });
    ASSERT_TRUE(Scan());
    File_c * const pFile = FileOpen("a.txt");
    EXPECT_EACH(FileOpen("a.txt") == pFile, FileOpen(pFile));
    unsigned char const * const pBlock = pFile->pData;
    EXPECT_EACH(pFile->iReads == 1, pFile->GetOpensCount() == 3, pFile->bOpened);
    for (int const nLeft : { 2, 1, 0, 0 })   // the last close finds the file not resident and does nothing
    {
        FileClose(pFile);
        EXPECT_EACH(pFile->pData == (nLeft > 0 ? pBlock : nullptr), pFile->GetOpensCount() == nLeft) << nLeft;
    }
    FileClose(nullptr);
    {
        FileReference_c const None(FileStream("none.txt")), Unknown("none.txt");
        FileReference_c Held("a.txt"), Other(pFile);
        EXPECT_EACH(!None, !Unknown, Held->GetOpensCount() == 2, Contents(Held.Get()) == "abc");
        Other = FileReference_c(std::move(Held));
        EXPECT_EACH(!Held, Other.Get() == pFile, pFile->GetOpensCount() == 1);
    }
    EXPECT_EQ(pFile->GetOpensCount(), 0);

    m_Folder.Write("a.txt", "changed since the scan");
    plat::FileFacts_t Facts;
    ASSERT_TRUE(plat::PathGetFacts(m_Folder.Join("a.txt").c_str(), Facts));
    pFile->ftCreationTime = pFile->ftLastWriteTime = 1;
    EXPECT_EQ(Contents(FileOpen("a.txt")), "changed since the scan");
    EXPECT_EACH(pFile->ftCreationTime == Facts.tCreation, pFile->ftLastWriteTime == Facts.tLastWrite);
    EXPECT_EQ(pFile->iReads, 3);
    FileClose(pFile);
}

TEST_F(FileTest, SaysWhyAFileCantBeRead)
{
    ExpectComplaints(1);
    Make({ { "gone.bin", "x" }, { "folder.bin", "x" }, { "huge.bin", "x" }, { "empty.bin", "" } });
    fs::create_symlink("/sys/devices/system/cpu/online", m_Folder.Join("short.bin"));   // shorter than its size
    ASSERT_TRUE(Scan());
    fs::remove(m_Folder.Join("gone.bin"));
    fs::remove(m_Folder.Join("folder.bin"));
    fs::create_directory(m_Folder.Join("folder.bin"));
    fs::resize_file(m_Folder.Join("huge.bin"), (std::uintmax_t{ 1 } << 32) + 7);
    File_c * const pEmpty = FileOpen("empty.bin");
    EXPECT_EQ(m_Dialogs.CountHolding("AssertEx failed, iLength>0, File '" + Folded("empty.bin") + "' is empty!"), 1);
    EXPECT_EQ(Contents(pEmpty), "");
    FileClose(pEmpty);
    FileSetEmptyAllowed(true);
    EXPECT_EQ(Contents(FileOpen("empty.bin")), "");
    EXPECT_EQ(m_Log.Count("File '" + Folded("empty.bin") + "' is empty!"), 1);
    FileSetEmptyAllowed(false);
    FileClose(pEmpty);
    bool const bShort = FileExists("short.bin") && FileStream("short.bin")->iLength == 4096;
    for (auto const & [szName, szReport, sReason, iLength] : Rows_t<char const *, char const *, std::string, int>{
             { "gone.bin", "Cannot open file", "No such file or directory", 1 },
             { "folder.bin", "Cannot open file", "Is a directory", 1 },
             { "huge.bin", "File has 2 GiB or more", "it has 2 GiB or more", 7 },
             { "short.bin", "Error reading file", "it ends before its size", 4096 } })
    {
        SCOPED_TRACE(szName);
        m_Log.Clear();
        s_dReported.clear();
        if (iLength == 4096 && !bShort)
        {
            continue;
        }
        EXPECT_EQ(FileOpen(szName), nullptr);
        EXPECT_EQ(m_Log.GetText(), std::string("FileOnDisk_c::Open: ") + szReport + ": '" + Folded(szName) + "'\n"
                                       + (szReport[0] == 'C' ? "FileOnDisk_c::Open: " + sReason + "\n" : "")
                                       + "CAN'T OPEN FILE " + szName + "\n");
        EXPECT_EQ(FileGetWhyNot(szName), sReason);
        EXPECT_EQ(s_dReported, Reported_t(szReport[0] == 'E', szName));
        File_c const * const pFile = FileStream(szName);
        EXPECT_EACH(!pFile->pData, pFile->GetOpensCount() == 0, !pFile->bOpened, pFile->iReads == 0);
        EXPECT_EQ(pFile->iLength, iLength);
    }
    SetTextErrorLog(true);
    m_Log.Clear();
    unsigned char cByte;
    std::uint32_t nBytes = 1;
    EXPECT_EACH(!FileOpenStored("huge.bin"), !FileOpen(FileStream("folder.bin")),
        !FileStream("gone.bin")->Load(0, &cByte, nBytes), !FileOpen("no\nne.bin"),
        !FileAddOneFile(m_Folder.Join("absent.bin").c_str()));
    SetTextErrorLog(false);
    EXPECT_EACH(m_Log.Count("huge.bin: it has 2 GiB or more") == 1,
        m_Log.Count(Folded("folder.bin") + ": Is a directory") == 1,
        m_Log.Count(Folded("gone.bin") + ": No such file or directory") == 1,
        m_Log.Count("no\\nne.bin: there is no such file") == 1,
        m_Log.Count("absent.bin: No such file or directory") == 1);
    EXPECT_EQ(FileGetWhyNot("Any/ABSENT.bin"), "No such file or directory");
    m_Folder.Write("gone.bin", "y");
    EXPECT_EQ(Contents(FileOpen("gone.bin")), "y");
    EXPECT_EQ(FileGetWhyNot("gone.bin"), "");
    SKIP_IF(!bShort, "no file is at hand that has fewer bytes than its size");
}

TEST_F(FileTest, SaysThatReadingIsNotPermitted)
{
    Make({ { "closed.bin", "x" } });
    ASSERT_TRUE(Scan());
    fs::remove(m_Folder.Join("closed.bin"));
    EXPECT_EQ(FileOpen("closed.bin"), nullptr);
    EXPECT_EQ(FileGetWhyNot("closed.bin"), "No such file or directory");
    NEEDS_NOBODY;
    m_Folder.Write("closed.bin", "x");
    fs::permissions(m_Folder.Join("closed.bin"), fs::perms::none);
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    auto const OpenClosed = []
    {
        EXPECT_EQ(FileOpen("closed.bin"), nullptr);
        EXPECT_EQ(FileGetWhyNot("closed.bin"), "Permission denied");
        return 0;
    };
    EXPECT_EQ(StatusAsNobody(OpenClosed), 0);
}

TEST_F(FileTest, ReadsIntoACallersBufferWithoutAReference)
{
    Make({ { "a.bin", "abcdef" } });
    ASSERT_TRUE(Scan());
    File_c * const pFile = FileStream("a.bin");
    char dBuffer[8] = "-------";
    EXPECT_FALSE(pFile->Open(dBuffer));
    EXPECT_STREQ(dBuffer, "abcdef-");
    EXPECT_EACH(!pFile->pData, pFile->GetOpensCount() == 0, pFile->iReads == 1);

    ASSERT_TRUE(FileOpen(pFile));
    m_Folder.Write("a.bin", "longer than the buffer");
    EXPECT_TRUE(pFile->Open(dBuffer)) << "copied from the block";
    FileClose(pFile);
    EXPECT_FALSE(pFile->Open(dBuffer));
    EXPECT_STREQ(dBuffer, "abcdef-") << "the file outgrew the buffer";
    EXPECT_EQ(m_Log.CountHolding("File has grown from 6 to 22 bytes"), 1);
    EXPECT_EQ(s_dReported, Reported_t{ "a.bin" });
    EXPECT_EQ(pFile->iLength, 22);
}

TEST_F(FileTest, LoadsARange)
{
    Make({ { "a.bin", "0123456789" } });
    ASSERT_TRUE(Scan());
    File_c * const pFile = FileStream("a.bin");
    for (auto const & [nAt, nAsked, sBytes, szAssertion] :
        Rows_t<std::uint32_t, std::uint32_t, std::string, char const *>{ { 0, 10, "0123456789", "" },
            { 7, 2, "78", "" }, { 8, 5, "89", "" }, { 99, 0, "", "" }, { 10, 1, "", "dwPosition<(DWORD)iLength" } })
    {
        SCOPED_TRACE(nAt);
        m_Log.Clear();
        s_dReported.clear();
        unsigned char dBuffer[16] = {};
        std::uint32_t nLength = nAsked;
        bool bLoaded = false;
        EXPECT_EQ(FailedConditions([&, nFrom = nAt] { bLoaded = pFile->Load(nFrom, dBuffer, nLength); }), szAssertion);
        EXPECT_EQ(bLoaded, nAsked == sBytes.size());
        EXPECT_EQ(std::string(dBuffer, dBuffer + nLength), sBytes);
        EXPECT_EQ(s_dReported, Reported_t(bLoaded ? 0 : 1, "a.bin"));
    }
    unsigned char dBuffer[20];
    std::uint32_t nLength = sizeof dBuffer;
    EXPECT_FALSE(pFile->Load(0, dBuffer, nLength));
    fs::remove(m_Folder.Join("a.bin"));
    EXPECT_FALSE(pFile->Load(0, dBuffer, nLength));
    EXPECT_EQ(m_Log.GetText(), "FileOnDisk_c::Load: Error reading file: '" + Folded("a.bin")
                                   + "'\nFileOnDisk_c::Load: Cannot open file: '" + Folded("a.bin")
                                   + "'\nFileOnDisk_c::Load: No such file or directory\n");
    EXPECT_EACH(pFile->iReads == 0, !pFile->pData);
}

TEST_F(FileTest, StreamsWithSeekTellAndRead)
{
    Make({ { "a.bin", "0123456789" } });
    ASSERT_TRUE(Scan());
    FileStored_c * const pStored = FileOpenStored("any/A.bin");
    ASSERT_NE(pStored, nullptr);
    File_c * const pFile = FileStream("a.bin");
    EXPECT_EACH(pFile->bOpened, pFile->iReads == 1, !pFile->pData, pStored->FileSize() == 10);
    // Origins: 1 is the current position, 2 the end, anything else the start.
    for (auto const & [nOffset, iOrigin, iMoved, nSize, nCount, sBytes, nPosition] :
        Rows_t<long, int, int, unsigned int, unsigned int, std::string, long>{ { 2, 0, 1, 2, 2, "2345", 6 },
            { -1, 1, 1, 1, 1, "5", 6 }, { -3, 2, 1, 2, 1, "78", 9 }, { 0, 1, 1, 5, 5, "9", 10 },
            { -20, 1, 0, 0, 9, "", 10 }, { INT_MAX, 0, 1, 1, 1, "", INT_MAX }, { 1, 1, 0, 1, 1, "", INT_MAX },
            { INT_MAX, 2, 0, 1, 1, "", INT_MAX }, { 1, 77, 1, 1, 1, "1", 2 }, { 0, 0, 1, 5, 3, "0123456789", 10 } })
    {
        SCOPED_TRACE(testing::PrintToString(std::pair(nOffset, iOrigin)));
        char dBuffer[16];
        EXPECT_EQ(pStored->SeekStored(nOffset, iOrigin), iMoved);
        EXPECT_EQ(std::string(dBuffer, pStored->ReadStored(dBuffer, nSize, nCount)), sBytes);
        EXPECT_EQ(pStored->TellStored(), nPosition);
        EXPECT_EQ(pStored->IsEof(), nPosition >= 10);
    }
    fs::resize_file(m_Folder.Join("a.bin"), std::uintmax_t{ 3 } << 30);
    EXPECT_EACH(pStored->SeekStored(0, 2) == 0, pStored->TellStored() == 10);   // the end has moved out of range
    pStored->CloseStored();
    EXPECT_EQ(pFile->iReads, 2);
}

TEST_F(FileTest, AStreamEndsWhereTheFileOnDiskEnds)
{
    Make({ { "a.bin", "0123456789" } });
    ASSERT_TRUE(Scan());
    File_c * const pFile = FileStream("a.bin");
    for (auto const & [sNow, bResident] :
        Rows_t<std::string, bool>{ { "longer than known", false }, { "less", false }, { "more again", true } })
    {
        SCOPED_TRACE(sNow);
        int const iKnown = pFile->iLength;
        ASSERT_EQ(bResident && FileOpen(pFile), bResident);
        m_Folder.Write("a.bin", sNow);
        FileStored_c * const pStored = FileOpenStored("a.bin");
        EXPECT_EQ(pStored->FileSize(), sNow.size());
        std::string sRead;
        for (char cRead; !pStored->IsEof() && pStored->ReadStored(&cRead, 1, 1) == 1;)
        {
            sRead += cRead;
        }
        EXPECT_EQ(sRead, sNow);
        EXPECT_TRUE(pStored->IsEof());
        pStored->CloseStored();
        EXPECT_EQ(pFile->iLength, bResident ? iKnown : static_cast<int>(sNow.size())) << "a block keeps its length";
        EXPECT_GT(pFile->ftLastWriteTime, 0u);
        FileClose(bResident ? pFile : nullptr);
    }
}

TEST_F(FileTest, OfLikeNamedFilesTheFirstOpensWithAnAchtung)
{
    ExpectComplaints(3);
    Make({ { "a/1.txt", "first" }, { "a/2.txt", "x" }, { "a/3.txt", "x" }, { "b/1.TXT", "second" }, { "b/2.txt", "x" },
        { "b/3.txt", "x" } });
    EXPECT_EACH(Scan(), Contents(FileOpen("1.txt")) == "first", FileOpen(FileStream("2.txt")));
    FileOpenStored("3.txt")->CloseStored();
    for (std::string const sName : { "\\1.txt", "\\2.txt", "\\3.txt" })
    {
        std::string const sFirst = Folded("a") + sName, sLine = "File duplication : " + Folded("b") + sName;
        EXPECT_THAT(m_Log.GetText(), testing::HasSubstr(sLine + "\n                   " + sFirst + "\n"));
        EXPECT_EQ(m_Dialogs.CountHolding("Opened file '" + sFirst + "' is DUPLICATE, random bugs may occur."), 1);
    }
}

TEST_F(FileTest, StreamsOnlyWhatNobodyWritesAndWhenReadingIsAllowed)
{
    NEEDS_LEASES;
    Make({ { "a.bin", "x" } });
    ASSERT_TRUE(Scan());
    std::ptrdiff_t const nBlocks = FileBlocks();
    {
        std::ofstream const Writer(m_Folder.Join("a.bin"), std::ios::app);
        EXPECT_EQ(FileOpenStored("a.bin"), nullptr);
        EXPECT_EQ(Contents(FileOpen("a.bin")), "x") << "whole reads share with writers";
        FileClose(FileStream("a.bin"));
    }
    EXPECT_EQ(FileOpenStored("unknown.bin"), nullptr);
    FileStored_c * const pStored = FileOpenStored("a.bin");
    EXPECT_TRUE(OpensForWriting(m_Folder.Join("a.bin"))) << "a later writer does not wait";
    pStored->CloseStored();
    EXPECT_EQ(s_dReported, Reported_t{ "a.bin" });
    EXPECT_EQ(FileBlocks(), nBlocks);
    EXPECT_EQ(m_Log.GetText(), "");

    g_bFileReadDisabled = true;
    EXPECT_EQ(FailedConditions([] { FileOpenStored("a.bin")->CloseStored(); }), "! g_bFileReadDisabled");
    g_bFileReadDisabled = false;
}

TEST_F(FileTest, RefreshReadsResidentFilesAgainAndSurvivesAFailure)
{
    Make({ { "a.bin", "old" } });
    ASSERT_TRUE(Scan());
    File_c * const pFile = FileStream("a.bin");
    pFile->Refresh();
    EXPECT_EQ(pFile->iReads, 0) << "not resident";
    EXPECT_EACH(FileOpen(pFile), FileOpen(pFile));
    m_Folder.Write("a.bin", "newer");
    pFile->Refresh();
    EXPECT_EQ(Contents(pFile), "newer");
    fs::remove(m_Folder.Join("a.bin"));
    pFile->Refresh();
    EXPECT_EACH(!pFile->pData, pFile->GetOpensCount() == 2, !FileOpen(pFile));
    m_Folder.Write("a.bin", "back");
    EXPECT_EQ(Contents(FileOpen("a.bin")), "back");
    fs::remove(m_Folder.Join("a.bin"));
    pFile->Refresh();
    for (int const nLeft : { 2, 1, 0, 0 })   // the last close does nothing
    {
        FileClose(pFile);
        EXPECT_EQ(pFile->GetOpensCount(), nLeft);
    }
    FileOnDisk_c().sName = "a.bin";   // never registered: the other object keeps its key
    EXPECT_EQ(Keys(), "a.bin");
    FileKill(pFile);
    EXPECT_EQ(Keys(), "");
}
