#include "tests/machine_support.h"
#include "tests/media_fixture.h"
#include "zqcore/cfileasync.h"
#include "zqcore/cfilelog.h"

#include <ctime>

class FileAsyncTest : public MediaTest
{
protected:
    // A file whose read takes 50 milliseconds and fails. Adds itself to s_dEntered and counts each read in s_nEntered
    // at its start, and in s_nDone at its end.
    struct SlowFile_c : FileOnDisk_c
    {
        bool Open(void *) override
        {
            s_dEntered.push_back(this);
            ++s_nEntered;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            ++s_nDone;
            return false;
        }
    };

    // A file whose read lasts until a thread waits for it, three seconds at most. Records whether the reading thread
    // was idle before and after.
    struct AwaitedFile_c : FileOnDisk_c
    {
        bool Open(void *) override
        {
            bool const bIdle = IsIdleThread();
            ++s_nEntered;
            for (int i = 0; i < 300 && IsIdleThread(); ++i)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            m_dIdle.emplace_back(bIdle, IsIdleThread());
            return false;
        }
        std::vector<std::pair<bool, bool>> m_dIdle;
    };

    FileAsyncTest()
    {
        Make({ { "a.txt", "one" }, { "b.txt", "twice" }, { "c.msh", "m" }, { "d.animate", "w" }, { "Logs/", "" } });
        SetPQXMediaPath(m_Folder.GetPath().c_str());
    }

    ~FileAsyncTest() override { Module_c::ShutdownAllModules(); }

    static void Start() { ASSERT_TRUE(StartModule(ModuleFile_c::Get())); }

    // Requests an asynchronous open and waits until it is done.
    static void Await(File_c * pFile, void * pBuffer)
    {
        void * const hRequest = FileAsyncOpen(pFile, pBuffer);
        WaitUntil([hRequest] { return FileAsyncIsLoaded(hRequest); });
    }

    template <typename CALL>
    static void WaitUntil(CALL const & fnCall)
    {
        while (!fnCall())
        {
            std::this_thread::yield();
        }
    }

    static inline std::atomic<int> s_nEntered, s_nDone;
    static inline std::vector<File_c *> s_dEntered;
    CurrentFolderScope_c const m_Current{ m_Folder.MakeFolder("current") };
};

TEST_F(FileAsyncTest, AStayerHoldsOneReferenceForEachRead)
{
    for (auto const & [szExt, szName, nCount] : Rows_t<char const *, char const *, int>{
             { ".msh", "c.msh", 1 }, { "msh", "c.msh", 0 }, { ".MSH", "c.msh", 0 }, { ".animate", "d.animate", 1 } })
    {
        SCOPED_TRACE(szExt);
        Scan();
        FileStayerRegister(".x", szExt, nullptr);
        FileClose(FileOpen(szName));
        EXPECT_EQ(FileStream(szName)->GetOpensCount(), nCount);
        FileStream(szName)->Refresh();
        EXPECT_EQ(g_dStayerFiles.GetLength(), 2 * nCount);
        FileStayerResetAll();
        EXPECT_EQ(FileStream(szName)->pData, nullptr);
        FileClose(FileOpen(szName));
        File_c * const pFile = FileStream(szName);
        pFile->Refresh();
        FileResetFiles(m_Folder.GetPath().c_str());
        EXPECT_EQ(g_dStayerFiles.GetLength(), nCount) << "one reference of two was released";
        FileStayerResetAll();
        FileReset();
        EXPECT_EQ(g_dStayerFiles.GetLength(), 0) << "objects that are gone";
        FileStayerResetMask();
    }
}

TEST_F(FileAsyncTest, StayersAreListedInTheOrderOfTheirReadsAndTheirTypesAreLimited)
{
    Scan();
    for (int i = 0; i <= g_iMaxStayerTypes; ++i)
    {
        EXPECT_EQ(FailedConditions([] { FileStayerRegister(".txt", nullptr); }),
            i < g_iMaxStayerTypes ? "" : "g_dStayerExts.GetLength() < g_iMaxStayerTypes")
            << i;
    }
    FileClose(FileOpen("b.txt"));
    FileClose(FileOpen("a.txt"));
    FileStayerResetMask();
    EXPECT_EACH(g_dStayerFiles[0] == FileStream("b.txt"), g_dStayerFiles[1] == FileStream("a.txt"));
}

