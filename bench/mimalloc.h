// mimalloc.h: the peer mimalloc, and functions of libraries that are loaded by hand.
#pragma once

#include <benchmark/benchmark.h>
#include <dlfcn.h>

/// Loads a library and returns one of its functions. Linked normally, an allocator would replace malloc for the whole
/// process and so change every row. Returns null if the library or the function is missing.
template <typename FUNCTION>
FUNCTION FindPeerFunction(char const * szLibrary, char const * szFunction)
{
    void * const hLibrary = ::dlopen(szLibrary, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    return hLibrary ? reinterpret_cast<FUNCTION>(::dlsym(hLibrary, szFunction)) : nullptr;
}

/// Functions of mimalloc, null if it is not installed.
struct Mimalloc_s
{
    /// Fails the benchmark if mimalloc is not installed. Returns whether it is.
    bool IsInstalled(benchmark::State & State) const
    {
        bool const bInstalled = fnMalloc && fnFree;
        if (!bInstalled)
        {
            State.SkipWithError("libmimalloc is not installed");
        }
        return bInstalled;
    }

    /// Allocate a block and return it, and release one. Require that mimalloc is installed.
    void * Allocate(std::size_t nBytes) { return fnMalloc(nBytes); }
    void Release(void * pBlock, std::size_t) { fnFree(pBlock); }

    static constexpr char LIBRARY[] = "libmimalloc.so.2";
    void * (*fnMalloc)(std::size_t) = FindPeerFunction<void * (*)(std::size_t)>(LIBRARY, "mi_malloc");
    void (*fnFree)(void *) = FindPeerFunction<void (*)(void *)>(LIBRARY, "mi_free");
};
