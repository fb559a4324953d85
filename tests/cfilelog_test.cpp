#include "zqcore/cfilelog.h"

#include "tests/media_fixture.h"

#include <thread>

namespace
{
    void * Handle(std::intptr_t i)
    {
        return reinterpret_cast<void *>(i);
    }
}

class FileTrackerTest : public MediaTest
{
protected:
    ~FileTrackerTest() override { g_iMaxOpenFiles = 50; }

    // Opens the handles from iFirst to iLast, named after the test and the handle.
    static void Open(int iFirst, int iLast, std::string const & sTest)
    {
        for (int i = iFirst; i <= iLast; ++i)
        {
            FileOpenTracker(Handle(i), (sTest + std::to_string(i)).c_str());
        }
    }

    static void Close(int iFirst, int iLast)
    {
        for (int i = iFirst; i <= iLast; ++i)
        {
            FileCloseTracker(Handle(i));
        }
    }
};

TEST_F(FileTrackerTest, WarnsAboveEachLimitOnceAndDumps)
{
    Open(1, 50, "lim");
    EXPECT_EQ(Log.GetText(), "");
    Open(51, 51, "lim");
    std::string sExpected = "CreateFile(): limit of 50 opened files exceeded on opening file 'lim51'!\n";
    for (int i = 1; i <= 51; ++i)
    {
        sExpected += "Opened file: 'lim" + std::to_string(i) + "'\n";
    }
    EXPECT_EQ(Log.GetText(), sExpected);
    Log.Clear();
    Close(51, 51);
    Open(51, 60, "lim");
    EXPECT_EQ(Log.GetText(), "");
    Open(61, 61, "lim");
    EXPECT_EQ(Log.CountHolding("limit of 60 opened files exceeded on opening file 'lim61'!"), 1);
    Close(1, 61);
    EXPECT_EQ(Dialogs.GetCount(), 2);
}

TEST_F(FileTrackerTest, WarnsOfFailedOpensUnlessTheyArePacksOrBinaries)
{
    struct Row_s
    {
        char const * szTemplate;
        char const * szName;   // null: no name
        bool bQuiet;
    };
    for (Row_s const & row : { Row_s{ "media*.zq", "track1.txt", false }, Row_s{ "media*.zq", "media7.ZQ", true },
             Row_s{ "media*.zq", "Cache.BIN", true }, Row_s{ "media*.zq", nullptr, true },
             Row_s{ "media*.zq", "track2.zqx", false }, Row_s{ "p*.pak", "track3.zq", false },
             Row_s{ "p*.pak", "track4.Pak", true }, Row_s{ "media*.zq", "q", false } })
    {
        for (void * hFile : { Handle(0), Handle(-1) })
        {
            Log.Clear();
            FileSetMediaTemplate(row.szTemplate);
            std::string const sName = std::string(row.szName ? row.szName : "");
            FileOpenTracker(hFile, row.szName ? (hFile ? "2/" + sName : sName).c_str() : nullptr);
            EXPECT_EQ(Log.CountHolding(sName + "' failed!"), row.bQuiet ? 0 : 1) << sName;
        }
    }
    EXPECT_EQ(Log.GetText(), "CreateFile(): opening of file '2/q' failed!\n");
    FileSetMediaTemplate("media*.zq");
    FileCloseTracker(Handle(0));
    FileCloseTracker(Handle(-1));
    EXPECT_EQ(Dialogs.CountHolding("CloseHandle()"), 0);
}

TEST_F(FileTrackerTest, ReportsACloseOfAnUnknownHandleAndRoomForNoMore)
{
    Open(7, 7, "x");
    Close(8, 8);
    EXPECT_EQ(Dialogs.CountHolding("CloseHandle(): closing more files than we've opened"), 1);
    Close(7, 7);

    g_iMaxOpenFiles = 1000;
    Open(1, 258, "full");
    EXPECT_EQ(g_dOpenTracks.GetLength(), 256);
    EXPECT_EQ(Dialogs.CountHolding("iAccessIndex >= 0 && iAccessIndex <= LENGTH"), 2);
    Close(1, 258);
    EXPECT_EQ(Dialogs.CountHolding("CloseHandle()"), 1) << "handles beyond the list were counted";
    Close(9, 9);
    EXPECT_EQ(Dialogs.CountHolding("CloseHandle()"), 2);
}

TEST_F(FileTrackerTest, ThreadsKeepTheListWhole)
{
    std::vector<std::thread> dThreads;
    for (int iThread = 0; iThread < 4; ++iThread)
    {
        dThreads.emplace_back(
            [iThread]
            {
                for (int n = 0; n < 300; ++n)
                {
                    Open(iThread * 100 + 1, iThread * 100 + 9, "t");
                    Close(iThread * 100 + 1, iThread * 100 + 9);
                }
            });
    }
    for (std::thread & Thread : dThreads)
    {
        Thread.join();
    }
    EXPECT_EQ(g_dOpenTracks.GetLength(), 0);
    EXPECT_EQ(Dialogs.GetCount(), 0);
}

TEST_F(FileTrackerTest, OpensAreToldOnlyWhileResourcesAreCollected)
{
    static std::vector<std::string> s_dOpened;
    s_dOpened.clear();
    MakeAndScan({ { "a.txt", "x" }, { "b.txt", "x" } });
    g_FileOpenCallbacker.Add([](char const * szLocation) { s_dOpened.push_back(szLocation); }, false);
    FileClose(FileOpen("a.txt"));
    g_bCollectResource = true;
    FileClose(FileOpen("a.txt"));
    FileOpenStored("b.txt")->CloseStored();
    unsigned char cByte;
    std::uint32_t dwLength = 1;
    FileStream("b.txt")->Load(0, &cByte, dwLength);
    g_bCollectResource = false;
    g_FileOpenCallbacker.Reset();
    EXPECT_EQ(s_dOpened, (std::vector<std::string>{ Folded("a.txt"), Folded("b.txt"), Folded("b.txt") }));
}
