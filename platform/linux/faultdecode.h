// faultdecode.h: the fault that a signal reports, and the text of an uncaught exception.
#pragma once

#include "platform/faults.h"

#include <csignal>
#include <ucontext.h>

namespace plat
{
    /// Fills in the fault's registers and record. May run in a signal handler.
    void FaultFromSignal(int iSignal, siginfo_t const & Info, ucontext_t const & Thread, FaultContext_t & Context,
        FaultRecord_t & Record);

    /// Writes "Uncaught C++ exception type: message" for the exception that terminates the calling thread, cut to fit.
    /// Only a std::exception and a text have a message. Requires such an exception, and that nSize is not 0.
    void DescribeException(char * szText, std::size_t nSize);
}
