// failing.cpp: makes the library's system calls and its calls of the C library fail on demand, for tests.
//
// Only a build with ZQCORE_FAILING has this file. Its linker option --wrap redirects the library's calls of the
// functions below to this file. A test driver sets the environment variable ZQ_FAILING to the path of a file of
// TABLE_SIZE bytes, which this process and its driver share:
//
// | Offset | Bytes | Meaning                                                                                         |
// |-------:|------:|-------------------------------------------------------------------------------------------------|
// |      0 |     4 | in: the kind of call that is to fail, an index of NAMES                                         |
// |      4 |     4 | in: the reason, a value of errno; 0 for a call of FAILING_BYTES that handles half of its bytes  |
// |      8 |     8 | in: number of the first call of its kind that fails, from 1; 0 for none                         |
// |     16 |     8 | in: number of calls from then on that fail                                                      |
// |     24 |     8 | out: number of calls that have failed                                                           |
// |     32 |     8 | out: place of the first failed call, as an offset in the library                                |
// |     40 |   8*K | out: calls of each kind                                                                         |
// | 40+8*K |  16*K | out: the names of the kinds, with zeros at the end                                              |
//
// K is the number of kinds (KINDS). Without the variable, or if the file can't be opened, all calls go through. If the
// file can't be mapped, the process aborts.
#include "platform/compiler.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
    enum Kind_e : std::uint32_t
    {
        OPEN,
        READ,
        WRITE,
        SEEK,
        STAT,
        LIST,
        RENAME,
        SYNC,
        MAKE,
        REMOVE,
        TRUNCATE,
        MAP,
        THREAD,
        WAIT,
        WATCH,
        LEASE,
        LOCK,
        START,
        RANDOM,
        QUEUE,
        CLOSE,
        TIMER,
        ALLOCATE,
        KINDS
    };

    constexpr std::size_t NAME_SIZE = 16;   // bytes of a kind's name with its zeros
    constexpr char NAMES[KINDS][NAME_SIZE] = { "open", "read", "write", "seek", "stat", "list", "rename", "sync",
        "make", "remove", "truncate", "map", "thread", "wait", "watch", "lease", "lock", "start", "random", "queue",
        "close", "timer", "allocate" };

    struct Table_s
    {
        std::uint32_t eKind;
        std::int32_t iReason;
        std::uint64_t nCall;
        std::uint64_t nTimes;
        std::atomic<std::uint64_t> nFailed;
        std::uint64_t nSite;
        std::atomic<std::uint64_t> dCalls[KINDS];
        char dNames[KINDS][NAME_SIZE];
    };
    constexpr std::size_t TABLE_SIZE = 4096;
    static_assert(sizeof(Table_s) <= TABLE_SIZE && offsetof(Table_s, dCalls) == 40);

    Table_s g_NoTable{};

    // Maps the driver's file, writes the names of the kinds to its table and returns the table. Returns g_NoTable if no
    // file can be opened. Aborts if the file can't be mapped.
    Table_s * MapTable()
    {
        char const * const szFile = std::getenv("ZQ_FAILING");
        auto const iFile = szFile ? static_cast<int>(syscall(SYS_openat, AT_FDCWD, szFile, O_RDWR | O_CLOEXEC, 0)) : -1;
        if (iFile < 0)
        {
            return &g_NoTable;
        }
#ifdef SYS_mmap2
        auto const nMap = syscall(SYS_mmap2, nullptr, TABLE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, iFile, 0);
#else
        auto const nMap = syscall(SYS_mmap, nullptr, TABLE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, iFile, 0);
#endif
        syscall(SYS_close, iFile);
        if (nMap == -1)
        {
            std::abort();
        }
        auto * const pTable = reinterpret_cast<Table_s *>(nMap);
        std::memcpy(pTable->dNames, NAMES, sizeof NAMES);
        return pTable;
    }

    std::atomic<bool> g_bEnded{ false };

    // Lets all calls through from one of the library's last destructors on. What follows is not the library's, such as
    // the writing of code coverage, which has a priority below.
    __attribute__((destructor(ZQ_FIRST_PRIORITY))) void EndFailures()
    {
        g_bEnded = true;
    }

    // Maps the table at the first call and returns it. Requires that the first call comes while only the loader's
    // thread runs.
    Table_s & GetTable()
    {
        static constinit Table_s * s_pTable = nullptr;
        if (!s_pTable)
        {
            s_pTable = MapTable();
        }
        return *s_pTable;
    }

    // Counts a call, unless the library has ended, and returns whether it fails. If it fails, sets errno.
    bool CountCall(Kind_e eKind, void const * pCaller)
    {
        if (g_bEnded)
        {
            return false;
        }
        Table_s & Now = GetTable();
        std::uint64_t const nCall = ++Now.dCalls[eKind];
        if (Now.nCall == 0 || Now.eKind != eKind || nCall < Now.nCall || nCall - Now.nCall >= Now.nTimes)
        {
            return false;
        }
        Dl_info Info;
        if (Now.nFailed++ == 0 && dladdr(pCaller, &Info))
        {
            Now.nSite = reinterpret_cast<std::uintptr_t>(pCaller) - reinterpret_cast<std::uintptr_t>(Info.dli_fbase);
        }
        errno = Now.iReason;
        return true;
    }

    // Counts a call and returns how many of nBytes it may handle, or -1 if it fails. If it fails, sets errno.
    ssize_t CountTransfer(Kind_e eKind, std::size_t nBytes, void const * pCaller)
    {
        bool const bFails = CountCall(eKind, pCaller);
        return bFails && errno != 0 ? -1 : static_cast<ssize_t>(bFails ? (nBytes + 1) / 2 : nBytes);
    }
}

