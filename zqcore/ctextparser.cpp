#include "zqcore/ctextparser.h"

#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cnumbertext_internal.h"
#include "zqcore/ctexterror_internal.h"
#include "zqcore/ctextparser_internal.h"

#include <algorithm>
#include <cstring>

namespace
{
    constexpr char const * NO_TEXT = "there is no text";
    constexpr char const * ALREADY_OPEN = "a text is open already";
}

void CharacterSet_c::Clear()
{
    SetRange(0, 0xFF, false);
}

void CharacterSet_c::SetRange(unsigned char cFirst, unsigned char cLast, bool bMember)
{
    for (int c = cFirst; c <= cLast; ++c)
    {
        m_dFlags[c] = bMember;
    }
}

SimpleTextParser_c::SimpleTextParser_c()
{
    m_setWordFirst.AddChar('A', 'Z');
    m_setWordFirst.AddChar('a', 'z');
    m_setWordFirst.AddChar('_');
    m_setString.AddChar('"');
    m_setNumberFirst.AddChar('0', '9');
    m_setNumberFirst.AddChar('+');
    m_setNumberFirst.AddChar('-');
    m_setSymbol.AddChar(0x21);   // symbols: the bytes from 0x21 on that begin no other token
    m_setSymbol.AddChar(0x23, 0x2A);
    m_setSymbol.AddChar(0x2C);
    m_setSymbol.AddChar(0x2E, 0x2F);
    m_setSymbol.AddChar(0x3A, 0x40);
    m_setSymbol.AddChar(0x5B, 0x60);   // includes the underscore, but the start of a word has precedence
    m_setSymbol.AddChar(0x7B, 0xFF);
    m_setWordRest.AddChar('A', 'Z');
    m_setWordRest.AddChar('a', 'z');
    m_setWordRest.AddChar('_');
    m_setWordRest.AddChar('0', '9');
    m_setNumberRest.AddChar('0', '9');
    m_setNumberRest.AddChar('.');
    ClassifyCharacters();
}

SimpleTextParser_c::~SimpleTextParser_c()
{
    Close();
}

// Builds the table. The kinds are in their order of precedence.
void SimpleTextParser_c::ClassifyCharacters()
{
    for (int i = 0; i <= 0xFF; ++i)
    {
        auto const cChar = static_cast<unsigned char>(i);
        int const iKind = m_setString.IsHere(cChar)        ? LAST_PARSED_STRING
                          : m_setWordFirst.IsHere(cChar)   ? LAST_PARSED_WORD
                          : m_setNumberFirst.IsHere(cChar) ? LAST_PARSED_NUMBER
                          : m_setSymbol.IsHere(cChar)      ? LAST_PARSED_SYMBOL
                                                           : LAST_PARSED_NOTHING;
        m_dClasses[cChar] = static_cast<unsigned char>(iKind | (m_setWordRest.IsHere(cChar) ? text::CLASS_WORD_REST : 0)
                                                       | (m_setNumberRest.IsHere(cChar) ? text::CLASS_NUMBER_REST : 0));
    }
}

bool SimpleTextParser_c::Open(char const * pBegin, char const * pEnd)
{
    if (!pBegin || !pEnd || pEnd <= pBegin)
    {
        return Refuse("SimpleTextParser_c::Open( const char *, const char *) : bad ptr", NO_TEXT);
    }
    if (m_pBegin)
    {
        return Refuse("SimpleTextParser_c::Open : reentry. Was opened yet.", ALREADY_OPEN);
    }
    if (char const * const szReason = TextSkipMark(pBegin, pEnd))
    {
        return Refuse(nullptr, szReason);
    }
    m_Errors.Clear();
    m_pBegin = pBegin;
    m_pEnd = pEnd;
    m_pPos = pBegin;
    m_szWord = ZQ_NEW char[WORD_SIZE];
    m_szString = ZQ_NEW char[STRING_SIZE];
    m_szWord[0] = m_szString[0] = '\0';
    return true;
}

bool SimpleTextParser_c::Open(char const * pText, int iLength)
{
    if (iLength <= 0)
    {
        return Refuse("SimpleTextParser_c::Open( const char *, int ) : bad length.", NO_TEXT);
    }
    if (!pText)
    {
        return Refuse("SimpleTextParser_c::Open( const char *, int ) : bad ptr.", NO_TEXT);
    }
    if (m_pBegin)
    {
        return Refuse("SimpleTextParser_c::Open( const char *, int ) : reentry. Was opened yet.", ALREADY_OPEN);
    }
    return Open(pText, pText + iLength);
}

// Logs a line, if there is one, stores the reason and returns false.
bool SimpleTextParser_c::Refuse(char const * szLine, char const * szReason) const
{
    if (szLine)
    {
        LogText(szLine);
    }
    return m_Errors.Fail(szReason);
}

void SimpleTextParser_c::Close()
{
    delete[] m_szWord;
    delete[] m_szString;
    m_pBegin = m_pEnd = m_pPos = nullptr;
    m_szWord = m_szString = nullptr;
    m_lastParsed = LAST_PARSED_NOTHING;
    m_fNumber = 0;
    m_cSymbol = m_cFirstChar = 0;
}

