// memory.h: which memory is readable, and pages straight from the system.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Bytes of the smallest page of this system. Memory is readable in whole pages of this size.
    inline constexpr std::uintptr_t MEMORY_PAGE = 4096;

    /// Returns whether nBytes from an address on can be read. Tests one byte if nBytes is 0. It is safe for any
    /// address, including null. Makes at most one system call for each page.
    bool MemoryIsReadable(void const * pMemory, std::size_t nBytes);

    /// Copies up to nBytes from an address. Returns the number of bytes before the first that can't be read. It is
    /// safe for any address and usually makes two system calls. A fault filter may call it.
    std::size_t MemoryRead(std::uintptr_t Address, void * pBuffer, std::size_t nBytes);

    /// Copies an object from an address as MemoryRead does. Returns false if not all of it can be read.
    template <typename T>
    bool MemoryReadObject(std::uintptr_t Address, T & Object)
    {
        return MemoryRead(Address, &Object, sizeof Object) == sizeof Object;
    }

    /// Allocates zeroed pages without the heap and returns them. On failure returns null. A fault filter may call it.
    void * PagesAllocate(std::size_t nBytes);

    /// Releases pages from PagesAllocate. Null does nothing. Requires the same nBytes.
    void PagesRelease(void * pPages, std::size_t nBytes);
}