// Defines a function that fails by returning a value and setting errno.
#define FAILING(eKind, Name, Return_t, Parameters, Arguments, Failure)                                                 \
    extern "C" Return_t __real_##Name Parameters;                                                                      \
    extern "C" Return_t __wrap_##Name Parameters;                                                                      \
    extern "C" Return_t __wrap_##Name Parameters                                                                       \
    {                                                                                                                  \
        return CountCall(eKind, __builtin_return_address(0)) ? (Failure) : __real_##Name Arguments;                    \
    }

// Defines a function that handles nBytes and returns the number handled.
#define FAILING_BYTES(eKind, Name, Parameters, Arguments)                                                              \
    extern "C" ssize_t __real_##Name Parameters;                                                                       \
    extern "C" ssize_t __wrap_##Name Parameters;                                                                       \
    extern "C" ssize_t __wrap_##Name Parameters                                                                        \
    {                                                                                                                  \
        ssize_t const nAllowed = CountTransfer(eKind, nBytes, __builtin_return_address(0));                            \
        nBytes = static_cast<std::size_t>(nAllowed);                                                                   \
        return nAllowed < 0 ? -1 : __real_##Name Arguments;                                                            \
    }

extern "C" int __real_fclose(std::FILE * pFile);

namespace
{
    // Close a file and return a failure, because a close that fails has closed the file.
    int FailClose(int iFile)
    {
        syscall(SYS_close, iFile);
        errno = GetTable().iReason;
        return -1;
    }

    int FailClose(std::FILE * pFile)
    {
        __real_fclose(pFile);
        errno = GetTable().iReason;
        return EOF;
    }

    // Stores the whole time in pRest, unless that is null, as if none of it had passed. Returns -1.
    int FailSleep(timespec const * pTime, timespec * pRest)
    {
        if (pRest)
        {
            *pRest = *pTime;
        }
        return -1;
    }
}

// The build reads each function's name from the line that begins with FAILING.
// clang-format off
FAILING(OPEN, open, int, (char const * szPath, int iFlags, mode_t iMode), (szPath, iFlags, iMode), -1)
FAILING(OPEN, open64, int, (char const * szPath, int iFlags, mode_t iMode), (szPath, iFlags, iMode), -1)
FAILING(OPEN, openat, int, (int iFolder, char const * szPath, int iFlags, mode_t iMode),
    (iFolder, szPath, iFlags, iMode), -1)
FAILING(OPEN, openat64, int, (int iFolder, char const * szPath, int iFlags, mode_t iMode),
    (iFolder, szPath, iFlags, iMode), -1)
FAILING(OPEN, fdopen, std::FILE *, (int iFile, char const * szMode), (iFile, szMode), nullptr)
FAILING_BYTES(READ, read, (int iFile, void * pBuffer, std::size_t nBytes), (iFile, pBuffer, nBytes))
FAILING_BYTES(READ, pread64, (int iFile, void * pBuffer, std::size_t nBytes, off64_t nAt),
    (iFile, pBuffer, nBytes, nAt))
