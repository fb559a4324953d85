#include "zqcore/ctexterror.h"

#include "zqcore/ctexterror_internal.h"

#include "platform/text.h"

#include <atomic>
#include <cstring>
#include <string_view>

namespace
{
    constinit std::atomic<bool> g_bTextErrorLog = false;

    // Escapes a text from outside. Null counts as an empty one.
    template <int N>
    void Escape(String_T<N> & sOut, char const * szText)
    {
        szText = szText ? szText : "";
        plat::TextEscape(sOut.GetBuffer(), N, szText, plat::Controls_e::None);
    }
}

void SetTextErrorLog(bool bEnable)
{
    g_bTextErrorLog.store(bEnable, std::memory_order_relaxed);
}

bool TextErrors_c::IsWanted()
{
    return g_bTextErrorLog.load(std::memory_order_relaxed);
}

String_T<LOG_LINE_LENGTH + 1> TextForLog(char const * szText)
{
    String_T<LOG_LINE_LENGTH + 1> sLine;
    Escape(sLine, szText);
    return sLine;
}

void TextErrors_c::Begin(char const * szFile)
{
    Escape(m_Last.sFile, szFile);
    Clear();
}

void TextErrors_c::Clear()
{
    Set("");
    Recount();
}

void TextErrors_c::Set(char const * szReason, char const * szAbout)
{
    m_Last.iLine = m_Last.iColumn = 0;
    m_Last.sReason = szReason;
    if (szAbout)
    {
        m_Last.sReason += " \"";
        std::size_t const nUsed = std::strlen(m_Last.sReason), nRoom = m_Last.sReason.Capacity() - nUsed;
        // Leaves room for the quote.
        plat::TextEscape(m_Last.sReason.GetBuffer() + nUsed, nRoom - 1, szAbout, plat::Controls_e::None);
        m_Last.sReason += "\"";
    }
}

bool TextErrors_c::Fail(char const * szReason, char const * szAbout)
{
    Set(szReason, szAbout);
    LogIfWanted();
    return false;
}

void TextErrors_c::Place(char const * pText, std::size_t nAt)
{
    if (pText != m_pCounted || nAt < m_nCounted)
    {
        m_pCounted = pText;
        m_nCounted = 0;
        m_iLine = m_iColumn = 1;
    }
    char const * pNext = pText + m_nCounted;
    char const * const pEnd = pText + nAt;
    while (pNext < pEnd)
    {
        void const * const pFeed = std::memchr(pNext, '\n', static_cast<std::size_t>(pEnd - pNext));
        if (!pFeed)
        {
            break;
        }
        pNext = static_cast<char const *>(pFeed) + 1;
        ++m_iLine;
        m_iColumn = 1;
    }
    for (; pNext < pEnd; ++pNext)
    {
        m_iColumn += !plat::ContinuesUtf8(*pNext);
    }
    m_nCounted = nAt;
    m_Last.iLine = m_iLine;
    m_Last.iColumn = m_iColumn;
}

void TextErrors_c::LogIfWanted() const
{
    if (!IsWanted())
    {
        return;
    }
    char const * const szFile = m_Last.sFile.IsEmpty() ? "text" : static_cast<char const *>(m_Last.sFile);
    char const * const szReason = m_Last.sReason;
    if (m_Last.iLine > 0)
    {
        Log("%s(%d,%d): %s", szFile, m_Last.iLine, m_Last.iColumn, szReason);
    }
    else
    {
        Log("%s: %s", szFile, szReason);
    }
}

void TextErrors_c::SetAt(char const * szReason, char const * szAbout, char const * pText, std::size_t nAt)
{
    Set(szReason, szAbout);
    Place(pText, nAt);
    LogIfWanted();
}

char const * TextSkipMarkSlow(char const *& pBegin, char const * pEnd)
{
    std::string_view const sText(pBegin, static_cast<std::size_t>(pEnd - pBegin));
    if (sText.starts_with(UTF16_LOW_MARK) || sText.starts_with(UTF16_HIGH_MARK))
    {
        return "the text is UTF-16; only UTF-8 is read";
    }
    pBegin += sText.starts_with(UTF8_MARK) ? UTF8_MARK.size() : 0;
    return nullptr;
}
