// track_bench.cpp: the cost of change tracking while nothing changes, and of its start.
#include "bench/bench_support.h"
#include "zqcore/cfiletrack.h"

#include <ftw.h>
#include <poll.h>
#include <string>
#include <sys/inotify.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
    constexpr int FOLDERS = 1000;
    constexpr int PARENTS = 30;   // folders that hold the others
    constexpr int FILES_EACH = 10;
    constexpr int WALK_DESCRIPTORS = 64;   // that nftw may hold open

    // A tree in the system's temporary folder, until the end of the process.
    class Tree_c
    {
    public:
        Tree_c()
        {
            for (int i = 0; i < FOLDERS; ++i)
            {
                fs::path const Folder = fs::path(m_sRoot) / std::to_string(i % PARENTS) / std::to_string(i);
                fs::create_directories(Folder);
                for (int iFile = 0; iFile < FILES_EACH; ++iFile)
                {
                    std::ofstream(Folder / ("file" + std::to_string(iFile) + ".txt")) << iFile;
                }
            }
        }
        ~Tree_c() { fs::remove_all(m_sRoot); }

        char const * GetRoot() const { return m_sRoot.c_str(); }

    private:
        std::string m_sRoot = fs::temp_directory_path() / ("zqcore_track_" + std::to_string(getpid()));
    };

    // Makes the tree at the first call. Returns its root.
    char const * MakeTree()
    {
        static Tree_c s_Tree;
        return s_Tree.GetRoot();
    }

    // Descriptor of the queue of inotify that has a watch on each folder of the tree.
    int g_iBareWatch = -1;

    int WatchBare(char const * szPath, struct stat const *, int iKind, FTW *)
    {
        constexpr std::uint32_t EVENTS = IN_CREATE | IN_CLOSE_WRITE | IN_MOVE | IN_DELETE;
        return iKind == FTW_D && inotify_add_watch(g_iBareWatch, szPath, EVENTS) < 0 ? -1 : 0;
    }

    // Makes the queue and its watches. Returns false if one fails.
    bool OpenBare()
    {
        g_iBareWatch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        return nftw(MakeTree(), WatchBare, WALK_DESCRIPTORS, FTW_PHYS) == 0;
    }

    void IdleOurs(benchmark::State & State)
    {
        FileTrackChanges(MakeTree());
        Require(State, FileTrackIsOn());
        for (auto _ : State)
        {
            FileTrackDoWork();
        }
        FileTrackShutdown();
    }

    template <typename CALL>
    void IdleBare(benchmark::State & State, CALL const & fnCall)
    {
        Require(State, OpenBare());
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(fnCall());
        }
        close(g_iBareWatch);
    }

    void IdleRead(benchmark::State & State)
    {
        alignas(inotify_event) static char s_dEvents[16384];
        IdleBare(State, [] { return read(g_iBareWatch, s_dEvents, sizeof s_dEvents); });
    }

    void IdlePoll(benchmark::State & State)
    {
        IdleBare(State,
            []
            {
                pollfd Poll{ g_iBareWatch, POLLIN, 0 };
                return poll(&Poll, 1, 0);
            });
    }

    void StartOurs(benchmark::State & State)
    {
        MakeTree();
        for (auto _ : State)
        {
            FileTrackChanges(MakeTree());
            Require(State, FileTrackIsOn());
            FileTrackShutdown();
        }
    }

    void StartBare(benchmark::State & State)
    {
        MakeTree();
        for (auto _ : State)
        {
            Require(State, OpenBare());
            close(g_iBareWatch);
        }
    }

    BENCHMARK(IdleOurs)->Name("TrackIdle/ours");
    BENCHMARK(IdleRead)->Name("TrackIdle/bare_read");
    BENCHMARK(IdlePoll)->Name("TrackIdle/bare_poll");
    BENCHMARK(StartOurs)->Name("TrackStart/ours")->Unit(benchmark::kMillisecond);
    BENCHMARK(StartBare)->Name("TrackStart/nftw_inotify")->Unit(benchmark::kMillisecond);
}
