// Calls that the headers allow to several threads, made by eight at once. The thread checker finds most of the faults.
#include "tests/test_support.h"

#include "zqcore/ccallback.h"
#include "zqcore/ccrc.h"
#include "zqcore/ccryptrnd.h"
#include "zqcore/cexceptioninfo.h"
#include "zqcore/cexceptionreport.h"
#include "zqcore/cfile.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/cfilesave.h"
#include "zqcore/cguid.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cperlin.h"
#include "zqcore/cregistry.h"
#include "zqcore/cserialize.h"
#include "zqcore/csha1.h"
#include "zqcore/csimpleprofile.h"
#include "zqcore/csincos.h"
#include "zqcore/ctexterror.h"
#include "zqcore/ctimer.h"
#include "zqcore/ctokenize.h"

#include "platform/registry.h"

#include <atomic>
#include <cstdarg>

namespace
{
    constexpr int THREADS = 8;
    constexpr int ROUNDS = 10;

    std::atomic<int> g_nHeard, g_nFiles, g_nSaves;
    std::string g_sFolder;
    File_c * g_pShared;
    float g_fNoise;

    void LogByArg(char const * szFile, char const * fmt, ...)
    {
        std::va_list args;
        va_start(args, fmt);
        LogfArg(szFile, fmt, args);
        va_end(args);
    }

    void LogAndTime(int iThread)
    {
        Log("thread %i", iThread);
        LogEscaped("thread %i: %s", iThread, "text\n");
        LogSetLimit(iThread % 2 ? 0 : 4096, 2);
        Logcf(true, "threads.csv", "%i", iThread);
        LogByArg("threads.csv", "%i", iThread);
        LogByArg(nullptr, "%i", iThread);
        Logc(true, "at %f of %f, %lld", longTimeGetPassed(), longTimeGet(), static_cast<long long>(shortTimeGet()));
        LogText("text");
        Debugf("thread %i", iThread);
        LogWinLastError(nullptr);
        Logf("threads.csv", "%i", iThread);
        Logf_raw("threads.csv", "raw\n");
        SetTextErrorLog(true);
    }

    void Complain(int iThread)
    {
        DebugMessages_c & Messages = DebugMessages_c::Get();
        Warning("thread %i", iThread);
        Achtung("thread %i", iThread);
        SetWarnings(iThread % 2 == 0);
        SetAchtungs(iThread % 2 == 0);
        ZQ_ASSERT_EX(iThread < 0, "thread %i", iThread);
        Messages.DebugAssert("file.cpp", iThread, "text");
        (Messages.*Messages.SetLocation("file.cpp", iThread))("thread %i", iThread);
        MessageBoxPlain(nullptr, "text", "caption", MESSAGE_OK);
        ExceptionInfo_c::TraceLine("thread %i", iThread);
    }

    void UseFiles(int iThread)
    {
        EXPECT_EACH(FileOpen(g_pShared), g_pShared->GetOpensCount() > 0);
        EXPECT_EQ(g_pShared->pData[0], 'i');
        unsigned char dPart[2];
        std::uint32_t nBytes = sizeof dPart;
        EXPECT_TRUE(g_pShared->Load(0, dPart, nBytes));
        FileStored_c * const pStream = g_pShared->OpenStored();
        EXPECT_EQ(pStream->ReadStored(dPart, 1, 2), 2u);
        pStream->CloseStored();
        FileClose(g_pShared);
        FileOpenTracker(&dPart, "own handle");
        FileCloseTracker(&dPart);
        FileOpenToResponseLog(std::to_string(iThread).c_str(), FILE_LOG_PLAIN | FILE_LOG_CLEAN);
        EXPECT_TRUE(DirectoryExists(g_sFolder.c_str()));
    }

