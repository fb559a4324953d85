// faultdecode.h: the fault that a signal reports, and the text of an uncaught exception.
#pragma once

#include "platform/faults.h"

#include <csignal>
#include <cstdint>
#include <ucontext.h>

namespace plat
{
    /// The processor's flag AC: whether a misaligned access faults (Intel SDM, volume 1, 3.4.3).
    inline constexpr std::uint32_t FLAG_ALIGNMENT_CHECK = 0x40000;

    /// Fills in the registers and the record of the fault that a signal reports. Requires that the signal is SIGSEGV,
    /// SIGBUS, SIGILL, SIGFPE, SIGTRAP or SIGABRT, and that the calling thread received it. A signal handler may call
    /// it.
    void FaultFromSignal(int iSignal, siginfo_t const & Info, ucontext_t const & Thread, FaultContext_t & Context,
        FaultRecord_t & Record);

    /// Writes "Uncaught C++ exception type: message" for the calling thread's uncaught exception, cut to fit. Only a
    /// std::exception, a std::string and a pointer to a text have a message, which TextEscape (text.h) keeps on one
    /// line. Requires that there is such an exception, and that nSize is not 0.
    void DescribeException(char * szText, std::size_t nSize);
}
