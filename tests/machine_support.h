// machine_support.h: whether the machine does what its kernel grants, for tests that need it done.
#pragma once

#include "tests/test_support.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
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
