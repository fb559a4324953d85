// compiler.h: the few words of the compiler that the library needs beyond the language.
#pragma once

/// Marks a name of the library's interface; everything else stays inside the shared library.
#define ZQ_API __attribute__((visibility("default")))

/// Keeps one member of an exported class inside the shared library.
#define ZQ_INTERNAL __attribute__((visibility("hidden")))

/// Checks the arguments of a function that formats like printf; both positions count from 1 (and include `this`).
#define ZQ_PRINTF(iFormat, iFirstArgument) __attribute__((format(printf, iFormat, iFirstArgument)))

/// Keeps a rare path out of the straight line.
#define ZQ_COLD __attribute__((cold, noinline))

/// Puts the construction of a global object ahead of all others, the executable's included.
#define ZQ_FIRST_GLOBAL __attribute__((init_priority(101)))

/// A thread's variable that is reached without a call; the library must be loaded at start, not by hand.
#define ZQ_THREAD_LOCAL thread_local __attribute__((tls_model("initial-exec")))

/// Keeps what was written to the memory at p, though nothing in the program reads it before the memory is released.
#define ZQ_KEEP_WRITES(p) __asm__ volatile("" : : "r"(p) : "memory")

/// Asks for the processor's cache line at an address, which will be written soon. Safe for any address.
#define ZQ_PREFETCH(pAddress) __builtin_prefetch(pAddress, 1)

/// A breakpoint trap right here. Without a debugger it is a crash with the breakpoint's code.
#if defined(__x86_64__) || defined(__i386__)
    #define ZQ_BREAK() __asm__ volatile("int3")
#else
    #define ZQ_BREAK() __builtin_trap()
#endif

/// The present function with its class and arguments, as the compiler spells it.
#define ZQ_FUNCTION __PRETTY_FUNCTION__
