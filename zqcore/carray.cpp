#include "zqcore/carray.h"

#include "zqcore/cdebug_spelling_internal.h"

#include <cstring>
#include <string_view>

namespace
{
    // Returns the keyword that the ending of a type's name calls for, or an empty text.
    std::string_view KeywordOf(std::string_view sName)
    {
        return sName.ends_with("_c")                            ? "class "
               : sName.ends_with("_t") || sName.ends_with("_s") ? "struct "
               : sName.ends_with("_e")                          ? "enum "
                                                                : "";
    }

    // Returns the start of the array's own type in the spelling, or of the spelling if it does not name one.
    char const * FindType(char const * szFunction)
    {
        char const * const pType = std::strstr(szFunction, "SortedArray_T<");
        return pType ? pType : szFunction;
    }
}

void ArrayTypeName(char const * szFunction, char * szBuffer, std::size_t nSize)
{
    std::size_t nOut = 0;
    auto const Put = [&](std::string_view sText) { nOut += sText.copy(szBuffer + nOut, nSize - 1 - nOut); };

    char const * const szType = FindType(szFunction);
    int nDepth = 0;
    bool bAfterName = false;
    for (char const * pNext = szType; *pNext;)
    {
        char const * const pName = pNext;
        pNext = SpelledNameEnd(szType, pNext);
        if (pNext != pName)
        {
            std::string_view const sName(pName, static_cast<std::size_t>(pNext - pName));
            bool const bInScope = sName.starts_with(':');   // whether the name is in a template's instance
            bool const bTemplate = nDepth > 0 && *pNext == '<';
            Put(bAfterName ? " " : "");
            Put(bInScope ? "" : bTemplate ? "class " : KeywordOf(sName));
            Put(sName);
            bAfterName = true;
            continue;
        }
        char const cNext = *pNext++;
        if (cNext == '*')
        {
            Put(" *");
        }
        else if (cNext == '<' || cNext == ',')
        {
            nDepth += cNext == '<';
            Put({ &cNext, 1 });
        }
        else if (cNext == '>')
        {
            Put(nOut > 0 && szBuffer[nOut - 1] == '>' ? " >" : ">");
            if (--nDepth == 0)
            {
                break;
            }
        }
        else
        {
            continue;
        }
        bAfterName = false;
    }
    szBuffer[nOut] = '\0';
}
