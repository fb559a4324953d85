// The language's operators, for the whole process: every plain `new` is tracked.
#include "zqcore/cmemory.h"

#include <new>

namespace
{
    void * Take(std::size_t nBytes)
    {
        return CoreMemory::operator_new(nBytes, MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    void * TakeArray(std::size_t nBytes)
    {
        return CoreMemory::operator_new_array(nBytes, MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    void * Take(std::size_t nBytes, std::align_val_t i)
    {
        return CoreMemory::operator_new_aligned(nBytes, static_cast<std::size_t>(i), MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    void * TakeArray(std::size_t nBytes, std::align_val_t i)
    {
        return CoreMemory::operator_new_array_aligned(
            nBytes, static_cast<std::size_t>(i), MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    void Give(void * p, std::align_val_t i)
    {
        CoreMemory::operator_delete_aligned(p, static_cast<std::size_t>(i));
    }

    void GiveArray(void * p, std::align_val_t i)
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
ZQ_API void * operator new(std::size_t n) { return OrThrow(Take(n)); }
ZQ_API void * operator new[](std::size_t n) { return OrThrow(TakeArray(n)); }
ZQ_API void * operator new(std::size_t n, std::nothrow_t const &) noexcept { return Take(n); }
ZQ_API void * operator new[](std::size_t n, std::nothrow_t const &) noexcept { return TakeArray(n); }
ZQ_API void * operator new(std::size_t n, std::align_val_t i) { return OrThrow(Take(n, i)); }
ZQ_API void * operator new[](std::size_t n, std::align_val_t i) { return OrThrow(TakeArray(n, i)); }
ZQ_API void * operator new(std::size_t n, std::align_val_t i, std::nothrow_t const &) noexcept { return Take(n, i); }
ZQ_API void * operator new[](std::size_t n, std::align_val_t i, std::nothrow_t const &) noexcept { return TakeArray(n, i); }

ZQ_API void operator delete(void * p) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::nothrow_t const &) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::nothrow_t const &) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::size_t) noexcept { CoreMemory::operator_delete(p); }
ZQ_API void operator delete[](void * p, std::size_t) noexcept { CoreMemory::operator_delete_array(p); }
ZQ_API void operator delete(void * p, std::align_val_t i) noexcept { Give(p, i); }
ZQ_API void operator delete[](void * p, std::align_val_t i) noexcept { GiveArray(p, i); }
ZQ_API void operator delete(void * p, std::align_val_t i, std::nothrow_t const &) noexcept { Give(p, i); }
ZQ_API void operator delete[](void * p, std::align_val_t i, std::nothrow_t const &) noexcept { GiveArray(p, i); }
ZQ_API void operator delete(void * p, std::size_t, std::align_val_t i) noexcept { Give(p, i); }
ZQ_API void operator delete[](void * p, std::size_t, std::align_val_t i) noexcept { GiveArray(p, i); }
// clang-format on
