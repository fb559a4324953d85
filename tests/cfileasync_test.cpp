#include "tests/media_fixture.h"
#include "zqcore/cfileasync.h"
#include "zqcore/cfilelog.h"

#include <ctime>
#include <pthread.h>

class FileAsyncTest : public MediaTest
{
protected:
    // A file that takes long to read.
    struct SlowFile_s : FileOnDisk_c
    {
        bool Open(void *) override
        {
            if (s_nEntered < 2)
            {
                s_pEntered[s_nEntered] = this;
            }
            ++s_nEntered;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            s_bDone = true;
            return false;
        }
    };

    // A file of a type that stays.
    struct StayingFile_s : FileOnDisk_c
    {
        bool Open(void *) override
        {
            pData = pData ? pData : ZQ_NEW unsigned char[1];
            StayerDoWork();
            return true;
        }
        void Close() override
        {
            Tell(sName);
            FileOnDisk_c::Close();
        }
    };

    FileAsyncTest()
    {
        Make({ { "a.txt", "one" }, { "b.txt", "twice" }, { "c.msh", "m" }, { "d.animate", "w" }, { "Logs/", "" } });
        SetPQXMediaPath(Folder.GetPath().c_str());
    }

    ~FileAsyncTest() override { Module_c::ShutdownAllModules(); }

    static void Start() { ASSERT_TRUE(StartModule(ModuleFile_c::Get())); }

    static void Await(File_c * pFile, void * pBuffer)
    {
        void * const hRequest = FileAsyncOpen(pFile, pBuffer);
        while (!FileAsyncIsLoaded(hRequest))
        {
            std::this_thread::yield();
        }
    }

    static inline std::atomic<bool> s_bDone;
    static inline std::atomic<int> s_nEntered;
    static inline File_c * s_pEntered[2];
    CurrentFolderScope_c const Current{ Folder.MakeFolder("current") };
};

TEST_F(FileAsyncTest, AStayerHoldsOneReferenceForEachRead)
{
    for (auto const & [szExt, szName, nCount] : Rows_t<char const *, char const *, int>{
             { ".msh", "c.msh", 1 }, { "msh", "c.msh", 0 }, { ".MSH", "c.msh", 0 }, { ".animate", "d.animate", 1 } })
    {
        Scan();
        FileStayerRegister(".x", szExt, nullptr);
        FileClose(FileOpen(szName));
        EXPECT_EQ(FileStream(szName)->GetOpensCount(), nCount) << szExt;
        FileStream(szName)->Refresh();
        EXPECT_EQ(g_dStayerFiles.GetLength(), 2 * nCount);
        FileStayerResetAll();
        EXPECT_EQ(FileStream(szName)->pData, nullptr);
        FileClose(FileOpen(szName));
        File_c * const pFile = FileStream(szName);
        pFile->Refresh();
        FileResetFiles(Folder.GetPath().c_str());
        EXPECT_EQ(g_dStayerFiles.GetLength(), nCount) << "one reference of two was given back";
        FileStayerResetAll();
        EXPECT_TRUE(nCount == 0 || !pFile->pData);
        FileReset();
        EXPECT_EQ(g_dStayerFiles.GetLength(), 0) << "objects that are gone";
        EXPECT_TRUE(FileAddOneFile(Folder.Join(szName).c_str()) && FileOpen(szName));
        EXPECT_EQ(FileStream(szName)->GetOpensCount(), nCount + 1);
        FileResetFiles(Folder.GetPath().c_str());
        EXPECT_EQ(g_dStayerFiles.GetLength(), 0) << "a reference that was given back";
        FileStayerResetMask();
    }
}

TEST_F(FileAsyncTest, StayersLeaveInTheOrderOfTheirReads)
{
    for (int i = 0; i < g_iMaxStayerTypes; ++i)
    {
        EXPECT_EQ(FailedConditions([] { FileStayerRegister(".x", nullptr); }), "") << i;
    }
    EXPECT_EQ(
        FailedConditions([] { FileStayerRegister(".y", nullptr); }), "g_dStayerExts.GetLength() < g_iMaxStayerTypes");
    StayingFile_s dFiles[3];
    for (int i = 0; i < 3; ++i)
    {
        dFiles[i].sName = NewString("%i.x", i);
        FileClose(FileOpen(&dFiles[i]) ? &dFiles[i] : nullptr);
    }
    FileStayerResetMask();
    FileStayerResetAll();
    EXPECT_EQ(s_dTold, (std::vector<std::string>{ "0.x", "1.x", "2.x" }));
}

TEST_F(FileAsyncTest, PrefetchHoldsAllFilesOfATypeAndCountsTheUnreadable)
{
    ExpectComplaints(1);
    Scan();
    fs::remove(Folder.Join("b.txt"));
    FilePrefetch(".txt");
    EXPECT_EQ(Log.Count("FilePrefetch: processed (.txt) : 8 bytes in 2 files"), 1);
    EXPECT_EQ(FileStream("a.txt")->GetOpensCount(), 1);
    FileUnfetch("txt");
    FileUnfetch(".txt");
    EXPECT_EQ(Log.Count("FileUnfetch: processed (.txt) : 2 files"), 1);
    EXPECT_EQ(FileStream("a.txt")->pData, nullptr);
}

