// cstring.inl: bodies of String_T.
#pragma once

template <int N>
constexpr String_T<N>::String_T(char const * sTxt)
    : String_T()
{
    if (std::is_constant_evaluated())
    {
        for (int i = 0; i < N - 1 && sTxt[i] != '\0'; ++i)
        {
            m_sText[i] = sTxt[i];
        }
        return;
    }
    ZQ_ASSERT(sTxt);
    *this = sTxt;
}

template <int N>
String_T<N>::String_T(String_T const & Other) noexcept
{
    StrCopy(m_sText, Other.m_sText, N);
}

template <int N>
String_T<N> & String_T<N>::operator=(String_T const & Other) noexcept
{
    StrCopy(m_sText, Other.m_sText, N);
    return *this;
}

template <int N>
String_T<N> & String_T<N>::operator=(char const * sTxt)
{
    if (!sTxt)
    {
        m_sText[0] = '\0';
    }
    else
    {
        StrCopy(m_sText, sTxt, N);
    }
    return *this;
}

/// Replaces the text from nAt on with the view up to its first NUL, cut at N - 1 characters in all, and returns the
/// string. The view may be a part of this text. Requires nAt < N.
template <int N>
String_T<N> & String_T<N>::Put(std::size_t nAt, std::string_view sTxt)
{
    std::size_t const nRoom = N - 1 - nAt;
    std::size_t const nCopy = sTxt.empty() ? 0 : StrLengthMax(sTxt.data(), sTxt.size() < nRoom ? sTxt.size() : nRoom);
    if (nCopy != 0)
    {
        std::memmove(m_sText + nAt, sTxt.data(), nCopy);
    }
    m_sText[nAt + nCopy] = '\0';
    return *this;
}

template <int N>
int String_T<N>::Length() const
{
    return static_cast<int>(std::strlen(m_sText));
}

template <int N>
bool String_T<N>::operator==(char const * sTxt) const
{
    ZQ_ASSERT(sTxt != nullptr);
    return sTxt && std::strcmp(m_sText, sTxt) == 0;
}

template <int N>
std::strong_ordering String_T<N>::operator<=>(char const * sTxt) const
{
    ZQ_ASSERT(sTxt != nullptr);
    return sTxt ? std::strcmp(m_sText, sTxt) <=> 0 : std::strong_ordering::greater;
}

template <int N>
String_T<N> & String_T<N>::operator+=(char const * sTxt)
{
    ZQ_ASSERT(sTxt != nullptr);
    return sTxt ? *this += std::string_view(sTxt, StrLengthMax(sTxt, N)) : *this;
}

template <int N>
int String_T<N>::StrPos(char const * sNeedle, int iStart) const
{
    ZQ_ASSERT(sNeedle != nullptr);
    if (!sNeedle)
    {
        return -1;
    }
    int const iLength = Length();
    int const iFrom = iStart < 0 ? 0 : iStart > iLength ? iLength : iStart;
    char const * const pHit = std::strstr(m_sText + iFrom, sNeedle);
    return pHit ? static_cast<int>(pHit - m_sText) : -1;
}

template <int N>
int String_T<N>::StrLastPos(char const * sNeedle) const
{
    ZQ_ASSERT(sNeedle != nullptr);
    if (!sNeedle)
    {
        return -1;
    }
    std::size_t const iLast = std::string_view(*this).rfind(sNeedle);
    return iLast == std::string_view::npos ? -1 : static_cast<int>(iLast);
}

template <int N>
bool String_T<N>::Begins(char const * sPrefix) const
{
    ZQ_ASSERT(sPrefix != nullptr);
    return sPrefix && StrCompareNoCase(m_sText, sPrefix, std::strlen(sPrefix)) == 0;
}

template <int N>
bool String_T<N>::Ends(char const * sPrefix) const
{
    ZQ_ASSERT(sPrefix != nullptr);
    return sPrefix && StrEndsNoCase(m_sText, sPrefix);
}

template <int N>
void String_T<N>::Chop(int iCount)
{
    int const iLength = Length();
    int const iRemove = iCount < 1 ? 1 : iCount;
    m_sText[iRemove > iLength ? 0 : iLength - iRemove] = '\0';
}

template <int N>
String_T<N> String_T<N>::SubStr(int iStart) const
{
    return SubStr(iStart, N);
}

template <int N>
String_T<N> String_T<N>::SubStr(int iStart, int iCount) const
{
    auto const iLength = static_cast<long long>(Length());
    auto const Clamp = [iLength](long long iAt) { return iAt < 0 ? 0 : iAt > iLength ? iLength : iAt; };
    long long const iFrom = Clamp(iStart < 0 ? iLength + iStart : iStart);
    long long iEnd = Clamp(iCount >= 0 ? iFrom + iCount : iLength + iCount);
    iEnd = iEnd < iFrom ? iFrom : iEnd;

    String_T sResult;
    std::memcpy(sResult.m_sText, m_sText + iFrom, static_cast<std::size_t>(iEnd - iFrom));
    sResult.m_sText[iEnd - iFrom] = '\0';
    return sResult;
}

template <int N>
void String_T<N>::ToLower()
{
    StrToLower(m_sText);
}

template <int N>
void String_T<N>::ToUpper()
{
    StrToUpper(m_sText);
}
