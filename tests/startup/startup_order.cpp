// startup_order.cpp: works with the library before main and after it, in a constructor and a destructor.
// Prints what failed, then "done". The first argument names what it does besides:
//     leak     loses three blocks
//     unload   loses two blocks of a plugin, whose file is the second argument, and lists the live ones
//     streams  has the C++ runtime keep blocks for good
//     threads  ends while another thread allocates
//     children ends 20 children of a fork, beside a thread that visits the modules
#include "tests/memory_support.h"
#include "zqcore/capp.h"
#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemory.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cprofile.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <iostream>
#include <latch>
#include <link.h>
#include <locale>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern "C" int * EarlyBlock();

namespace
{
    int g_nLines = 0;
    int g_nCommands = 0;

    void Check(bool bHolds, char const * szWhat)
    {
        if (!bHolds)
        {
            std::printf("failed: %s\n", szWhat);
        }
    }

    class Probe_c : public Module_c
    {
    public:
        Probe_c()
            : Module_c("Probe_c")
        {}

        Module_c ** GetPrerequisites() const override
        {
            static Module_c * s_dPrerequisites[] = { ModuleLog_c::Get(), ModuleProfiler_c::Get(), nullptr };
            return s_dPrerequisites;
        }
    };
    Probe_c g_Probe;

    bool HasGameBlocks(std::ptrdiff_t nExpected)
    {
        return InfoOf(mem::Game).iCount == nExpected;
    }

    void FreeEarlyBlock()
    {
        mem::CategoryInfo const Before = InfoOf(mem::UNDEFINED);
        Check(Before.iBytes >= 100000, "a block before the tracking counts");
        Check(Before.iMaxBytes >= Before.iBytes, "the peak is not below the bytes alive");
        delete[] EarlyBlock();
        mem::CategoryInfo const After = InfoOf(mem::UNDEFINED);
        Check(After.iCount == Before.iCount - 1, "it is gone");
        Check(After.iCount >= 0, "the count is not negative");
        Check(After.iBytes >= 0, "the bytes are not negative");
        Check(MemoryCheckConsistency(), "the heap is consistent");
    }

    class Early_c
    {
    public:
        Early_c()
        {
            Check(g_MemoryInit, "the heap is tracked before main");
            MemCategoryScope_c const Scope(mem::Game);
            m_pNumbers = ZQ_NEW int[100];
            m_pText = new std::string(100, 'x');
            Check(HasGameBlocks(3), "three blocks count under the category");
            LogAddCallback([](char const * szLine) { g_nLines += std::strcmp(szLine, "before main") == 0; });
            Log("before main");
            g_CommandCallbacker.Add([](int) { ++g_nCommands; }, false);
            Module_c::Register(&g_Probe);
        }

        ~Early_c()
        {
            Check(g_MemoryInit, "the heap is tracked after main");
            delete[] m_pNumbers;
            delete m_pText;
            Check(HasGameBlocks(0), "the blocks are gone after main");
            Log("after main");
            std::printf("done\n");
        }

    private:
        int * m_pNumbers;
        std::string * m_pText;
    };
    Early_c g_Early;

    class Described_c : public mem::Object_i
    {
    public:
        void Describe(char * szBuffer, std::size_t) const override
        {
            std::memcpy(szBuffer, "a lost object", 13);   // the buffer's zeros end it
        }
    };

    void Leak(char const *)
    {
        LogSetFile(L"./", L"message.log");   // closed before the leaks are found
        LogInit();
        auto const iWord =
            static_cast<int>(MEMORY_OBJECT_FLAG | mem::AI << MEMORY_CATEGORY_SHIFT | MEMORY_CLIENT_BLOCK);
        new (iWord, "described.cpp", 12) Described_c();
        new (std::align_val_t{ 256 }, iWord, "described.cpp", 13) Described_c();
        CoreMemory::operator_new(40, MEMORY_CLIENT_BLOCK, "lost.cpp", 34);
    }

    void LoseFromPlugin(char const * szPlugin)
    {
        void * const hPlugin = dlopen(szPlugin, RTLD_NOW);
        Check(hPlugin, "the plugin is there");
        reinterpret_cast<void (*)()>(dlsym(hPlugin, "Lose"))();
        dlclose(hPlugin);
        Check(!dlopen(szPlugin, RTLD_NOW | RTLD_NOLOAD), "the plugin is gone");
        MemoryLogAllocations();
    }

    void KeepInRuntime(char const *)
    {
        std::ios::sync_with_stdio(false);   // new buffers for the streams, which are never released
        std::cout.imbue(std::locale(std::locale(), new std::numpunct<char>));
        std::cout << std::flush;
    }

    void StartThread(char const *)
    {
        static std::latch s_Started(2);
        g_silentMode = true;   // an assertion ends the process with status 1
        std::thread(
            []
            {
                std::unique_ptr<int> const pHeld(ZQ_NEW int);
                s_Started.arrive_and_wait();
                for (;;)
                {
                    MemCategoryScope_c const Scope(mem::AI);
                    std::unique_ptr<int> const pBlock(ZQ_NEW int);
                }
            })
            .detach();
        s_Started.arrive_and_wait();
    }

    void EndChildren(char const *)
    {
        std::atomic<bool> bStop = false;
        std::thread Other(
            [&bStop]
            {
                while (!bStop)
                {
                    dl_iterate_phdr([](dl_phdr_info *, std::size_t, void *) { return 0; }, nullptr);
                }
            });
        for (int i = 0; i < 20; ++i)
        {
            pid_t const iChild = fork();
            if (iChild == 0)
            {
                alarm(20);   // ends a child that hangs
                std::exit(0);
            }
            int iStatus = -1;
            waitpid(iChild, &iStatus, 0);
            Check(iStatus == 0, "a child reports its blocks and ends");
        }
        bStop = true;
        Other.join();
    }

    struct Mode_s
    {
        char const * szName;
        void (*fnRun)(char const * szPlugin);
    };
    constexpr Mode_s MODES[] = { { "leak", Leak }, { "unload", LoseFromPlugin }, { "streams", KeepInRuntime },
        { "threads", StartThread }, { "children", EndChildren } };
}

int main(int nArguments, char ** dArguments)
{
    FreeEarlyBlock();
    Check(Module_c::InitializeAllModules(), "the modules start");
    Check(g_Probe.GetInitOrder() == 3, "the prerequisites and those of the profiler came first");
    g_CommandCallbacker.Fire(1, false);
    Check(g_nLines == 1, "the listener was called");
    Check(g_nCommands == 1, "the callback was called");
    for (Mode_s const & Mode : MODES)
    {
        if (nArguments > 1 && std::strcmp(Mode.szName, dArguments[1]) == 0)
        {
            Mode.fnRun(dArguments[2]);
        }
    }
    Module_c::ShutdownAllModules();
    AppMiscShutdown();
    return 0;
}