bool SimpleTextParser_c::ParseNext()
{
    TextToken_t Token;
    bool const bFound = NextToken(Token);
    m_lastParsed = Token.eKind;
    switch (Token.eKind)
    {
    case LAST_PARSED_WORD:
        CopyToken(Token, m_szWord, WORD_SIZE);
        break;
    case LAST_PARSED_STRING:
        CopyToken(Token, m_szString, STRING_SIZE);
        break;
    case LAST_PARSED_NUMBER:
        char szNumber[NUMBER_SIZE];
        CopyToken(Token, szNumber, NUMBER_SIZE);
        m_fNumber = TextToFloat(szNumber);
        break;
    case LAST_PARSED_SYMBOL:
        m_cSymbol = m_cFirstChar;
        break;
    default:
        break;
    }
    return bFound;
}

// Copies a token and a terminator. Logs a token of nSize characters or more and cuts it at nSize - 1.
void SimpleTextParser_c::CopyToken(TextToken_t const & Token, char * szTo, std::size_t nSize) const
{
    std::size_t const nCopy = std::min(Token.GetLength(), nSize - 1);
    CopyDoubled(Token, szTo, nCopy);
    szTo[nCopy] = '\0';
    if (Token.GetLength() >= nSize)
    {
        LogOverflow(Token.eKind, Token.pText);
    }
}

// Copies the first nCopy characters of a token. Copies a doubled delimiter as one.
void SimpleTextParser_c::CopyDoubled(TextToken_t const & Token, char * pTo, std::size_t nCopy) const
{
    if (Token.nDoubled == 0)
    {
        std::memcpy(pTo, Token.pText, nCopy);
        return;
    }
    char const * pFrom = Token.pText;
    char const * const pEnd = pTo + nCopy;
    while (pTo < pEnd)
    {
        pFrom += m_setString.IsHere(static_cast<unsigned char>(*pFrom));   // the second of a pair
        char const * pNext = pFrom + 1;
        char const * const pLimit = pFrom + (pEnd - pTo);
        while (pNext < pLimit && !m_setString.IsHere(static_cast<unsigned char>(*pNext)))
        {
            ++pNext;
        }
        std::memcpy(pTo, pFrom, static_cast<std::size_t>(pNext - pFrom));
        pTo += pNext - pFrom;
        pFrom = pNext;
    }
}

void SimpleTextParser_c::LogOverflow(LAST_PARSED eKind, char const * pText) const
{
    bool const bWord = eKind == LAST_PARSED_WORD, bString = eKind == LAST_PARSED_STRING;
    Log(bWord     ? "SimpleTextParser_c::ParseWord : word buffer overflow."
        : bString ? "SimpleTextParser_c::ParseString : string buffer overflow."
                  : "SimpleTextParser_c::ParseNumber : number buffer overflow.");
    static_assert(WORD_SIZE == 512 && STRING_SIZE == 24576 && NUMBER_SIZE == 128);
    m_Errors.SetAt(bWord     ? "a word of more than 511 characters is cut"
                   : bString ? "a text in quotes of more than 24575 characters is cut"
                             : "a number of more than 127 characters is cut",
        nullptr, m_pBegin, GetOffset(eKind, pText));
}

void SimpleTextParser_c::LogNotOpened() const
{
    Refuse("SimpleTextParser_c::ParseNext : text wasn't opened.", NO_TEXT);
}

// Returns the offset in bytes of a token in the text. A string begins at its delimiter.
std::size_t SimpleTextParser_c::GetOffset(LAST_PARSED eKind, char const * pText) const
{
    return static_cast<std::size_t>(pText - m_pBegin) - (eKind == LAST_PARSED_STRING);
}

void SimpleTextParser_c::SetCharacterRule(char cFirst, char cLast, CharacterParsingRule_e eRule)
{
    // Set to which each rule adds, by the rule's value.
    static constexpr CharacterSet_c SimpleTextParser_c::*ADD_TO[] = { nullptr, &SimpleTextParser_c::m_setWordFirst,
        &SimpleTextParser_c::m_setWordRest, &SimpleTextParser_c::m_setString, &SimpleTextParser_c::m_setNumberFirst,
        &SimpleTextParser_c::m_setNumberRest, &SimpleTextParser_c::m_setSymbol, nullptr };
    if (eRule < PARSING_RULE_WORD_FIRST || eRule > PARSING_RULE_SEPARATOR)
    {
        Log("SimpleTextParser_c::SetCharacterRule : unknown rule.");
        return;
    }
    auto const cFrom = static_cast<unsigned char>(cFirst);
    auto const cTo = static_cast<unsigned char>(cLast);
    if (eRule != PARSING_RULE_WORD_REST && eRule != PARSING_RULE_NUMBER_REST)
    {
        for (CharacterSet_c * const pSet : { &m_setWordFirst, &m_setString, &m_setNumberFirst, &m_setSymbol })
        {
            pSet->RemoveChar(cFrom, cTo);
        }
    }
    if (eRule == PARSING_RULE_SYMBOL)
    {
        m_setWordRest.RemoveChar(cFrom, cTo);
        m_setNumberRest.RemoveChar(cFrom, cTo);
    }
    if (ADD_TO[eRule])
    {
        (this->*ADD_TO[eRule]).AddChar(cFrom, cTo);
    }
    ClassifyCharacters();
}
