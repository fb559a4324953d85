// idlethread.h: the thread in the idle scheduling class (SCHED_IDLE), for the code that ends or joins threads.
#pragma once

#include <pthread.h>

namespace plat
{
    /// Raises hThread to the normal scheduling class if it is the thread in the idle class and the system allows it.
    void IdleThreadLift(pthread_t hThread);

    /// Clears the record of the thread in the idle class if that is hThread, which is about to end.
    void IdleThreadForget(pthread_t hThread);
}
