#include "tools/zqsymbols/modules.h"

#include <dwarf.h>

namespace zqsymbols
{
    namespace
    {
        // Collects all functions with code below a DIE. They may be in namespaces, structures and functions.
        void CollectFunctions(Dwarf_Die * pParent, std::vector<Dwarf_Die> & dFunctions)
        {
            Dwarf_Die Child;
            if (dwarf_child(pParent, &Child) != 0)
            {
                return;
            }
            do
            {
                switch (dwarf_tag(&Child))
                {
                case DW_TAG_subprogram:
                    if (dwarf_hasattr(&Child, DW_AT_low_pc) != 0 || dwarf_hasattr(&Child, DW_AT_ranges) != 0)
                    {
                        dFunctions.push_back(Child);
                    }
                    [[fallthrough]];
                case DW_TAG_namespace:
                case DW_TAG_structure_type:
                case DW_TAG_class_type:
                case DW_TAG_union_type:
                case DW_TAG_lexical_block:
                    CollectFunctions(&Child, dFunctions);
                    break;
                default:
                    break;
                }
            }
            while (dwarf_siblingof(&Child, &Child) == 0);
        }

        // Finds the block or inlined call directly in a scope that holds the address. Returns false if there is none.
        bool InnerScope(Dwarf_Die Scope, Dwarf_Addr nAddress, Dwarf_Die * pInner)
        {
            bool bGoesOn = dwarf_child(&Scope, pInner) == 0;
            while (bGoesOn)
            {
                int const nTag = dwarf_tag(pInner);
                bool const bScope = nTag == DW_TAG_lexical_block || nTag == DW_TAG_inlined_subroutine
                                    || nTag == DW_TAG_try_block || nTag == DW_TAG_catch_block;
                if (bScope && dwarf_haspc(pInner, nAddress) > 0)
                {
                    return true;
                }
                bGoesOn = dwarf_siblingof(pInner, pInner) == 0;
            }
            return false;
        }
    }

    std::vector<Dwarf_Die> Modules_c::ScopesAt(Unit_t & Unit, std::uint64_t nAddress)
    {
        auto const [iFunctions, bNew] = m_dFunctions.try_emplace(Unit.Die.addr);
        if (bNew)
        {
            CollectFunctions(&Unit.Die, iFunctions->second);
        }
        std::vector<Dwarf_Die> dScopes;
        Dwarf_Die Scope;
        for (Dwarf_Die & Function : iFunctions->second)
        {
            if (dwarf_haspc(&Function, nAddress - Unit.nBias) > 0)
            {
                dScopes.push_back(Function);
                break;
            }
        }
        while (!dScopes.empty() && InnerScope(dScopes.back(), nAddress - Unit.nBias, &Scope))
        {
            dScopes.push_back(Scope);
        }
        return dScopes;
    }
}
