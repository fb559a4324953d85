// Describes an uncaught exception. The compiler encodes names of types by the Itanium C++ ABI, section 5.1. The
// runtime's own decoder allocates memory, so this source decodes the usual forms: classes, in namespaces or not,
// builtin types, pointers and const. std::string has its usual name. Other names print as they are encoded.
#include "platform/linux/faultdecode.h"
#include "platform/text.h"

#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <string>
#include <string_view>
#include <typeinfo>

namespace plat
{
    namespace
    {
        // A text of a fixed size. Additions are cut to fit.
        struct Text_s
        {
            char * szText;
            std::size_t nSize;
            std::size_t nLength;

            void Add(char const * pText, std::size_t nText)
            {
                for (std::size_t i = 0; i < nText && nLength + 1 < nSize; ++i)
                {
                    szText[nLength++] = pText[i];
                }
                szText[nLength] = '\0';
            }
            void Add(char const * szMore) { Add(szMore, std::strlen(szMore)); }

            // Adds a text with its control characters and line ends escaped, so that all stays on one line.
            void AddEscaped(char const * szMore)
            {
                nLength += TextEscape(szText + nLength, nSize - nLength, szMore, Controls_e::None);
            }
        };

        struct Builtin_s
        {
            char cCode;
            char const * szName;
        };
        constexpr Builtin_s BUILTINS[] = { { 'b', "bool" }, { 'c', "char" }, { 'a', "signed char" },
            { 'h', "unsigned char" }, { 's', "short" }, { 't', "unsigned short" }, { 'i', "int" },
            { 'j', "unsigned int" }, { 'l', "long" }, { 'm', "unsigned long" }, { 'x', "long long" },
            { 'y', "unsigned long long" }, { 'f', "float" }, { 'd', "double" }, { 'e', "long double" },
            { 'w', "wchar_t" }, { 'v', "void" } };

        // Moves pCode after the code of namespace std. Returns false if it is not there.
        bool SkipStd(char const *& pCode)
        {
            bool const bStd = std::strncmp(pCode, "St", 2) == 0;
            pCode += bStd ? 2 : 0;
            return bStd;
        }

        // Adds the name that follows its length at pCode, and moves pCode after it. Returns false without a name.
        bool AddPart(char const *& pCode, Text_s & Text)
        {
            std::size_t nPart = 0;
            for (; IsDigit(*pCode); ++pCode)
            {
                nPart = nPart * 10 + static_cast<std::size_t>(*pCode - '0');
            }
            if (nPart == 0 || strnlen(pCode, nPart) != nPart)
            {
                return false;
            }
            if (std::string_view(pCode, nPart).starts_with("_GLOBAL__N"))
            {
                Text.Add("(anonymous namespace)");
            }
            else
            {
                Text.Add(pCode, nPart);
            }
            pCode += nPart;
            return true;
        }

        // Adds the names up to an E, and moves pCode after the E. Returns false without a name, or if one has another
        // form.
        bool AddNested(char const *& pCode, Text_s & Text)
        {
            bool bFirst = true;
            for (; *pCode != 'E'; bFirst = false)
            {
                if (!bFirst)
                {
                    Text.Add("::");
                }
                if (bFirst && SkipStd(pCode))
                {
                    Text.Add("std");
                }
                else if (!AddPart(pCode, Text))
                {
                    return false;
                }
            }
            ++pCode;
            return !bFirst;
        }

        // Adds a type whose code ends in a zero. Returns false if it has another form. A part may then be added.
        bool AddType(char const * pCode, Text_s & Text)
        {
            if (*pCode == 'P' || *pCode == 'K')
            {
                char const * const szSuffix = *pCode == 'P' ? "*" : " const";
                bool const bKnown = AddType(pCode + 1, Text);
                Text.Add(szSuffix);
                return bKnown;
            }
            for (Builtin_s const & Builtin : BUILTINS)
            {
                if (Builtin.cCode == pCode[0] && pCode[1] == '\0')
                {
                    Text.Add(Builtin.szName);
                    return true;
                }
            }
            if (SkipStd(pCode))
            {
                Text.Add("std::");
            }
            bool const bKnown = *pCode == 'N' ? AddNested(++pCode, Text) : AddPart(pCode, Text);
            return bKnown && *pCode == '\0';
        }

        void AddTypeName(std::type_info const & Type, Text_s & Text)
        {
            std::size_t const nBefore = Text.nLength;
            if (Type == typeid(std::string))
            {
                Text.Add("std::string");
            }
            else if (!AddType(Type.name(), Text))
            {
                Text.nLength = nBefore;
                Text.Add(Type.name());
            }
        }

        void AddMessage(char const * szMessage, Text_s & Text)
        {
            if (szMessage)
            {
                Text.Add(": ");
                Text.AddEscaped(szMessage);
            }
        }
    }

    void DescribeException(char * szText, std::size_t nSize)
    {
        Text_s Text = { szText, nSize, 0 };
        Text.Add(FAULT_UNCAUGHT_TEXT);
        Text.Add(" ");
        AddTypeName(*abi::__cxa_current_exception_type(), Text);
        try
        {
            throw;
        }
        catch (std::exception const & Thrown)
        {
            AddMessage(Thrown.what(), Text);
        }
        catch (char const * szThrown)
        {
            AddMessage(szThrown, Text);
        }
        catch (std::string const & sThrown)
        {
            AddMessage(sThrown.c_str(), Text);
        }
        catch (...)
        {}
    }
}
