// types.h: types of variables, by number. A member of a structure is a type with a name and an offset.
#pragma once

#include "platform/symbols.h"
#include "tools/zqsymbols/unitscan.h"

#include <cstdint>
#include <elfutils/libdw.h>
#include <string>
#include <unordered_map>
#include <vector>

namespace zqsymbols
{
    /// Place of a member in the outermost structure.
    struct MemberPlace_t
    {
        std::uint64_t nOffset = 0;     // bytes from the outermost structure's start
        std::uint64_t nFirstBit = 0;   // of a bit field: its lowest bit in the bytes of its type at nOffset
        std::uint64_t nBits = 0;       // of a bit field: the number of its bits; 0 for other members
    };

    /// Types by number. 0 is no type.
    class Types_c
    {
    public:
        /// Makes a table without types. nWord is the number of bytes of an address.
        explicit Types_c(std::uint64_t nWord)
            : m_nWord(nWord)
        {}

        /// Adds the type of a variable or a member, or the one that a pointer or an array refers to, and returns its
        /// number. Returns 0 if there is none, or if a million numbers are in use.
        plat::SymbolType_t Add(Dwarf_Die * pOwner);

        /// Return the DIE by which Add found the type, and the type without aliases, const and the like. The address of
        /// either is null if there is none.
        Dwarf_Die GetOwner(plat::SymbolType_t iType) const { return Get(iType).Owner; }
        Dwarf_Die GetDie(plat::SymbolType_t iType) const { return Get(iType).Die; }

        /// Returns the name of a type with the namespaces and structures around it. Returns an empty text for an
        /// unnamed type.
        std::string QualifiedName(Dwarf_Die Die);

        /// Returns the size in bytes, or 0 if it is unknown.
        std::uint64_t GetSize(plat::SymbolType_t iType) const;

        /// Return the name, the fundamental type, the members, and the place of a member in the outermost structure, as
        /// in platform/symbols.h. References are valid until a type is added, as GetMembers may do.
        std::string GetName(plat::SymbolType_t iType);
        plat::SymbolBase_e GetBase(plat::SymbolType_t iType) const;
        std::vector<plat::SymbolType_t> const & GetMembers(plat::SymbolType_t iType);
        MemberPlace_t const & GetPlace(plat::SymbolType_t iType) const { return Get(iType).Place; }

    private:
        struct Type_s
        {
            Dwarf_Die Owner{};
            Dwarf_Die Die{};        // without aliases, const and the like; its address is null for no type
            std::string sAlias;     // name of the last alias before Die
            std::string sMember;    // name of a member, or for a base the name of its type
            bool bMember = false;   // whether it is a member: GetName then returns sMember
            MemberPlace_t Place;
            unsigned nDepth = 0;      // number of structures around a member; 0 for other types
            bool bExpanded = false;   // whether dMembers is complete
            std::vector<plat::SymbolType_t> dMembers;
        };

        Type_s const & Get(plat::SymbolType_t iType) const;
        void AddMember(plat::SymbolType_t iType, Dwarf_Die * pMember, std::vector<plat::SymbolType_t> & dMembers);

        std::uint64_t m_nWord;
        std::vector<Type_s> m_dTypes = { {} };             // by number; the first is no type
        std::unordered_map<void *, UnitScan_c> m_dScans;   // by the unit
    };
}