    void Save(int iThread)
    {
        FileReplacement_c Replacement((g_sFolder + "/save" + std::to_string(iThread)).c_str());
        BufferedWriteable_c Archive(Replacement, 0x10000);
        Archive.Open();
        Archive.Serialize(iThread);
        EXPECT_EACH(Archive.Close(), Replacement.Commit());
        Registry_c Registry;
        EXPECT_EACH(Registry.CreateKey("threads"), Registry.WriteValue("value", iThread));
        EXPECT_LT(Registry.ReadInt("value", THREADS), THREADS);
        FileSave_c Contested((g_sFolder + "/contested.sav").c_str());   // one thread at a time has the lock
        if (Contested.IsLocked())
        {
            Contested.SetPrevious(2);
            FileSaveWriter_c Writer(Contested);
            BufferedWriteable_c Contents(Writer, 0x10000);
            Contents.Open();
            Contents.Serialize(iThread);
            EXPECT_EACH(Contents.Close(), Writer.Commit());
            ++g_nSaves;
            EXPECT_EQ(Contested.Load(0x10000), FileSave_c::WHOLE);
        }
    }

    void UseMemory(int iThread)
    {
        static std::atomic<int *> s_pPassed{ nullptr };   // from one thread to the next
        MemCategoryScope_c const Scope(iThread % 2 ? mem::Sound : mem::AI);
        delete s_pPassed.exchange(ZQ_NEW int(iThread));
        delete s_pPassed.exchange(nullptr);
        aligned_free_dbg(aligned_malloc_dbg(100, 64, MEMORY_CLIENT_BLOCK, __FILE__, __LINE__));
        mem::CategoryInfo dInfo[mem::TOTAL];
        std::ptrdiff_t nAllocs, nBytes, nMaxBytes;
        MemoryCategoriesGet(dInfo, nAllocs, nBytes, nMaxBytes);
        EXPECT_GE(nMaxBytes, nBytes);
        EXPECT_LE(MemoryTotalBytesAllocated(), MemoryMaxTotalBytesAllocated());
        MemoryGetFrameAllocCount();
        mem::UserAllocatorInfo_c Own;
        EXPECT_EACH(mem::RegisterUserAllocator(Own), mem::GetUserAllocators(nullptr, 0) > 0);
        EXPECT_TRUE(mem::UnRegisterUserAllocator(Own));
    }

    void UseNumbers(int iThread)
    {
        unsigned char dBytes[21];
        PutNextRandom();
        GetRandomBytes(dBytes, sizeof dBytes);
        Guid_c One, Two;
        EXPECT_EACH(Guid_c::Create(One), Guid_c::Create(Two), !(One == Two));
        auto const eContext = static_cast<SimpleProfileContext_e>(iThread % SIMPLE_PROFILE_CONTEXT_TOTAL);
        SimpleProfilePush(eContext, SIMPLE_TIMER_AI);
        SimpleProfilePop(eContext, SIMPLE_TIMER_AI);
        SimpleProfileGet(eContext, SIMPLE_TIMER_AI);
        EXPECT_EQ(PerlinNoise(0.3f), g_fNoise);
        EXPECT_EQ(SinOfAngle(16384), 1.0f);
    }

    void ReadTexts(int)
    {
        EXPECT_EQ(GetCrc32Polynomial("123456789", 9), 0xCBF43926u);
        SHA1Context Context;
        unsigned char dDigest[SHA1_HASH_SIZE];
        EXPECT_EACH(SHA1Reset(&Context) == shaSuccess, SHA1Result(&Context, dDigest) == shaSuccess);
        EXPECT_EQ(dDigest[0], 0xDA);   // of no bytes
        FileName_c const Name("media\\harbour.table");
        EXPECT_STREQ(Name.GetName(), "harbour");
        Array_T<String_T<256>, 10, 0> dParts;
        Tokenize("one,two", dParts, ',');
        ASSERT_EQ(dParts.GetLength(), 2);
        EXPECT_STREQ(dParts[1], "two");
    }

