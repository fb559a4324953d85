#include "tests/media_fixture.h"

#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

using FileTest = MediaTest;

TEST_F(FileTest, FindsAFileByAnySpelling)
{
    Make({ { "sub/Tree.Txt", "oak" }, { "other/", "" } });
    SetPQXMediaPath(Folder.GetPath().c_str());
    ASSERT_TRUE(Scan());
    Make({ { "rel/deep/leaf.txt", "green" } });
    ASSERT_TRUE(FileAddSearchPath(Folder.Join("rel").c_str(), true, true));

    struct Row_s
    {
        char const * szName;
        char const * szContents;   // null: unknown
        bool bExists;              // FileExists looks for bare names only
        bool bHasPath;             // FileGetPath for whole keys only
    };
    for (Row_s const & row : { Row_s{ "tree.txt", "oak", true, true }, Row_s{ "TREE.TXT", "oak", true, true },
             Row_s{ "nowhere/else/Tree.txt", "oak", true, false }, Row_s{ "c:\\x\\tree.txt", "oak", true, false },
             Row_s{ "rel\\deep\\LEAF.txt", "green", false, true }, Row_s{ "rel/deep/leaf.txt", "green", false, true },
             Row_s{ "leaf.txt", nullptr, false, false }, Row_s{ "tree.tx", nullptr, false, false } })
    {
        EXPECT_EQ(FileExists(row.szName), row.bExists) << row.szName;
        EXPECT_EQ(FileStream(row.szName) != nullptr, row.bExists) << row.szName;
        EXPECT_EQ(FileGetPath(row.szName) != nullptr, row.bHasPath) << row.szName;
        File_c * const pFile = FileOpen(row.szName);
        EXPECT_EQ(Contents(pFile), row.szContents ? row.szContents : "(none)") << row.szName;
        if (pFile)
        {
            EXPECT_STREQ(pFile->GetFileName(), row.szName);
            FileClose(pFile);
        }
    }
    EXPECT_EQ(Log.GetText(), "");
    EXPECT_EQ(FileGetPath("tree.txt"), FileStream("tree.txt")->pPath);
    EXPECT_EQ(FileStream("tree.txt")->GetFullPath(), (Folded("sub") + "\\tree.txt").c_str());
    EXPECT_TRUE(DirectoryExists(Folder.Join("OTHER").c_str()));
    EXPECT_FALSE(DirectoryExists(Folder.Join("sub/tree.txt").c_str()));
    EXPECT_FALSE(FileExists(""));
    EXPECT_FALSE(FileExists((std::string(300, 'x') + "/tree.txt").c_str()));   // the name lies behind the cut
}

TEST_F(FileTest, GivesTheExtensionBehindTheLastDot)
{
    FileOnDisk_c File;
    for (auto const & [szName, szExt] : { std::pair{ "a.b.txt", "txt" }, std::pair{ ".cvsignore", "" },
             std::pair{ "none", "" }, std::pair{ "dot.", "" }, std::pair{ "", "" }, std::pair{ "..x", "x" } })
    {
        File.sName = szName;
        EXPECT_STREQ(File.GetExt(), szExt) << szName;
    }
    File.sName = "";
}

TEST_F(FileTest, ReadsOnceForAllReadersAndAgainAfterTheLastClose)
{
    MakeAndScan({ { "a.txt", "abc" } });
    File_c * const pFile = FileOpen("a.txt");
    ASSERT_TRUE(FileOpen("a.txt") == pFile && FileOpen(pFile));
    unsigned char const * const pBlock = pFile->pData;
    EXPECT_TRUE(pFile->iReads == 1 && pFile->GetOpensCount() == 3 && pFile->bOpened);
    FileClose(pFile);
    FileClose(pFile);
    EXPECT_EQ(pFile->pData, pBlock);
    FileClose(pFile);
    EXPECT_TRUE(pFile->pData == nullptr && pFile->GetOpensCount() == 0);
    FileClose(pFile);   // not resident: nothing to give back
    FileClose(nullptr);
    EXPECT_EQ(pFile->GetOpensCount(), 0);

    Folder.Write("a.txt", "changed since the scan");
    EXPECT_EQ(Contents(FileOpen("a.txt")), "changed since the scan");
    EXPECT_EQ(pFile->iReads, 2);
    FileClose(pFile);
    EXPECT_EQ(Dialogs.GetCount(), 0);
}

