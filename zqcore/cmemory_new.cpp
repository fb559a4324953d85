// The language's operators, for the whole process: every plain `new` is tracked.
#include "zqcore/cmemory.h"

#include <new>

namespace
{
    void * Allocate(std::size_t nBytes)
    {
        return CoreMemory::operator_new(nBytes, MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    void * AllocateArray(std::size_t nBytes)
    {
        return CoreMemory::operator_new_array(nBytes, MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    void * Allocate(std::size_t nBytes, std::align_val_t i)
    {
        return CoreMemory::operator_new_aligned(nBytes, static_cast<std::size_t>(i), MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    void * AllocateArray(std::size_t nBytes, std::align_val_t i)
    {
        return CoreMemory::operator_new_array_aligned(
            nBytes, static_cast<std::size_t>(i), MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    void Release(void * p, std::align_val_t i)
    {
        CoreMemory::operator_delete_aligned(p, static_cast<std::size_t>(i));
    }

    void ReleaseArray(void * p, std::align_val_t i)
    {
        CoreMemory::operator_delete_array_aligned(p, static_cast<std::size_t>(i));
    }

    void * OrThrow(void * p)
    {
        if (!p)
        {
            throw std::bad_alloc();   // the language's contract, after the tracking has ended
        }
        return p;
    }
}

// clang-format off
ZQ_API void * operator new(std::size_t n) { return OrThrow(Allocate(n)); }
ZQ_API void * operator new[](std::size_t n) { return OrThrow(AllocateArray(n)); }
ZQ_API void * operator new(std::size_t n, std::nothrow_t const &) noexcept { return Allocate(n); }
ZQ_API void * operator new[](std::size_t n, std::nothrow_t const &) noexcept { return AllocateArray(n); }
ZQ_API void * operator new(std::size_t n, std::align_val_t i) { return OrThrow(Allocate(n, i)); }
ZQ_API void * operator new[](std::size_t n, std::align_val_t i) { return OrThrow(AllocateArray(n, i)); }
ZQ_API void * operator new(std::size_t n, std::align_val_t i, std::nothrow_t const &) noexcept { return Allocate(n, i); }
ZQ_API void * operator new[](std::size_t n, std::align_val_t i, std::nothrow_t const &) noexcept { return AllocateArray(n, i); }

ZQ_API void operator delete(void * p) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::nothrow_t const &) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::nothrow_t const &) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::size_t) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::size_t) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::align_val_t i) noexcept { Release(p, i); }
ZQ_API void operator delete[](void * p, std::align_val_t i) noexcept { ReleaseArray(p, i); }
ZQ_API void operator delete(void * p, std::align_val_t i, std::nothrow_t const &) noexcept { Release(p, i); }
ZQ_API void operator delete[](void * p, std::align_val_t i, std::nothrow_t const &) noexcept { ReleaseArray(p, i); }
ZQ_API void operator delete(void * p, std::size_t, std::align_val_t i) noexcept { Release(p, i); }
ZQ_API void operator delete[](void * p, std::size_t, std::align_val_t i) noexcept { ReleaseArray(p, i); }
// clang-format on
