// modulelist.h: the program and the libraries that are mapped into this process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace plat
{
    /// A program or library in memory.
    struct Module_t
    {
        char const * szPath;   // in the system's own form, cut at 1023 bytes; valid during the visit only
        std::uintptr_t Base;   // address at which the start of its file is mapped
        std::size_t nBytes;    // from the base to the end of the last part of the file
    };

    /// Returns the part of a module's path after its last `/`, or the whole path if it has none.
    inline char const * ModuleFileName(char const * szPath)
    {
        char const * const szSlash = std::strrchr(szPath, '/');
        return szSlash != nullptr ? szSlash + 1 : szPath;
    }

    /// Function that ModulesVisit calls with each module and the caller's context.
    using ModuleVisit_t = void (*)(Module_t const & Module, void * pContext);

    /// Calls fnVisit for each module, in the order of addresses. Calls it for none if the system does not report
    /// modules. Uses no heap and no lock.
    void ModulesVisit(ModuleVisit_t fnVisit, void * pContext);

    /// Copies the build-id that the linker stored in a module. Reads it from memory. Returns its size in bytes, at most
    /// nSize, or 0 if the module has none that can be read. Uses no heap and no lock.
    std::size_t ModuleBuildId(Module_t const & Module, std::uint8_t * pId, std::size_t nSize);

    /// Returns whether a module's file can still be read, as a search for its symbols requires. If not, LastErrorText
    /// (process.h) has the reason.
    bool ModuleFileIsReadable(char const * szPath);
}