TEST_F(FileTest, ManyThreadsShareOneBlock)
{
    MakeAndScan({ { "a.txt", "abc" } });
    File_c * const pFile = FileStream("a.txt");
    std::vector<std::thread> dThreads;
    for (int i = 0; i < 4; ++i)
    {
        dThreads.emplace_back(
            [pFile]
            {
                for (int n = 0; n < 500; ++n)
                {
                    ASSERT_TRUE(FileOpen(pFile));
                    ASSERT_EQ(Contents(pFile), "abc");
                    FileClose(pFile);
                }
            });
    }
    for (std::thread & Thread : dThreads)
    {
        Thread.join();
    }
    EXPECT_TRUE(pFile->pData == nullptr && pFile->GetOpensCount() == 0);
}

TEST_F(FileTest, SaysWhyAFileCantBeRead)
{
    MakeAndScan({ { "gone.bin", "x" }, { "folder.bin", "x" }, { "huge.bin", "x" } });
    fs::remove(Folder.Join("gone.bin"));
    fs::remove(Folder.Join("folder.bin"));
    fs::create_directory(Folder.Join("folder.bin"));
    fs::resize_file(Folder.Join("huge.bin"), (std::uintmax_t{ 1 } << 32) + 7);

    std::string const sRoot = Folded("");
    struct Row_s
    {
        char const * szName;
        std::string sReport;
        std::size_t nErrorEvents;
    };
    for (Row_s const & row : {
             Row_s{ "gone.bin", "FileOnDisk_c::Open: Cannot open file: '" + sRoot + "gone.bin'\n", 0 },
             Row_s{ "folder.bin", "FileOnDisk_c::Open: Error reading file: '" + sRoot + "folder.bin'\n", 1 },
             Row_s{ "huge.bin", "FileOnDisk_c::Open: File is larger than 2 GiB: '" + sRoot + "huge.bin'\n", 0 } })
    {
        Log.Clear();
        s_dReadErrors.clear();
        EXPECT_EQ(FileOpen(row.szName), nullptr);
        EXPECT_EQ(Log.GetText(), row.sReport + "CAN'T OPEN FILE " + row.szName + "\n");
        EXPECT_EQ(s_dReadErrors, std::vector<std::string>(row.nErrorEvents, row.szName));
        File_c * const pFile = FileStream(row.szName);
        EXPECT_TRUE(pFile->pData == nullptr && pFile->GetOpensCount() == 0 && !pFile->bOpened && pFile->iReads == 0);
    }
    EXPECT_EQ(FileStream("huge.bin")->iLength, 7);
    EXPECT_EQ(FileOpenStored("huge.bin"), nullptr);
    EXPECT_EQ(Dialogs.GetCount(), 0);
    EXPECT_EQ(FileOpen(""), nullptr);
    EXPECT_EQ(Dialogs.CountHolding("!NameString.empty()"), 1);
}

TEST_F(FileTest, AnEmptyFileIsReportedAndResident)
{
    MakeAndScan({ { "empty.txt", "" } });
    File_c * const pFile = FileOpen("empty.txt");
    ASSERT_NE(pFile, nullptr);
    EXPECT_TRUE(pFile->pData != nullptr && pFile->iLength == 0 && pFile->GetOpensCount() == 1);
    EXPECT_EQ(Dialogs.CountHolding("AssertEx failed, iLength>0, File '" + Folded("empty.txt") + "' is empty!"), 1);
    FileClose(pFile);
}

