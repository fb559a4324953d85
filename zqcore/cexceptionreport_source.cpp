#include "zqcore/cexceptionreport_internal.h"

#include "platform/memory.h"
#include "platform/rawfiles.h"

#include <algorithm>
#include <cstring>

exceptionreport::SourceFile_c::SourceFile_c(char const * szPath)
    : m_pText(plat::RawReadAll(szPath, &m_nBytes))
    , m_pNext(m_pText)
{}

exceptionreport::SourceFile_c::~SourceFile_c()
{
    plat::PagesRelease(const_cast<char *>(m_pText), m_nBytes);
}

bool exceptionreport::SourceFile_c::GetLine(unsigned iLine, char * szText, std::size_t nSize) const
{
    if (iLine < m_iNext)
    {
        m_iNext = 1;
        m_pNext = m_pText;
        m_bEnded = false;
    }
    char const * const pEnd = m_pText + m_nBytes;
    while (m_pNext && m_pNext < pEnd && !m_bEnded)
    {
        char const * const pLine = m_pNext;
        auto const * const pReturn =
            static_cast<char const *>(std::memchr(pLine, '\r', static_cast<std::size_t>(pEnd - pLine)));
        if (!pReturn)
        {
            m_bEnded = true;
            break;
        }
        m_pNext = pReturn + 2;   // the byte after it counts as its line feed
        if (m_iNext++ == iLine)
        {
            std::size_t const nLine = std::min(static_cast<std::size_t>(pReturn - pLine), nSize - 1);
            std::memcpy(szText, pLine, nLine);
            szText[nLine] = '\0';
            return true;
        }
    }
    szText[0] = '\0';
    return false;
}
