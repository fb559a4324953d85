// modulelist.h: the program and the libraries that are mapped into this process.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// A program or library in memory. The path is the host's, cut at 1023 bytes, and valid during the visit alone.
    struct Module_t
    {
        char const * szPath;
        std::uintptr_t Base;
        std::size_t nBytes;   // from the base to the end of the last part of the file
    };

    using ModuleVisit_t = void (*)(Module_t const & Module, void * pContext);

    /// Visits each, by rising address; none if the system doesn't tell. Takes neither memory of the heap nor a lock.
    void ModulesVisit(ModuleVisit_t fnVisit, void * pContext);

    /// Whether a module's file is still there to be read, as whoever looks for its symbols must; if not, LastErrorText
    /// tells why.
    bool ModuleFileIsReadable(char const * szPath);
}
