#include "tools/zqsymbols/typenames.h"

#include "tools/zqsymbols/dies.h"

namespace zqsymbols
{
    namespace
    {
        constexpr int MAX_DEPTH = 16;   // damaged information may be circular

        std::string Spell(Types_c & Types, Dwarf_Die Type, int nDepth);

        // Returns the spelling of the type that a DIE's type attribute names, or "void" without one.
        std::string SpellTarget(Types_c & Types, Dwarf_Die Die, int nDepth)
        {
            Dwarf_Die Target;
            return Follow(&Die, &Target) ? Spell(Types, Target, nDepth - 1) : "void";
        }

        // Returns the dimensions of an array: "[4][2]". Writes one of unknown size, or of size 0, as "[]".
        std::string Dimensions(Dwarf_Die Array)
        {
            std::string sText;
            Dwarf_Die Child;
            bool bMore = dwarf_child(&Array, &Child) == 0;
            for (; bMore; bMore = dwarf_siblingof(&Child, &Child) == 0)
            {
                if (dwarf_tag(&Child) == DW_TAG_subrange_type)
                {
                    std::uint64_t const nCount =
                        Number(&Child, DW_AT_count, Number(&Child, DW_AT_upper_bound, UINT64_MAX) + 1);
                    sText += nCount == 0 ? "[]" : "[" + std::to_string(nCount) + "]";
                }
            }
            return sText;
        }

        // Returns the types of a function's parameters: "int, ...".
        std::string Arguments(Types_c & Types, Dwarf_Die Function, int nDepth)
        {
            std::string sText;
            Dwarf_Die Child;
            bool bMore = dwarf_child(&Function, &Child) == 0;
            for (; bMore; bMore = dwarf_siblingof(&Child, &Child) == 0)
            {
                bool const bEllipsis = dwarf_tag(&Child) == DW_TAG_unspecified_parameters;
                if (bEllipsis || dwarf_tag(&Child) == DW_TAG_formal_parameter)
                {
                    sText += sText.empty() ? "" : ", ";
                    sText += bEllipsis ? "..." : SpellTarget(Types, Child, nDepth);
                }
            }
            return sText;
        }

        // Returns the spelling of a pointer or a reference. One to a function has its mark in brackets.
        std::string SpellPointer(Types_c & Types, Dwarf_Die Pointer, char const * szMark, int nDepth)
        {
            Dwarf_Die Target;
            if (Follow(&Pointer, &Target) && dwarf_tag(&Target) == DW_TAG_subroutine_type)
            {
                return SpellTarget(Types, Target, nDepth) + " (" + szMark + ")(" + Arguments(Types, Target, nDepth)
                       + ")";
            }
            return SpellTarget(Types, Pointer, nDepth) + " " + szMark;
        }

        // Returns the spelling of a type, or "?" at depth 0.
        std::string Spell(Types_c & Types, Dwarf_Die Type, int nDepth)
        {
            if (nDepth <= 0)
            {
                return "?";
            }
            switch (dwarf_tag(&Type))
            {
            case DW_TAG_pointer_type:
                return SpellPointer(Types, Type, "*", nDepth);
            case DW_TAG_reference_type:
                return SpellPointer(Types, Type, "&", nDepth);
            case DW_TAG_rvalue_reference_type:
                return SpellPointer(Types, Type, "&&", nDepth);
            case DW_TAG_const_type:
                return SpellTarget(Types, Type, nDepth) + " const";
            case DW_TAG_volatile_type:
                return SpellTarget(Types, Type, nDepth) + " volatile";
            case DW_TAG_restrict_type:
            case DW_TAG_atomic_type:
                return SpellTarget(Types, Type, nDepth);
            case DW_TAG_array_type:
                return SpellTarget(Types, Type, nDepth) + " " + Dimensions(Type);
            case DW_TAG_subroutine_type:
                return SpellTarget(Types, Type, nDepth) + " (" + Arguments(Types, Type, nDepth) + ")";
            default:
                break;
            }
            Dwarf_Attribute Signature;
            Dwarf_Die Other;
            if (dwarf_formref_die(dwarf_attr(&Type, DW_AT_signature, &Signature), &Other) != nullptr)
            {
                return Spell(Types, Other, nDepth - 1);
            }
            std::string const sName = Types.QualifiedName(Type);
            return sName.empty() ? "(unnamed)" : sName;
        }

        // Removes each template argument that begins with sStart, such as ", std::allocator<", up to its closing
        // bracket.
        void RemoveArguments(std::string & sName, std::string_view sStart)
        {
            for (std::size_t nAt = sName.find(sStart); nAt != std::string::npos; nAt = sName.find(sStart, nAt))
            {
                std::size_t nEnd = nAt + sStart.size();
                for (int nOpen = 1; nEnd < sName.size() && nOpen > 0; ++nEnd)
                {
                    nOpen += sName[nEnd] == '<' ? 1 : sName[nEnd] == '>' ? -1 : 0;
                }
                sName.erase(nAt, nEnd - nAt);
            }
        }

        void ReplaceAll(std::string & sName, std::string_view sOld, std::string_view sNew)
        {
            for (std::size_t nAt = sName.find(sOld); nAt != std::string::npos; nAt = sName.find(sOld, nAt))
            {
                sName.replace(nAt, sOld.size(), sNew);
            }
        }
    }

    std::string SpellTypeOf(Types_c & Types, Dwarf_Die Owner)
    {
        return Owner.addr == nullptr ? "void" : ShortName(SpellTarget(Types, Owner, MAX_DEPTH));
    }

    std::string ShortName(std::string_view sName)
    {
        std::string sShort(sName);
        for (std::string_view const sStart : { ", std::allocator<", ", std::char_traits<", ", std::default_delete<",
                 ", std::__1::allocator<", ", std::__1::char_traits<", ", std::__1::default_delete<" })
        {
            RemoveArguments(sShort, sStart);
        }
        ReplaceAll(sShort, "std::__cxx11::", "std::");
        ReplaceAll(sShort, "std::__1::", "std::");
        ReplaceAll(sShort, " >", ">");
        ReplaceAll(sShort, "std::basic_string<char>", "std::string");
        ReplaceAll(sShort, "std::basic_string_view<char>", "std::string_view");
        return sShort;
    }
}
