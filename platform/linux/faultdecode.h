// faultdecode.h: what a signal says of the fault behind it.
#pragma once

#include "platform/faults.h"

#include <csignal>
#include <ucontext.h>

namespace plat
{
    /// The fault's registers and record. May run in a signal handler.
    void FaultFromSignal(int iSignal, siginfo_t const & Info, ucontext_t const & Thread, FaultContext_t & Context,
        FaultRecord_t & Record);

    /// Writes "type: what it says" of the exception that the calling thread is being terminated for, cut to fit.
    void DescribeException(char * szText, std::size_t nSize);
}
