#include "tools/zqsymbols/typenames.h"

#include "tools/zqsymbols/dies.h"

namespace zqsymbols
{
    namespace
    {
        constexpr int MAX_DEPTH = 16;   // damaged information may be circular

        std::string Declare(Types_c & Types, Dwarf_Die Type, std::string const & sInner, int nDepth);

        // Returns two parts of a declaration with a blank between them, or the other one if one is empty.
        std::string Joined(std::string const & sFirst, std::string const & sSecond)
        {
            return sFirst.empty() ? sSecond : sSecond.empty() ? sFirst : sFirst + " " + sSecond;
        }

        // Returns the declaration of what a DIE's type attribute names, or of "void" without one.
        std::string DeclareTarget(Types_c & Types, Dwarf_Die Die, std::string const & sInner, int nDepth)
        {
            Dwarf_Die Target;
            return Follow(&Die, &Target) ? Declare(Types, Target, sInner, nDepth - 1) : Joined("void", sInner);
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

        // Returns the types of a function's parameters: "int, ...". Leaves out the object of a member function.
        std::string ParameterTypes(Types_c & Types, Dwarf_Die Function, int nDepth)
        {
            std::string sText;
            Dwarf_Die Child;
            bool bMore = dwarf_child(&Function, &Child) == 0;
            for (; bMore; bMore = dwarf_siblingof(&Child, &Child) == 0)
            {
                bool const bEllipsis = dwarf_tag(&Child) == DW_TAG_unspecified_parameters;
                bool const bParameter = dwarf_tag(&Child) == DW_TAG_formal_parameter;
                if (bEllipsis || (bParameter && !dwarf_hasattr(&Child, DW_AT_artificial)))
                {
                    sText += sText.empty() ? "" : ", ";
                    sText += bEllipsis ? "..." : DeclareTarget(Types, Child, "", nDepth);
                }
            }
            return sText;
        }

        // Returns the tag of what a DIE's type attribute names, without const and the like before it. Returns
        // DW_TAG_invalid if the DIE names no type.
        int TagOfTarget(Dwarf_Die Die)
        {
            int iTag = DW_TAG_invalid;
            for (int i = 0; i < MAX_DEPTH && Follow(&Die, &Die); ++i)
            {
                iTag = dwarf_tag(&Die);
                if (!IsQualifier(iTag))
                {
                    break;
                }
            }
            return iTag;
        }

        // Returns the declaration of a type with a qualifier. Leaves out the qualifier of a function: g++ describes
        // functions with attributes as const or volatile.
        std::string DeclareQualified(
            Types_c & Types, Dwarf_Die Type, char const * szQualifier, std::string const & sInner, int nDepth)
        {
            bool const bFunction = TagOfTarget(Type) == DW_TAG_subroutine_type;
            return DeclareTarget(Types, Type, bFunction ? sInner : Joined(szQualifier, sInner), nDepth);
        }

        // Returns the declaration of a pointer or a reference. A mark before a function or an array is in brackets.
        std::string DeclarePointer(
            Types_c & Types, Dwarf_Die Pointer, std::string const & sMark, std::string const & sInner, int nDepth)
        {
            int const iTag = TagOfTarget(Pointer);
            std::string const sMarked = Joined(sMark, sInner);
            bool const bBrackets = iTag == DW_TAG_subroutine_type || iTag == DW_TAG_array_type;
            return DeclareTarget(Types, Pointer, bBrackets ? "(" + sMarked + ")" : sMarked, nDepth);
        }

        // Returns the declaration of a pointer to a member.
        std::string DeclareMemberPointer(Types_c & Types, Dwarf_Die Pointer, std::string const & sInner, int nDepth)
        {
            Dwarf_Attribute Attribute;
            Dwarf_Die Class;
            bool const bClass =
                dwarf_formref_die(dwarf_attr(&Pointer, DW_AT_containing_type, &Attribute), &Class) != nullptr;
            std::string const sClass = bClass ? Types.QualifiedName(Class) : "";
            return DeclarePointer(Types, Pointer, (sClass.empty() ? "(unnamed)" : sClass) + "::*", sInner, nDepth);
        }

        // Returns the declaration of a type, or "?" at depth 0. sInner is what would surround the name, from the inside
        // to this type.
        std::string Declare(Types_c & Types, Dwarf_Die Type, std::string const & sInner, int nDepth)
        {
            if (nDepth <= 0)
            {
                return Joined("?", sInner);
            }
            switch (dwarf_tag(&Type))
            {
            case DW_TAG_pointer_type:
                return DeclarePointer(Types, Type, "*", sInner, nDepth);
            case DW_TAG_reference_type:
                return DeclarePointer(Types, Type, "&", sInner, nDepth);
            case DW_TAG_rvalue_reference_type:
                return DeclarePointer(Types, Type, "&&", sInner, nDepth);
            case DW_TAG_ptr_to_member_type:
                return DeclareMemberPointer(Types, Type, sInner, nDepth);
            case DW_TAG_const_type:
                return DeclareQualified(Types, Type, "const", sInner, nDepth);
            case DW_TAG_volatile_type:
                return DeclareQualified(Types, Type, "volatile", sInner, nDepth);
            case DW_TAG_restrict_type:
            case DW_TAG_atomic_type:
                return DeclareTarget(Types, Type, sInner, nDepth);
            case DW_TAG_array_type:
                return DeclareTarget(Types, Type,
                    sInner.ends_with(')') ? sInner + Dimensions(Type) : Joined(sInner, Dimensions(Type)), nDepth);
            case DW_TAG_subroutine_type:
                return DeclareTarget(Types, Type, sInner + "(" + ParameterTypes(Types, Type, nDepth) + ")", nDepth);
            default:
                break;
            }
            Dwarf_Attribute Signature;
            Dwarf_Die Other;
            if (dwarf_formref_die(dwarf_attr(&Type, DW_AT_signature, &Signature), &Other) != nullptr)
            {
                return Declare(Types, Other, sInner, nDepth - 1);
            }
            std::string const sName = Types.QualifiedName(Type);
            return Joined(sName.empty() ? "(unnamed)" : sName, sInner);
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
        return Owner.addr == nullptr ? "void" : ShortName(DeclareTarget(Types, Owner, "", MAX_DEPTH));
    }

    std::string ShortName(std::string_view sName)
    {
        std::string sShort(sName);
        for (std::string_view const sStart : { ", std::allocator<", ", std::char_traits<", ", std::default_delete<",
                 ", std::__1::allocator<", ", std::__1::char_traits<", ", std::__1::default_delete<" })
        {
            RemoveArguments(sShort, sStart);
        }
        for (std::string_view const sVersion : { "::__cxx11::", "::__1::", "::_V2::" })
        {
            ReplaceAll(sShort, sVersion, "::");
        }
        ReplaceAll(sShort, " >", ">");
        ReplaceAll(sShort, "std::basic_string<char>", "std::string");
        ReplaceAll(sShort, "std::basic_string_view<char>", "std::string_view");
        return sShort;
    }
}
