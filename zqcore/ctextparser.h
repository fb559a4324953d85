// ctextparser.h: a tokenizer whose grammar is six sets of characters.
//
// A SimpleTextParser_c splits a block of text into words, quoted strings, numbers and symbols of one character. What a
// character may start or continue stands in sets that the caller rewrites by rules, so one parser serves many small
// grammars. Characters in no set separate tokens. The text belongs to the caller, is read in place and never behind its
// end, and may hold any bytes. Open takes two buffers; reading a token allocates nothing. One thread.
#pragma once

#include "zqcore/ctexterror.h"

/// A set of byte values, empty at first.
class CharacterSet_c
{
public:
    void AddChar(unsigned char c) { m_dFlags[c] = true; }
    void RemoveChar(unsigned char c) { m_dFlags[c] = false; }

    /// Both ends belong to the range; nothing happens if the first is above the last.
    void AddChar(unsigned char cFirst, unsigned char cLast) { SetRange(cFirst, cLast, true); }
    void RemoveChar(unsigned char cFirst, unsigned char cLast) { SetRange(cFirst, cLast, false); }

    bool IsHere(unsigned char c) const { return m_dFlags[c]; }
    ZQ_API void Clear();

private:
    ZQ_API void SetRange(unsigned char cFirst, unsigned char cLast, bool bHere);

    bool m_dFlags[256] = {};
};

/// What the last token was.
enum LAST_PARSED
{
    LAST_PARSED_NOTHING = 0,
    LAST_PARSED_WORD = 1,
    LAST_PARSED_STRING = 2,
    LAST_PARSED_NUMBER = 3,
    LAST_PARSED_SYMBOL = 4
};

/// What a rule makes of a character. The rules that start a token and the separator exclude each other; only the symbol
/// also stops continuing words and numbers. A string delimiter may thus continue a word.
enum CharacterParsingRule_e : int
{
    PARSING_RULE_WORD_FIRST = 1,     // starts a word
    PARSING_RULE_WORD_REST = 2,      // continues a word
    PARSING_RULE_STRING = 3,         // opens and closes a string
    PARSING_RULE_NUMBER_FIRST = 4,   // starts a number
    PARSING_RULE_NUMBER_REST = 5,    // continues a number
    PARSING_RULE_SYMBOL = 6,         // is a token of its own
    PARSING_RULE_SEPARATOR = 7       // is skipped between tokens
};

struct TextToken_t;

class ZQ_API SimpleTextParser_c
{
public:
    /// Sizes of the buffers: a token keeps one character less, and a longer one is cut with a line in the log.
    static constexpr int WORD_SIZE = 0x200;
    static constexpr int STRING_SIZE = 0x6000;
    static constexpr int NUMBER_SIZE = 128;

    /// Letters and the underscore start words, which digits continue too; digits and signs start numbers, which digits
    /// and the point continue; double quotes enclose strings; the other visible characters and 0x7B to 0xFF are
    /// symbols.
    SimpleTextParser_c();
    virtual ~SimpleTextParser_c();
    SimpleTextParser_c(SimpleTextParser_c const &) = delete;
    SimpleTextParser_c & operator=(SimpleTextParser_c const &) = delete;

    /// Start on a text, which must stay until Close. UTF-8's byte order mark at its start is skipped. False, with a line
    /// in the log, for an empty text or a null pointer, and on an open parser, which keeps its text. False, without one,
    /// for a text that begins with UTF-16's mark.
    bool Open(char const * pBegin, char const * pEnd);
    bool Open(char const * pText, int iLength);

    /// Forgets the text and the tokens. The rules stay.
    void Close();

    /// Reads the next token; false at the end of the text, and, with a line in the log, on a closed parser.
    bool ParseNext();

    /// Why the last Open failed, or which token was cut last. It outlives Close.
    TextError_t const & GetLastError() const { return m_Errors.GetLast(); }

    /// The kind of the last token; all false behind the end.
    bool IsWord() const { return m_lastParsed == LAST_PARSED_WORD; }
    bool IsString() const { return m_lastParsed == LAST_PARSED_STRING; }
    bool IsNumber() const { return m_lastParsed == LAST_PARSED_NUMBER; }
    bool IsSymbol() const { return m_lastParsed == LAST_PARSED_SYMBOL; }

    /// The last token of each kind, whatever came after it; empty or 0 before the first one. A text stays until the
    /// next of its kind and ends for its reader at a NUL that it holds.
    char const * GetWord() const { return m_szWord ? m_szWord : ""; }
    char const * GetString() const { return m_szString ? m_szString : ""; }
    float GetNumber() const { return m_fNumber; }
    char GetSymbol() const { return m_cSymbol; }

    /// Change what characters mean, from the next token on. Characters count as unsigned bytes, so a range up to -1
    /// reaches 0xFF. An unknown rule is logged and changes nothing.
    void SetCharacterRule(char cChar, CharacterParsingRule_e eRule) { SetCharacterRule(cChar, cChar, eRule); }
    void SetCharacterRule(char cFirst, char cLast, CharacterParsingRule_e eRule);

private:
    friend class SpreadsheetParser_c;   // takes tokens where they stand, without the buffers

    bool NextToken(TextToken_t & Token);
    ZQ_COLD bool Refuse(char const * szLine, char const * szReason) const;
    ZQ_COLD void LogNotOpened() const;
    void CopyToken(TextToken_t const & Token, char * szTo, std::size_t nSize) const;
    void CopyDoubled(TextToken_t const & Token, char * pTo, std::size_t nCopy) const;
    ZQ_COLD void LogOverflow(LAST_PARSED eKind, char const * pText) const;
    std::size_t GetOffset(LAST_PARSED eKind, char const * pText) const;
    void ClassifyCharacters();

    char const * m_pBegin = nullptr;   // the text after a byte order mark; null while closed
    char const * m_pEnd = nullptr;
    LAST_PARSED m_lastParsed = LAST_PARSED_NOTHING;
    char * m_szWord = nullptr;
    char * m_szString = nullptr;
    float m_fNumber = 0;
    char m_cSymbol = 0;
    char const * m_pPos = nullptr;   // the next character
    char m_cFirstChar = 0;           // started the last token
    CharacterSet_c m_setWordFirst;
    CharacterSet_c m_setString;
    CharacterSet_c m_setNumberFirst;
    CharacterSet_c m_setSymbol;
    CharacterSet_c m_setWordRest;
    CharacterSet_c m_setNumberRest;
    unsigned char m_dClasses[256];   // the sets in one look-up, see ctextparser_internal.h
    mutable TextErrors_c m_Errors;
};
