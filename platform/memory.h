// memory.h: questions about addresses.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Bytes of the smallest page of this system: memory is readable by whole pages of this size.
    constexpr std::uintptr_t MEMORY_PAGE = 4096;

    /// Whether these bytes can be read now. Safe for any address, null included; one call to the system a page.
    bool MemoryIsReadable(void const * pMemory, std::size_t nBytes);
}
