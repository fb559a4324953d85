// ctextparser_internal.h: the search for tokens, inline for callers that read them in place.
#pragma once

#include "zqcore/ctextparser.h"

/// Token in the text. A string excludes its delimiters. Doubled ones inside it are still doubled.
struct TextToken_t
{
    LAST_PARSED eKind = LAST_PARSED_NOTHING;
    char const * pText = nullptr;   // first character
    std::size_t nText = 0;          // bytes in the text
    std::size_t nDoubled = 0;       // doubled delimiters in a string

    /// Returns the number of characters of the token.
    std::size_t GetLength() const { return nText - nDoubled; }
};

namespace text
{
    /// Bits of a character's class. The low bits are the kind of token that the character starts, 0 for a separator.
    /// The others are flags.
    enum Class_e : unsigned char
    {
        CLASS_KIND = 7,
        CLASS_WORD_REST = 8,
        CLASS_NUMBER_REST = 16
    };

    /// Returns the first character in pNext to pEnd that has none of the class bits dwClasses, or pEnd.
    inline char const * SkipClass(
        unsigned char const * pClasses, unsigned dwClasses, char const * pNext, char const * pEnd)
    {
        while (pNext < pEnd && (pClasses[static_cast<unsigned char>(*pNext)] & dwClasses))
        {
            ++pNext;
        }
        return pNext;
    }
}

/// Finds the next token, moves after it and returns true. Returns false at the end of the text. On a closed parser also
/// logs a line.
inline bool SimpleTextParser_c::NextToken(TextToken_t & Token)
{
    auto const fnKindOf = [this](char cChar)
    { return static_cast<LAST_PARSED>(m_dClasses[static_cast<unsigned char>(cChar)] & text::CLASS_KIND); };

    char const * pNext = m_pPos;
    while (pNext < m_pEnd && fnKindOf(*pNext) == LAST_PARSED_NOTHING)
    {
        ++pNext;
    }
    m_pPos = pNext;
    Token.eKind = LAST_PARSED_NOTHING;
    if (pNext == m_pEnd)
    {
        if (!m_pBegin)
        {
            LogNotOpened();
        }
        return false;
    }
    m_cFirstChar = *pNext;
    Token.eKind = fnKindOf(*pNext++);
    Token.pText = pNext - 1;
    Token.nDoubled = 0;
    switch (Token.eKind)
    {
    case LAST_PARSED_WORD:
        pNext = text::SkipClass(m_dClasses, text::CLASS_WORD_REST, pNext, m_pEnd);
        break;
    case LAST_PARSED_NUMBER:
        pNext = text::SkipClass(m_dClasses, text::CLASS_NUMBER_REST, pNext, m_pEnd);
        break;
    case LAST_PARSED_STRING:
        Token.pText = pNext;
        for (;; pNext += 2, ++Token.nDoubled)
        {
            while (pNext < m_pEnd && fnKindOf(*pNext) != LAST_PARSED_STRING)
            {
                ++pNext;
            }
            if (m_pEnd - pNext < 2 || fnKindOf(pNext[1]) != LAST_PARSED_STRING)
            {
                break;
            }
        }
        Token.nText = static_cast<std::size_t>(pNext - Token.pText);
        m_pPos = pNext + (pNext < m_pEnd);
        return true;
    default:
        break;
    }
    Token.nText = static_cast<std::size_t>(pNext - Token.pText);
    m_pPos = pNext;
    return true;
}
