#include "zqcore/cscript.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cnumbertext_internal.h"
#include "zqcore/cstring.h"
#include "zqcore/ctexterror_internal.h"

#include "platform/bytes.h"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace
{
    enum Class_e : unsigned char
    {
        SEPARATOR = 1,
        PUNCTUATION = 2,
        NUMBER = 4   // characters that GetInt reads
    };

    // Table of each byte's classes.
    class Classes_c
    {
    public:
        constexpr Classes_c()
        {
            for (int i = 0; i < BYTES; ++i)
            {
                m_dClasses[i] = i <= ' ' || i >= 0x80 ? SEPARATOR : 0;
            }
            Add("'\";,", PUNCTUATION);
            Add("0123456789.-", NUMBER);
        }

        bool Has(char cByte, unsigned dwClasses) const
        {
            return m_dClasses[static_cast<unsigned char>(cByte)] & dwClasses;
        }

    private:
        static constexpr int BYTES = 256;   // values of a byte

        constexpr void Add(char const * szText, Class_e eClass)
        {
            for (; *szText; ++szText)
            {
                m_dClasses[static_cast<unsigned char>(*szText)] |= eClass;
            }
        }

        unsigned char m_dClasses[BYTES] = {};
    };

    constexpr Classes_c CLASSES;

    // Returns whether a byte has one of these classes.
    bool Is(char cByte, unsigned dwClasses)
    {
        return CLASSES.Has(cByte, dwClasses);
    }

    // Returns the place of the next separator, or pEnd. Tests a machine word at a time: with the top bit of each byte
    // set, a subtraction clears it in those that are not above the blank, and borrows from no other byte (Warren,
    // Hacker's Delight, second edition, section 2-18).
    char const * FindSeparator(char const * pNext, char const * pEnd)
    {
        constexpr auto TOP_BITS = static_cast<std::size_t>(plat::HIGH_BITS);
        constexpr auto ABOVE_BLANK = static_cast<std::size_t>(plat::EACH_BYTE * (' ' + 1));
        static_assert(std::endian::native == std::endian::little);
        for (std::size_t nWord; pEnd - pNext >= static_cast<std::ptrdiff_t>(sizeof nWord); pNext += sizeof nWord)
        {
            std::memcpy(&nWord, pNext, sizeof nWord);
            std::size_t const nFound = (~((nWord | TOP_BITS) - ABOVE_BLANK) | nWord) & TOP_BITS;
            if (nFound)
            {
                return pNext + std::countr_zero(nFound) / 8;
            }
        }
        while (pNext < pEnd && !Is(*pNext, SEPARATOR))
        {
            ++pNext;
        }
        return pNext;
    }

    // Returns the place of the next separator or punctuation, or pEnd.
    char const * FindSeparatorOrPunctuation(char const * pNext, char const * pEnd)
    {
        while (pNext < pEnd && !Is(*pNext, SEPARATOR | PUNCTUATION))
        {
            ++pNext;
        }
        return pNext;
    }

    // Copies a few bytes as memcpy does, but inline.
    void CopyShort(char * pTo, char const * pFrom, std::size_t nBytes)
    {
        constexpr std::size_t WORD = sizeof(std::size_t);
        if (nBytes < WORD)
        {
            for (std::size_t i = 0; i < nBytes; ++i)
            {
                pTo[i] = pFrom[i];
            }
            return;
        }
        for (std::size_t i = 0; i < nBytes - WORD; i += WORD)
        {
            std::memcpy(pTo + i, pFrom + i, WORD);
        }
        std::memcpy(pTo + nBytes - WORD, pFrom + nBytes - WORD, WORD);
    }

    bool IsLineEnd(char cByte)
    {
        return cByte == '\n' || cByte == '\r';
    }

    // Returns whether a token that reads as 0 has only digits, at most one sign and at most one decimal mark.
    bool IsNumber(std::string_view sToken)
    {
        int nSigns = 0, nMarks = 0;
        for (char const cByte : sToken)
        {
            nSigns += cByte == '+' || cByte == '-';
            nMarks += cByte == '.' || cByte == ',';
            if (!std::strchr("0123456789+-.,", cByte))
            {
                return false;
            }
        }
        return nSigns <= 1 && nMarks <= 1;
    }
}

