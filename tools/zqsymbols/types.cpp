#include "tools/zqsymbols/types.h"

#include "tools/zqsymbols/dies.h"

#include <dwarf.h>

namespace zqsymbols
{
    namespace
    {
        constexpr unsigned MAX_DEPTH = 16;           // structures in each other whose members are listed
        constexpr std::size_t MAX_TYPES = 1000000;   // damaged information may be endless

        // Skips aliases, const and the like, and references to units of types. Stores the name of the last alias.
        void Peel(Dwarf_Die & Die, std::string & sAlias)
        {
            constexpr int MAX_STEPS = 64;
            for (int i = 0; i < MAX_STEPS && Die.addr != nullptr; ++i)
            {
                int const nTag = dwarf_tag(&Die);
                Dwarf_Attribute Signature;
                Dwarf_Die Next;
                if (nTag == DW_TAG_typedef)
                {
                    sAlias = NameOf(&Die);
                }
                bool const bPeels = nTag == DW_TAG_typedef || IsQualifier(nTag);
                if (!bPeels && dwarf_formref_die(dwarf_attr(&Die, DW_AT_signature, &Signature), &Next) == nullptr)
                {
                    return;
                }
                if (bPeels && !Follow(&Die, &Next))
                {
                    Next = {};   // void
                }
                Die = Next;
            }
        }

        // Returns whether a type is an array of one dimension.
        bool IsArray(Dwarf_Die * pDie)
        {
            int nDimensions = 0;
            Dwarf_Die Child;
            bool bGoesOn =
                pDie->addr != nullptr && dwarf_tag(pDie) == DW_TAG_array_type && dwarf_child(pDie, &Child) == 0;
            for (; bGoesOn; bGoesOn = dwarf_siblingof(&Child, &Child) == 0)
            {
                nDimensions += dwarf_tag(&Child) == DW_TAG_subrange_type ? 1 : 0;
            }
            return nDimensions == 1;
        }

        // Returns the size in bytes of an array whose unit has no language: libdw then does not know the lowest index,
        // which is 0.
        std::uint64_t ArraySize(Dwarf_Die * pArray)
        {
            Dwarf_Die Child;
            std::string sAlias;
            Dwarf_Word nSize = 0;
            bool bGoesOn = Follow(pArray, &Child);
            if (bGoesOn)
            {
                Peel(Child, sAlias);
                bGoesOn = Child.addr != nullptr && dwarf_aggregate_size(&Child, &nSize) == 0;
            }
            for (bGoesOn = bGoesOn && dwarf_child(pArray, &Child) == 0; bGoesOn;
                 bGoesOn = dwarf_siblingof(&Child, &Child) == 0)
            {
                constexpr std::uint64_t NONE = ~std::uint64_t{ 0 };
                nSize *= Number(&Child, DW_AT_count, Number(&Child, DW_AT_upper_bound, NONE) + 1);
            }
            return nSize;
        }

        // Returns whether the tag is that of a structure or an enumeration, whose name GetName returns.
        bool IsNamed(int nTag)
        {
            return IsStructure(nTag) || nTag == DW_TAG_enumeration_type;
        }

        // Returns the place of a member whose type has nSize bytes, in a structure at nOuter. A bit field has an offset
        // from the start of the structure, or one from the upper end of the bytes of its type.
        MemberPlace_t PlaceOf(Dwarf_Die * pMember, std::uint64_t nSize, std::uint64_t nOuter)
        {
            MemberPlace_t Place;
            std::uint64_t const nUnitBits = nSize * 8;
            std::uint64_t const nBit = Number(pMember, DW_AT_data_bit_offset, 0);
            std::uint64_t const nUnits = nSize == 0 ? 0 : nBit / nUnitBits;
            Place.nOffset = nOuter + Number(pMember, DW_AT_data_member_location, nUnits * nSize);
            Place.nBits = Number(pMember, DW_AT_bit_size, 0);
            Place.nFirstBit = nBit - nUnits * nUnitBits;
            if (dwarf_hasattr(pMember, DW_AT_bit_offset) != 0)
            {
                Place.nFirstBit = nUnitBits - Place.nBits - Number(pMember, DW_AT_bit_offset, 0);
            }
            return Place;
        }
    }

    Types_c::Type_s const & Types_c::Get(plat::SymbolType_t iType) const
    {
        return m_dTypes[iType < m_dTypes.size() ? iType : 0];
    }

    plat::SymbolType_t Types_c::Add(Dwarf_Die * pOwner)
    {
        Type_s Type;
        if (m_dTypes.size() >= MAX_TYPES || !Follow(pOwner, &Type.Die))
        {
            return 0;
        }
        Type.Owner = *pOwner;
        Peel(Type.Die, Type.sAlias);
        m_dTypes.push_back(Type);
        return static_cast<plat::SymbolType_t>(m_dTypes.size() - 1);
    }

    std::uint64_t Types_c::GetSize(plat::SymbolType_t iType) const
    {
        Dwarf_Die Die = Get(iType).Die;
        Dwarf_Word nSize = 0;
        if (Die.addr == nullptr || dwarf_aggregate_size(&Die, &nSize) == 0)
        {
            return nSize;
        }
        return IsPointer(dwarf_tag(&Die)) ? m_nWord : dwarf_tag(&Die) == DW_TAG_array_type ? ArraySize(&Die) : 0;
    }

