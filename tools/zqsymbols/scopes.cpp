#include "tools/zqsymbols/modules.h"

#include <dwarf.h>

namespace zqsymbols
{
    namespace
    {
        // Finds the block or inlined call that holds an address and lies directly in a scope. Returns false if there is
        // none.
        bool FindInnerScope(Dwarf_Die Scope, Dwarf_Addr nAddress, Dwarf_Die * pInner)
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
        auto const [itScan, bNew] = m_dScans.try_emplace(Unit.Die.addr);
        if (bNew)
        {
            itScan->second = UnitScan_c(Unit.Die);
        }
        std::vector<Dwarf_Die> dScopes;
        Dwarf_Die Scope;
        for (Dwarf_Die & Function : itScan->second.GetFunctions())
        {
            if (dwarf_haspc(&Function, nAddress - Unit.nBias) > 0)
            {
                dScopes.push_back(Function);
                break;
            }
        }
        while (!dScopes.empty() && FindInnerScope(dScopes.back(), nAddress - Unit.nBias, &Scope))
        {
            dScopes.push_back(Scope);
        }
        return dScopes;
    }
}