TEST_F(FileTest, ReadsIntoACallersBufferWithoutAReference)
{
    MakeAndScan({ { "a.bin", "abcdef" } });
    File_c * const pFile = FileStream("a.bin");
    char dBuffer[8] = "-------";
    EXPECT_FALSE(pFile->Open(dBuffer));
    EXPECT_STREQ(dBuffer, "abcdef-");
    EXPECT_TRUE(pFile->pData == nullptr && pFile->GetOpensCount() == 0 && pFile->iReads == 1);

    ASSERT_TRUE(FileOpen(pFile));
    Folder.Write("a.bin", "longer than the buffer");
    EXPECT_TRUE(pFile->Open(dBuffer)) << "copied from the block";
    EXPECT_STREQ(dBuffer, "abcdef-");
    FileClose(pFile);

    EXPECT_FALSE(pFile->Open(dBuffer));
    EXPECT_STREQ(dBuffer, "abcdef-") << "the file outgrew the buffer";
    EXPECT_EQ(Log.CountHolding("File has grown from 6 to 22 bytes"), 1);
    EXPECT_EQ(s_dReadErrors, std::vector<std::string>{ "a.bin" });
    EXPECT_EQ(pFile->iLength, 22);
}

TEST_F(FileTest, LoadsARange)
{
    MakeAndScan({ { "a.bin", "0123456789" } });
    File_c * const pFile = FileStream("a.bin");
    struct Row_s
    {
        std::uint32_t dwPosition, dwLength;
        bool bLoaded;
        std::string sBytes;
        int nDialogs;
    };
    for (Row_s const & row : { Row_s{ 0, 10, true, "0123456789", 0 }, Row_s{ 7, 2, true, "78", 0 },
             Row_s{ 8, 5, false, "89", 0 }, Row_s{ 99, 0, true, "", 0 }, Row_s{ 10, 1, false, "", 1 } })
    {
        int const nDialogs = Dialogs.GetCount();
        Log.Clear();
        s_dReadErrors.clear();
        unsigned char dBuffer[16] = {};
        std::uint32_t dwLength = row.dwLength;
        EXPECT_EQ(pFile->Load(row.dwPosition, dBuffer, dwLength), row.bLoaded) << row.dwPosition;
        EXPECT_EQ(std::string(dBuffer, dBuffer + dwLength), row.sBytes);
        EXPECT_EQ(Log.Count("FileOnDisk_c::Load: Error reading file: '" + Folded("a.bin") + "'"), row.bLoaded ? 0 : 1);
        EXPECT_EQ(s_dReadErrors.size(), row.bLoaded ? 0u : 1u);
        EXPECT_EQ(Dialogs.GetCount() - nDialogs, row.nDialogs);
    }
    fs::remove(Folder.Join("a.bin"));
    std::uint32_t dwLength = 1;
    unsigned char cByte;
    EXPECT_FALSE(pFile->Load(0, &cByte, dwLength));
    EXPECT_EQ(Log.CountHolding("FileOnDisk_c::Load: Cannot open file: '"), 1);
    EXPECT_TRUE(pFile->iReads == 0 && pFile->pData == nullptr);
}

TEST_F(FileTest, StreamsWithSeekTellAndRead)
{
    MakeAndScan({ { "a.bin", "0123456789" } });
    FileStored_c * const pStored = FileOpenStored("any/A.bin");
    ASSERT_NE(pStored, nullptr);
    File_c * const pFile = FileStream("a.bin");
    EXPECT_TRUE(pFile->bOpened && pFile->iReads == 1 && pFile->pData == nullptr && pStored->FileSize() == 10);

    struct Row_s
    {
        long iOffset;
        int iOrigin, iMoved;
        unsigned int iSize, iCount;
        std::string sBytes;
        long iTell;
        bool bEof;
    };
    for (Row_s const & row : { Row_s{ 2, 0, 1, 2, 2, "2345", 6, false }, Row_s{ -1, 1, 1, 1, 1, "5", 6, false },
             Row_s{ -3, 2, 1, 2, 1, "78", 9, false }, Row_s{ 0, 1, 1, 5, 5, "9", 10, true },
             Row_s{ -20, 1, 0, 0, 9, "", 10, true }, Row_s{ 1, 77, 1, 1, 1, "1", 2, false },
             Row_s{ 0, 0, 1, ~0u, ~0u, "0123456789", 10, true } })
    {
        char dBuffer[16];
        EXPECT_EQ(pStored->SeekStored(row.iOffset, row.iOrigin), row.iMoved);
        unsigned int const nRead = pStored->ReadStored(dBuffer, row.iSize, row.iCount);
        EXPECT_EQ(std::string(dBuffer, nRead), row.sBytes);
        EXPECT_EQ(pStored->TellStored(), row.iTell);
        EXPECT_EQ(pStored->IsEof(), row.bEof);
    }
    pStored->CloseStored();
    EXPECT_EQ(pFile->iReads, 2);
    EXPECT_EQ(Dialogs.GetCount(), 0);
}

