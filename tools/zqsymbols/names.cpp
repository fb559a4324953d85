#include "tools/zqsymbols/names.h"

#include <cctype>
#include <cstdlib>
#include <cxxabi.h>
#include <dwarf.h>
#include <memory>

namespace zqsymbols
{
    namespace
    {
        // Returns by how much a character changes the depth of brackets.
        int DepthChange(char cText)
        {
            switch (cText)
            {
            case '(':
            case '<':
            case '{':
                return 1;
            case ')':
            case '>':
            case '}':
                return -1;
            default:
                return 0;
            }
        }

        // Returns "f(int)" for "f(int) [clone .cold]" and for "f(int) const &".
        std::string_view WithoutQualifiers(std::string_view sName)
        {
            std::size_t const iClone = sName.find(" [clone ");
            sName = sName.substr(0, iClone);
            for (bool bGoesOn = true; bGoesOn;)
            {
                bGoesOn = false;
                for (std::string_view const sEnd : { " const", " volatile", " &", " &&" })
                {
                    if (sName.ends_with(sEnd))
                    {
                        sName.remove_suffix(sEnd.size());
                        bGoesOn = true;
                    }
                }
            }
            return sName;
        }

        // Returns "f(int)::{lambda()#1}::operator()" for "f(int)::{lambda()#1}::operator()(int)".
        std::string_view WithoutArguments(std::string_view sName)
        {
            int nOpen = 0;
            for (std::size_t i = sName.size(); sName.ends_with(')') && i-- > 0;)
            {
                nOpen += sName[i] == ')' ? 1 : sName[i] == '(' ? -1 : 0;
                if (nOpen == 0)
                {
                    return sName.substr(0, i);
                }
            }
            return sName;
        }

        // Returns "f<int>(int)" for "void (*f<int>(int))", a function that returns a pointer to a function.
        std::string_view WithoutPointer(std::string_view sName)
        {
            std::size_t const iInner = WithoutArguments(sName).size() + 1;
            bool const bPointer = sName.ends_with(')') && (sName[iInner] == '*' || sName[iInner] == '&');
            return bPointer ? sName.substr(iInner + 1, sName.size() - iInner - 2) : sName;
        }

        // Returns whether a text begins with an operator's name, not with a name such as "operators".
        bool BeginsOperator(std::string_view sText)
        {
            constexpr std::string_view OPERATOR = "operator";
            return sText.starts_with(OPERATOR) && sText.size() > OPERATOR.size()
                   && std::isalnum(static_cast<unsigned char>(sText[OPERATOR.size()])) == 0
                   && sText[OPERATOR.size()] != '_';
        }

        // Returns "ns::f<int>" for "int ns::f<int>". A blank outside of all brackets ends a return type, except in an
        // operator's name.
        std::string_view WithoutReturnType(std::string_view sName)
        {
            if (std::string_view const sInner = WithoutPointer(sName); sInner.size() != sName.size())
            {
                return WithoutArguments(sInner);
            }
            if (!sName.ends_with('>'))
            {
                return sName;
            }
            int nDepth = 0;
            std::size_t iStart = 0;
            for (std::size_t i = 0; i < sName.size() && !(nDepth == 0 && BeginsOperator(sName.substr(i))); ++i)
            {
                nDepth += DepthChange(sName[i]);
                iStart = nDepth == 0 && sName[i] == ' ' ? i + 1 : iStart;
            }
            return sName.substr(iStart);
        }
    }

    std::string PlainName(char const * szLinkerName)
    {
        int iStatus = 0;
        std::string_view const sLinkerName = szLinkerName;
        std::unique_ptr<char, void (*)(void *)> const pName(
            sLinkerName.starts_with("_Z") ? abi::__cxa_demangle(szLinkerName, nullptr, nullptr, &iStatus) : nullptr,
            std::free);
        if (pName == nullptr)
        {
            return std::string(
                sLinkerName.substr(0, sLinkerName.find_first_of(".@", 1)));   // "main.cold", "main@@VERSION"
        }
        std::string_view const sUnqualified = WithoutQualifiers(pName.get());
        std::string_view const sName = WithoutArguments(sUnqualified);
        return std::string(sName.size() != sUnqualified.size() ? WithoutReturnType(sName) : sName);
    }

    std::optional<Function_t> FunctionAt(Modules_c & Modules, std::uint64_t nAddress)
    {
        std::optional<Symbol_t> const Symbol = Modules.SymbolAt(nAddress);
        return Symbol ? std::optional(Function_t{ PlainName(Symbol->szName), Symbol->nDisplacement }) : std::nullopt;
    }

    std::string PathOf(Unit_t & Unit, char const * szFile)
    {
        Dwarf_Attribute Attribute;
        char const * const szFolder = dwarf_formstring(dwarf_attr(&Unit.Lines, DW_AT_comp_dir, &Attribute));
        bool const bRelative = szFile[0] != '/' && szFolder != nullptr && szFolder[0] == '/';
        return (bRelative ? std::string(szFolder) + '/' : "") + szFile;
    }

    std::optional<Line_t> LineAt(Modules_c & Modules, std::uint64_t nAddress)
    {
        std::optional<Unit_t> Unit = Modules.UnitAt(nAddress);
        Dwarf_Line * const pLine = Unit ? dwarf_getsrc_die(&Unit->Lines, nAddress - Unit->nBias) : nullptr;
        int nLine = 0;
        char const * const szFile = pLine != nullptr ? dwarf_linesrc(pLine, nullptr, nullptr) : nullptr;
        if (szFile == nullptr || dwarf_lineno(pLine, &nLine) != 0 || nLine <= 0)
        {
            return std::nullopt;
        }
        return Line_t{ PathOf(*Unit, szFile), static_cast<unsigned>(nLine) };
    }
}
