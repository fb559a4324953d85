// machine_support.h: what a few tests need of the machine and of its system.
//
// A kernel may grant what an emulated machine does not do. So a macro NEEDS_ tries it and may skip the test.
#pragma once

#include "platform/checker.h"
#include "platform/memory.h"
#include "tests/test_support.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/filter.h>
#include <linux/hw_breakpoint.h>
#include <linux/io_uring.h>
#include <linux/perf_event.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <system_error>
#include <ucontext.h>

/// Skip a test that needs what the machine does not do.
#define NEEDS_LEASES SKIP_IF(!LeasesSeeWriters(), "leases do not show a writer here")
#define NEEDS_WATCHES SKIP_IF(!WatchesReportWrites(), "watches report nothing here")
#define NEEDS_FORKS SKIP_IF(!ForksBesideThreads(), "a child forked beside other threads can start none")
#define NEEDS_VFORK                                                                                                    \
    SKIP_IF(!SharesMemoryUntilExec(), "a child of vfork has its own memory, so no program starts from a fault")

/// Returns whether a read lease is refused while a file is open for writing, and granted afterwards.
inline bool LeasesSeeWriters()
{
    TempFolder_c const Folder;
    std::string const sFile = Folder.Write("leased", "x");
    int const iWriter = open(sFile.c_str(), O_WRONLY), iReader = open(sFile.c_str(), O_RDONLY);
    bool const bRefused = fcntl(iReader, F_SETLEASE, F_RDLCK) != 0 && errno == EAGAIN;
    close(iWriter);
    bool const bGranted = fcntl(iReader, F_SETLEASE, F_RDLCK) == 0;
    close(iReader);
    return bRefused && bGranted;
}

/// Returns whether a watch on a folder reports a file that is written there, within a second.
inline bool WatchesReportWrites()
{
    TempFolder_c const Folder;
    pollfd Watch = { inotify_init1(IN_CLOEXEC), POLLIN, 0 };
    inotify_add_watch(Watch.fd, Folder.GetPath().c_str(), IN_CLOSE_WRITE);
    Folder.Write("written", "x");
    bool const bReported = Watch.fd >= 0 && poll(&Watch, 1, 1000) == 1;
    close(Watch.fd);
    return bReported;
}

/// Returns whether a child forked from a process with other threads can start a thread. An emulator may end it. Returns
/// false under the address checker without trying: a fork does not acquire the checker's locks, so the child would wait
/// for ever in some runs.
inline bool ForksBesideThreads()
{
    if (plat::ADDRESS_CHECKER)
    {
        return false;
    }
    Gate_c const Done;
    std::thread Other([&Done] { Done.Wait(); });
    int const iChild = StartChild(
        []
        {
            std::fclose(stderr);   // for what an emulator says when it fails
            std::thread([] {}).join();
            return 0;
        });
    bool const bForks = StatusOfChild(iChild) == 0;
    Done.Open();
    Other.join();
    return bForks;
}

/// Returns whether a child that vfork starts shares this process's memory, as the start of a program needs it. An
/// emulator may copy the memory.
inline bool SharesMemoryUntilExec()
{
    static bool volatile s_bShared;
    s_bShared = false;
    int const iChild = vfork();
    if (iChild == 0)
    {
        s_bShared = true;
        _exit(0);
    }
    StatusOfChild(iChild);
    return s_bShared;
}

/// Returns whether the system lets this process open a queue of requests for files.
inline bool CanOpenRequestQueue()
{
    io_uring_params Params{};
    auto const iQueue = static_cast<int>(syscall(__NR_io_uring_setup, 1, &Params));
    return iQueue >= 0 && close(iQueue) == 0;
}

/// Returns whether this process has a queue of requests.
inline bool IsQueueOpen()
{
    std::error_code Gone;
    return std::any_of(std::filesystem::directory_iterator("/proc/self/fd"), {},
        [&](auto const & Entry) { return read_symlink(Entry.path(), Gone) == "anon_inode:[io_uring]"; });
}

/// Returns how many threads the kernel counts while a second one runs: 2, or another number under an emulator or a
/// checker.
inline int ThreadsBesideOne()
{
    Gate_c const Done;
    std::thread Other([&Done] { Done.Wait(); });
    int nThreads = 0;
    std::FILE * const pStat = std::fopen("/proc/self/stat", "r");
    std::fscanf(pStat,
        "%*[^)])"
        " %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %d",
        &nThreads);
    std::fclose(pStat);
    Done.Open();
    Other.join();
    return nThreads;
}

