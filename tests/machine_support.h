// machine_support.h: whether the machine does what its kernel grants, for tests that need it done.
#pragma once

#include "tests/test_support.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/io_uring.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

/// Whether a read lease is refused while a file is open for writing, and granted afterwards.
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

/// Whether a watch on a folder reports a file that is written there.
inline bool WatchesTellOfWrites()
{
    TempFolder_c const Folder;
    pollfd Watch = { inotify_init1(IN_CLOEXEC), POLLIN, 0 };
    inotify_add_watch(Watch.fd, Folder.GetPath().c_str(), IN_CLOSE_WRITE);
    Folder.Write("written", "x");
    bool const bTold = Watch.fd >= 0 && poll(&Watch, 1, 1000) == 1;
    close(Watch.fd);
    return bTold;
}

/// Whether a child forked from a process with other threads can start a thread. An emulator or a checker may end it.
inline bool ForksBesideThreads()
{
    Gate_c const Done;
    std::thread Other([&Done] { Done.Wait(); });
    pid_t const iChild = StartChild(
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

/// Whether a child that vfork starts shares this process's memory, as starting a program needs it. An emulator copies.
inline bool SharesMemoryUntilExec()
{
    static bool volatile s_bShared;
    s_bShared = false;
    pid_t const iChild = vfork();
    if (iChild == 0)
    {
        s_bShared = true;
        _exit(0);
    }
    StatusOfChild(iChild);
    return s_bShared;
}

/// Whether the kernel has queues of requests for files.
inline bool HasRequestQueue()
{
    io_uring_params Params{};
    auto const iQueue = static_cast<int>(syscall(__NR_io_uring_setup, 1, &Params));
    return iQueue >= 0 && close(iQueue) == 0;
}

/// How many threads the kernel counts while a second one runs: 2, or another number under an emulator or a checker.
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
