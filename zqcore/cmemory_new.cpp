// The language's operators, for the whole process: every plain `new` is tracked.
#include "zqcore/cmemory_internal.h"

#include <new>

namespace
{
    void * Take(std::size_t nBytes)
    {
        return CoreMemory::operator_new(nBytes, MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    // Alignments up to 16 are what every block has.
    void * Take(std::size_t nBytes, std::align_val_t iAlignment)
    {
        auto const nAlignment = static_cast<std::size_t>(iAlignment);
        auto const iWord = static_cast<int>(MemoryBlockWord(MEMORY_NORMAL_BLOCK));
        return nAlignment <= 16 ? Take(nBytes) : aligned_malloc_dbg(nBytes, nAlignment, iWord, nullptr, 0);
    }

    void * OrThrow(void * p)
    {
        if (!p)
        {
            throw std::bad_alloc();   // the language's own contract, where the tracking has ended already
        }
        return p;
    }
}

// clang-format off
ZQ_API void * operator new(std::size_t n) { return OrThrow(Take(n)); }
ZQ_API void * operator new[](std::size_t n) { return OrThrow(Take(n)); }
ZQ_API void * operator new(std::size_t n, std::nothrow_t const &) noexcept { return Take(n); }
ZQ_API void * operator new[](std::size_t n, std::nothrow_t const &) noexcept { return Take(n); }
ZQ_API void * operator new(std::size_t n, std::align_val_t i) { return OrThrow(Take(n, i)); }
ZQ_API void * operator new[](std::size_t n, std::align_val_t i) { return OrThrow(Take(n, i)); }
ZQ_API void * operator new(std::size_t n, std::align_val_t i, std::nothrow_t const &) noexcept { return Take(n, i); }
ZQ_API void * operator new[](std::size_t n, std::align_val_t i, std::nothrow_t const &) noexcept { return Take(n, i); }

ZQ_API void operator delete(void * p) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::nothrow_t const &) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::nothrow_t const &) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::size_t) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::size_t) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::align_val_t) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::align_val_t) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::align_val_t, std::nothrow_t const &) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::align_val_t, std::nothrow_t const &) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::size_t, std::align_val_t) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::size_t, std::align_val_t) noexcept { CoreMemory::operator_delete_array(p); }
// clang-format on