TEST_F(FileTest, StreamsOnlyWhatNobodyWritesAndWhenReadingIsAllowed)
{
    MakeAndScan({ { "a.bin", "x" } });
    std::ptrdiff_t const nBlocks = FileBlocks();
    {
        std::ofstream Writer(Folder.Join("a.bin"), std::ios::app);
        EXPECT_EQ(FileOpenStored("a.bin"), nullptr);
        EXPECT_EQ(s_dReadErrors, std::vector<std::string>{ "a.bin" });
        EXPECT_EQ(Contents(FileOpen("a.bin")), "x") << "whole reads share with writers";
        FileClose(FileStream("a.bin"));
    }
    EXPECT_EQ(FileOpenStored("unknown.bin"), nullptr);
    EXPECT_EQ(FileBlocks(), nBlocks);
    EXPECT_EQ(Log.GetText(), "");

    g_bFileReadDisabled = true;
    FileStored_c * const pStored = FileOpenStored("a.bin");
    g_bFileReadDisabled = false;
    EXPECT_EQ(Dialogs.CountHolding("! g_bFileReadDisabled"), 1);
    ASSERT_NE(pStored, nullptr);
    pStored->CloseStored();
}

TEST_F(FileTest, RefreshReadsResidentFilesAgainAndSurvivesAFailure)
{
    MakeAndScan({ { "a.txt", "old" } });
    File_c * const pFile = FileStream("a.txt");
    pFile->Refresh();
    EXPECT_EQ(pFile->iReads, 0) << "not resident";

    ASSERT_TRUE(FileOpen(pFile) && FileOpen(pFile));
    Folder.Write("a.txt", "newer");
    pFile->Refresh();
    EXPECT_EQ(Contents(pFile), "newer");

    fs::remove(Folder.Join("a.txt"));
    pFile->Refresh();
    EXPECT_TRUE(pFile->pData == nullptr && pFile->GetOpensCount() == 2);
    EXPECT_FALSE(FileOpen(pFile));
    Folder.Write("a.txt", "back");
    EXPECT_TRUE(FileOpen(pFile));
    EXPECT_EQ(Contents(pFile), "back");
    EXPECT_EQ(pFile->GetOpensCount(), 3);

    fs::remove(Folder.Join("a.txt"));
    pFile->Refresh();
    for (int iLeft : { 2, 1, 0, 0 })
    {
        FileClose(pFile);
        EXPECT_EQ(pFile->GetOpensCount(), iLeft);
    }
    EXPECT_EQ(Dialogs.GetCount(), 1) << "the tracker's failed open, once for the same text";
}

TEST_F(FileTest, OpensALocationThatIsLongerThanAPath)
{
    std::string const sFolder = std::string(90, 'f') + "/" + std::string(90, 'g') + "/";
    std::string const sName = std::string(120, 'n') + ".txt";
    MakeAndScan({ { sFolder + sName, "far away" } });
    EXPECT_EQ(Contents(FileOpen(sName.c_str())), "far away");
    FileClose(FileStream(sName.c_str()));
    EXPECT_EQ(FileStream(sName.c_str())->GetFullPath().Length(), 255);
}

TEST_F(FileTest, KillTakesOnlyItsOwnObjectOut)
{
    MakeAndScan({ { "a.txt", "x" }, { "b.txt", "x" } });
    FileKill(FileStream("a.txt"));
    EXPECT_EQ(Keys(), "b.txt");
    {
        FileOnDisk_c Stranger;
        Stranger.sName = "b.txt";   // never registered; the key is another object's
    }
    EXPECT_EQ(Keys(), "b.txt");
    EXPECT_EQ(Dialogs.GetCount(), 0);
}
