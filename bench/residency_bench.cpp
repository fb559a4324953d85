// residency_bench.cpp: reading during frames and reading ahead, compared with bare system calls.
//
// All reads come from the page cache. The times are the main thread's own.
#include "bench/bench_support.h"
#include "zqcore/cfileasync.h"
#include "zqcore/cfilemedia.h"

#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
    constexpr int FILES = 10'000;
    constexpr int FILES_A_FOLDER = 20;
    constexpr int FILE_SIZE = 1000;   // bytes

    // A media tree with the running module, until the end of the process.
    class Media_c
    {
    public:
        Media_c()
        {
            m_Root = fs::temp_directory_path() / ("zqcore_residency_" + std::to_string(getpid()));
            for (int i = 0; i < FILES; ++i)
            {
                fs::path const Folder = m_Root / ("folder" + std::to_string(i / FILES_A_FOLDER));
                fs::create_directories(Folder);
                std::ofstream(Folder / ("piece" + std::to_string(i) + ".dat")) << std::string(FILE_SIZE, 'x');
            }
            WriteBlobs(m_Root);
            SetPQXMediaPath(m_Root.c_str());
            Module_c::Register(ModuleFile_c::Get());
            Module_c::InitializeAllModules();
        }

        ~Media_c()
        {
            Module_c::ShutdownAllModules();
            fs::remove_all(m_Root);
        }

        std::string BlobPath(std::int64_t nBytes) const { return (m_Root / BlobName(nBytes)).string(); }

        // Returns the paths of the small files in the order in which a prefetch reads them.
        static std::vector<std::string> Pieces()
        {
            std::vector<std::string> dPaths;
            for (auto * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
            {
                if (std::string_view(pSlot->pObject->GetExt()) == "dat")
                {
                    dPaths.emplace_back(pSlot->pObject->GetFullPath());
                    std::replace(dPaths.back().begin(), dPaths.back().end(), '\\', '/');
                }
            }
            return dPaths;
        }

    private:
        fs::path m_Root;
    };

    // Makes the media and starts the module at the first call. Returns the media.
    Media_c const & StartMedia()
    {
        static Media_c const s_Media;
        return s_Media;
    }

    // Reads a whole file with bare system calls, or aborts. Returns its bytes, which the caller frees.
    void * ReadBare(char const * szPath)
    {
        int const iFile = open(szPath, O_RDONLY | O_CLOEXEC);
        struct stat Stat;
        if (iFile < 0 || fstat(iFile, &Stat) != 0)
        {
            std::abort();
        }
        auto const nBytes = static_cast<std::size_t>(Stat.st_size);
        void * const pData = std::malloc(nBytes);
        if (read(iFile, pData, nBytes) != Stat.st_size)
        {
            std::abort();
        }
        close(iFile);
        return pData;
    }

    // Waits like a frame that has other things to do. It is the same for all rows of AsyncRead, so a row of its own
    // measures it.
    void SleepFrame()
    {
        timespec const Time = { .tv_sec = 0, .tv_nsec = 500'000 };
        nanosleep(&Time, nullptr);
    }

    void AsyncReadOurs(benchmark::State & State)
    {
        StartMedia();
        File_c * const pFile = FileStream(BlobName(State.range(0)).c_str());
        for (auto _ : State)
        {
            void * const hRequest = FileAsyncOpen(pFile, nullptr);
            do
            {
                SleepFrame();
            }
            while (!FileAsyncIsLoaded(hRequest));
            benchmark::DoNotOptimize(pFile->pData);
            FileClose(pFile);
        }
    }
    void AsyncReadBare(benchmark::State & State)
    {
        std::string const sPath = StartMedia().BlobPath(State.range(0));
        for (auto _ : State)
        {
            SleepFrame();
            std::free(ReadBare(sPath.c_str()));
        }
    }
    void AsyncReadNothing(benchmark::State & State)
    {
        for (auto _ : State)
        {
            SleepFrame();
        }
    }

    void PrefetchOurs(benchmark::State & State)
    {
        StartMedia();
        for (auto _ : State)
        {
            FilePrefetch(".dat");
            State.PauseTiming();
            FileUnfetch(".dat");
            State.ResumeTiming();
        }
        State.SetItemsProcessed(State.iterations() * FILES);
    }
    void PrefetchBare(benchmark::State & State)
    {
        StartMedia();
        std::vector<std::string> const dPaths = Media_c::Pieces();
        Require(State, dPaths.size() == FILES);
        std::vector<void *> dBlocks(dPaths.size());
        for (auto _ : State)
        {
            for (std::size_t i = 0; i < dPaths.size(); ++i)
            {
                dBlocks[i] = ReadBare(dPaths[i].c_str());
            }
            State.PauseTiming();
            std::for_each(dBlocks.begin(), dBlocks.end(), std::free);
            State.ResumeTiming();
        }
        State.SetItemsProcessed(State.iterations() * FILES);
    }

    BENCHMARK(AsyncReadOurs)->Name("AsyncRead/ours")->Arg(SMALL_BLOB)->Arg(LARGE_BLOB);
    BENCHMARK(AsyncReadBare)->Name("AsyncRead/bare_read")->Arg(SMALL_BLOB)->Arg(LARGE_BLOB);
    BENCHMARK(AsyncReadNothing)->Name("AsyncRead/sleep_only")->Arg(SMALL_BLOB)->Arg(LARGE_BLOB);
    BENCHMARK(PrefetchOurs)->Name("Prefetch/ours")->Unit(benchmark::kMillisecond);
    BENCHMARK(PrefetchBare)->Name("Prefetch/bare_malloc")->Unit(benchmark::kMillisecond);
}