TEST_F(FileAsyncTest, PrefetchHoldsAllFilesOfATypeAndCountsTheUnreadable)
{
    ExpectComplaints(1);
    Scan();
    fs::remove(m_Folder.Join("b.txt"));
    {
        FilePrefetchScope_c const Texts(".txt");
        EXPECT_EQ(m_Log.Count("FilePrefetch: processed (.txt) : 8 bytes in 2 files"), 1);
        FileUnfetch("txt");
        EXPECT_EQ(FileStream("a.txt")->GetOpensCount(), 1);
    }
    EXPECT_EQ(m_Log.Count("FileUnfetch: processed (.txt) : 2 files"), 1);
    EXPECT_EQ(FileStream("a.txt")->pData, nullptr);
}

TEST_F(FileAsyncTest, ThreadFillsABufferOrAddsAReference)
{
    Start();
    File_c * const pFile = FileStream("b.txt");
    // A row says whether there is a buffer, whether the file is resident, and whether the request adds a reference.
    for (auto const & [bBuffer, bResident, bAdds] :
        Rows_t<bool, bool, bool>{ { 0, 0, 1 }, { 0, 1, 1 }, { 1, 0, 0 }, { 1, 1, 1 } })
    {
        SCOPED_TRACE(testing::PrintToString(std::pair(bBuffer, bResident)));
        char szBuffer[] = "-----";
        EXPECT_EQ(bResident && FileOpen(pFile), bResident);
        Await(pFile, bBuffer ? szBuffer : nullptr);
        EXPECT_EQ(pFile->GetOpensCount(), bResident + bAdds);
        EXPECT_EQ(Contents(pFile), bResident || !bBuffer ? "twice" : "(none)");
        EXPECT_STREQ(szBuffer, bBuffer ? "twice" : "-----");
        FileClose(bResident ? pFile : nullptr);
        FileClose(bAdds ? pFile : nullptr);
    }
}

TEST_F(FileAsyncTest, ThreadWritesNothingBeyondABufferThatTheFileOutgrew)
{
    ExpectComplaints(1);
    Start();
    File_c * const pFile = FileStream("b.txt");
    char szSmall[6] = "-----";
    m_Folder.Write("b.txt", "larger");
    Await(pFile, szSmall);
    EXPECT_EQ(s_dReported, std::vector<std::string>{ "b.txt" }) << "a read error in the worker";
    SlowFile_c Slow;
    for (bool const bResident : { false, true })   // pFile learns the larger size after the request
    {
        SCOPED_TRACE(bResident);
        pFile->iLength = 5;
        FileAsyncOpen(&Slow, nullptr);
        FileAsyncOpen(pFile, szSmall);
        FileClose(FileOpen(pFile) && !bResident ? pFile : nullptr);
        WaitUntil([&] { return FileAsyncIsLoadedSlow(pFile); });
        EXPECT_STREQ(szSmall, "-----");
        EXPECT_EQ(pFile->GetOpensCount(), bResident);
        WaitUntil([&] { return FileAsyncIsLoadedSlow(&Slow); });
    }
    FileClose(pFile);
    EXPECT_EQ(pFile->GetOpensCount(), 0);
    pFile->iLength = 5;
    FileAsyncOpen(&Slow, nullptr);
    FileAsyncOpen(pFile, szSmall);
    ASSERT_TRUE(FileOpen(pFile));
    FileClose(pFile);
    fs::remove(m_Folder.Join("b.txt"));
    WaitUntil([&] { return FileAsyncIsLoadedSlow(pFile); });
    EXPECT_EQ(pFile->iLength, 6) << "as the last open that worked found it";
    WaitUntil([&] { return FileAsyncIsLoadedSlow(&Slow); });
}

TEST_F(FileAsyncTest, ThreadServesInOrderSleepsAndDropsItsQueueAtTheStop)
{
    ExpectComplaints(1);
    Start();
    constexpr int FILES = 100;
    SlowFile_c dSlow[FILES];
    File_c * const pFile = FileStream("a.txt");
    Await(pFile, nullptr);
    std::clock_t const tStart = std::clock();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LT(std::clock() - tStart, CLOCKS_PER_SEC / 10) << "a worker without requests uses no processor time";
    s_nEntered = s_nDone = 0;
    s_dEntered.clear();
    std::ranges::for_each(dSlow, [](SlowFile_c & Slow) { FileAsyncOpen(&Slow, nullptr); });
    EXPECT_EQ(FileAsyncOpen(pFile, nullptr), reinterpret_cast<void *>(FILES));
    EXPECT_EACH(!FileAsyncIsLoadedSlow(pFile), !FileAsyncIsLoadedSlow(nullptr));
    for (void * const hBad : { reinterpret_cast<void *>(FILES + 1), FileAsyncOpen(nullptr, nullptr) })
    {
        EXPECT_EQ(FailedConditions([=] { FileAsyncIsLoaded(hBad); }), "int(file) < g_pAsyncFiles.GetLength ()");
    }
    WaitUntil([&] { return s_nEntered >= 2; });
    Module_c::ShutdownAllModules();
    EXPECT_EACH(s_dEntered[0] == &dSlow[0], s_dEntered[1] == &dSlow[1]) << "the oldest first";
    EXPECT_EQ(s_nDone, s_nEntered) << "the read in progress finished";
    EXPECT_LT(s_nEntered, FILES);
    EXPECT_EQ(g_pAsyncFiles.GetLength(), 0);
}

