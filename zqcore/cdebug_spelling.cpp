#include "zqcore/cdebug_spelling_internal.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace
{
    constexpr std::string_view OPERATOR = "operator";

    // Returns whether a character can belong to a name with its scopes.
    bool IsNameChar(char cChar)
    {
        return std::isalnum(static_cast<unsigned char>(cChar)) || cChar == '_' || cChar == ':';
    }

    // Returns the bracket that closes the one at pBracket, or pBracket if none does.
    char const * ClosingBracket(char const * pBracket)
    {
        int nDepth = 0;
        for (char const * pClose = pBracket; *pClose; ++pClose)
        {
            nDepth += (*pClose == '(') - (*pClose == ')');
            if (nDepth == 0)
            {
                return pClose;
            }
        }
        return pBracket;
    }

    // Returns whether the bracket at pBracket is part of a name:
    // - "(anonymous namespace)".
    // - "decltype(...)" or "decltype (...)".
    // - "function(...)::" before a local class.
    bool IsBracketInName(char const * szText, char const * pBracket)
    {
        std::string_view sBefore(szText, static_cast<std::size_t>(pBracket - szText));
        sBefore.remove_suffix(sBefore.ends_with(' ') ? 1 : 0);
        return std::string_view(pBracket).starts_with("(anonymous") || sBefore.ends_with("decltype")
               || std::string_view(ClosingBracket(pBracket)).starts_with(")::");
    }

    // Returns whether the bracket at pBracket holds the function's name, as in
    // "type (*function(arguments))(arguments of the type)".
    bool IsBracketAroundName(char const * szText, char const * pBracket)
    {
        return pBracket > szText && std::strchr(" *&(", pBracket[-1]) != nullptr;
    }

    // Returns whether a name ends with the word that begins an operator's name.
    bool EndsWithOperator(std::string_view sName)
    {
        if (!sName.ends_with(OPERATOR))
        {
            return false;
        }
        sName.remove_suffix(OPERATOR.size());
        return sName.empty() || sName.ends_with("::");
    }

    // Returns the end of an operator's name. The name may hold blanks and brackets, but of round ones only those of
    // operator(). A conversion to a type with others is cut before them. Requires that pPos is after the word
    // "operator".
    char const * OperatorEnd(char const * pPos)
    {
        constexpr std::string_view CALL = "()";
        pPos += std::string_view(pPos).starts_with(CALL) ? CALL.size() : 0;
        return pPos + std::strcspn(pPos, "(");
    }
}

char const * SpelledNameEnd(char const * szText, char const * pPos)
{
    constexpr std::string_view UNNAMED = "{anonymous}";
    for (;;)
    {
        if (IsNameChar(*pPos))
        {
            ++pPos;
        }
        else if (*pPos == '(' && IsBracketInName(szText, pPos))
        {
            pPos = ClosingBracket(pPos) + 1;
        }
        else if (std::strncmp(pPos, UNNAMED.data(), UNNAMED.size()) == 0)
        {
            pPos += UNNAMED.size();
        }
        else
        {
            return pPos;
        }
    }
}

void SpellFunctionName(char const * szFunction, char * szBuffer, std::size_t nSize)
{
    char const * pStart = szFunction;
    char const * pPos = szFunction;
    int nDepth = 0;
    while (*pPos)
    {
        char const * const pName = pPos;
        pPos = SpelledNameEnd(szFunction, pPos);
        if (nDepth == 0 && EndsWithOperator({ pName, static_cast<std::size_t>(pPos - pName) }))
        {
            pPos = OperatorEnd(pPos);
            break;
        }
        if (nDepth == 0 && *pPos == '(')
        {
            if (!IsBracketAroundName(szFunction, pPos))
            {
                break;
            }
            pStart = ++pPos;
            continue;
        }
        nDepth += (*pPos == '<' || *pPos == '(') - (*pPos == '>' || *pPos == ')');
        if (nDepth == 0 && (*pPos == ' ' || *pPos == '*' || *pPos == '&'))
        {
            pStart = pPos + 1;
        }
        pPos += *pPos != '\0';
    }
    std::snprintf(szBuffer, nSize, "%.*s", static_cast<int>(pPos - pStart), pStart);
}
