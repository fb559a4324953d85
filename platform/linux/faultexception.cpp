// Names of types: the Itanium C++ ABI, section 5.1. The runtime's own decoder allocates memory. Therefore the usual
// forms are decoded here: classes, in namespaces or not, builtin types and pointers. Other names print as they are
// encoded.
#include "platform/linux/faultdecode.h"
#include "platform/text.h"

#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <string_view>
#include <typeinfo>

namespace plat
{
    namespace
    {
        // A text of a fixed size. Additions are cut to fit.
        struct Text_c
        {
            char * m_szText;
            std::size_t m_nSize;
            std::size_t m_nLength;

            void Add(char const * pText, std::size_t nText)
            {
                for (std::size_t i = 0; i < nText && m_nLength + 1 < m_nSize; ++i)
                {
                    m_szText[m_nLength++] = pText[i];
                }
                m_szText[m_nLength] = '\0';
            }
            void Add(char const * szMore) { Add(szMore, std::strlen(szMore)); }

            // Adds a text with its control characters and line ends escaped, so that all stays on one line.
            void AddEscaped(char const * szMore)
            {
                m_nLength += TextEscape(m_szText + m_nLength, m_nSize - m_nLength, szMore, Controls_e::None);
            }
        };

        struct Builtin_t
        {
            char cCode;
            char const * szName;
        };
        constexpr Builtin_t BUILTINS[] = { { 'b', "bool" }, { 'c', "char" }, { 'a', "signed char" },
            { 'h', "unsigned char" }, { 's', "short" }, { 't', "unsigned short" }, { 'i', "int" },
            { 'j', "unsigned int" }, { 'l', "long" }, { 'm', "unsigned long" }, { 'x', "long long" },
            { 'y', "unsigned long long" }, { 'f', "float" }, { 'd', "double" }, { 'e', "long double" },
            { 'w', "wchar_t" }, { 'v', "void" } };

        // Moves p after the code of namespace std. Returns false if there is none at p.
        bool SkipStd(char const *& p)
        {
            bool const bStd = std::strncmp(p, "St", 2) == 0;
            p += bStd ? 2 : 0;
            return bStd;
        }

        // Adds the name at p, which its length precedes, and moves p after it. Returns false if there is none at p.
        bool AddPart(char const *& p, Text_c & Text)
        {
            std::size_t nPart = 0;
            for (; *p >= '0' && *p <= '9'; ++p)
            {
                nPart = nPart * 10 + static_cast<std::size_t>(*p - '0');
            }
            if (nPart == 0 || strnlen(p, nPart) != nPart)
            {
                return false;
            }
            if (std::string_view(p, nPart).starts_with("_GLOBAL__N"))
            {
                Text.Add("(anonymous namespace)");
            }
            else
            {
                Text.Add(p, nPart);
            }
            p += nPart;
            return true;
        }

        bool AddNested(char const *& p, Text_c & Text)
        {
            bool bFirst = true;
            for (; *p != 'E'; bFirst = false)
            {
                if (!bFirst)
                {
                    Text.Add("::");
                }
                if (bFirst && SkipStd(p))
                {
                    Text.Add("std");
                }
                else if (!AddPart(p, Text))
                {
                    return false;
                }
            }
            ++p;
            return !bFirst;
        }

        bool AddType(char const * p, Text_c & Text)
        {
            if (*p == 'P' || (*p == 'K' && p[1] != 'P'))
            {
                char const * const szSuffix = *p == 'P' ? "*" : " const";
                bool const bKnown = AddType(p + 1, Text);
                Text.Add(szSuffix);
                return bKnown;
            }
            for (Builtin_t const & Builtin : BUILTINS)
            {
                if (Builtin.cCode == p[0] && p[1] == '\0')
                {
                    Text.Add(Builtin.szName);
                    return true;
                }
            }
            if (SkipStd(p))
            {
                Text.Add("std::");
            }
            bool const bKnown = *p == 'N' ? AddNested(++p, Text) : AddPart(p, Text);
            return bKnown && *p == '\0';
        }

        void AddTypeName(std::type_info const & Type, Text_c & Text)
        {
            std::size_t const nBefore = Text.m_nLength;
            if (!AddType(Type.name(), Text))
            {
                Text.m_nLength = nBefore;
                Text.Add(Type.name());
            }
        }
    }

    void DescribeException(char * szText, std::size_t nSize)
    {
        Text_c Text = { szText, nSize, 0 };
        Text.Add("Uncaught C++ exception ");
        AddTypeName(*abi::__cxa_current_exception_type(), Text);
        try
        {
            throw;
        }
        catch (std::exception const & Thrown)
        {
            Text.Add(": ");
            Text.AddEscaped(Thrown.what());
        }
        catch (char const * szThrown)
        {
            Text.Add(": ");
            Text.AddEscaped(szThrown);
        }
        catch (...)
        {}
    }
}