/// Returns whether a file opens for writing at once.
inline bool OpensForWriting(std::string const & sPath)
{
    int const iWriter = open(sPath.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    close(iWriter);
    return iWriter >= 0;
}

/// Exchanges the entries of two names. Returns false on failure.
inline bool ExchangeFiles(std::string const & sA, std::string const & sB)
{
    return renameat2(AT_FDCWD, sA.c_str(), AT_FDCWD, sB.c_str(), RENAME_EXCHANGE) == 0;
}

/// Moves this process to a user namespace of its own, and limits its "watches" or "instances" until it ends. Returns
/// false if the system refuses.
inline bool LimitWatches(std::string const & sWhat, int nLimit)
{
    return unshare(CLONE_NEWUSER) == 0 && std::ofstream("/proc/sys/user/max_inotify_" + sWhat) << nLimit << std::flush;
}

/// Returns the number of this process's open handles, including the one that the call opens to count them.
inline std::ptrdiff_t CountHandles()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Returns the handles of this process below 256 that are sockets whose name holds szPart after its first character.
inline std::vector<int> SocketsNamed(char const * szPart)
{
    std::vector<int> dSockets;
    for (int i = 0; i < 256; ++i)
    {
        sockaddr_un Name = {};
        socklen_t nName = sizeof(Name) - 1;
        bool const bNamed = getsockname(i, reinterpret_cast<sockaddr *>(&Name), &nName) == 0;
        if (bNamed && std::strstr(Name.sun_path + 1, szPart))
        {
            dSockets.push_back(i);
        }
    }
    return dSockets;
}

/// Makes handles refer to another file, as when a daemon closes all at its start and opens its own.
inline void ReplaceHandles(std::vector<int> const & dHandles)
{
    int const iFile = open("/dev/null", O_RDONLY);
    std::ranges::for_each(dHandles, [iFile](int i) { dup2(iFile, i); });
}

/// Scope in which a folder is locked, as if a process had stopped at work in it.
class FolderLock_c
{
public:
    explicit FolderLock_c(std::string const & sFolder)
        : m_iFolder(open(sFolder.c_str(), O_RDONLY | O_CLOEXEC))
    {
        EXPECT_EQ(flock(m_iFolder, LOCK_EX), 0);
    }
    ~FolderLock_c() { close(m_iFolder); }
    FolderLock_c & operator=(FolderLock_c &&) = delete;

private:
    int m_iFolder;
};

/// Returns whether all of the handles are open.
inline bool AreOpen(std::vector<int> const & dHandles)
{
    return std::ranges::all_of(dHandles, [](int i) { return fcntl(i, F_GETFD) >= 0; });
}

/// Returns whether the calling thread is in the idle class.
inline bool IsIdleThread()
{
    return sched_getscheduler(0) == SCHED_IDLE;
}

/// Returns whether the system has an idle class of threads, and lets a thread leave it.
inline bool IdleThreadsCanLeave()
{
    bool bCan = false;
    RunInThreads(1,
        [&bCan](int)
        {
            sched_param const Parameters = {};
            bCan = sched_setscheduler(0, SCHED_IDLE, &Parameters) == 0 && IsIdleThread()
                   && sched_setscheduler(0, SCHED_OTHER, &Parameters) == 0;
        });
    return bCan;
}

/// Makes the start of each thread fail, or succeed again.
inline void RefuseThreads(bool bRefuse)
{
    pthread_attr_t Attributes;
    pthread_getattr_default_np(&Attributes);
    pthread_attr_setstacksize(&Attributes, bRefuse ? SIZE_MAX / 4 * 3 : 8 << 20);
    pthread_setattr_default_np(&Attributes);
}

/// Scope in which the C library converts wide text to UTF-8 on the calling thread.
class Utf8LocaleScope_c
{
public:
    Utf8LocaleScope_c()
        : m_Utf8(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr))
        , m_Previous(uselocale(m_Utf8))
    {}
    ~Utf8LocaleScope_c()
    {
        uselocale(m_Previous);
        freelocale(m_Utf8);
    }
    Utf8LocaleScope_c(Utf8LocaleScope_c const &) = delete;
    Utf8LocaleScope_c & operator=(Utf8LocaleScope_c const &) = delete;

private:
    locale_t const m_Utf8, m_Previous;
};

