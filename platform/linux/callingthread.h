// callingthread.h: the system's number of the calling thread.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace plat
{
    /// Returns the system's number of the calling thread. Asks the system at each call, so the number is also right in
    /// the child of a fork.
    inline pid_t CallingThread()
    {
        return static_cast<pid_t>(::syscall(SYS_gettid));
    }
}
