// cfaultnames_internal.h: names and kinds of the codes of faults, for reports, dialogs and tools.
#pragma once

#include "platform/faults.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

/// Row of FAULT_WORDS.
struct FaultWords_s
{
    std::uint32_t nCode;
    char const * szName;   // of the Windows SDK (minwinbase.h); null if the code has none
    char const * szKind;   // in the details of a crash and in the tools; null if it does not follow from the code alone
};

/// Names and kinds of the codes. The crash report leaves out the prefix EXCEPTION_ of the names.
inline constexpr FaultWords_s FAULT_WORDS[] = {
    { plat::FAULT_ACCESS, "EXCEPTION_ACCESS_VIOLATION", nullptr },
    { plat::FAULT_GUARD_PAGE, "EXCEPTION_GUARD_PAGE", nullptr },
    { plat::FAULT_MISALIGNED, "EXCEPTION_DATATYPE_MISALIGNMENT", nullptr },
    { plat::FAULT_BREAKPOINT, "EXCEPTION_BREAKPOINT", "trap" },
    { plat::FAULT_SINGLE_STEP, "EXCEPTION_SINGLE_STEP", "trap" },
    { plat::FAULT_IN_PAGE, "EXCEPTION_IN_PAGE_ERROR", nullptr },
    { plat::FAULT_INVALID_HANDLE, "EXCEPTION_INVALID_HANDLE", nullptr },
    { plat::FAULT_ILLEGAL_INSTRUCTION, "EXCEPTION_ILLEGAL_INSTRUCTION", "instruction" },
    { plat::FAULT_NONCONTINUABLE, "EXCEPTION_NONCONTINUABLE_EXCEPTION", nullptr },
    { plat::FAULT_INVALID_DISPOSITION, "EXCEPTION_INVALID_DISPOSITION", nullptr },
    { plat::FAULT_ARRAY_BOUNDS, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED", "arithmetic" },
    { plat::FAULT_FLOAT_DENORMAL, "EXCEPTION_FLT_DENORMAL_OPERAND", "arithmetic" },
    { plat::FAULT_FLOAT_DIVIDE, "EXCEPTION_FLT_DIVIDE_BY_ZERO", "arithmetic" },
    { plat::FAULT_FLOAT_INEXACT, "EXCEPTION_FLT_INEXACT_RESULT", "arithmetic" },
    { plat::FAULT_FLOAT_INVALID, "EXCEPTION_FLT_INVALID_OPERATION", "arithmetic" },
    { plat::FAULT_FLOAT_OVERFLOW, "EXCEPTION_FLT_OVERFLOW", "arithmetic" },
    { plat::FAULT_FLOAT_STACK, "EXCEPTION_FLT_STACK_CHECK", "arithmetic" },
    { plat::FAULT_FLOAT_UNDERFLOW, "EXCEPTION_FLT_UNDERFLOW", "arithmetic" },
    { plat::FAULT_INTEGER_DIVIDE, "EXCEPTION_INT_DIVIDE_BY_ZERO", "arithmetic" },
    { plat::FAULT_INTEGER_OVERFLOW, "EXCEPTION_INT_OVERFLOW", "arithmetic" },
    { plat::FAULT_PRIVILEGED, "EXCEPTION_PRIV_INSTRUCTION", "instruction" },
    { plat::FAULT_STACK_OVERFLOW, "EXCEPTION_STACK_OVERFLOW", "stack" },
    { plat::FAULT_ABORT, nullptr, "abort" },
    { plat::FAULT_UNCAUGHT_EXCEPTION, nullptr, "exception" },
};

/// Returns the row of a code, or null if it has none.
inline FaultWords_s const * FindFaultWords(std::uint32_t nCode)
{
    auto const * const pWords = std::find_if(std::begin(FAULT_WORDS), std::end(FAULT_WORDS),
        [nCode](FaultWords_s const & Words) { return Words.nCode == nCode; });
    return pWords != std::end(FAULT_WORDS) ? pWords : nullptr;
}

/// Returns the name of a code without the first nSkip characters, or null if the code has no name.
inline char const * FaultNameOf(std::uint32_t nCode, std::size_t nSkip = 0)
{
    FaultWords_s const * const pWords = FindFaultWords(nCode);
    return pWords != nullptr && pWords->szName != nullptr ? pWords->szName + nSkip : nullptr;
}

/// Returns the kind of a code, or null if it does not follow from the code alone, as that of FAULT_ACCESS.
inline char const * FaultKindOf(std::uint32_t nCode)
{
    FaultWords_s const * const pWords = FindFaultWords(nCode);
    return pWords != nullptr ? pWords->szKind : nullptr;
}
