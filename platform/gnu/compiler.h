// compiler.h: the macros of platform/compiler.h for GCC and Clang.
#pragma once

// On Windows, GCC's format "printf" means the conversions of the C runtime, which differ from those of the C++ library.
#if defined(__MINGW32__) && !defined(__clang__)
    #define ZQ_PRINTF(iFormat, iFirstArgument) __attribute__((format(gnu_printf, iFormat, iFirstArgument)))
#else
    #define ZQ_PRINTF(iFormat, iFirstArgument) __attribute__((format(printf, iFormat, iFirstArgument)))
#endif

#define ZQ_COLD __attribute__((cold, noinline))
#define ZQ_INLINE __attribute__((always_inline)) inline
#define ZQ_FLATTEN __attribute__((flatten))
#define ZQ_FIRST_PRIORITY 101   // the compiler reserves lower ones
#define ZQ_FIRST_GLOBAL __attribute__((init_priority(ZQ_FIRST_PRIORITY)))
#define ZQ_THREAD_LOCAL thread_local __attribute__((tls_model("initial-exec")))
#define ZQ_KEEP_WRITES(p) __asm__ volatile("" : : "r"(p) : "memory")
#define ZQ_PREFETCH(pAddress) __builtin_prefetch(pAddress, 1)
#define ZQ_CACHE_LINE 64   // of all processors that the library knows
#define ZQ_FUNCTION __PRETTY_FUNCTION__
#define ZQ_FIRST_BIT(dwBits) static_cast<unsigned>(__builtin_ctz(dwBits))   // std::countr_zero tests for 0 first
#define ZQ_UNCHECKED __attribute__((no_sanitize("address", "undefined")))

#if defined(__x86_64__) || defined(__i386__)
    #define ZQ_BREAK() __asm__ volatile("int3")
#else
    #define ZQ_BREAK() __builtin_trap()
#endif

#define ZQ_TARGET(szFeatures) __attribute__((target(szFeatures)))
#if defined(__clang__)
    #define ZQ_WRITTEN_ORDER
#else
    #define ZQ_WRITTEN_ORDER _Pragma("GCC optimize(\"no-schedule-insns2\")")
#endif
#define ZQ_PROCESSOR_HAS(szFeature) (__builtin_cpu_init(), __builtin_cpu_supports(szFeature) != 0)

#define ZQ_COMPILE_ERROR(szText) __attribute__((error(szText)))
#define ZQ_IS_CONSTANT(Value) __builtin_constant_p(Value)
#if defined(__clang__)
    #define ZQ_REFUSE_IF(bWrong, szText)                                                                               \
        _Pragma("clang diagnostic push") _Pragma("clang diagnostic ignored \"-Wgcc-compat\"")                          \
            __attribute__((diagnose_if(bWrong, szText, "error"))) _Pragma("clang diagnostic pop")
    #define ZQ_FOLDS_CALLS false   // ZQ_REFUSE_IF serves instead
#else
    #define ZQ_REFUSE_IF(bWrong, szText)
    #ifdef __OPTIMIZE__
        #define ZQ_FOLDS_CALLS true
    #else
        #define ZQ_FOLDS_CALLS false
    #endif
#endif
