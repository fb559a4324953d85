// modules.h: programs and libraries by address, with their debug information. No process is needed.
//
// Ownership: what refers to a module or a unit is valid as long as the Modules_c object.
// Threads: an object belongs to one thread at a time.
// Cost: the first lookup in a module opens its files, and builds or reads an index of its units and symbols.
// Failure: a module whose file is missing or damaged has no names.
#pragma once

#include "tools/zqsymbols/indexfile.h"
#include "tools/zqsymbols/moduleindex.h"
#include "tools/zqsymbols/splitunit.h"
#include "tools/zqsymbols/unitscan.h"

#include <cstddef>
#include <cstdint>
#include <elfutils/libdwfl.h>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace zqsymbols
{
    /// Path of the system's own module, which is only in memory.
    inline constexpr char VDSO[] = "[vdso]";

    /// A compilation unit of a module.
    struct Unit_t
    {
        Dwarf_Die Die;      // of its functions, variables and types
        Dwarf_Addr nBias;   // an address in memory minus the same address in the unit
        Dwarf_Die Lines;    // of its source files and lines; differs from Die only for a unit in two parts
    };

    /// A symbol of a module's symbol table. The name is the linker's.
    struct Symbol_t
    {
        char const * szName;
        std::uint64_t nDisplacement;   // of the address from its start
    };

    /// The modules of one address space.
    class Modules_c
    {
    public:
        /// Keeps index files of big modules in a folder, or nowhere if its path is empty.
        explicit Modules_c(std::string const & sIndexFolder = IndexFolderOfUser());
        virtual ~Modules_c() { dwfl_end(m_pDwfl); }
        Modules_c(Modules_c const &) = delete;
        Modules_c & operator=(Modules_c const &) = delete;

        /// Adds the program or library of a file that is mapped from nStart to below nEnd. A file that has only the
        /// debug information of one, such as "objcopy --only-keep-debug" makes, serves too. Requires that modules do
        /// not overlap and EndModules was not called.
        void AddModule(char const * szPath, std::uint64_t nStart, std::uint64_t nEnd);

        /// Ends the additions. Requires that it is called once, before the first lookup.
        void EndModules() { dwfl_report_end(m_pDwfl, nullptr, nullptr); }

        /// Returns the module that holds an address, or null.
        Dwfl_Module * ModuleAt(std::uint64_t nAddress) const { return dwfl_addrmodule(m_pDwfl, nAddress); }

        /// Returns the compilation unit that holds an address, or nothing if none is known.
        std::optional<Unit_t> UnitAt(std::uint64_t nAddress);

        /// Returns the function of a unit that holds an address, and its blocks and inlined calls that hold it,
        /// outermost first. The result is empty if the unit has none there.
        std::vector<Dwarf_Die> ScopesAt(Unit_t & Unit, std::uint64_t nAddress);

        /// Returns the innermost symbol that holds an address, or nothing if none does.
        std::optional<Symbol_t> SymbolAt(std::uint64_t nAddress);

        /// Copies memory of the examined process, for modules that no file has. Returns false if it is not readable,
        /// and always without a process.
        virtual bool Read(std::uint64_t nAddress, void * pBuffer, std::size_t nBytes);

        /// Opens the module that is only in memory and returns it, for the function by which libdw finds a module.
        /// Returns null if it is not readable. libdw closes the result.
        Elf * OpenVdso(Dwfl_Module * pModule);

    private:
        ModuleIndex_c const & IndexOf(Dwfl_Module * pModule);

        Dwfl * m_pDwfl;
        std::vector<char> m_dVdso;   // file to which the Elf of OpenVdso refers
        IndexFolder_c m_Folder;
        SplitUnits_c m_Split;
        std::unordered_map<Dwfl_Module *, ModuleIndex_c> m_dIndices;
        std::unordered_map<void *, UnitScan_c> m_dScans;   // by the unit
    };
}
