// modules.h: which program or library an address belongs to, and which section of it.
//
// ModuleFind uses no heap and no lock, so a fault filter may call it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    inline constexpr std::size_t MODULE_PATH_SIZE = 1024;   // bytes of a module's path with the terminator

    /// Position of an address in a module.
    struct ModulePlace_t
    {
        char szPath[MODULE_PATH_SIZE];   // of the module's file, else the system's name for the memory; may be empty
        unsigned iSection;               // from 1, as the file counts its sections; 0 if unknown
        std::uintptr_t nOffset;          // from the section's start; if that is unknown, in the file or the memory
    };

    /// Finds the module and the section of an address. Both ends of a section belong to it, but only the start of one
    /// with thread-local data. Returns false if it finds no section that holds the address. Then szPath and nOffset
    /// have what is known, or are empty and 0.
    bool ModuleFind(std::uintptr_t Address, ModulePlace_t * pPlace);
}
