// cstring.h: text of a fixed capacity that lives inside its owner.
//
// A String_T<N> is a plain char[N]: always terminated, N - 1 characters at most. A longer text is cut silently.
// Comparison, order and hash depend on the text alone, so it serves as a key of standard containers. It converts to and
// from std::string_view. A std::string can be assigned to it. Case folding is ASCII and the same in every locale.
//
// Buffers of callers: a function of any header that writes a text to a buffer with a size follows one rule, unless its
// comment says otherwise.
// - The size is that of the buffer in bytes, the terminator included.
// - The text is always terminated. A longer one is cut at size - 1 bytes. The function returns what it returns for one
//   that fits.
// - On failure the buffer holds an empty text.
//
// Ownership: a string is a plain value and is copied like one.
// Threads: any thread, one at a time for each string. All threads share the buffers of Va.
// Cost: nothing allocates. Length and most operations are linear in the text.
// Failure: a null text asserts in String_T and NewString, unless a declaration allows it. The other functions require
// texts that are not null.
//
//     String_T<32> sName("Ogre");
//     sName += " king";
//     if (sName.Begins("ogre") && sName.StrPos("king") == 5)
//     {
//         Log("%s has %i characters.", sName, sName.Length());
//     }
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cdebug.h"
#include "zqcore/cprintf.h"

#include "platform/folding.h"

#include <compare>
#include <cstring>
#include <string_view>
#include <type_traits>

/// Text of at most N - 1 characters.
template <int N>
class String_T
{
    static_assert(N > 1, "room for a character and the terminator");

public:
    /// Makes an empty string.
    constexpr String_T()
    {
        if (std::is_constant_evaluated())
        {
            for (char & cText : m_sText)   // a constant has no byte without a value
            {
                cText = '\0';
            }
        }
        m_sText[0] = '\0';
    }

    /// Copies a text. Asserts that it is not null. A null makes an empty string.
    constexpr String_T(char const * sTxt);

    /// Copy a text. A view is copied up to its first NUL, if it has one.
    String_T(std::string_view sTxt) { Put(0, sTxt); }
    template <int M>
    String_T(String_T<M> const & Other)
    {
        Put(0, Other);
    }
    String_T(String_T const & Other) noexcept;
    String_T & operator=(String_T const & Other) noexcept;

    /// Replace the text, as the constructors copy it. A null empties the string without an assertion.
    String_T & operator=(char const * sTxt);
    String_T & operator=(std::string_view sTxt) { return Put(0, sTxt); }
    template <int M>
    String_T & operator=(String_T<M> const & Other)
    {
        return Put(0, Other);
    }

    /// Return the text, which the string owns.
    operator char const *() const { return m_sText; }
    operator std::string_view() const { return { m_sText, std::strlen(m_sText) }; }

    /// Returns the text, for a callee that needs a pointer. Functions such as Log accept the string itself (cprintf.h).
    char const * CStr() const { return m_sText; }

    /// Return the start and the end of the text, without the terminator, for range-for and algorithms.
    char const * begin() const { return m_sText; }
    char const * end() const { return m_sText + Length(); }

    /// Returns the buffer of N bytes, for a callee that writes terminated text.
    char * GetBuffer() { return m_sText; }

    /// Return the number of characters without the terminator, and whether it is 0.
    int Length() const;
    bool IsEmpty() const { return m_sText[0] == '\0'; }

    /// Returns N: the characters that fit, plus the terminator.
    static constexpr int Capacity() { return N; }

    /// Return whether the texts are exactly equal, with any capacity. Assert that sTxt is not null. A null equals
    /// nothing.
    bool operator==(char const * sTxt) const;
    bool operator==(std::string_view sTxt) const { return std::string_view(*this) == sTxt; }
    template <int M>
    bool operator==(String_T<M> const & Other) const
    {
        return *this == static_cast<char const *>(Other);
    }

    /// Return the exact order, as strcmp does. Assert that sTxt is not null. A null comes first.
    std::strong_ordering operator<=>(char const * sTxt) const;
    std::strong_ordering operator<=>(std::string_view sTxt) const
    {
        return std::string_view(*this).compare(sTxt) <=> 0;
    }
    template <int M>
    std::strong_ordering operator<=>(String_T<M> const & Other) const
    {
        return *this <=> static_cast<char const *>(Other);
    }

