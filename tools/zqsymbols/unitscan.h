// unitscan.h: the functions of a unit and the scopes around its types, read in one pass over its bytes.
//
// libdw reads the DIEs and their abbreviations one by one. To skip the children of a DIE it reads all of them, because
// many compilers do not store where they end. This scan is many times faster.
#pragma once

#include <elfutils/libdw.h>
#include <utility>
#include <vector>

namespace zqsymbols
{
    /// Functions and scopes of one unit.
    class UnitScan_c
    {
    public:
        UnitScan_c() = default;

        /// Reads a unit, or nothing if libdw can't read its head. Requires that the unit's file outlives the object.
        /// Stops early at a DIE in these cases:
        /// - it is damaged.
        /// - it has a form that is not known here.
        /// - its abbreviation has a code of 65,536 or more.
        /// - more than 1023 DIEs are around it.
        explicit UnitScan_c(Dwarf_Die Unit);

        /// Returns the functions that have code.
        std::vector<Dwarf_Die> & GetFunctions() { return m_dFunctions; }

        /// Returns the DIE around a namespace, a structure, a class, a union, an enumeration or an alias. The
        /// result's address is null for any other DIE, and for one that the scan did not reach.
        Dwarf_Die ScopeOf(Dwarf_Die Die) const;

    private:
        std::vector<Dwarf_Die> m_dFunctions;
        std::vector<std::pair<void *, void *>> m_dScopes;   // the DIE and the one around it, in order
    };
}
