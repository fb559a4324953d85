// modulelist.h: the program and the libraries that are mapped into this process.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// A program or library in memory. The path is the host's and cut at 1023 bytes. It is valid during the visit only.
    struct Module_t
    {
        char const * szPath;
        std::uintptr_t Base;
        std::size_t nBytes;   // from the base to the end of the last part of the file
    };

    using ModuleVisit_t = void (*)(Module_t const & Module, void * pContext);

    /// Visits each module, by rising address. Visits none if the system does not report them. Uses no heap and no lock.
    void ModulesVisit(ModuleVisit_t fnVisit, void * pContext);

    /// Copies the build identifier that the linker gave a module, as it is in memory. Returns its bytes, at most nSize,
    /// or 0 if it has none. Uses no heap and no lock.
    std::size_t ModuleBuildId(Module_t const & Module, std::uint8_t * pId, std::size_t nSize);

    /// Returns whether a module's file can still be read, which a search for its symbols needs. If not, LastErrorText
    /// has the reason.
    bool ModuleFileIsReadable(char const * szPath);
}
