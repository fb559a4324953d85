// cscript.h: a reader of free-form text that its caller drives.
//
// A Script_c moves forward over a text and returns tokens, numbers, quoted strings and lines as the caller asks for
// them. It has no grammar: the caller reads a label, then the number after it. The bytes from 0 to the blank and those
// from 0x80 separate tokens. A token that begins with // is a comment up to the end of its line. UTF-8's byte order
// mark at the start is skipped and is no part of the text.
//
// The first read that needs more than is left sets m_bEndOfFile, and so does SetPosition beyond the end. It stays set
// until the next opening or a rewind. From then on tokens are empty and numbers 0. After a token that ends the text,
// the next GetLine, GetSpecific or GetString reads the token's last byte again.
//
// The buffers of GetLine follow the rule of cstring.h. GetToken, GetSpecific, GetString and GetDump say how they
// differ. A text object (ctextvalue.h) has no size to pass.
//
// Ownership: the text is a private copy of a file, which CloseFile frees, or the caller's block. Requires that the
// block stays until the next opening.
// Threads: one thread for each object. OpenFile belongs to the main thread, as the table of files does (cfile.h).
// Cost: opening a file allocates the copy. Reading allocates nothing, but a std::string may.
// Failure: GetLastError has reason and place, which are also logged if SetTextErrorLog is on. A mismatch, such as a
// wrong label or a missing opening quote, is otherwise skipped silently in a file. In a block of memory it also fails
// an assertion, unless a file's copy is still held. A text that begins with UTF-16's mark is refused.
//
//     char const szText[] = "health 100 name 'Ogre'";
//     Script_c Script;
//     Script.OpenMemoryLocation(szText, sizeof szText - 1);
//     int const iHealth = Script.GetInt("health");
//     char szName[32];
//     Script.SkipToken("name");
//     Script.GetString(szName, sizeof szName - 1, '\'');
#pragma once

#include "zqcore/ctexterror.h"
#include "zqcore/ctextvalue.h"

#include <string_view>

/// Reader of one text at a time.
class ZQ_API Script_c
{
public:
    /// Bytes of a buffer for a token or a word, the terminator included. A longer token is read whole and cut to fit.
    static constexpr int TOKEN_SIZE = 260;

    Script_c() = default;

    /// Frees nothing. Logs a warning if a file's copy is still held.
    ~Script_c();
    Script_c(Script_c const &) = delete;
    Script_c & operator=(Script_c const &) = delete;

    /// Copies a file's text, closes the file, frees the previous copy and returns true. CloseFile frees the new one.
    /// Asserts that the name is not null. Returns false, without a message of its own, if there is no such file or it
    /// is refused. Also returns false, with log lines, if it can't be read. The previous text then stays open, though
    /// m_sName is the new name.
    bool OpenFile(char const * sFileName);

    /// Frees the copy of a file. If the script was reading that copy, its text is empty afterwards.
    void CloseFile();

    /// Starts on a block of iLength bytes, which needs no terminator. m_sName stays the file's while a file's copy is
    /// still held. Asserts that pText is not null and iLength not negative, and starts on an empty text otherwise. A
    /// refused text counts as empty too.
    void OpenMemoryLocation(char const * pText, int iLength);

    /// Returns why the last opening failed, or the first mismatch of the last read that had one. A quoted string
    /// without an end is an error at its beginning. A call sets one error at most.
    TextError_t const & GetLastError() const { return m_Errors.GetLast(); }

    /// Reads the next token that is no comment, or an empty text at the end. With bPunctuation, single and double
    /// quotes, semicolons and commas separate tokens too. Requires that sToken has TOKEN_SIZE bytes.
    void GetToken(char * sToken, bool bPunctuation);

    /// Reads the next token as GetToken does, into a text object of any capacity. If a String_T cuts it, that is an
    /// error of GetLastError.
    template <TextObject_T TEXT>
    void GetToken(TEXT & sToken, bool bPunctuation)
    {
        PutToken(sToken, NextToken(bPunctuation));
    }

    /// Read the next token, as GetToken without bPunctuation does, as a text, a whole number, a number or the name of
    /// an enumerator, and return true. A text that a String_T cuts is an error of GetLastError. Return false, with the
    /// value unchanged, in these cases:
    /// - the text has no further token.
    /// - the token is nothing of the kind or out of range, which is a mismatch.
    template <TextObject_T TEXT>
    bool Get(TEXT & sValue)
    {
        std::string_view const sToken = NextToken(false);
        return !sToken.empty() && PutToken(sValue, sToken);
    }
    template <Integer_T T>
    bool Get(T & iValue)
    {
        std::uint64_t iBits = 0;
        bool const bRead = GetWhole(WholeRange_t::RangeOf<T>(), iBits);
        iValue = bRead ? static_cast<T>(iBits) : iValue;
        return bRead;
    }
    bool Get(double & fValue);
    bool Get(float & fValue);
    template <typename ENUM>
    bool Get(ENUM & eValue, EnumNames_T<ENUM> dNames)
    {
        char szToken[TOKEN_SIZE];
        GetToken(szToken, false);
        return *szToken && (EnumFromName(szToken, eValue, dNames) || RefuseToken("this is no known name", szToken));
    }

    /// Reads a token. Any other token than sToken is a mismatch. Here and below, asserts that sToken or sLabel is not
    /// null, and otherwise reads nothing and returns false or 0.
    void SkipToken(char const * sToken);