Script_c::~Script_c()
{
    if (m_pFileData)
    {
        LogEscaped("WARNING: current script \"%s\" need called Script_c::CloseFile()", m_sName);
    }
}

bool Script_c::OpenFile(char const * sFileName)
{
    ZQ_ASSERT(sFileName);
    StrCopy(m_sName, sFileName ? sFileName : "", sizeof m_sName);
    File_c * const pFile = sFileName ? FileOpenUnlogged(sFileName) : nullptr;
    FileText_t const Text = pFile ? TextOfFile(*pFile) : FileText_t{};
    if (!pFile || Text.szRefused)
    {
        FileClose(pFile);
        m_Errors.Begin(m_sName);
        return m_Errors.Fail(pFile ? File_c::Reason_t(Text.szRefused) : FileGetWhyNot(sFileName));
    }
    auto const nBytes = static_cast<std::size_t>(Text.nText);
    delete[] m_pFileData;
    m_pFileData = ZQ_NEW char[nBytes + 1];
    std::memcpy(m_pFileData, Text.pText, nBytes);
    m_pFileData[nBytes] = '\0';
    FileClose(pFile);
    StartText(m_pFileData, Text.nText);
    return true;
}

void Script_c::CloseFile()
{
    if (m_pData == m_pFileData)
    {
        m_pData = "";
        m_iBytesRead = m_iBytesTotal = 0;
    }
    delete[] m_pFileData;
    m_pFileData = nullptr;
}

void Script_c::OpenMemoryLocation(char const * pText, int iLength)
{
    ZQ_ASSERT(pText);
    ZQ_ASSERT(iLength >= 0);
    if (!m_pFileData)
    {
        std::snprintf(m_sName, sizeof m_sName, "Memory mapped: %08" PRIXPTR ", size: %d",
            reinterpret_cast<std::uintptr_t>(pText), iLength);
    }
    char const * pBegin = pText;
    char const * const pEnd = pText + (pText ? std::max(iLength, 0) : 0);
    char const * const szRefused = TextSkipMark(pBegin, pEnd);
    StartText(pText && !szRefused ? pBegin : "", szRefused ? 0 : static_cast<int>(pEnd - pBegin));
    if (szRefused)
    {
        m_Errors.Fail(szRefused);
    }
}

void Script_c::StartText(char const * pText, int iLength)
{
    m_pData = pText;
    m_iBytesTotal = iLength;
    m_bEndOfFile = false;
    m_iLines = 0;
    m_iBytesRead = 0;
    m_Errors.Begin(m_sName);
}

// Copies the next iCount bytes, or those that are left. If there are none, writes a terminator. Returns m_bEndOfFile.
bool Script_c::Read(char * pBuffer, int iCount)
{
    int const nLeft = m_iBytesTotal - m_iBytesRead;
    if (nLeft < iCount)
    {
        iCount = nLeft;
        m_bEndOfFile = true;
    }
    if (iCount > 0)
    {
        char const * const pFrom = m_pData + m_iBytesRead;
        std::memcpy(pBuffer, pFrom, static_cast<std::size_t>(iCount));
        m_iBytesRead += iCount;
        m_iLines += static_cast<int>(std::count(pFrom, pFrom + iCount, '\n'));
    }
    else
    {
        pBuffer[0] = '\0';
    }
    return m_bEndOfFile;
}

// Reads the next byte and returns it. At the end returns 0 and sets m_bEndOfFile.
inline char Script_c::ReadByte()
{
    if (m_iBytesRead == m_iBytesTotal)
    {
        m_bEndOfFile = true;
        return '\0';
    }
    char const cByte = m_pData[m_iBytesRead++];
    m_iLines += cByte == '\n';
    return cByte;
}

