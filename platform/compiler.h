// compiler.h: what the library needs of the compiler beyond the language.
//
// The folder of a compiler defines these macros, `platform/gnu/` for GCC and Clang. The marks of exported names come
// from the system's folder, because they depend on its format of programs.
//
// - ZQ_API marks a name of the library's interface. It is exported while the library is built, which defines
//   ZQCORE_BUILD, and imported elsewhere. All other names stay inside the shared library.
// - ZQ_INTERNAL keeps one member of an exported class inside the shared library. It has no effect on Windows.
// - ZQ_PRINTF(iFormat, iFirstArgument) checks the arguments of a function that formats like printf. Both positions
//   count from 1, and `this` counts too. An iFirstArgument of 0 checks the format only, for a std::va_list.
// - ZQ_REFUSE_IF(bWrong, szText), after the declarator of a function, refuses calls for which a constant expression of
//   its parameters is true. It has no effect with GCC. ZQ_COMPILE_ERROR(szText), in the same place, refuses
//   each call that remains after optimisation.
// - ZQ_IS_CONSTANT(Value) returns whether the compiler knows the value. ZQ_FOLDS_CALLS is true if this includes what
//   inlined calls with constant arguments return. It is false without optimisation, and with Clang, where ZQ_REFUSE_IF
//   serves.
// - ZQ_COLD marks a function that is called rarely, and keeps its code away from the common path.
// - ZQ_INLINE inlines a function always. ZQ_FLATTEN inlines all calls in a function.
// - ZQ_FIRST_GLOBAL constructs a global object before all others, the executable's included. ZQ_FIRST_PRIORITY is its
//   priority, for functions that run at load or unload.
// - ZQ_THREAD_LOCAL declares a variable of each thread that is reached without a call. Requires that the
//   library is loaded at program start, not later by hand.
// - ZQ_KEEP_WRITES(p) stops the compiler from removing writes to the memory at p that the program does not read before
//   it releases the memory.
// - ZQ_PREFETCH(pAddress) prefetches the cache line at an address that is about to be written. It may be any address.
//   ZQ_CACHE_LINE is the size of a cache line in bytes.
// - ZQ_BREAK() is a breakpoint trap at this place. Without a debugger it is a fault, as a rule FAULT_BREAKPOINT
//   (faults.h).
// - ZQ_FUNCTION is the name of the present function with its class and arguments, as the compiler spells it.
// - ZQ_FIRST_BIT(dwBits) returns the index of the lowest bit set in a 32-bit word. Requires that the word is not 0.
// - ZQ_UNCHECKED turns the checkers of addresses and of undefined behaviour off in a function that deliberately reads
//   memory that may be dead or no object.
//
// For code of one kind of processor:
//
// - ZQ_TARGET(szFeatures) lets a function use instructions beyond those of the build, named as in "sha,sse4.1".
// - ZQ_WRITTEN_ORDER, at the head of a source, keeps its instructions in the order in which they are written. It has
//   no effect with Clang.
// - ZQ_PROCESSOR_HAS(szFeature) returns whether the processor has that feature. It can be used before the first
//   constructor.
#pragma once

#include "system/exports.h"

#if defined(__GNUC__)
    #include "platform/gnu/compiler.h"
#else
    #error "No folder of platform/ is for this compiler: see docs/porting.md"
#endif

#ifdef ZQCORE_BUILD
    #define ZQ_API ZQ_EXPORT
#else
    #define ZQ_API ZQ_IMPORT
#endif
