// callingthread.h: the system's number of the calling thread.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace plat
{
    /// Returns the system's number of the calling thread. Makes a system call, and so is right in each child too.
    inline pid_t CallingThread()
    {
        return static_cast<pid_t>(::syscall(SYS_gettid));
    }
}