    /// Append what fits. operator+ appends to a copy and returns it. Assert that a C text is not null. A null appends
    /// nothing.
    String_T & operator+=(char const * sTxt);
    String_T & operator+=(std::string_view sTxt) { return Put(std::strlen(m_sText), sTxt); }
    template <int M>
    String_T & operator+=(String_T<M> const & Other)
    {
        return *this += std::string_view(Other);
    }
    template <typename TEXT>
    String_T operator+(TEXT const & sTxt) const
    {
        return String_T(*this) += sTxt;
    }

    /// Returns the index of the first sNeedle at or after iStart, or -1. iStart is clamped to the text. The search is
    /// case-sensitive. Asserts that sNeedle is not null, and returns -1 otherwise.
    int StrPos(char const * sNeedle, int iStart = 0) const;

    /// Returns the index of the last sNeedle, or -1. Hits may overlap. The search is case-sensitive. Asserts that
    /// sNeedle is not null, and returns -1 otherwise.
    int StrLastPos(char const * sNeedle) const;

    /// Return whether the text starts, or ends, with sPrefix. The comparison is case-insensitive. Assert that sPrefix
    /// is not null, and return false otherwise.
    bool Begins(char const * sPrefix) const;
    bool Ends(char const * sPrefix) const;

    /// Removes the last iCount characters, or all if there are fewer. An iCount below 1 counts as 1.
    void Chop(int iCount);

    /// Returns the text from iStart on. In both forms a negative iStart counts from the end of the text.
    String_T SubStr(int iStart) const;

    /// Returns iCount characters from iStart on. A negative iCount ends the piece that many characters before the end
    /// of the text. Both ends are clamped to the text.
    String_T SubStr(int iStart, int iCount) const;

    /// Fold the ASCII case of the whole text in place.
    void ToLower();
    void ToUpper();

private:
    String_T & Put(std::size_t nAt, std::string_view sTxt);

    char m_sText[N];
};

/// Hash for the unordered containers. Equal texts have equal hashes, whatever the capacity.
template <int N>
struct std::hash<String_T<N>>
{
    std::size_t operator()(String_T<N> const & sText) const noexcept { return std::hash<std::string_view>()(sText); }
};

/// Returns a text formatted like printf, cut at 255 characters. Asserts that sFmt is not null, and returns an empty
/// text otherwise.
ZQ_API String_T<256> NewString(char const * sFmt, ...) ZQ_PRINTF(1, 2);

/// Returns a text formatted like printf in the next of 16 static buffers, cut at 4095 characters. It stays unchanged
/// during 15 further calls of any thread. The buffers have no lock.
ZQ_API char const * Va(char const * sFmt, ...) ZQ_PRINTF(1, 2);

/// Do what the functions of the same name do, with arguments of text classes (cprintf.h).
ZQ_PRINTF_TEXTS(ZQ_INLINE String_T<256>, return, NewString)
ZQ_PRINTF_TEXTS(ZQ_INLINE char const *, return, Va)

/// Return an ASCII letter in lower or in upper case, and other characters unchanged.
constexpr char CharToLower(char cText)
{
    return plat::Folded(cText);
}

constexpr char CharToUpper(char cText)
{
    return cText >= 'a' && cText <= 'z' ? static_cast<char>(cText - ('a' - 'A')) : cText;
}

/// Compare two texts without regard to ASCII case, as if both were in lower case. Return a number below 0, 0 or above
/// 0, as strcmp does. The second form compares nMax characters at most.
ZQ_API int StrCompareNoCase(char const * szA, char const * szB);
ZQ_API int StrCompareNoCase(char const * szA, char const * szB, std::size_t nMax);

/// Returns whether a text ends in another one, without regard to ASCII case.
inline bool StrEndsNoCase(char const * szText, char const * szEnd)
{
    std::size_t const nText = std::strlen(szText);
    std::size_t const nEnd = std::strlen(szEnd);
    return nEnd <= nText && StrCompareNoCase(szText + nText - nEnd, szEnd) == 0;
}

/// Fold the ASCII case of a terminated text in place.
ZQ_API void StrToLower(char * szText);
ZQ_API void StrToUpper(char * szText);

/// Copies nLength characters in lower case, without a terminator. Requires that pTo and pFrom do not overlap.
ZQ_API void CopyToLower(char * pTo, char const * pFrom, std::size_t nLength);

/// Returns the length of a text, nMax at most. Reads no more than nMax characters.
ZQ_API std::size_t StrLengthMax(char const * szText, std::size_t nMax);

/// Copies at most nSize - 1 characters, terminates them and returns their number. szTo and szFrom may overlap.
/// Requires that nSize is above 0.
ZQ_API std::size_t StrCopy(char * szTo, char const * szFrom, std::size_t nSize);

#include "zqcore/cstring.inl"
