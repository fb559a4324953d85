#include "zqcore/cdebug_spelling_internal.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace
{
    constexpr std::string_view OPERATOR = "operator";

    // Returns whether a character can belong to a name with its scopes.
    bool IsNameChar(char c)
    {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == ':';
    }

    // Returns the bracket that closes the one at p, or p if none does.
    char const * ClosingBracket(char const * p)
    {
        int nDepth = 0;
        for (char const * pClose = p; *pClose; ++pClose)
        {
            nDepth += (*pClose == '(') - (*pClose == ')');
            if (nDepth == 0)
            {
                return pClose;
            }
        }
        return p;
    }

    // Returns whether the bracket at p is part of a name:
    // - "(anonymous namespace)";
    // - "decltype(...)" or "decltype (...)";
    // - "function(...)::" before a local class.
    bool IsBracketInName(char const * szText, char const * p)
    {
        std::string_view sBefore(szText, static_cast<std::size_t>(p - szText));
        sBefore.remove_suffix(sBefore.ends_with(' ') ? 1 : 0);
        return std::string_view(p).starts_with("(anonymous") || sBefore.ends_with("decltype")
               || std::string_view(ClosingBracket(p)).starts_with(")::");
    }

    // Returns whether the bracket at p holds the function's name: "type (*function(arguments))(arguments of the type)".
    bool IsBracketAroundName(char const * szText, char const * p)
    {
        return p > szText && std::strchr(" *&(", p[-1]) != nullptr;
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

    // Returns the end of an operator's name; p is after the word "operator". The name may hold blanks and all kinds of
    // brackets.
    char const * OperatorEnd(char const * p)
    {
        constexpr std::string_view CALL = "()";
        p += std::string_view(p).starts_with(CALL) ? CALL.size() : 0;
        return p + std::strcspn(p, "(");
    }
}

char const * SpelledNameEnd(char const * szText, char const * p)
{
    constexpr std::string_view UNNAMED = "{anonymous}";
    for (;;)
    {
        if (IsNameChar(*p))
        {
            ++p;
        }
        else if (*p == '(' && IsBracketInName(szText, p))
        {
            p = ClosingBracket(p) + 1;
        }
        else if (std::strncmp(p, UNNAMED.data(), UNNAMED.size()) == 0)
        {
            p += UNNAMED.size();
        }
        else
        {
            return p;
        }
    }
}

void SpellFunctionName(char const * szFunction, char * szBuffer, std::size_t nSize)
{
    char const * pStart = szFunction;
    char const * p = szFunction;
    for (int nDepth = 0; *p;)
    {
        char const * const pName = p;
        p = SpelledNameEnd(szFunction, p);
        if (nDepth == 0 && EndsWithOperator({ pName, static_cast<std::size_t>(p - pName) }))
        {
            p = OperatorEnd(p);
            break;
        }
        if (nDepth == 0 && *p == '(')
        {
            if (!IsBracketAroundName(szFunction, p))
            {
                break;
            }
            pStart = ++p;
            continue;
        }
        nDepth += (*p == '<' || *p == '(') - (*p == '>' || *p == ')');
        if (nDepth == 0 && (*p == ' ' || *p == '*' || *p == '&'))
        {
            pStart = p + 1;
        }
        p += *p != '\0';
    }
    std::snprintf(szBuffer, nSize, "%.*s", static_cast<int>(p - pStart), pStart);
}