    /// Moves after the next token with sToken, from the start of the text or from the current position, and returns
    /// true. Found or not, m_iLines counts what was read.
    /// - With bWholeToken, finds a token that equals sToken.
    /// - Without it, finds a token that contains sToken, comments included, up to the next NUL. If sToken was found at
    ///   //, also skips the rest of that line and the next token. m_iLines counts from the place where sToken was
    ///   found.
    /// - While m_bEndOfFile is set, a search from the current position finds no whole token, and moves only one byte
    ///   after the start of another match.
    ///
    /// Returns false, with position and m_bEndOfFile unchanged, if there is no such token.
    bool RewindAfterToken(char const * sToken, bool bFromStart, bool bWholeToken);

    /// Read the rest of the line without leading blanks and tabs. If that is iMaxLength - 1 characters or more, read
    /// only the first iMaxLength - 1, without the line's end. A carriage return and a line feed each end a line, so a
    /// pair of them ends two. A NUL inside a line ends it, but one at its start does not: the line then reads as empty.
    /// Assert that iMaxLength is 2 or more, and do nothing otherwise.
    void GetLine(char * sLine, int iMaxLength);
    template <TextObject_T TEXT>
    void GetLine(TEXT & sLine)
    {
        PutToken(sLine, NextLine(TextMost<TEXT>()));
    }

    /// Read the next word, comments included, and the separator after it. Copy at most TOKEN_SIZE - 1 characters.
    /// Require that sWord has TOKEN_SIZE bytes.
    void GetSpecific(char * sWord);
    template <TextObject_T TEXT>
    void GetSpecific(TEXT & sWord)
    {
        PutToken(sWord, NextWord());
    }

    /// Read the text between an opening cQuote and the next one. It may contain line ends. Before the opening quote
    /// they skip:
    /// - separators
    /// - the first slash, and each further slash with the rest of its line
    ///
    /// Anything else before the opening quote is a mismatch, with an empty text. Require that sString has
    /// iMaxLength + 1 bytes. Assert that the text fits. If it does not, reading stops when the buffer is full, and the
    /// next read continues there.
    void GetString(char * sString, int iMaxLength, char cQuote);
    template <TextObject_T TEXT>
    void GetString(TEXT & sString, char cQuote)
    {
        PutToken(sString, NextString(TextMost<TEXT>(), cQuote));
    }

    /// Read tokens up to the label and return the number after it. Numbers have the form of the "C" locale. An integer
    /// out of range becomes the nearest int. Each token before the label is a mismatch, the first one an error of
    /// GetLastError. If the text ends without the label, they return the number in the last token, or 0 if a separator
    /// follows it. If the label itself ends the text, they read its last byte as the number.
    int GetInt(char const * sLabel);
    float GetFloat(char const * sLabel);

    /// Reads the next integer and returns it. Skips everything before its first digit, minus sign or point, and drops a
    /// fraction.
    int GetInt();

    /// Reads the next token and returns the number at its start. A token that reads as 0 but is not a number is a
    /// mismatch.
    float GetFloat();

    /// Moves the reading position to iPosition, in bytes from the start of the text. A position after the end becomes
    /// the end and sets m_bEndOfFile. Never clears m_bEndOfFile. Asserts that iPosition is not negative, and moves to
    /// the start otherwise.
    void SetPosition(int iPosition);

    /// Copies iEnd - iStart bytes from iStart on, without a terminator, and moves to iEnd. Requires that pBuffer has
    /// room for them. Asserts that 0 <= iStart < iEnd < m_iBytesTotal, and does nothing otherwise.
    void GetDump(char * pBuffer, int iStart, int iEnd);

    /// State for callers to read, not to write.
    char m_sName[260] = "";      // name of the file, or "Memory mapped: %08X, size: %d", cut to fit
    bool m_bInToken = false;     // whether GetToken last stopped at a token, or at a comment that ends the text
    int m_iLines = 0;            // line feeds read; a line feed that ends a token counts twice
    char const * m_pData = "";   // text
    int m_iBytesRead = 0;        // position of the next read, in bytes
    int m_iBytesTotal = 0;       // length of the text
    bool m_bEndOfFile = false;   // whether a read or SetPosition went beyond the end

private:
    /// A piece of the text. A std::string_view has another layout in each standard library.
    struct Piece_s
    {
        char const * pText;
        std::size_t nText;   // bytes

        operator std::string_view() const { return { pText, nText }; }
    };

    /// Copies a piece of the text, up to its first NUL, and returns true. A cut is stored as the last error.
    template <TextObject_T TEXT>
    bool PutToken(TEXT & sTo, std::string_view sPiece)
    {
        std::string_view const sText = sPiece.substr(0, sPiece.find('\0'));
        sTo = sText;
        if (sText.size() > std::size_t{ TextMost<TEXT>() })
        {
            m_Errors.SetAt("the text is cut", nullptr, m_pData, static_cast<std::size_t>(sText.data() - m_pData));
        }
        return true;
    }

    Piece_s NextToken(bool bPunctuation);
    Piece_s NextWord();
    Piece_s NextLine(int nMost);
    Piece_s NextString(int nMost, char cQuote);
    bool GetWhole(WholeRange_t const & Range, std::uint64_t & iBits);
    bool GetNumber(double fMost, double & fValue);
    bool RefuseToken(char const * szReason, char const * szToken);
    Piece_s ReadToken(bool bPunctuation);
    bool Read(char * pBuffer, int iCount);
    char ReadByte();
    void SkipLine();
    bool Find(char const * szToken);
    void ReadLabelled(char const * sLabel, char * szValue);
    void StartText(char const * pText, int iLength);
    void ErrorAt(char const * szReason, char const * szAbout, int iPosition);
    void Complain() const;
    int GetTokenStart(char const * szToken) const;

    char * m_pFileData = nullptr;   // copy of a file, owned
    TextErrors_c m_Errors;
};