FAILING_BYTES(READ, recv, (int iFile, void * pBuffer, std::size_t nBytes, int iFlags), (iFile, pBuffer, nBytes, iFlags))
FAILING_BYTES(WRITE, write, (int iFile, void const * pBuffer, std::size_t nBytes), (iFile, pBuffer, nBytes))
FAILING_BYTES(WRITE, pwrite64, (int iFile, void const * pBuffer, std::size_t nBytes, off64_t nAt),
    (iFile, pBuffer, nBytes, nAt))
FAILING_BYTES(WRITE, send, (int iFile, void const * pBuffer, std::size_t nBytes, int iFlags),
    (iFile, pBuffer, nBytes, iFlags))
FAILING_BYTES(WRITE, copy_file_range,
    (int iFrom, off64_t * pFrom, int iTo, off64_t * pTo, std::size_t nBytes, unsigned iFlags),
    (iFrom, pFrom, iTo, pTo, nBytes, iFlags))
FAILING(WRITE, fputs, int, (char const * szText, std::FILE * pFile), (szText, pFile), EOF)
FAILING(WRITE, fputc, int, (int cByte, std::FILE * pFile), (cByte, pFile), EOF)
FAILING(WRITE, fflush, int, (std::FILE * pFile), (pFile), EOF)
FAILING(WRITE, fclose, int, (std::FILE * pFile), (pFile), FailClose(pFile))
FAILING(WRITE, fwrite, std::size_t, (void const * pData, std::size_t nSize, std::size_t nCount, std::FILE * pFile),
    (pData, nSize, nCount, pFile), 0)
FAILING(CLOSE, close, int, (int iFile), (iFile), FailClose(iFile))
FAILING(SEEK, lseek64, off64_t, (int iFile, off64_t nAt, int iFrom), (iFile, nAt, iFrom), -1)
FAILING(STAT, fstat64, int, (int iFile, struct stat64 * pStat), (iFile, pStat), -1)
FAILING(STAT, stat64, int, (char const * szPath, struct stat64 * pStat), (szPath, pStat), -1)
FAILING(STAT, lstat64, int, (char const * szPath, struct stat64 * pStat), (szPath, pStat), -1)
FAILING(STAT, fstatat64, int, (int iFolder, char const * szPath, struct stat64 * pStat, int iFlags),
    (iFolder, szPath, pStat, iFlags), -1)
FAILING(STAT, statx, int, (int iFolder, char const * szPath, int iFlags, unsigned iMask, struct statx * pStat),
    (iFolder, szPath, iFlags, iMask, pStat), -1)
FAILING(STAT, access, int, (char const * szPath, int iMode), (szPath, iMode), -1)
FAILING(STAT, faccessat, int, (int iFolder, char const * szPath, int iMode, int iFlags),
    (iFolder, szPath, iMode, iFlags), -1)
FAILING(STAT, realpath, char *, (char const * szPath, char * pBuffer), (szPath, pBuffer), nullptr)
FAILING(STAT, readlink, ssize_t, (char const * szPath, char * pBuffer, std::size_t nBytes),
    (szPath, pBuffer, nBytes), -1)
FAILING(STAT, getcwd, char *, (char * pBuffer, std::size_t nBytes), (pBuffer, nBytes), nullptr)
FAILING(LIST, getdents64, ssize_t, (int iFolder, void * pBuffer, std::size_t nBytes), (iFolder, pBuffer, nBytes), -1)
FAILING(RENAME, rename, int, (char const * szFrom, char const * szTo), (szFrom, szTo), -1)
FAILING(RENAME, renameat, int, (int iFrom, char const * szFrom, int iTo, char const * szTo),
    (iFrom, szFrom, iTo, szTo), -1)
FAILING(RENAME, renameat2, int, (int iFrom, char const * szFrom, int iTo, char const * szTo, unsigned iFlags),
    (iFrom, szFrom, iTo, szTo, iFlags), -1)