    // The services that the threads use, in a folder of their own.
    struct Threads : testing::Test
    {
        void SetUp() override
        {
            g_sFolder = m_Folder.GetPath();
            m_Folder.Write("media/shared.csv", "ident;n\n@head;\na;1\n");
            m_Folder.MakeFolder("media/logs");
            LogSetFile(std::filesystem::path(g_sFolder + "/").wstring().c_str(), L"message.log");
            LogInit();
            plat::RegistrySetFolder(plat::RegistryTree_e::User, m_Folder.MakeFolder("registry").c_str());
            SetPQXMediaPath(m_Folder.Join("media").c_str());
            ExceptionReport_c::SetSymbolHelper("");
            Guid_c::SetGlobalOnly(false);
            g_nHeard = g_nFiles = g_nSaves = 0;
            g_WarningsCallbacker.Add([](char const *) { ++g_nHeard; }, false);
            g_FileOpenCallbacker.Add([](char const *) { ++g_nFiles; }, false);
            Module_c::Register(ModulePerlin_c::Get());
            Module_c::Register(ModuleSinCos_c::Get());
            ASSERT_TRUE(StartModule(ModuleFile_c::Get()));
            g_fNoise = PerlinNoise(0.3f);
            ASSERT_NE(g_fNoise, 0);
            g_pShared = FileStream("shared.csv");
            ASSERT_TRUE(g_pShared);
            FileOpenLogEnable("threads", FILE_LOG_PLAIN | FILE_LOG_CLEAN, false);
        }

        ~Threads() override
        {
            Module_c::ShutdownAllModules();
            LogSetLimit(0, 0);
            LogDone();
            g_WarningsCallbacker.Reset();
            plat::RegistrySetFolder(plat::RegistryTree_e::User, nullptr);
            ExceptionReport_c::SetSymbolHelper(ZQSYMBOLS_PATH);
            Guid_c::SetGlobalOnly(true);
            SetTextErrorLog(false);
            SetWarnings(false);
            SetAchtungs(true);
            SetPQXMediaPath("");
        }

        TempFolder_c const m_Folder;
        DialogScript_c const m_Dialogs;
    };
}

TEST_F(Threads, MayDoAtOnceWhatTheHeadersAllow)
{
    std::atomic<int> nAtWork{ THREADS };
    std::thread Frames(
        [&nAtWork]
        {
            while (nAtWork > 0)
            {
                std::atomic_ref(g_iLogFrameCounter).fetch_add(1);
                MemoryResetFrameAllocCount();
                SimpleProfileReset(SIMPLE_PROFILE_CONTEXT_0);
                std::this_thread::yield();
            }
        });
    RunInThreads(THREADS,
        [&nAtWork](int iThread)
        {
            constexpr void (*CALLS[])(int) = { LogAndTime, Complain, UseFiles, Save, UseMemory, UseNumbers, ReadTexts };
            for (int iRound = 0; iRound < ROUNDS * std::ssize(CALLS); ++iRound)
            {
                CALLS[(iRound + iThread) % std::ssize(CALLS)](iThread);
            }
            --nAtWork;
        });
    Frames.join();
    EXPECT_EACH(g_pShared->GetOpensCount() == 0, !g_pShared->pData);
    EXPECT_EQ(g_dOpenTracks.GetLength(), 0);
    EXPECT_GE(g_nHeard, THREADS * ROUNDS);
    EXPECT_GE(m_Dialogs.GetCount(), THREADS * ROUNDS * 3);   // three or more for each Complain
    EXPECT_GE(g_nFiles, THREADS * ROUNDS);
    EXPECT_GE(g_nSaves, 1);
    FileOpenLogDisable();
    std::string const sOpens = m_Folder.Read("media/logs/threads.rsp");
    EXPECT_GE(std::ranges::count(sOpens, '\n'), THREADS * ROUNDS);
    EXPECT_THAT(sOpens, testing::MatchesRegex("([0-7]\n|[^\n]+shared.csv\n)+"));
}
