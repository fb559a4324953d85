// cache_bench.cpp: filling the tables at a start from the file system cache, and by the scan that the cache replaces.
// The tree has 10,000 files in 500 folders and is warm.
#include "bench/bench_support.h"

#include "zqcore/cfilecache.h"
#include "zqcore/cfilemedia.h"

#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
    constexpr int AREAS = 20;   // folders that hold the others
    constexpr int FOLDERS = 500;
    constexpr int FILES = 10'000;

    std::string NameOf(int iFile)
    {
        return "unit_" + std::to_string(iFile) + "_diffuse.dds";
    }

    // The tree, below the system's temporary folder, with its cache. The process removes it at its end.
    class CachedTree_c
    {
    public:
        CachedTree_c()
            : m_Root(fs::temp_directory_path() / ("zqcore_cache_bench_" + std::to_string(getpid())))
        {
            for (int i = 0; i < FILES; ++i)
            {
                fs::path const Folder =
                    m_Root / ("area" + std::to_string(i % AREAS)) / ("set" + std::to_string(i % FOLDERS));
                fs::create_directories(Folder);
                std::ofstream(Folder / NameOf(i)) << i;
            }
            SetPQXMediaPath(m_Root.c_str());
            Scan();
            FilesystemCacheSave(CachePath().c_str());
            FileReset();
        }

        ~CachedTree_c()
        {
            FileReset();
            fs::remove_all(m_Root);
        }

        void Scan() const { FileAddSearchPath(m_Root.c_str(), true, false); }
        std::string CachePath() const { return (m_Root / "filesystemcache.bin").string(); }

    private:
        fs::path m_Root;
    };

    // Makes the tree and its cache at the first call. Returns the tree.
    CachedTree_c const & MakeTree()
    {
        static CachedTree_c const s_Tree;
        return s_Tree;
    }

    // Measures starts by fnFill. Each begins with the processor's caches as filling and emptying the tables leave them.
    template <typename START>
    void Start(benchmark::State & State, START fnFill)
    {
        MakeTree();
        for (auto _ : State)
        {
            fnFill();
            State.PauseTiming();
            Require(State, FileExists(NameOf(0).c_str()) && FileExists(NameOf(FILES - 1).c_str()));
            FileReset();
            State.ResumeTiming();
        }
        State.SetItemsProcessed(State.iterations() * FILES);
    }

    void StartFromCache(benchmark::State & State)
    {
        std::string const sCache = MakeTree().CachePath();
        Start(State,
            [&sCache]
            {
                FilesystemCacheInit(sCache.c_str());
                FilesystemCacheLoad();
            });
    }

    void StartFromScan(benchmark::State & State)
    {
        Start(State, [] { MakeTree().Scan(); });
    }

    BENCHMARK(StartFromCache)->Name("Start/from_cache/ours")->Unit(benchmark::kMillisecond);
    BENCHMARK(StartFromScan)->Name("Start/from_cache/scan")->Unit(benchmark::kMillisecond);
}