// Reads up to and including the next line feed, or to the end of the text.
void Script_c::SkipLine()
{
    if (m_bEndOfFile)
    {
        return;
    }
    char const * const pFrom = m_pData + m_iBytesRead;
    auto const nLeft = static_cast<std::size_t>(m_iBytesTotal - m_iBytesRead);
    void const * const pFeed = nLeft > 0 ? std::memchr(pFrom, '\n', nLeft) : nullptr;
    m_iBytesRead = pFeed ? static_cast<int>(static_cast<char const *>(pFeed) - m_pData) + 1 : m_iBytesTotal;
    m_iLines += pFeed ? 1 : 0;
    m_bEndOfFile = !pFeed;
}

// Reads the next token that is no comment and returns it. Returns an empty text at the end.
inline Script_c::Piece_s Script_c::ReadToken(bool bPunctuation)
{
    unsigned const dwSeparators = bPunctuation ? SEPARATOR | PUNCTUATION : SEPARATOR;
    for (;;)
    {
        m_bInToken = false;
        if (m_bEndOfFile)
        {
            m_bInToken = !Is(ReadByte(), dwSeparators);   // moving the position back does not clear the end
            return {};
        }
        char const * const pEnd = m_pData + m_iBytesTotal;
        char const * pBegin = m_pData + m_iBytesRead;
        int nLines = 0;
        for (; pBegin < pEnd && Is(*pBegin, dwSeparators); ++pBegin)
        {
            nLines += *pBegin == '\n';
        }
        char const * const pAt = bPunctuation ? FindSeparatorOrPunctuation(pBegin, pEnd) : FindSeparator(pBegin, pEnd);
        m_bInToken = pAt > pBegin;
        m_bEndOfFile = pAt == pEnd;
        bool const bAtLineFeed = pAt < pEnd && *pAt == '\n';
        // The byte that ends a token counts as read, but the position stays before it. At the end of the text that byte
        // is the token's last one.
        m_iBytesRead = static_cast<int>(pAt - m_pData) - (m_bEndOfFile && m_bInToken);
        m_iLines += nLines + bAtLineFeed;

        auto const nToken = static_cast<std::size_t>(pAt - pBegin);
        bool const bComment = nToken >= 2 && pBegin[0] == '/' && pBegin[1] == '/';
        if (!bComment)
        {
            return { pBegin, nToken };
        }
        if (!m_bEndOfFile && !bAtLineFeed)
        {
            SkipLine();
        }
        if (m_bEndOfFile)
        {
            return {};
        }
    }
}

Script_c::Piece_s Script_c::NextToken(bool bPunctuation)
{
    return ReadToken(bPunctuation);
}

void Script_c::GetToken(char * sToken, bool bPunctuation)
{
    std::string_view const sRead = ReadToken(bPunctuation);
    std::size_t const nCopy = std::min<std::size_t>(sRead.size(), TOKEN_SIZE - 1);
    CopyShort(sToken, sRead.data(), nCopy);
    sToken[nCopy] = '\0';
}

void Script_c::SkipToken(char const * sToken)
{
    ZQ_ASSERT(sToken);
    if (!sToken)
    {
        return;
    }
    char szToken[TOKEN_SIZE];
    GetToken(szToken, false);
    if (std::strcmp(szToken, sToken) != 0)
    {
        ErrorAt("this is not the expected token", sToken, GetTokenStart(szToken));
    }
}

