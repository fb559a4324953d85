// soak.cpp: a long run of a host, compressed into a short time.
//
//   soak FRAMES FOLDER
//
// The main thread runs frames without pause: the heartbeats, both profilers, opens and asynchronous reads, and now and
// then a rewritten table, a save, a registry value and a complaint. Seven more threads allocate under categories, log,
// and complain. After each tenth of the frames a line shows what the process holds. The status is 1 in these cases:
// - A module does not start.
// - A save, a table or a registry value fails, or a complaint is not heard. A line at the end has the counts.
// - From the second line to the last, one of these grows by more than its play: live blocks of a category, descriptors,
//   threads, or pages of the process.
// - The logs hold more bytes at the last line than their limits allow.
#include "zqcore/capp.h"
#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/cfileasync.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilesave.h"
#include "zqcore/cfiletrack.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemory.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cprofile.h"
#include "zqcore/cregistry.h"
#include "zqcore/cserialize.h"
#include "zqcore/csimpleprofile.h"
#include "zqcore/cwarehouse.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{
    constexpr int THREADS = 7, FILES = 40;
    constexpr int BLOCKS_PLAY = 2 * THREADS;   // of a category: a thread holds a few blocks at any moment
    constexpr int SELDOM = 1000;               // frames, or rounds of a thread, from one rare step to the next
    constexpr int LOG_LIMIT = 10000;           // bytes of one file of a log
    constexpr int PREVIOUS_LOGS = 2;           // files of a log besides the newest
    constexpr int LOGS_LIMIT = (THREADS + 1) * (1 + PREVIOUS_LOGS) * LOG_LIMIT;   // bytes of all logs

    std::atomic<bool> g_bOver = false;
    std::atomic<int> g_nComplaints = 0, g_nHeard = 0;

    // Failures on the main thread.
    struct Failures_s
    {
        int nSaves = 0, nTables = 0, nValues = 0;
    };
    Failures_s g_Failures;

    // Figures of what the process holds.
    struct Held_s
    {
        std::array<mem::CategoryInfo, mem::TOTAL> dCategories{};
        std::ptrdiff_t nBlocks = 0, nBytes = 0, nPeak = 0;
        std::ptrdiff_t nDescriptors = 0, nThreads = 0;
        long nPages = 0;
        std::ptrdiff_t nLogBytes = 0;
    };

    std::ptrdiff_t CountEntries(char const * szFolder)
    {
        using Iterator_t = std::filesystem::directory_iterator;
        return std::distance(Iterator_t(szFolder), Iterator_t());
    }

    Held_s HeldNow(std::string const & sFolder)
    {
        Held_s Held;
        MemoryCategoriesGet(Held.dCategories.data(), Held.nBlocks, Held.nBytes, Held.nPeak);
        Held.nDescriptors = CountEntries("/proc/self/fd");
        Held.nThreads = CountEntries("/proc/self/task");
        long nAll = 0;
        std::ifstream("/proc/self/statm") >> nAll >> Held.nPages;
        for (auto const & File : std::filesystem::directory_iterator(sFolder + "/log"))
        {
            std::error_code Gone;
            std::uintmax_t const nBytes = File.file_size(Gone);   // a log may be renamed meanwhile
            Held.nLogBytes += Gone ? 0 : static_cast<std::ptrdiff_t>(nBytes);
        }
        return Held;
    }

    // Prints the growth of a number if it is more than iPlay. Returns whether it is.
    bool PrintGrowth(char const * szWhat, std::ptrdiff_t iFirst, std::ptrdiff_t iLast, std::ptrdiff_t iPlay)
    {
        bool const bGrew = iLast > iFirst + iPlay;
        if (bGrew)
        {
            std::printf("%s grew from %td to %td\n", szWhat, iFirst, iLast);
        }
        return bGrew;
    }

    // Prints each growth, so no call is skipped. Returns whether there is any.
    bool PrintGrowth(Held_s const & First, Held_s const & Last)
    {
        bool bGrew = PrintGrowth("Descriptors", First.nDescriptors, Last.nDescriptors, 1)
                     | PrintGrowth("Threads", First.nThreads, Last.nThreads, 0)
                     | PrintGrowth("Pages", First.nPages, Last.nPages, First.nPages / 20)
                     | PrintGrowth("Logs", First.nLogBytes, Last.nLogBytes, LOGS_LIMIT - First.nLogBytes);
        for (int i = 0; i < mem::TOTAL; ++i)
        {
            char const * const szName = MemoryCategoryName(static_cast<mem::Categories_e>(i));
            bGrew |= PrintGrowth(szName, First.dCategories[i].iCount, Last.dCategories[i].iCount, BLOCKS_PLAY);
        }
        return bGrew;
    }

    void Write(std::string const & sFile, std::string const & sText)
    {
        std::ofstream(sFile) << sText;
    }

    void Complain(char const * szWho, int iWho)
    {
        ++g_nComplaints;
        Warning("%s %i complains", szWho, iWho);
    }

    // Counts a complaint of this program. The library may complain too.
    void Hear(char const * szText)
    {
        g_nHeard += std::strstr(szText, " complains") ? 1 : 0;
    }

    void RunThread(int iThread)
    {
        auto const eCategory = static_cast<mem::Categories_e>(mem::NORMAL_BLOCK + iThread);   // another for each thread
        std::string const sLog = "thread" + std::to_string(iThread) + ".log";
        for (int i = 0; !g_bOver; ++i)
        {
            MemCategoryScope_c const Scope(eCategory);
            auto const pBlock = std::make_unique<char[]>(static_cast<std::size_t>(1 + i % 5000));
            SimpleProfilePush(SIMPLE_PROFILE_CONTEXT_0, SIMPLE_TIMER_SERVER_WORLDUPDATE);
            SimpleProfilePop(SIMPLE_PROFILE_CONTEXT_0, SIMPLE_TIMER_SERVER_WORLDUPDATE);
            if (i % SELDOM == 0)
            {
                Log("thread %i: %i", iThread, i);
                Logf(sLog.c_str(), "%i", i);
                Complain("thread", iThread);
            }
            if (i % (SELDOM / 50) == 0)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    }

    // Saves, and reads the save as at the next start. On failure counts it in g_Failures and prints the reason.
    void SaveAndLoad(FileSave_c & Save, int iFrame)
    {
        FileSaveWriter_c Writer(Save);
        BufferedWriteable_c Archive(Writer, ARCHIVE_SAVED_GAME_VERSION);
        if (Archive.Open())
        {
            Archive.Serialize(iFrame);
        }
        bool const bSaved = Archive.Close() && !Archive.IsFailed() && Writer.Commit();
        if (!bSaved || Save.Load(ARCHIVE_SAVED_GAME_VERSION) != FileSave_c::WHOLE)
        {
            ++g_Failures.nSaves;
            std::printf("frame %i is not saved: %s\n", iFrame, bSaved ? Save.GetWhyNot() : Writer.GetWhyNot());
        }
    }

    void WriteValue(int iFrame)
    {
        Registry_c Key;
        std::string const sValue = "value" + std::to_string(iFrame % 7);
        if (!Key.OpenKey("soak\\values", true) || !Key.WriteValue(sValue.c_str(), iFrame)
            || Key.ReadInt(sValue.c_str(), -1) != iFrame)
        {
            ++g_Failures.nValues;
            std::printf("frame %i: %s is not in the registry\n", iFrame, sValue.c_str());
        }
    }

    // Returns the name of the table that a frame reads and writes.
    std::string TableName(int iFrame)
    {
        return "table" + std::to_string(iFrame % FILES) + ".csv";
    }

    void WriteTable(std::string const & sFolder, int iFrame)
    {
        Write(sFolder + "/media/" + TableName(iFrame), "@head;value\nrow;" + std::to_string(iFrame) + "\n");
    }

    void RunFrame(int iFrame, std::string const & sFolder, FileSave_c & Save)
    {
        ProfilerBeginFrame();
        ProfilerPush("Files", false);
        std::string const sFile = TableName(iFrame);
        Warehouse_c Table;
        int iValue = 0;
        if (!Table.Open(sFile.c_str()) || !Table.FindIdent("row") || !Table.Get("value", iValue))
        {
            ++g_Failures.nTables;
            std::printf("frame %i: %s can't be read: %s\n", iFrame, sFile.c_str(),
                static_cast<char const *>(Table.GetLastError().sReason));
        }
        File_c * const pNext = FileStream(TableName(iFrame + 7).c_str());
        void * const hRead = FileAsyncOpen(pNext, nullptr);
        while (!FileAsyncIsLoaded(hRead))
        {
            std::this_thread::yield();
        }
        FileClose(pNext);
        ProfilerPop();
        Module_c::HeartbeatAllModulesFrame(0.01);
        Module_c::HeartbeatAllModulesIdle();
        if (iFrame % SELDOM == 0)
        {
            WriteTable(sFolder, iFrame);
            SaveAndLoad(Save, iFrame);
            WriteValue(iFrame);
            Complain("frame", iFrame);
        }
        MemoryResetFrameAllocCount();
        ++g_iLogFrameCounter;
        ProfilerEndFrame();
        ProfilerUpdateFrame(true);
        SimpleProfileReset(SIMPLE_PROFILE_CONTEXT_0);
    }

    // Prints the counts of failures. Returns whether there are any.
    bool PrintFailures()
    {
        int const nUnheard = g_nComplaints - g_nHeard;
        std::printf("failed: %i saves, %i tables, %i registry values; %i of %i complaints were not heard\n",
            g_Failures.nSaves, g_Failures.nTables, g_Failures.nValues, nUnheard, g_nComplaints.load());
        return g_Failures.nSaves + g_Failures.nTables + g_Failures.nValues > 0 || nUnheard != 0;
    }

    bool Run(int nFrames, std::string const & sFolder)
    {
        FileSave_c Save((sFolder + "/soak.sav").c_str());
        Save.SetPrevious(2);
        std::vector<std::thread> dThreads;
        for (int i = 0; i < THREADS; ++i)
        {
            dThreads.emplace_back(RunThread, i);
        }
        Held_s First, Last;
        std::printf("%10s %8s %10s %11s %7s %7s %10s %10s\n", "frames", "blocks", "bytes", "descriptors", "threads",
            "pages", "log bytes", "complaints");
        for (int iTenth = 1; iTenth <= 10; ++iTenth)
        {
            for (int i = nFrames / 10 * (iTenth - 1); i < nFrames / 10 * iTenth; ++i)
            {
                RunFrame(i, sFolder, Save);
            }
            Last = HeldNow(sFolder);
            First = iTenth == 2 ? Last : First;
            std::printf("%10i %8td %10td %11td %7td %7ld %10td %10i\n", nFrames / 10 * iTenth, Last.nBlocks,
                Last.nBytes, Last.nDescriptors, Last.nThreads, Last.nPages, Last.nLogBytes, g_nHeard.load());
            std::fflush(stdout);
        }
        g_bOver = true;
        for (std::thread & Thread : dThreads)
        {
            Thread.join();
        }
        return !(PrintFailures() | PrintGrowth(First, Last));
    }
}

