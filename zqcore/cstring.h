// cstring.h: text that lives inside its owner.
//
// A String_T<N> is a plain char[N] and nothing else: always terminated, at most N - 1 characters, a longer text is cut
// silently. It never allocates and is copied like any value. Comparison, order and hash go by the text, so it serves as
// a key of standard containers. Case folding is ASCII and the same in every locale.
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cdebug.h"

#include <compare>
#include <string_view>

template <int N>
class String_T
{
    static_assert(N > 1, "room for a character and the terminator");

public:
    String_T() { m_sText[0] = '\0'; }

    /// Requires sTxt; use the assignment for a text that may be null.
    String_T(char const * sTxt);
    String_T(String_T const & Other);
    String_T & operator=(String_T const & Other);

    /// Null empties the string.
    String_T & operator=(char const * sTxt);

    operator char const *() const { return m_sText; }

    /// The buffer of N bytes, for a callee that writes terminated text.
    char * GetBuffer() { return m_sText; }

    int Length() const;
    bool IsEmpty() const { return m_sText[0] == '\0'; }
    static constexpr int Capacity() { return N; }

    /// Exact comparison, with any capacity. sTxt must not be null; a null that the developer ignores equals nothing.
    bool operator==(char const * sTxt) const;
    template <int M>
    bool operator==(String_T<M> const & Other) const
    {
        return *this == static_cast<char const *>(Other);
    }

    /// Exact order, as strcmp has it. sTxt must not be null; a null that the developer ignores comes first.
    std::strong_ordering operator<=>(char const * sTxt) const;
    template <int M>
    std::strong_ordering operator<=>(String_T<M> const & Other) const
    {
        return *this <=> static_cast<char const *>(Other);
    }

    /// Appends what fits.
    String_T & operator+=(char const * sTxt);
    String_T operator+(char const * sTxt) const;

    /// Index of the first sNeedle at or behind iStart, which is clamped to the text, or -1. Exact case.
    int StrPos(char const * sNeedle, int iStart = 0) const;

    /// Index of the last sNeedle, or -1; hits may overlap. Exact case.
    int StrLastPos(char const * sNeedle) const;

    /// Whether the text starts, or ends, with the other one, without regard to case.
    bool Begins(char const * sPrefix) const;
    bool Ends(char const * sPrefix) const;

    /// Removes the last iCount characters, at least one and at most all.
    void Chop(int iCount);

    /// The tail from iStart; a negative iStart counts from the end.
    String_T SubStr(int iStart) const;

    /// The piece from iStart of iCount characters; a negative iCount ends it that far before the end of the text.
    String_T SubStr(int iStart, int iCount) const;

    void ToLower();
    void ToUpper();

private:
    char m_sText[N];
};

/// Equal texts have equal hashes, whatever the capacity.
template <int N>
struct std::hash<String_T<N>>
{
    std::size_t operator()(String_T<N> const & sText) const noexcept
    {
        return std::hash<std::string_view>()(static_cast<char const *>(sText));
    }
};

/// Formats like printf; a longer result is cut at 255 characters.
ZQ_API String_T<256> NewString(char const * sFmt, ...) ZQ_PRINTF(1, 2);

/// Formats into the next of 16 static buffers and returns it: the text stays for 15 further calls. Cut at 4095
/// characters. The buffers are shared by all threads, without a lock.
ZQ_API char const * Va(char const * sFmt, ...) ZQ_PRINTF(1, 2);

/// ASCII case folding of one character; others are unchanged.
constexpr char CharToLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

constexpr char CharToUpper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

/// Compare without regard to ASCII case: negative, 0, positive. The second looks at nMax characters at most.
ZQ_API int StrCompareNoCase(char const * szA, char const * szB);
ZQ_API int StrCompareNoCase(char const * szA, char const * szB, std::size_t nMax);

/// Folds a terminated text in place.
ZQ_API void StrToLower(char * szText);
ZQ_API void StrToUpper(char * szText);

/// Copies nLength characters, folded; no terminator. The two must not overlap.
ZQ_API void CopyToLower(char * pTo, char const * pFrom, std::size_t nLength);

/// Length of a text of which nMax characters are looked at, at most.
ZQ_API std::size_t StrLengthMax(char const * szText, std::size_t nMax);

/// Copies at most nSize - 1 characters and terminates; the characters copied. The two may overlap. Requires nSize > 0.
ZQ_API std::size_t StrCopy(char * szTo, char const * szFrom, std::size_t nSize);

#include "zqcore/cstring.inl"
