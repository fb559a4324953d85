// ctextparser_internal.h: how the parser finds a token, inline for those who take it where it stands.
#pragma once

#include "zqcore/ctextparser.h"

/// A token in the text. A string stands without its delimiters, but doubled ones are still doubled.
struct TextToken_t
{
    LAST_PARSED eKind = LAST_PARSED_NOTHING;
    char const * pText = nullptr;   // the first character
    std::size_t nText = 0;          // bytes up to the end
    std::size_t nDoubled = 0;       // doubled delimiters in a string

    /// Characters of the token.
    std::size_t GetLength() const { return nText - nDoubled; }
};

namespace text
{
    /// What a character means: the kind of token that it starts in the low bits, 0 for a separator, and flags.
    enum Class_e : unsigned char
    {
        CLASS_KIND = 7,
        CLASS_WORD_REST = 8,
        CLASS_NUMBER_REST = 16
    };

    inline char const * SkipClass(unsigned char const * pClasses, unsigned iClass, char const * p, char const * pEnd)
    {
        while (p < pEnd && (pClasses[static_cast<unsigned char>(*p)] & iClass))
        {
            ++p;
        }
        return p;
    }
}

/// Finds the next token and moves behind it; false at the end of the text, with a complaint if there is none.
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
