// memory.h: questions about addresses, and pages straight from the system.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Bytes of the smallest page of this system: memory is readable by whole pages of this size.
    constexpr std::uintptr_t MEMORY_PAGE = 4096;

    /// Whether these bytes can be read now. Safe for any address, null included; one call to the system a page.
    bool MemoryIsReadable(void const * pMemory, std::size_t nBytes);

    /// Copies what can be read of nBytes at an address and returns the number of bytes up to the first that can't.
    /// Safe for any address; one call to the system as a rule. A fault filter may call it.
    std::size_t MemoryRead(std::uintptr_t Address, void * pBuffer, std::size_t nBytes);

    /// Zeroed pages that owe nothing to the heap, null if there are none. A fault filter may call it.
    void * PagesTake(std::size_t nBytes);

    /// Gives back what PagesTake gave for the same nBytes; null does nothing.
    void PagesGive(void * pPages, std::size_t nBytes);
}