int main(int nArguments, char ** dArguments)
{
    if (nArguments != 3)
    {
        std::fprintf(stderr, "soak FRAMES FOLDER\n");
        return 2;
    }
    std::string const sFolder = std::filesystem::absolute(dArguments[2]).string();
    std::filesystem::create_directories(sFolder + "/media");
    for (int i = 0; i < FILES; ++i)
    {
        WriteTable(sFolder, i);
    }
    plat::RegistrySetFolder(plat::RegistryTree_e::User, (sFolder + "/registry").c_str());
    LogSetFile(std::filesystem::path(sFolder + "/log/").wstring().c_str(), L"message.log");
    LogSetLimit(LOG_LIMIT, PREVIOUS_LOGS);
    AppMiscStartup();
    SetPQXMediaPath((sFolder + "/media").c_str());
    SetAchtungs(false);
    SetWarnings(false);
    g_WarningsCallbacker.Add(Hear, false);
    Module_c::Register(ModuleFile_c::Get());
    Module_c::Register(ModuleProfiler_c::Get());
    bool bDone = false;
    if (Module_c::InitializeAllModules())
    {
        FileTrackChanges((sFolder + "/media").c_str());
        bDone = Run(std::atoi(dArguments[1]), sFolder);
    }
    Module_c::ShutdownAllModules();
    AppMiscShutdown();
    return bDone ? 0 : 1;
}
