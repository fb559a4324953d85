// cscript.h: a reader of free-form text that its caller drives.
//
// A Script_c moves forward over a text and hands out tokens, numbers, quoted strings and lines, as the caller asks for
// them. It has no grammar: the caller reads a label, then the number behind it. The text is a private copy of a file or
// the caller's block. Bytes up to the blank and those from 0x80 up separate tokens, and a token that begins with // is a
// comment up to the end of its line. One thread; reading allocates nothing.
//
// The end of the text shows in m_bEndOfFile, which is set by the first read that wants more than there is, and stays
// until a new opening or a rewind. From then on tokens are empty and numbers 0. A text that does not match what the
// caller wants (a label, a quote) is passed over silently in a file; in a block of memory it fails an assertion. Either
// way GetLastError has the place.
//
// UTF-8's byte order mark at the start of a text is skipped: it is no part of the text below. A text that begins with
// UTF-16's mark is refused.
#pragma once

#include "zqcore/ctexterror.h"

class ZQ_API Script_c
{
public:
    /// Bytes of a buffer for a token or a word. A longer one is read whole and cut to fit.
    static constexpr int TOKEN_SIZE = 260;

    Script_c() = default;

    /// Frees nothing: logs a warning if a file's copy is still held.
    ~Script_c();
    Script_c(Script_c const &) = delete;
    Script_c & operator=(Script_c const &) = delete;

    /// Copies a file's text and closes the file. False, without a message, if there is no such file or it is refused; the
    /// text that was open then stays. CloseFile must follow; a second OpenFile frees the first copy.
    bool OpenFile(char const * sFileName);

    /// Frees the copy. A script that was reading it is empty from then on.
    void CloseFile();

    /// Reads a block of iLength bytes, which must stay. It needs no terminator. A refused text counts as empty.
    void OpenMemoryLocation(char const * pText, int iLength);

    /// Why the last opening failed, or the first place at which the last failed read did not find what it wanted; also
    /// the beginning of a quoted string that no quote ends. A call sets one error at most.
    TextError_t const & GetLastError() const { return m_Errors.GetLast(); }

    /// The next token that is no comment; empty at the end. With bPunctuation the characters ' " ; and , separate
    /// tokens too. sToken has TOKEN_SIZE bytes.
    void GetToken(char * sToken, bool bPunctuation);

    /// Reads a token that must be this one. Here and below a null text fails an assertion: nothing is read, and the
    /// result is false or 0.
    void SkipToken(char const * sToken);

    /// Moves behind the next token that equals sToken, or, without bWholeToken, behind the token in which sToken next
    /// stands, be it in a comment, and be it a part. Looks from the start of the text, or from where the script is.
    /// False, with position and end as they were, if there is none. m_iLines counts what was read either way.
    bool RewindAfterToken(char const * sToken, bool bFromStart, bool bWholeToken);

    /// The rest of the line without blanks in front, cut at iMaxLength - 1 characters, where the next read goes on.
    /// Either of a carriage return and a line feed ends a line, so together they end two. Requires iMaxLength >= 2.
    void GetLine(char * sLine, int iMaxLength);

    /// The next word, be it a comment, with the separator that follows it. sWord has TOKEN_SIZE bytes.
    void GetSpecific(char * sWord);

    /// The text between an opening cQuote and the next one; line ends are text. Separators in front are skipped, so is a
    /// slash, and every further slash with the rest of its line; anything else there is a mismatch, which gives an empty
    /// text. sString has iMaxLength + 1 bytes; a longer text is a breach of the precondition, where reading stops.
    void GetString(char * sString, int iMaxLength, char cQuote);

    /// Read tokens up to the label and then the number that follows it. At the end of the text without the label, the
    /// number in the last token. Numbers have the form of the "C" locale; an integer out of range is the nearest int.
    int GetInt(char const * sLabel);
    float GetFloat(char const * sLabel);

    /// The next integer: what stands before its digits, minus sign or point is skipped, and a fraction is dropped.
    int GetInt();

    /// The next token as a number. A token that is no number gives 0 as a mismatch.
    float GetFloat();

    /// Moves the reading position; beyond the end of the text it is the end, and m_bEndOfFile is set. Requires
    /// iPosition >= 0. Clears nothing.
    void SetPosition(int iPosition);

    /// Copies the bytes from iStart up to iEnd, without a terminator, and moves to iEnd. Requires
    /// 0 <= iStart < iEnd < m_iBytesTotal, and does nothing otherwise.
    void GetDump(char * pBuffer, int iStart, int iEnd);

    // To be read, not written.
    char m_sName[260] = "";      // the file, or "Memory mapped: %p, size: %d"; cut to fit
    bool m_bInToken = false;     // the last GetToken met a token
    int m_iLines = 0;            // line feeds read; one that ends a token is read again after it, and counts twice
    char const * m_pData = "";   // the text
    int m_iBytesRead = 0;        // where the next read begins
    int m_iBytesTotal = 0;       // the text's length
    bool m_bEndOfFile = false;   // a read wanted more than was left

private:
    bool Read(char * pBuffer, int iCount);
    char ReadByte();
    void SkipLine();
    bool Find(char const * sToken);
    void ReadLabelled(char const * sLabel, char * sValue);
    void Take(char const * pText, int iLength);
    void ErrorAt(char const * szReason, char const * szAbout, int iPosition);
    void Complain() const;
    int GetTokenStart(char const * szToken) const;

    char * m_pFileData = nullptr;   // the copy of a file, owned
    TextErrors_c m_Errors;
};
