// cfaultnames_internal.h: names and kinds of the codes of faults, for reports, dialogs and tools.
#pragma once

#include "platform/faults.h"

#include <cstddef>
#include <cstdint>

/// Row of FAULT_NAMES.
struct FaultName_s
{
    std::uint32_t nCode;
    char const * szName;
};

/// Names of the Windows SDK (minwinbase.h). The crash report leaves out their prefix EXCEPTION_.
inline constexpr FaultName_s FAULT_NAMES[] = {
    { plat::FAULT_ACCESS, "EXCEPTION_ACCESS_VIOLATION" },
    { plat::FAULT_GUARD_PAGE, "EXCEPTION_GUARD_PAGE" },
    { plat::FAULT_MISALIGNED, "EXCEPTION_DATATYPE_MISALIGNMENT" },
    { plat::FAULT_BREAKPOINT, "EXCEPTION_BREAKPOINT" },
    { plat::FAULT_SINGLE_STEP, "EXCEPTION_SINGLE_STEP" },
    { plat::FAULT_IN_PAGE, "EXCEPTION_IN_PAGE_ERROR" },
    { plat::FAULT_INVALID_HANDLE, "EXCEPTION_INVALID_HANDLE" },
    { plat::FAULT_ILLEGAL_INSTRUCTION, "EXCEPTION_ILLEGAL_INSTRUCTION" },
    { plat::FAULT_NONCONTINUABLE, "EXCEPTION_NONCONTINUABLE_EXCEPTION" },
    { plat::FAULT_INVALID_DISPOSITION, "EXCEPTION_INVALID_DISPOSITION" },
    { plat::FAULT_ARRAY_BOUNDS, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED" },
    { plat::FAULT_FLOAT_DENORMAL, "EXCEPTION_FLT_DENORMAL_OPERAND" },
    { plat::FAULT_FLOAT_DIVIDE, "EXCEPTION_FLT_DIVIDE_BY_ZERO" },
    { plat::FAULT_FLOAT_INEXACT, "EXCEPTION_FLT_INEXACT_RESULT" },
    { plat::FAULT_FLOAT_INVALID, "EXCEPTION_FLT_INVALID_OPERATION" },
    { plat::FAULT_FLOAT_OVERFLOW, "EXCEPTION_FLT_OVERFLOW" },
    { plat::FAULT_FLOAT_STACK, "EXCEPTION_FLT_STACK_CHECK" },
    { plat::FAULT_FLOAT_UNDERFLOW, "EXCEPTION_FLT_UNDERFLOW" },
    { plat::FAULT_INTEGER_DIVIDE, "EXCEPTION_INT_DIVIDE_BY_ZERO" },
    { plat::FAULT_INTEGER_OVERFLOW, "EXCEPTION_INT_OVERFLOW" },
    { plat::FAULT_PRIVILEGED, "EXCEPTION_PRIV_INSTRUCTION" },
    { plat::FAULT_STACK_OVERFLOW, "EXCEPTION_STACK_OVERFLOW" },
};

/// Row of FAULT_KINDS.
struct FaultKind_s
{
    std::uint32_t nCode;
    char const * szKind;
};

/// Kinds that follow from the code of a fault alone, as the details of a crash and the tools name them.
inline constexpr FaultKind_s FAULT_KINDS[] = {
    { plat::FAULT_BREAKPOINT, "trap" },
    { plat::FAULT_SINGLE_STEP, "trap" },
    { plat::FAULT_ILLEGAL_INSTRUCTION, "instruction" },
    { plat::FAULT_PRIVILEGED, "instruction" },
    { plat::FAULT_ARRAY_BOUNDS, "arithmetic" },
    { plat::FAULT_FLOAT_DENORMAL, "arithmetic" },
    { plat::FAULT_FLOAT_DIVIDE, "arithmetic" },
    { plat::FAULT_FLOAT_INEXACT, "arithmetic" },
    { plat::FAULT_FLOAT_INVALID, "arithmetic" },
    { plat::FAULT_FLOAT_OVERFLOW, "arithmetic" },
    { plat::FAULT_FLOAT_STACK, "arithmetic" },
    { plat::FAULT_FLOAT_UNDERFLOW, "arithmetic" },
    { plat::FAULT_INTEGER_DIVIDE, "arithmetic" },
    { plat::FAULT_INTEGER_OVERFLOW, "arithmetic" },
    { plat::FAULT_STACK_OVERFLOW, "stack" },
    { plat::FAULT_ABORT, "abort" },
    { plat::FAULT_UNCAUGHT_EXCEPTION, "exception" },
};

/// Returns the name of a code without the first nSkip characters, or null if the code has no name.
inline char const * FaultNameOf(std::uint32_t nCode, std::size_t nSkip = 0)
{
    for (FaultName_s const & Name : FAULT_NAMES)
    {
        if (Name.nCode == nCode)
        {
            return Name.szName + nSkip;
        }
    }
    return nullptr;
}

/// Returns the kind of a code, or null for a code without a row, such as FAULT_ACCESS.
inline char const * FaultKindOf(std::uint32_t nCode)
{
    for (FaultKind_s const & Kind : FAULT_KINDS)
    {
        if (Kind.nCode == nCode)
        {
            return Kind.szKind;
        }
    }
    return nullptr;
}
