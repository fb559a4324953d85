#include "tools/zqsymbols/names.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dwarf.h>
#include <memory>

namespace zqsymbols
{
    namespace
    {
        // Depth of brackets in a text that is read from its start. Does not count '<' and '>' in round and curly
        // brackets, because they may be operators. Takes a '<' after ')' for an operator, and does not count it either.
        class Depth_c
        {
        public:
            void Add(char cText)
            {
                m_nOther += cText == '(' || cText == '{' ? 1 : cText == ')' || cText == '}' ? -1 : 0;
                bool const bOperator = m_nOther != 0 || (cText == '<' && m_cLast == ')');
                m_nAngle += bOperator ? 0 : cText == '<' ? 1 : cText == '>' ? -1 : 0;
                m_cLast = cText;
            }
            bool IsOutside() const { return m_nAngle == 0 && m_nOther == 0; }

        private:
            int m_nAngle = 0, m_nOther = 0;
            char m_cLast = '\0';
        };

        // Returns "f(int)" for "f(int) [clone .cold]" and for "f(int) const &".
        std::string_view WithoutQualifiers(std::string_view sName)
        {
            std::size_t const iClone = sName.find(" [clone ");
            sName = sName.substr(0, iClone);
            for (bool bGoesOn = true; bGoesOn;)
            {
                bGoesOn = false;
                for (std::string_view const sEnd : { " const", " volatile", " &", " &&", " noexcept" })
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
            for (std::size_t i = sName.ends_with(')') ? sName.size() : 0; i-- > 0;)
            {
                nOpen += sName[i] == ')' ? 1 : sName[i] == '(' ? -1 : 0;
                if (nOpen == 0)
                {
                    return sName.substr(0, i);
                }
            }
            return sName;
        }

        // Returns "f" for "* const volatile*f" and for " const &f".
        std::string_view WithoutMarks(std::string_view sName)
        {
            for (bool bGoesOn = true; bGoesOn;)
            {
                bGoesOn = false;
                for (std::string_view const sMark : { "*", "&", " ", "const", "volatile" })
                {
                    std::size_t const nMark = sMark.size();
                    bool const bWhole =
                        nMark == 1 || (sName.size() > nMark && std::strchr(" *&:", sName[nMark]) != nullptr);
                    if (sName.starts_with(sMark) && bWhole)
                    {
                        sName.remove_prefix(nMark);
                        bGoesOn = true;
                    }
                }
            }
            return sName;
        }

        // Returns "f(int)" for "int (*f(int))", the inner part of what returns a pointer or a reference to a function
        // or an array. Returns an empty text for other names.
        std::string_view InnerName(std::string_view sName)
        {
            std::size_t const nBefore = WithoutArguments(sName).size();
            std::string_view sInner =
                nBefore < sName.size() ? sName.substr(nBefore + 1, sName.size() - nBefore - 2) : "";
            Depth_c Depth;
            std::size_t iMark = 0;
            while (iMark < sInner.size() && !(Depth.IsOutside() && std::strchr("*& ", sInner[iMark]) != nullptr))
            {
                Depth.Add(sInner[iMark++]);
            }
            bool const bMark = iMark < sInner.size() && sInner[iMark] != ' ';
            bool const bMember = sInner.substr(0, iMark).ends_with("::");   // the class is before the mark
            return bMark && (iMark == 0 || bMember) ? WithoutMarks(sInner.substr(iMark)) : "";
        }

        // Returns whether an operator's name begins at an index. "operators" and "binary_operator" are no such names.
        bool IsOperatorAt(std::string_view sName, std::size_t iStart)
        {
            constexpr std::string_view OPERATOR = "operator";
            auto const IsWordCharacter = [sName](std::size_t i) {
                return i < sName.size() && (std::isalnum(static_cast<unsigned char>(sName[i])) != 0 || sName[i] == '_');
            };
            return sName.substr(iStart).starts_with(OPERATOR) && !IsWordCharacter(iStart + OPERATOR.size())
                   && (iStart == 0 || !IsWordCharacter(iStart - 1));
        }

        // Returns "ns::f<int>" for "int ns::f<int>". A blank outside of all brackets ends a return type, except in an
        // operator's name and before the qualifier of a function around this one.
        std::string_view WithoutReturnType(std::string_view sName)
        {
            if (!sName.ends_with('>'))
            {
                return sName;
            }
            constexpr std::size_t QUALIFIERS_SIZE = 24;   // bytes of " const volatile &&::" and some more
            Depth_c Depth;
            std::size_t iStart = 0;
            for (std::size_t i = 0; i < sName.size() && !(Depth.IsOutside() && IsOperatorAt(sName, i)); ++i)
            {
                Depth.Add(sName[i]);
                bool const bBlank = Depth.IsOutside() && sName[i] == ' ';
                iStart = bBlank && !WithoutMarks(sName.substr(i, QUALIFIERS_SIZE)).starts_with("::") ? i + 1 : iStart;
            }
            return sName.substr(iStart);
        }

        // Returns "ns::f<int>" for "int ns::f<int>(int) const". Returns the name of a variable as it is.
        std::string_view FunctionName(std::string_view sName)
        {
            constexpr int POINTERS = 8;   // most pointers to functions that a return type nests
            for (int i = 0;; ++i)
            {
                sName = WithoutQualifiers(sName);
                std::size_t const iBounds = sName.ends_with(']') ? sName.rfind(") [") : sName.npos;
                std::string_view const sBare = WithoutArguments(sName);
                std::string_view sInner = InnerName(iBounds == sName.npos ? sName : sName.substr(0, iBounds + 1));
                sInner = sInner.empty() ? InnerName(sBare) : sInner;
                if (sInner.empty() || i == POINTERS)
                {
                    return sBare.size() != sName.size() ? WithoutReturnType(sBare) : sName;
                }
                sName = sInner;
            }
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
        return std::string(FunctionName(pName.get()));
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
        int iLine = 0;
        char const * const szFile = pLine != nullptr ? dwarf_linesrc(pLine, nullptr, nullptr) : nullptr;
        if (szFile == nullptr || dwarf_lineno(pLine, &iLine) != 0 || iLine <= 0)
        {
            return std::nullopt;
        }
        return Line_t{ PathOf(*Unit, szFile), static_cast<unsigned>(iLine) };
    }
}
