#include "tools/zqsymbols/inlined.h"

#include "tools/zqsymbols/dies.h"

#include <climits>
#include <cstdlib>
#include <dwarf.h>

namespace zqsymbols
{
    namespace
    {
        // Returns the callee's name with the namespaces and structures around its declaration. Returns "?" if it has no
        // name and nothing is around it.
        std::string QualifiedName(Dwarf_Die & Call)
        {
            Dwarf_Die Declaration = Origin(Call);
            std::string sName = NameOf(&Declaration);
            Dwarf_Die * pScopes = nullptr;
            int const nScopes = dwarf_getscopes_die(&Declaration, &pScopes);
            for (int i = 1; i < nScopes; ++i)
            {
                sName.insert(0, ScopePrefix(&pScopes[i]));
            }
            std::free(pScopes);
            return sName.empty() ? "?" : sName;
        }

        // Returns the callee's name, from its linkage name if it has one.
        std::string FunctionOf(Dwarf_Die & Call)
        {
            char const * const szName = LinkageName(&Call);
            return szName != nullptr ? PlainName(szName) : QualifiedName(Call);
        }

        // Returns the file and the line of a call, or nothing if one of them is unknown.
        std::optional<Line_t> PlaceOf(Unit_t & Unit, Dwarf_Die & Call)
        {
            Dwarf_Attribute Attribute;
            Dwarf_Word iFile = 0;
            Dwarf_Word iLine = 0;
            Dwarf_Files * pFiles = nullptr;
            std::size_t nFiles = 0;
            bool const bKnown = dwarf_formudata(dwarf_attr(&Call, DW_AT_call_file, &Attribute), &iFile) == 0
                                && dwarf_formudata(dwarf_attr(&Call, DW_AT_call_line, &Attribute), &iLine) == 0
                                && iLine > 0 && iLine <= INT_MAX
                                && dwarf_getsrcfiles(&Unit.Lines, &pFiles, &nFiles) == 0 && iFile < nFiles;
            char const * const szFile = bKnown ? dwarf_filesrc(pFiles, iFile, nullptr, nullptr) : nullptr;
            return szFile == nullptr ? std::nullopt
                                     : std::optional(Line_t{ PathOf(Unit, szFile), static_cast<unsigned>(iLine) });
        }
    }

    std::vector<InlinedCall_t> InlinedCalls(Unit_t & Unit, std::vector<Dwarf_Die> & dScopes)
    {
        std::vector<InlinedCall_t> dCalls;
        for (std::size_t i = 0; i < dScopes.size(); ++i)
        {
            if (dwarf_tag(&dScopes[i]) == DW_TAG_inlined_subroutine)
            {
                dCalls.push_back({ FunctionOf(dScopes[i]), PlaceOf(Unit, dScopes[i]), i });
            }
        }
        return dCalls;
    }
}