    std::string Types_c::QualifiedName(Dwarf_Die Die)
    {
        std::string sName = NameOf(&Die);
        Dwarf_Die Unit;
        if (sName.empty() || dwarf_diecu(&Die, &Unit, nullptr, nullptr) == nullptr)
        {
            return sName;
        }
        auto const [itScan, bNew] = m_dScans.try_emplace(Unit.addr);
        if (bNew)
        {
            itScan->second = UnitScan_c(Unit);
        }
        // A type in a unit of its own, or defined outside of its scope, is declared in its scope.
        Dwarf_Attribute Declaration;
        Dwarf_Die Inside;
        if (dwarf_formref_die(dwarf_attr(&Die, DW_AT_specification, &Declaration), &Inside) != nullptr)
        {
            Die = Inside;
        }
        for (Dwarf_Die Outer = itScan->second.ScopeOf(Die); Outer.addr != nullptr; Outer = itScan->second.ScopeOf(Die))
        {
            Die = Outer;
            sName.insert(0, ScopePrefix(&Die));
        }
        return sName;
    }

    std::string Types_c::GetName(plat::SymbolType_t iType)
    {
        Type_s const & Type = Get(iType);
        Dwarf_Die Die = Type.Die;
        if (Type.bMember || Die.addr == nullptr || !IsNamed(dwarf_tag(&Die)))
        {
            return Type.sMember;
        }
        std::string const sName = QualifiedName(Die);
        return sName.empty() ? Type.sAlias : sName;
    }

    plat::SymbolBase_e Types_c::GetBase(plat::SymbolType_t iType) const
    {
        Dwarf_Die Die = Get(iType).Die;
        std::string sAlias;
        bool const bPointer = Die.addr != nullptr && dwarf_tag(&Die) == DW_TAG_pointer_type;
        bool const bEnumeration = Die.addr != nullptr && dwarf_tag(&Die) == DW_TAG_enumeration_type;
        if (bPointer || bEnumeration || IsArray(&Die))
        {
            Dwarf_Die Target;
            if (!Follow(&Die, &Target))
            {
                return bEnumeration ? plat::BASE_UNSIGNED : plat::BASE_NONE;
            }
            Peel(Target, sAlias);
            Die = Target;
        }
        bool const bBase = Die.addr != nullptr && dwarf_tag(&Die) == DW_TAG_base_type;
        bool const bChar = bBase && NameOf(&Die) == "char";
        if (!bBase || bChar || bPointer)
        {
            return bChar ? plat::BASE_CHAR : plat::BASE_NONE;
        }
        std::uint64_t const nEncoding = Number(&Die, DW_AT_encoding, 0);
        switch (nEncoding)
        {
        case DW_ATE_boolean:
            return plat::BASE_BOOL;
        case DW_ATE_float:
            return plat::BASE_FLOAT;
        default:
            return IsSignedEncoding(nEncoding) ? plat::BASE_INTEGER : plat::BASE_UNSIGNED;
        }
    }

    std::vector<plat::SymbolType_t> const & Types_c::GetMembers(plat::SymbolType_t iType)
    {
        Type_s const & Type = Get(iType);
        Dwarf_Die Die = Type.Die;
        Dwarf_Die Child;
        if (Type.bExpanded || Die.addr == nullptr || Type.nDepth >= MAX_DEPTH || !IsStructure(dwarf_tag(&Die))
            || dwarf_child(&Die, &Child) != 0)
        {
            return Type.dMembers;
        }
        std::vector<plat::SymbolType_t> dMembers;
        do
        {
            AddMember(iType, &Child, dMembers);
        }
        while (dMembers.size() < plat::SYMBOL_MEMBERS && dwarf_siblingof(&Child, &Child) == 0);
        m_dTypes[iType].bExpanded = true;
        m_dTypes[iType].dMembers = dMembers;
        return m_dTypes[iType].dMembers;
    }

    // Adds a member or a base of a structure. Skips static members, and virtual bases, whose offset only the object's
    // table has.
    void Types_c::AddMember(plat::SymbolType_t iType, Dwarf_Die * pMember, std::vector<plat::SymbolType_t> & dMembers)
    {
        int const nTag = dwarf_tag(pMember);
        bool const bBase = nTag == DW_TAG_inheritance;
        bool const bStatic =
            dwarf_hasattr(pMember, DW_AT_external) != 0 || dwarf_hasattr(pMember, DW_AT_declaration) != 0;
        bool const bVirtual = bBase && dwarf_hasattr(pMember, DW_AT_virtuality) != 0;
        plat::SymbolType_t const iMember =
            (nTag == DW_TAG_member && !bStatic) || (bBase && !bVirtual) ? Add(pMember) : 0;
        if (iMember == 0)
        {
            return;
        }
        Type_s & Member = m_dTypes[iMember];
        Member.bMember = true;
        Member.sMember = bBase ? QualifiedName(Member.Die) : NameOf(pMember);
        Member.Place = PlaceOf(pMember, GetSize(iMember), m_dTypes[iType].Place.nOffset);
        Member.nDepth = m_dTypes[iType].nDepth + 1;
        dMembers.push_back(iMember);
    }
}
