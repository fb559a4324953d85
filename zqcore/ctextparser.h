// ctextparser.h: a tokenizer whose grammar is six sets of characters.
//
// A SimpleTextParser_c splits a text into words, quoted strings, numbers and symbols of one character. The sets say
// which characters may start or continue a token. The caller changes them by rules, so one parser serves many small
// grammars. Characters in no set separate tokens. The text may hold any bytes.
//
// Ownership: the text belongs to the caller. The parser reads it until Close. The parser owns its tokens.
// Threads: one thread for each parser.
// Cost: Open allocates two buffers, 25 KB in all. Reading a token allocates nothing. The text is read in place.
// Failure: calls return false and log the lines that their comments state. A token that is too long is cut and logged.
//
//     char const szText[] = "health = 100; speed = 2.5;";
//     SimpleTextParser_c Parser;
//     Parser.Open(szText, sizeof szText - 1);
//     while (Parser.ParseNext())
//     {
//         if (Parser.IsNumber()) { Log("%s is %.1f.", Parser.GetWord(), static_cast<double>(Parser.GetNumber())); }
//     }
#pragma once

#include "zqcore/ctexterror.h"

/// Set of byte values, empty at first.
class CharacterSet_c
{
public:
    /// Add or remove a value.
    void AddChar(unsigned char cChar) { m_dFlags[cChar] = true; }
    void RemoveChar(unsigned char cChar) { m_dFlags[cChar] = false; }

    /// Add or remove a range, both ends included. Do nothing if the first is above the last.
    void AddChar(unsigned char cFirst, unsigned char cLast) { SetRange(cFirst, cLast, true); }
    void RemoveChar(unsigned char cFirst, unsigned char cLast) { SetRange(cFirst, cLast, false); }

    /// Returns whether the value is in the set.
    bool IsHere(unsigned char cChar) const { return m_dFlags[cChar]; }

    /// Empties the set.
    ZQ_API void Clear();

private:
    ZQ_API void SetRange(unsigned char cFirst, unsigned char cLast, bool bMember);

    bool m_dFlags[256] = {};
};

/// Kind of the last token.
enum LAST_PARSED
{
    LAST_PARSED_NOTHING = 0,
    LAST_PARSED_WORD = 1,
    LAST_PARSED_STRING = 2,
    LAST_PARSED_NUMBER = 3,
    LAST_PARSED_SYMBOL = 4
};

/// Role of a character. The four roles that start a token, and the separator, exclude each other: a new one replaces
/// the previous one. A new symbol continues neither words nor numbers. With any other new role, a character that
/// continues them still does: a string delimiter may continue a word.
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

/// Tokenizer on one text at a time.
class ZQ_API SimpleTextParser_c
{
public:
    /// Sizes of the buffers in bytes. A token keeps one character less. A longer one is cut, with a log line.
    static constexpr int WORD_SIZE = 0x200;
    static constexpr int STRING_SIZE = 0x6000;
    static constexpr int NUMBER_SIZE = 128;

    /// Makes a closed parser with these rules:
    /// - Letters and the underscore start words. They and digits continue words.
    /// - Digits and signs start numbers. Digits and the point continue numbers.
    /// - Double quotes enclose strings.
    /// - The other visible characters and 0x7B to 0xFF are symbols.
    SimpleTextParser_c();
    virtual ~SimpleTextParser_c();
    SimpleTextParser_c(SimpleTextParser_c const &) = delete;
    SimpleTextParser_c & operator=(SimpleTextParser_c const &) = delete;

    /// Start on a text, after UTF-8's byte order mark if it has one, and return true. Require that the text stays
    /// unchanged until Close. Return false in these cases:
    /// - with a log line, for an empty text or a null pointer
    /// - with a log line, on an open parser, which keeps its text
    /// - without a line, for a text that begins with UTF-16's mark
    bool Open(char const * pBegin, char const * pEnd);
    bool Open(char const * pText, int iLength);

    /// Discards the text and the tokens. The rules stay.
    void Close();

    /// Reads the next token and returns true. Returns false at the end of the text and, with a log line, on a closed
    /// parser.
    bool ParseNext();

    /// Returns why the last Open failed, which token was cut last, or that ParseNext was called on a closed parser. It
    /// stays after Close.
    TextError_t const & GetLastError() const { return m_Errors.GetLast(); }

    /// Return whether the last token is of this kind. All return false after the end.
    bool IsWord() const { return m_lastParsed == LAST_PARSED_WORD; }
    bool IsString() const { return m_lastParsed == LAST_PARSED_STRING; }
    bool IsNumber() const { return m_lastParsed == LAST_PARSED_NUMBER; }
    bool IsSymbol() const { return m_lastParsed == LAST_PARSED_SYMBOL; }

    /// Return the last token of each kind, even if tokens of other kinds followed. Return an empty text or 0 before
    /// the first one. A text ends at the first NUL that the token holds. It stays valid until the next token of its
    /// kind or Close.
    char const * GetWord() const { return m_szWord ? m_szWord : ""; }
    char const * GetString() const { return m_szString ? m_szString : ""; }
    float GetNumber() const { return m_fNumber; }
    char GetSymbol() const { return m_cSymbol; }

    /// Change the role of a character or of a range, both ends included, from the next token on. Characters count as
    /// unsigned bytes, so a range up to -1 reaches 0xFF. A range whose first is above its last changes nothing. An
    /// unknown rule is logged and changes nothing.
    void SetCharacterRule(char cChar, CharacterParsingRule_e eRule) { SetCharacterRule(cChar, cChar, eRule); }
    void SetCharacterRule(char cFirst, char cLast, CharacterParsingRule_e eRule);

private:
    friend class SpreadsheetParser_c;   // reads tokens in place, without the buffers

    bool NextToken(TextToken_t & Token);
    ZQ_COLD bool Refuse(char const * szLine, char const * szReason) const;
    ZQ_COLD void LogNotOpened() const;
    void CopyToken(TextToken_t const & Token, char * szTo, std::size_t nSize) const;
    void CopyDoubled(TextToken_t const & Token, char * pTo, std::size_t nCopy) const;
    ZQ_COLD void LogOverflow(LAST_PARSED eKind, char const * pText) const;
    std::size_t GetOffset(LAST_PARSED eKind, char const * pText) const;
    void ClassifyCharacters();

    char const * m_pBegin = nullptr;   // text after a byte order mark, null while closed
    char const * m_pEnd = nullptr;
    LAST_PARSED m_lastParsed = LAST_PARSED_NOTHING;
    char * m_szWord = nullptr;
    char * m_szString = nullptr;
    float m_fNumber = 0;
    char m_cSymbol = 0;
    char const * m_pPos = nullptr;   // next character
    char m_cFirstChar = 0;           // first character of the last token
    CharacterSet_c m_setWordFirst;
    CharacterSet_c m_setString;
    CharacterSet_c m_setNumberFirst;
    CharacterSet_c m_setSymbol;
    CharacterSet_c m_setWordRest;
    CharacterSet_c m_setNumberRest;
    unsigned char m_dClasses[256];   // the sets in one table (ctextparser_internal.h)
    mutable TextErrors_c m_Errors;
};