bool Script_c::RewindAfterToken(char const * sToken, bool bFromStart, bool bWholeToken)
{
    ZQ_ASSERT(sToken);
    if (!sToken)
    {
        return false;
    }
    int const iPreviousRead = m_iBytesRead;
    bool const bPreviousEnd = m_bEndOfFile;
    if (bFromStart)
    {
        m_iBytesRead = 0;
        m_bEndOfFile = false;
    }
    char szToken[TOKEN_SIZE];
    bool bFound = false;
    if (bWholeToken)
    {
        while (!bFound && !m_bEndOfFile)
        {
            GetToken(szToken, false);
            bFound = std::strcmp(szToken, sToken) == 0;
        }
    }
    else if (Find(sToken))
    {
        GetToken(szToken, false);
        bFound = true;
    }
    if (!bFound)
    {
        m_iBytesRead = iPreviousRead;
        m_bEndOfFile = bPreviousEnd;
    }
    return bFound;
}

// Moves to the next occurrence of a text before any NUL. Searches ranges that double in length, so the cost is linear
// in the distance to the occurrence or the NUL. Returns false if there is none.
bool Script_c::Find(char const * szToken)
{
    constexpr std::size_t FIRST_RANGE = 64;
    std::string_view const sRest(m_pData + m_iBytesRead, static_cast<std::size_t>(m_iBytesTotal - m_iBytesRead));
    for (std::size_t nSeen = FIRST_RANGE;; nSeen *= 2)
    {
        std::string_view const sSeen = sRest.substr(0, nSeen);
        std::size_t const nEnd = sSeen.find('\0');
        std::size_t const nFound = sSeen.substr(0, nEnd).find(szToken);
        if (nFound < sRest.size())
        {
            m_iBytesRead += static_cast<int>(nFound);
            return true;
        }
        if (nEnd < sSeen.size() || nSeen >= sRest.size())
        {
            return false;
        }
    }
}

void Script_c::GetLine(char * sLine, int iMaxLength)
{
    ZQ_ASSERT(iMaxLength >= 2);
    if (iMaxLength < 2)
    {
        return;
    }
    std::string_view const sRead = NextLine(iMaxLength - 1);
    sLine[sRead.copy(sLine, sRead.size())] = '\0';
}

// Reads the rest of the line with its end, and returns it without leading blanks and tabs and without the end. If that
// text has nMost bytes or more, returns its first nMost and reads no further.
Script_c::Piece_s Script_c::NextLine(int nMost)
{
    char cByte;
    int iBegin;
    do
    {
        iBegin = m_iBytesRead;
        cByte = ReadByte();
        if (IsLineEnd(cByte))
        {
            return {};
        }
    }
    while (!m_bEndOfFile && (cByte == ' ' || cByte == '\t'));
    int nLine = m_iBytesRead - iBegin;   // 0 at the end of the text
    if (!m_bEndOfFile && nLine < nMost)
    {
        char const * const pFrom = m_pData + m_iBytesRead;
        char const * const pEnd = pFrom + std::min(m_iBytesTotal - m_iBytesRead, nMost - nLine);
        char const * pNext = pFrom;
        while (pNext < pEnd && *pNext != '\0' && !IsLineEnd(*pNext))
        {
            ++pNext;
        }
        nLine += static_cast<int>(pNext - pFrom);
        m_iBytesRead = static_cast<int>(pNext - m_pData);
        if (nLine < nMost)
        {
            ReadByte();   // the end of the line, or that of the text
        }
    }
    return { m_pData + iBegin, static_cast<std::size_t>(nLine) };
}

void Script_c::GetSpecific(char * sWord)
{
    std::string_view const sRead = NextWord();
    sWord[sRead.copy(sWord, sRead.size())] = '\0';
}

// Reads a word for GetSpecific and returns it, or its first TOKEN_SIZE - 1 characters.
Script_c::Piece_s Script_c::NextWord()
{
    char cByte = ReadByte();
    while (Is(cByte, SEPARATOR) && !m_bEndOfFile)
    {
        cByte = ReadByte();
    }
    char const * const pWord = m_pData + std::max(m_iBytesRead - 1, 0);
    int nWord = 0;
    for (; !Is(cByte, SEPARATOR); cByte = ReadByte())   // at the end of the text a NUL is read
    {
        nWord += nWord < TOKEN_SIZE - 1;
    }
    return { pWord, static_cast<std::size_t>(nWord) };
}

