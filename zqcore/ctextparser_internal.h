// ctextparser_internal.h: the search for tokens, inline for callers that read them in place.
#pragma once

#include "zqcore/ctextparser.h"

/// Token in the text. A string excludes its delimiters; doubled ones inside it are still doubled.
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

    /// Returns the first character in p to pEnd that has none of the class bits dwClasses, or pEnd.
    inline char const * SkipClass(unsigned char const * pClasses, unsigned dwClasses, char const * p, char const * pEnd)
    {
        while (p < pEnd && (pClasses[static_cast<unsigned char>(*p)] & dwClasses))
        {
            ++p;
        }
        return p;
    }
}

/// Finds the next token, moves after it and returns true. Returns false at the end of the text. Without a text also
/// logs a line.
inline bool SimpleTextParser_c::NextToken(TextToken_t & Token)
{
    auto const KindOf = [this](char c)
    { return static_cast<LAST_PARSED>(m_dClasses[static_cast<unsigned char>(c)] & text::CLASS_KIND); };

    char const * p = m_pPos;
    while (p < m_pEnd && KindOf(*p) == LAST_PARSED_NOTHING)
    {
        ++p;
    }
    m_pPos = p;
    Token.eKind = LAST_PARSED_NOTHING;
    if (p == m_pEnd)
    {
        if (!m_pBegin)
        {
            LogNotOpened();
        }
        return false;
    }
    m_cFirstChar = *p;
    Token.eKind = KindOf(*p++);
    Token.pText = p - 1;
    Token.nDoubled = 0;
    switch (Token.eKind)
    {
    case LAST_PARSED_WORD:
        p = text::SkipClass(m_dClasses, text::CLASS_WORD_REST, p, m_pEnd);
        break;
    case LAST_PARSED_NUMBER:
        p = text::SkipClass(m_dClasses, text::CLASS_NUMBER_REST, p, m_pEnd);
        break;
    case LAST_PARSED_STRING:
        Token.pText = p;
        for (;; p += 2, ++Token.nDoubled)
        {
            while (p < m_pEnd && KindOf(*p) != LAST_PARSED_STRING)
            {
                ++p;
            }
            if (m_pEnd - p < 2 || KindOf(p[1]) != LAST_PARSED_STRING)
            {
                break;
            }
        }
        Token.nText = static_cast<std::size_t>(p - Token.pText);
        m_pPos = p + (p < m_pEnd);
        return true;
    default:
        break;
    }
    Token.nText = static_cast<std::size_t>(p - Token.pText);
    m_pPos = p;
    return true;
}
