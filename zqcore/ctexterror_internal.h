// ctexterror_internal.h: a text after its byte order mark, or why it can't be read, for all text readers.
#pragma once

#include "zqcore/cfile.h"

#include <string_view>

/// Byte order marks: of UTF-8 (RFC 3629), and of UTF-16 with the low or the high byte first (RFC 2781).
inline constexpr std::string_view UTF8_MARK = "\xEF\xBB\xBF", UTF16_LOW_MARK = "\xFF\xFE", UTF16_HIGH_MARK = "\xFE\xFF";

/// Text of a file for a reader.
struct FileText_t
{
    char const * pText = nullptr;       // text after a byte order mark; null if not resident, or refused
    int nText = 0;                      // bytes of the text
    char const * szRefused = nullptr;   // why the text can't be read, or null
};

/// Skips the byte order mark of UTF-8. Returns null, or why a text with the mark of UTF-16 can't be read.
char const * TextSkipMarkSlow(char const *& pBegin, char const * pEnd);

/// Does what TextSkipMarkSlow does. An ASCII text costs no call.
inline char const * TextSkipMark(char const *& pBegin, char const * pEnd)
{
    constexpr auto LOWEST = static_cast<unsigned char>(UTF8_MARK[0]);   // the first bytes of the others are higher
    return pBegin < pEnd && static_cast<unsigned char>(*pBegin) >= LOWEST ? TextSkipMarkSlow(pBegin, pEnd) : nullptr;
}

/// Returns the text of an open file, or why it can't be read.
inline FileText_t TextOfFile(File_c const & File)
{
    auto const * pText = reinterpret_cast<char const *>(File.pData);
    char const * const pEnd = pText + (pText ? File.iLength : 0);
    char const * const szRefused = TextSkipMark(pText, pEnd);
    return szRefused ? FileText_t{ nullptr, 0, szRefused } : FileText_t{ pText, static_cast<int>(pEnd - pText) };
}
