// ctexterror_internal.h: what a text begins with, for all readers.
#pragma once

#include "zqcore/cfile.h"

/// Why a file that FileOpen refused has no text: there is none of that name, or it can't be read. Null names none.
char const * TextWhyNoFile(char const * szFile);

/// Skips the byte order mark of UTF-8. Returns null, or the reason if the text begins with the mark of UTF-16.
char const * TextSkipLongMark(char const *& pBegin, char const * pEnd);

/// The same; texts without a mark cost one look.
inline char const * TextSkipMark(char const *& pBegin, char const * pEnd)
{
    constexpr unsigned char LOWEST_MARK = 0xEF;
    return pBegin < pEnd && static_cast<unsigned char>(*pBegin) >= LOWEST_MARK ? TextSkipLongMark(pBegin, pEnd)
                                                                               : nullptr;
}

/// The text of a file as a reader takes it.
struct FileText_t
{
    char const * pText = nullptr;   // after a byte order mark; null if the contents are not resident
    int nText = 0;
    char const * szRefused = nullptr;   // why the text can't be read; there is none then
};

inline FileText_t TextOfFile(File_c const & File)
{
    auto const * pText = reinterpret_cast<char const *>(File.pData);
    char const * const pEnd = pText + (pText ? File.iLength : 0);
    char const * const szRefused = TextSkipMark(pText, pEnd);
    return szRefused ? FileText_t{ nullptr, 0, szRefused } : FileText_t{ pText, static_cast<int>(pEnd - pText) };
}