TEST_F(FileAsyncTest, ThreadLeavesWhatTheTableSays)
{
    Start();
    File_c * const pFile = FileStream("b.txt");
    for (auto const & [bBuffer, bResident, bTakes] :
        Rows_t<bool, bool, bool>{ { 0, 0, 1 }, { 0, 1, 1 }, { 1, 0, 0 }, { 1, 1, 1 } })
    {
        char szBuffer[] = "-----";
        EXPECT_TRUE(!bResident || FileOpen(pFile));
        Await(pFile, bBuffer ? szBuffer : nullptr);
        EXPECT_EQ(pFile->GetOpensCount(), bResident + bTakes);
        EXPECT_EQ(Contents(pFile), bResident || !bBuffer ? "twice" : "(none)");
        EXPECT_STREQ(szBuffer, bBuffer ? "twice" : "-----");
        FileClose(bResident ? pFile : nullptr);
        FileClose(bTakes ? pFile : nullptr);
    }
    char szSmall[6];
    Folder.Write("b.txt", "larger");
    Await(pFile, szSmall);
    EXPECT_EQ(s_dTold, std::vector<std::string>{ "b.txt" }) << "a read error in the worker";
    EXPECT_EQ(pFile->GetOpensCount(), 0);
}

TEST_F(FileAsyncTest, ThreadServesInOrderSleepsAndDropsItsQueueAtTheStop)
{
    ExpectComplaints(1);
    Start();
    SlowFile_s dSlow[100];
    File_c * const pFile = FileStream("a.txt");
    Await(pFile, nullptr);
    std::clock_t const tStart = std::clock();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LT(std::clock() - tStart, CLOCKS_PER_SEC / 10) << "nothing waits";
    s_nEntered = 0;
    std::for_each(dSlow, dSlow + 100, [](SlowFile_s & Slow) { FileAsyncOpen(&Slow, nullptr); });
    EXPECT_EQ(FileAsyncOpen(pFile, nullptr), reinterpret_cast<void *>(100));
    EXPECT_FALSE(FileAsyncIsLoadedSlow(pFile) || FileAsyncIsLoadedSlow(nullptr));
    for (void * const hBad : { reinterpret_cast<void *>(101), FileAsyncOpen(nullptr, nullptr) })
    {
        EXPECT_EQ(FailedConditions([=] { FileAsyncIsLoaded(hBad); }), "int(file) < g_pAsyncFiles.GetLength ()");
    }
    while (s_nEntered < 2)
    {
        std::this_thread::yield();
    }
    EXPECT_TRUE(s_pEntered[0] == &dSlow[0] && s_pEntered[1] == &dSlow[1]) << "oldest first";
    Module_c::ShutdownAllModules();
    EXPECT_TRUE(s_bDone) << "the read in progress was let finish";
    EXPECT_LT(s_nEntered, 100);
    EXPECT_EQ(g_pAsyncFiles.GetLength(), 0);
}

TEST_F(FileAsyncTest, ThreadStartsAndStopsAThousandTimesBesideOpens)
{
    FileOpenLogEnable("w", 1, false);
    std::ptrdiff_t const nBlocks = FileBlocks();
    for (int i = 0; i < 1000; ++i)
    {
        Start();
        FileStayerRegister(".txt", nullptr);
        for (int n = i % 4; n > 0; --n)
        {
            FileAsyncOpen(FileStream("a.txt"), nullptr);
        }
        FileClose(FileOpen("b.txt"));
        while (i % 3 == 0 && g_pAsyncFiles.GetLength() > 0)
        {
            FileAsyncIsLoadedSlow(FileStream("a.txt"));
        }
        Module_c::ShutdownAllModules();
        ASSERT_FALSE(g_hAsyncThread.IsStarted());
        ASSERT_EQ(FileBlocks(), nBlocks);
    }
    FileOpenLogDisable();
    std::istringstream Lines(Folder.Read("Logs/w.rsp"));
    EXPECT_EQ(std::count(std::istream_iterator<std::string>(Lines), {}, Folded("b.txt")), 1000);
}

TEST_F(FileAsyncTest, WithoutAThreadRequestsAreServedAtOnce)
{
    pthread_attr_t Attributes, Huge;
    pthread_getattr_default_np(&Attributes);
    pthread_getattr_default_np(&Huge);
    pthread_attr_setstacksize(&Huge, SIZE_MAX / 4 * 3);   // more than there is
    pthread_setattr_default_np(&Huge);
    Start();
    pthread_setattr_default_np(&Attributes);
    EXPECT_TRUE(FileAsyncIsLoaded(FileAsyncOpen(FileStream("a.txt"), nullptr)));
    EXPECT_EQ(Contents(FileStream("a.txt")), "one");
}
