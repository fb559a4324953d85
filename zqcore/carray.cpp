#include "zqcore/carray.h"
#include "zqcore/cstring.h"

#include <cctype>
#include <cstring>

namespace
{
    // Of a name with its scopes.
    bool IsNameChar(char c)
    {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == ':';
    }

    // The word that stands in front of a type's name, told by the name's ending.
    char const * KeywordOf(char const * pName, std::size_t nName)
    {
        auto const Ends = [=](char const * szTail)
        { return nName > 2 && std::strncmp(pName + nName - 2, szTail, 2) == 0; };
        return Ends("_c") ? "class " : Ends("_t") || Ends("_s") ? "struct " : Ends("_e") ? "enum " : "";
    }

    // Where the array's own type stands in the compiler's spelling of a function.
    char const * FindType(char const * szFunction)
    {
        char const * const pType = std::strstr(szFunction, "SortedArray_T<");
        return pType ? pType : szFunction;
    }
}

void ArrayTypeName(char const * szFunction, char * szBuffer, std::size_t nSize)
{
    std::size_t nOut = 0;
    auto const Put = [&](char const * pText, std::size_t nText)
    {
        for (std::size_t i = 0; i < nText && nOut + 1 < nSize; ++i)
        {
            szBuffer[nOut++] = pText[i];
        }
    };

    int iDepth = 0;
    for (char const * p = FindType(szFunction); *p; ++p)
    {
        if (IsNameChar(*p))
        {
            char const * const pName = p;
            while (IsNameChar(p[1]))
            {
                ++p;
            }
            auto const nName = static_cast<std::size_t>(p + 1 - pName);
            bool const bInScope = *pName == ':';   // of a template's instance
            bool const bSecondWord = nOut > 0 && IsNameChar(szBuffer[nOut - 1]);
            bool const bTemplate = iDepth > 0 && p[1] == '<';
            char const * const szKeyword = bInScope ? "" : bTemplate ? "class " : KeywordOf(pName, nName);
            Put(" ", bSecondWord ? 1 : 0);
            Put(szKeyword, std::strlen(szKeyword));
            Put(pName, nName);
        }
        else if (*p == '*')
        {
            Put(" *", 2);
        }
        else if (*p == '<' || *p == ',')
        {
            iDepth += *p == '<';
            Put(p, 1);
        }
        else if (*p == '>')
        {
            bool const bNested = nOut > 0 && szBuffer[nOut - 1] == '>';
            Put(" >", bNested ? 2 : 0);
            Put(">", bNested ? 0 : 1);
            if (--iDepth == 0)
            {
                break;
            }
        }
    }
    szBuffer[nOut] = '\0';
}