void Script_c::GetString(char * sString, int iMaxLength, char cQuote)
{
    std::string_view const sRead = NextString(iMaxLength, cQuote);
    sString[sRead.copy(sString, sRead.size())] = '\0';
}

// Reads a quoted text and returns it, or its first nMost characters. Returns an empty text on a mismatch.
Script_c::Piece_s Script_c::NextString(int nMost, char cQuote)
{
    bool bSlash = false;
    char cByte = ReadByte();
    for (; cByte != cQuote && !m_bEndOfFile && (cByte == '/' || Is(cByte, SEPARATOR)); cByte = ReadByte())
    {
        if (cByte == '/' && bSlash)
        {
            SkipLine();
        }
        bSlash = bSlash || cByte == '/';
    }
    int const iOpening = m_iBytesRead - !m_bEndOfFile;
    if (cByte != cQuote)
    {
        ErrorAt("this is no quote", nullptr, iOpening);
        return {};
    }
    char const * const pString = m_pData + m_iBytesRead;
    if (m_bEndOfFile)
    {
        return { pString, 0 };
    }
    char const * const pEnd = pString + std::min(m_iBytesTotal - m_iBytesRead, std::max(nMost, 0));
    char const * pNext = pString;
    int nLines = 0;
    for (; pNext < pEnd && *pNext != cQuote; ++pNext)
    {
        nLines += *pNext == '\n' ? 1 : 0;
    }
    auto const nString = pNext - pString;
    m_iBytesRead += static_cast<int>(nString);
    m_iLines += nLines;
    bool const bTooLong = m_iBytesRead < m_iBytesTotal && m_pData[m_iBytesRead] != cQuote;
    ZQ_ASSERT_TEXT(!bTooLong, "nString < iMaxLength");
    if (!bTooLong)
    {
        ReadByte();   // the closing quote, or the end of the text
    }
    if (m_bEndOfFile)
    {
        m_Errors.SetAt("no quote ends this text", nullptr, m_pData, static_cast<std::size_t>(iOpening));
    }
    return { pString, static_cast<std::size_t>(nString) };
}

// Reads tokens up to the label, then stores the word after it in szValue. If there is no label, szValue holds the last
// token, or nothing if a separator follows it.
void Script_c::ReadLabelled(char const * sLabel, char * szValue)
{
    constexpr char const * NO_LABEL = "this is not the expected label";
    ZQ_ASSERT(sLabel);
    szValue[0] = '\0';
    if (sLabel && m_bEndOfFile)
    {
        m_Errors.SetAt(NO_LABEL, sLabel, m_pData, static_cast<std::size_t>(m_iBytesRead));
    }
    for (bool bFirst = true; sLabel && !m_bEndOfFile; bFirst = false)
    {
        GetToken(szValue, false);
        if (std::strcmp(szValue, sLabel) == 0)
        {
            GetSpecific(szValue);
            return;
        }
        if (bFirst)
        {
            ErrorAt(NO_LABEL, sLabel, GetTokenStart(szValue));
        }
        else
        {
            Complain();
        }
    }
}

int Script_c::GetInt(char const * sLabel)
{
    char szValue[TOKEN_SIZE];
    ReadLabelled(sLabel, szValue);
    return TextToInt(szValue);
}

float Script_c::GetFloat(char const * sLabel)
{
    char szValue[TOKEN_SIZE];
    ReadLabelled(sLabel, szValue);
    return TextToFloat(szValue);
}

