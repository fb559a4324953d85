// faults.h: the faults of this process: which fault, where, and with which registers.
//
// A filter receives each fault, on the thread that faulted, and each uncaught C++ exception. A handler that the host
// sets later comes first. The filter runs on a stack of the library's own, so it needs little of the thread's. It may
// use neither the heap nor a lock.
//
// - One filter is set at a time. Requires that a caller that sets one keeps the previous one, and that the new filter
//   calls the previous one.
// - A fault that the filter has not handled goes to the handler that was set before the library's, with the thread
//   as it was. Without such a handler the process terminates as if the fault were unhandled.
// - One thread at a time runs the filter. Another one that faults meanwhile waits for the first, and then skips the
//   filter, unless the filter has handled the first fault.
// - A fault in a filter, outside a guarded call, skips the filter too.
#pragma once

#include "platform/compiler.h"

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Codes of faults, with the numbers of Windows (NTSTATUS, and its C++ runtime for an exception). A system raises
    /// only those that it knows.
    inline constexpr std::uint32_t FAULT_GUARD_PAGE = 0x80000001;
    inline constexpr std::uint32_t FAULT_MISALIGNED = 0x80000002;
    inline constexpr std::uint32_t FAULT_BREAKPOINT = 0x80000003;
    inline constexpr std::uint32_t FAULT_SINGLE_STEP = 0x80000004;
    inline constexpr std::uint32_t FAULT_ACCESS = 0xC0000005;
    inline constexpr std::uint32_t FAULT_IN_PAGE = 0xC0000006;
    inline constexpr std::uint32_t FAULT_INVALID_HANDLE = 0xC0000008;
    inline constexpr std::uint32_t FAULT_ILLEGAL_INSTRUCTION = 0xC000001D;
    inline constexpr std::uint32_t FAULT_NONCONTINUABLE = 0xC0000025;
    inline constexpr std::uint32_t FAULT_INVALID_DISPOSITION = 0xC0000026;
    inline constexpr std::uint32_t FAULT_ARRAY_BOUNDS = 0xC000008C;
    inline constexpr std::uint32_t FAULT_FLOAT_DENORMAL = 0xC000008D;
    inline constexpr std::uint32_t FAULT_FLOAT_DIVIDE = 0xC000008E;
    inline constexpr std::uint32_t FAULT_FLOAT_INEXACT = 0xC000008F;
    inline constexpr std::uint32_t FAULT_FLOAT_INVALID = 0xC0000090;
    inline constexpr std::uint32_t FAULT_FLOAT_OVERFLOW = 0xC0000091;
    inline constexpr std::uint32_t FAULT_FLOAT_STACK = 0xC0000092;
    inline constexpr std::uint32_t FAULT_FLOAT_UNDERFLOW = 0xC0000093;
    inline constexpr std::uint32_t FAULT_INTEGER_DIVIDE = 0xC0000094;
    inline constexpr std::uint32_t FAULT_INTEGER_OVERFLOW = 0xC0000095;
    inline constexpr std::uint32_t FAULT_PRIVILEGED = 0xC0000096;
    inline constexpr std::uint32_t FAULT_STACK_OVERFLOW = 0xC00000FD;
    inline constexpr std::uint32_t FAULT_ABORT = 0x40000015;                // abort()
    inline constexpr std::uint32_t FAULT_UNCAUGHT_EXCEPTION = 0xE06D7363;   // a C++ exception that nobody catches

    /// Start of FaultText's text for an uncaught exception. A space and the type follow, while the filter runs.
    inline constexpr char FAULT_UNCAUGHT_TEXT[] = "Uncaught C++ exception";

    /// A thread's registers. The general ones are as wide as the process's addresses.
    struct FaultContext_t
    {
        std::uintptr_t nIp, nSp, nBp;
        std::uintptr_t nAx, nBx, nCx, nDx, nSi, nDi;
        std::uintptr_t dExtended[8];   // R8 to R15; unused in a 32-bit process
        std::uint32_t nCs, nSs, nDs, nEs, nFs, nGs;
        std::uintptr_t nFlags;
        std::uint8_t dX87[8][10];     // the x87 stack in stack order
        std::uint16_t nX87Status;     // bits 11 to 13: top of the stack
        std::uint32_t iThread;        // the system's number of the thread
        std::uint32_t nVectors;       // vector registers that are known
        std::uint64_t dVectors[16];   // their low halves: XMM0 to XMM15; to XMM7 in a 32-bit process
    };

    /// Access to memory by the faulting instruction.
    enum class FaultAccess_e : std::uint8_t
    {
        NoMemory,   // the fault is not one of memory
        Unknown,    // the processor does not report it, or a process sent the signal
        Read,
        Write,
        Execute
    };

    /// A fault: its kind, its instruction and the memory that was accessed.
    struct FaultRecord_t
    {
        std::uint32_t nCode;             // FAULT_*
        std::uintptr_t Address;          // of the instruction; a breakpoint's own, though it has been executed
        std::uintptr_t dParameters[2];   // if eAccess is not NoMemory: first, not 0 for a write; second, the address
                                         // accessed, or all ones if it is unknown
        FaultAccess_e eAccess = FaultAccess_e::NoMemory;
    };

    /// Argument of a fault filter. It is valid during the call.
    struct FaultPointers_t
    {
        FaultRecord_t const * pRecord;
        FaultContext_t const * pContext;
    };

    /// Function that handles a fault. Returns 0 to pass the fault on to the handler that was set before the library's.
    /// Any other value means that the fault has been handled: the instruction runs again, or after a trap, such as a
    /// breakpoint or a step, the next one. An uncaught exception and abort() end the process whatever the value.
    using FaultFilter_t = long (*)(FaultPointers_t const * pFault);

    /// A thread's stack. It grows from its far end, where the first frame is, to lower addresses.
    struct FaultStack_t
    {
        std::uintptr_t FarEnd;   // address after the last byte
        std::size_t nUsed;       // bytes from the stack pointer to the far end, at most nSize
        std::size_t nSize;       // bytes that it may grow to
    };

    /// Sets the filter and returns the previous one. The first filter, also the first after null, hooks the faults and
    /// calls FaultThreadJoin and FaultReserveDescriptors. Null unhooks the faults. Requires that only one thread at a
    /// time calls it.
    ZQ_API FaultFilter_t FaultFilterSet(FaultFilter_t fnFilter);

    /// Allocates a stack for faults of the calling thread, so that a stack overflow on it is reported too. Returns
    /// false if the system refuses. The end of the thread releases the stack. These threads have one without this call:
    /// - the thread whose FaultFilterSet hooked the faults, which is as a rule the main thread.
    /// - the threads that are started while the library is loaded, if the system lets it hook their creation. This
    ///   excludes threads that the C library starts for itself, and those of programs that bind the C library's
    ///   functions before this library's (docs/porting.md).
    ///
    /// Without one, a stack overflow of the thread ends the process without a report. All other faults need only the
    /// few kilobytes that the system needs to start a handler.
    ZQ_API bool FaultThreadJoin();

    /// Opens the descriptors that are held for the filter, in case the process has used up its own. Later calls open
    /// again those that the host has closed. Requires that only one thread at a time calls it.
    void FaultReserveDescriptors();

    /// Captures the caller's registers. nIp is the address after the call. nAx and nVectors are 0.
    ZQ_API void FaultContextCapture(FaultContext_t * pContext);

    /// Finds the stack that the stack pointer of these registers lies in, or has just left at its low end, after an
    /// overflow. Requires registers of the calling thread. Returns false if there is no such memory or the system does
    /// not report it. A filter may call it.
    bool FaultFindStack(FaultContext_t const & Context, FaultStack_t * pStack);

    /// Copies a text for a code that the caller has no name for, cut to nSize - 1 bytes and always terminated. For an
    /// uncaught exception, while the filter runs, the text has its type, and its message if it has one. Requires that
    /// nSize is not 0.
    ZQ_API void FaultText(std::uint32_t nCode, char * szText, std::size_t nSize);

    /// Calls fnCall(pArgument), for at most nMilliseconds. 0 means no limit. Guarded calls may nest. The limit of an
    /// outer call also applies in an inner one. Requires that the caller is a filter or the one thread that it waits
    /// for. Returns false if a fault of this thread or the time limit ended the call. Then whatever the call held stays
    /// held.
    ZQ_API bool FaultCallGuarded(void (*fnCall)(void * pArgument), void * pArgument, unsigned nMilliseconds);

    /// Ends the process at once with a status. No exit handler runs.
    [[noreturn]] ZQ_API void FaultExit(int iStatus);
}