TEST_F(FileAsyncTest, WhoeverWaitsForTheIdleThreadLiftsIt)
{
    Start();
    AwaitedFile_c File;
    s_nEntered = 0;
    File.sName = "awaited";
    FileAsyncOpen(&File, nullptr);
    WaitUntil([] { return s_nEntered >= 1; });
    EXPECT_FALSE(FileOpen(&File));   // waits, then reads on its own
    FileAsyncOpen(&File, nullptr);
    WaitUntil([] { return s_nEntered >= 3; });
    Module_c::ShutdownAllModules();
    SKIP_IF(!IdleThreadsCanLeave(), "the system has no idle class, or lets no thread leave it");
    std::pair const Lifted(true, false);
    EXPECT_EQ(File.m_dIdle, (std::vector{ Lifted, { false, false }, Lifted }));
}

TEST_F(FileAsyncTest, NobodyWaitsForAThreadThatCantBeLifted)
{
    NEEDS_NOBODY;
    constexpr int LIFTABLE = 77;   // status of the child
    fs::resize_file(m_Folder.Write("big.bin", ""), 64 << 20);
    auto const OpenBesideBusyThreads = []
    {
        Start();
        s_nEntered = 0;
        g_FileOpenCallbacker.Add([](char const *) { ++s_nEntered; }, false);
        g_bCollectResource = true;
        for (unsigned i = 0; i < 2 * std::thread::hardware_concurrency(); ++i)
        {
            std::thread([] { WaitUntil([] { return false; }); }).detach();   // to the end of the process
        }
        File_c * const pFile = FileStream("big.bin");
        FileAsyncOpen(pFile, nullptr);
        WaitUntil([] { return s_nEntered > 0; });
        bool const bOpened = FileOpen(pFile), bWaited = FileAsyncIsLoadedSlow(pFile);
        bool const bLiftable = plat::ThreadCanBeLifted();
        Module_c::ShutdownAllModules();
        if (bLiftable)
        {
            return LIFTABLE;
        }
        EXPECT_EACH(bOpened, !bWaited);
        return 0;
    };
    int const iStatus = StatusAsNobody(OpenBesideBusyThreads);
    SKIP_IF(iStatus == LIFTABLE, "the system lets every thread leave the idle class");
    EXPECT_EQ(iStatus, 0);
}

TEST_F(FileAsyncTest, AForkLeavesTheChildItsFilesAndAWorkerOfItsOwn)
{
    NEEDS_FORKS;
    Start();
    File_c * const pFile = FileStream("b.txt");
    SlowFile_c Slow;
    Slow.sName = "slow";
    std::atomic<bool> bStop = false;
    auto const OpenAndClose = [&]
    {
        FileClose(FileOpen(pFile) ? pFile : nullptr);
        return bStop.load();
    };
    std::thread Opener([&] { WaitUntil(OpenAndClose); });
    auto const ReadInChild = [&]
    {
        EXPECT_EACH(FileOpen(pFile), !FileOpen(&Slow));
        Await(FileStream("a.txt"), nullptr);
        EXPECT_EACH(FileAsyncIsLoadedSlow(&Slow), Contents(FileStream("a.txt")) == "one");
        Module_c::ShutdownAllModules();
        return 0;
    };
    for (int i = 0; i < 10; ++i)
    {
        s_nEntered = 0;
        FileAsyncOpen(&Slow, nullptr);
        WaitUntil([] { return s_nEntered > 0; });
        EXPECT_EQ(StatusOfChild(StartChild(ReadInChild)), 0);
        WaitUntil([&] { return FileAsyncIsLoadedSlow(&Slow); });
    }
    bStop = true;
    Opener.join();
}

TEST_F(FileAsyncTest, WithoutAThreadRequestsAreServedAtOnce)
{
    RefuseThreads(true);
    Start();
    RefuseThreads(false);
    EXPECT_TRUE(FileAsyncIsLoaded(FileAsyncOpen(FileStream("a.txt"), nullptr)));
    EXPECT_EQ(Contents(FileStream("a.txt")), "one");
}