int Script_c::GetInt()
{
    char szNumber[TOKEN_SIZE];
    int nNumber = 0;
    while (!m_bEndOfFile && m_iBytesRead < m_iBytesTotal && !Is(m_pData[m_iBytesRead], NUMBER))
    {
        ReadByte();
    }
    // A read beyond the text belongs to the number, so that the end is noticed.
    while (!m_bEndOfFile && (m_iBytesRead == m_iBytesTotal || Is(m_pData[m_iBytesRead], NUMBER)))
    {
        char const cByte = ReadByte();
        if (nNumber < TOKEN_SIZE - 1)
        {
            szNumber[nNumber++] = cByte;
        }
    }
    szNumber[nNumber] = '\0';
    return TextToInt(szNumber);
}

float Script_c::GetFloat()
{
    char szToken[TOKEN_SIZE];
    GetToken(szToken, false);
    float const fValue = TextToFloat(szToken);
    if (fValue == 0 && !IsNumber(szToken))
    {
        ErrorAt("this is no number", szToken, GetTokenStart(szToken));
    }
    return fValue;
}

// Reads the next token as a whole number of a range and returns true. Returns false at the end or on a mismatch.
bool Script_c::GetWhole(WholeRange_t const & Range, std::uint64_t & iBits)
{
    char szToken[TOKEN_SIZE];
    GetToken(szToken, false);
    return *szToken
           && (WholeFromText(szToken, Range, iBits) == WholeNumber_e::Good
               || RefuseToken("this is no whole number in range", szToken));
}

// Reads the next token as GetWhole does, but as a number whose absolute value is at most fMost.
bool Script_c::GetNumber(double fMost, double & fValue)
{
    char szToken[TOKEN_SIZE];
    GetToken(szToken, false);
    double fRead;
    NumberEnd_t const End = TextToDouble(szToken, fRead);
    if (*szToken == '\0' || *End.pEnd != '\0' || !End.bInRange || !(std::fabs(fRead) <= fMost))
    {
        return *szToken && RefuseToken("this is no number in range", szToken);
    }
    fValue = fRead;
    return true;
}

bool Script_c::Get(double & fValue)
{
    return GetNumber(DBL_MAX, fValue);
}

bool Script_c::Get(float & fValue)
{
    double fRead = 0;
    bool const bRead = GetNumber(FLT_MAX, fRead);
    fValue = bRead ? static_cast<float>(fRead) : fValue;
    return bRead;
}

// Reports the token that was read last as a mismatch, and returns false.
bool Script_c::RefuseToken(char const * szReason, char const * szToken)
{
    ErrorAt(szReason, szToken, GetTokenStart(szToken));
    return false;
}

void Script_c::SetPosition(int iPosition)
{
    ZQ_ASSERT(iPosition >= 0);
    m_iBytesRead = std::clamp(iPosition, 0, m_iBytesTotal);
    m_bEndOfFile = m_bEndOfFile || iPosition > m_iBytesTotal;
}

void Script_c::GetDump(char * pBuffer, int iStart, int iEnd)
{
    ZQ_ASSERT(iEnd < m_iBytesTotal);
    ZQ_ASSERT(iEnd > iStart);
    ZQ_ASSERT(iStart >= 0);
    if (iStart >= 0 && iEnd > iStart && iEnd < m_iBytesTotal)
    {
        m_iBytesRead = iStart;
        Read(pBuffer, iEnd - iStart);
    }
}

// Stores a mismatch as the last error, and complains.
void Script_c::ErrorAt(char const * szReason, char const * szAbout, int iPosition)
{
    m_Errors.SetAt(szReason, szAbout, m_pData, static_cast<std::size_t>(iPosition));
    Complain();
}

// Asserts that a file's copy is held. A mismatch in a file is no fault of the program. One in a block of memory is.
void Script_c::Complain() const
{
    ZQ_ASSERT(m_pFileData);
}

// Returns the start of the token that was read last, or the position if the token is empty.
int Script_c::GetTokenStart(char const * szToken) const
{
    int iStart = m_iBytesRead;
    while (*szToken && iStart > 0 && !Is(m_pData[iStart - 1], SEPARATOR))
    {
        --iStart;
    }
    return iStart;
}