/// Opens a stream that writes to memory and returns it. Returns null on failure. The end of the stream sets the text,
/// which the caller frees by std::free, and its length.
inline std::FILE * OpenMemoryStream(char ** ppText, std::size_t * pLength)
{
    return open_memstream(ppText, pLength);
}

/// A key under which each thread can store a value. A thread that has stored one calls fnEnd with it at its end, after
/// the destructors of the keys that were made before.
class ThreadKey_c
{
public:
    explicit ThreadKey_c(void (*fnEnd)(void * pValue)) { EXPECT_EQ(pthread_key_create(&m_Key, fnEnd), 0); }
    ~ThreadKey_c() { pthread_key_delete(m_Key); }
    ThreadKey_c(ThreadKey_c const &) = delete;
    ThreadKey_c & operator=(ThreadKey_c const &) = delete;

    /// Stores the calling thread's value.
    void Store(void * pValue) const { pthread_setspecific(m_Key, pValue); }

private:
    pthread_key_t m_Key = 0;
};

/// Allocates a page of memory with no memory after it, and returns it.
inline char * AllocateLastPage()
{
    void * const p = mmap(nullptr, 2 * plat::MEMORY_PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(static_cast<char *>(p) + plat::MEMORY_PAGE, plat::MEMORY_PAGE);
    return static_cast<char *>(p);
}

/// Releases a page of AllocateLastPage.
inline void ReleasePage(char * pPage)
{
    munmap(pPage, plat::MEMORY_PAGE);
}

/// Lets the parent process trace this one, as a debugger does.
inline void BeTraced()
{
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
}

/// Returns whether this process is the superuser, and a program in this folder can get its owner's rights.
inline bool GrantsSetUserId(std::string const & sFolder)
{
    struct statvfs Disk;
    return geteuid() == 0 && prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 0 && statvfs(sFolder.c_str(), &Disk) == 0
           && (Disk.f_flag & ST_NOSUID) == 0;
}

/// Scope that counts the breakpoints that this process hits.
class TrapCount_c
{
public:
    TrapCount_c() { s_nTraps = 0; }
    ~TrapCount_c() { std::signal(SIGTRAP, m_fnPrevious); }
    TrapCount_c & operator=(TrapCount_c &&) = delete;

    /// Sets the count to 0 and returns what it was.
    static int Extract()
    {
        int const nTraps = s_nTraps;
        s_nTraps = 0;
        return nTraps;
    }

private:
    static inline std::sig_atomic_t volatile s_nTraps;
    void (*m_fnPrevious)(int) = std::signal(SIGTRAP, [](int) { s_nTraps = s_nTraps + 1; });
};

/// Returns whether the processor counts a write to a word. The kernel may grant what the hypervisor ignores.
inline bool CountsATouch()
{
    static int volatile s_iTouched;
    perf_event_attr Event{};
    Event.size = sizeof Event;
    Event.type = PERF_TYPE_BREAKPOINT;
    Event.bp_type = HW_BREAKPOINT_W;
    Event.bp_addr = reinterpret_cast<std::uintptr_t>(&s_iTouched);
    Event.bp_len = sizeof s_iTouched;
    Event.exclude_kernel = Event.exclude_hv = 1;
    auto const iEvent = static_cast<int>(syscall(SYS_perf_event_open, &Event, 0, -1, -1, 0));
    s_iTouched = 1;
    std::uint64_t nCount = 0;
    bool const bCounted = read(iEvent, &nCount, sizeof nCount) == sizeof nCount && nCount == 1;
    close(iEvent);
    return bCounted;
}

/// Makes each later open of a debug register by the calling thread return a handle that only reads as zeros.
/// Returns false if the kernel accepts no filter of system calls.
inline bool SwallowDebugRegisters()
{
#if defined(__i386__)
    constexpr int REG_RESULT = REG_EAX;
#else
    constexpr int REG_RESULT = REG_RAX;
#endif
    struct sigaction Action
    {};
    Action.sa_flags = SA_SIGINFO;
    Action.sa_sigaction = [](int, siginfo_t *, void * p)
    { static_cast<ucontext_t *>(p)->uc_mcontext.gregs[REG_RESULT] = open("/dev/zero", O_RDONLY); };
    sigaction(SIGSYS, &Action, nullptr);
    sock_filter dFilter[] = { BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_perf_event_open, 0, 1), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW) };
    sock_fprog const Program = { std::size(dFilter), dFilter };
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &Program) == 0;
}