FAILING(RENAME, link, int, (char const * szFrom, char const * szTo), (szFrom, szTo), -1)
FAILING(SYNC, fsync, int, (int iFile), (iFile), -1)
FAILING(MAKE, mkdir, int, (char const * szPath, mode_t iMode), (szPath, iMode), -1)
FAILING(MAKE, mkdirat, int, (int iFolder, char const * szPath, mode_t iMode), (iFolder, szPath, iMode), -1)
FAILING(MAKE, fchmod, int, (int iFile, mode_t iMode), (iFile, iMode), -1)
FAILING(REMOVE, unlinkat, int, (int iFolder, char const * szPath, int iFlags), (iFolder, szPath, iFlags), -1)
FAILING(TRUNCATE, ftruncate64, int, (int iFile, off64_t nBytes), (iFile, nBytes), -1)
FAILING(MAP, mmap, void *, (void * pAt, std::size_t nBytes, int iRights, int iFlags, int iFile, off_t nAt),
    (pAt, nBytes, iRights, iFlags, iFile, nAt), MAP_FAILED)
FAILING(MAP, mmap64, void *, (void * pAt, std::size_t nBytes, int iRights, int iFlags, int iFile, off64_t nAt),
    (pAt, nBytes, iRights, iFlags, iFile, nAt), MAP_FAILED)
FAILING(MAP, mprotect, int, (void * pAt, std::size_t nBytes, int iRights), (pAt, nBytes, iRights), -1)
FAILING(THREAD, pthread_create, int,
    (pthread_t * pThread, pthread_attr_t const * pAttributes, void * (*fnRun)(void *), void * pArgument),
    (pThread, pAttributes, fnRun, pArgument), errno)
FAILING(WAIT, poll, int, (pollfd * pFiles, nfds_t nFiles, int nMilliseconds), (pFiles, nFiles, nMilliseconds), -1)
FAILING(WAIT, nanosleep, int, (timespec const * pTime, timespec * pRest),
    (pTime, pRest), FailSleep(pTime, pRest))
FAILING(WAIT, waitid, int, (idtype_t eType, id_t iChild, siginfo_t * pInfo, int iFlags),
    (eType, iChild, pInfo, iFlags), -1)
FAILING(WATCH, inotify_init1, int, (int iFlags), (iFlags), -1)
FAILING(WATCH, inotify_add_watch, int, (int iWatch, char const * szPath, std::uint32_t iMask),
    (iWatch, szPath, iMask), -1)
FAILING(LEASE, fcntl64, int, (int iFile, int iCommand, void * pArgument), (iFile, iCommand, pArgument), -1)
FAILING(LOCK, flock, int, (int iFile, int iOperation), (iFile, iOperation), -1)
FAILING(START, posix_spawn, int,
    (pid_t * pChild, char const * szPath, posix_spawn_file_actions_t const * pActions,
        posix_spawnattr_t const * pAttributes, char * const * dArguments, char * const * dVariables),
    (pChild, szPath, pActions, pAttributes, dArguments, dVariables), errno)
FAILING(START, pipe2, int, (int * dEnds, int iFlags), (dEnds, iFlags), -1)
FAILING(START, socketpair, int, (int iFamily, int iType, int iProtocol, int * dEnds),
    (iFamily, iType, iProtocol, dEnds), -1)
FAILING(RANDOM, getrandom, ssize_t, (void * pBuffer, std::size_t nBytes, unsigned iFlags),
    (pBuffer, nBytes, iFlags), -1)
FAILING(ALLOCATE, malloc, void *, (std::size_t nBytes), (nBytes), nullptr)
FAILING(ALLOCATE, calloc, void *, (std::size_t nCount, std::size_t nBytes), (nCount, nBytes), nullptr)
// clang-format on

// Handles calls through syscall(). Those without a kind here, such as futex and execve, always go through.
extern "C" long __real_syscall(long iCall, ...);
extern "C" long __wrap_syscall(
    long iCall, long nFirst, long nSecond, long nThird, long nFourth, long nFifth, long nSixth);
extern "C" long __wrap_syscall(
    long iCall, long nFirst, long nSecond, long nThird, long nFourth, long nFifth, long nSixth)
{
    Kind_e const eKind = iCall == SYS_getdents64     ? LIST
                         : iCall == SYS_timer_create ? TIMER
                         : iCall == SYS_io_uring_setup || iCall == SYS_io_uring_enter || iCall == SYS_perf_event_open
                             ? QUEUE
                             : KINDS;
    bool const bFails = eKind != KINDS && CountCall(eKind, __builtin_return_address(0));
    return bFails ? -1 : __real_syscall(iCall, nFirst, nSecond, nThird, nFourth, nFifth, nSixth);
}
