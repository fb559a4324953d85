// dies.h: what a debugging information entry (DIE) has.
#pragma once

#include <cstdint>
#include <dwarf.h>
#include <elfutils/libdw.h>
#include <string>

namespace zqsymbols
{
    /// Returns the name of a DIE, empty if it has none.
    inline std::string NameOf(Dwarf_Die * pDie)
    {
        char const * const szName = pDie->addr == nullptr ? nullptr : dwarf_diename(pDie);
        return szName == nullptr ? "" : szName;
    }

    /// Returns the number that an attribute has, or nElse if the DIE has no such attribute or it is no number.
    inline std::uint64_t Number(Dwarf_Die * pDie, unsigned nAttribute, std::uint64_t nElse)
    {
        Dwarf_Attribute Attribute;
        Dwarf_Word nValue = 0;
        bool const bKnown = dwarf_formudata(dwarf_attr(pDie, nAttribute, &Attribute), &nValue) == 0;
        return bKnown ? nValue : nElse;
    }

    /// Follows a DIE's type attribute to *pType and returns whether there is one.
    inline bool Follow(Dwarf_Die * pDie, Dwarf_Die * pType)
    {
        Dwarf_Attribute Attribute;
        return dwarf_formref_die(dwarf_attr_integrate(pDie, DW_AT_type, &Attribute), pType) != nullptr;
    }

    /// Returns the DIE that an attribute refers to, with a null address if there is none.
    inline Dwarf_Die TargetOf(Dwarf_Die * pDie, unsigned nAttribute)
    {
        Dwarf_Attribute Attribute;
        Dwarf_Die Die{};
        return dwarf_formref_die(dwarf_attr(pDie, nAttribute, &Attribute), &Die) != nullptr ? Die : Dwarf_Die{};
    }

    /// Returns the DIE that declares a function, or the callee of an inlined call, first.
    inline Dwarf_Die Origin(Dwarf_Die Die)
    {
        for (unsigned const nAttribute : { DW_AT_abstract_origin, DW_AT_specification })
        {
            Dwarf_Die const Next = TargetOf(&Die, nAttribute);
            Die = Next.addr != nullptr ? Next : Die;
        }
        return Die;
    }

    /// Returns the linkage name of a function, or of an inlined call's callee, or null if it has none.
    inline char const * LinkageName(Dwarf_Die * pDie)
    {
        Dwarf_Attribute Attribute;
        char const * const szName = dwarf_formstring(dwarf_attr_integrate(pDie, DW_AT_linkage_name, &Attribute));
        return szName != nullptr ? szName
                                 : dwarf_formstring(dwarf_attr_integrate(pDie, DW_AT_MIPS_linkage_name, &Attribute));
    }

    /// Returns whether the encoding of a base type is that of a signed integer.
    inline bool IsSignedEncoding(std::uint64_t nEncoding)
    {
        return nEncoding == DW_ATE_signed || nEncoding == DW_ATE_signed_char;
    }

    /// Returns whether a tag is that of a structure, a class or a union.
    inline bool IsStructure(int nTag)
    {
        return nTag == DW_TAG_structure_type || nTag == DW_TAG_class_type || nTag == DW_TAG_union_type;
    }

    /// Returns what a scope adds before the names in it: its name and "::". The name of an unnamed namespace is
    /// "(anonymous namespace)", that of an unnamed structure "(unnamed)". Returns an empty text for what is neither a
    /// namespace nor a structure.
    inline std::string ScopePrefix(Dwarf_Die * pScope)
    {
        bool const bNamespace = dwarf_tag(pScope) == DW_TAG_namespace;
        std::string const sName = NameOf(pScope);
        return !bNamespace && !IsStructure(dwarf_tag(pScope)) ? ""
               : sName.empty() && bNamespace                  ? "(anonymous namespace)::"
               : sName.empty()                                ? "(unnamed)::"
                                                              : sName + "::";
    }

    /// Returns whether a tag is that of a qualifier of a type: const, volatile, restrict or atomic.
    inline bool IsQualifier(int nTag)
    {
        return nTag == DW_TAG_const_type || nTag == DW_TAG_volatile_type || nTag == DW_TAG_restrict_type
               || nTag == DW_TAG_atomic_type;
    }

    /// Returns whether a tag is that of a pointer or a reference.
    inline bool IsPointer(int nTag)
    {
        return nTag == DW_TAG_pointer_type || nTag == DW_TAG_reference_type || nTag == DW_TAG_rvalue_reference_type;
    }
}
