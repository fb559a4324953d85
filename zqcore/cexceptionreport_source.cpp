#include "zqcore/cexceptionreport_internal.h"

#include "platform/memory.h"
#include "platform/rawfiles.h"

#include <algorithm>
#include <cstring>

exceptionreport::SourceFile_c::SourceFile_c(char const * szPath)
    : m_pText(plat::RawReadAll(szPath, &m_nBytes))
{}

exceptionreport::SourceFile_c::~SourceFile_c()
{
    plat::PagesRelease(const_cast<char *>(m_pText), m_nBytes);
}

bool exceptionreport::SourceFile_c::GetLine(unsigned iLine, char * szText, std::size_t nSize) const
{
    char const * pLine = m_pText;
    char const * const pEnd = m_pText + m_nBytes;
    for (unsigned i = 1; pLine && pLine < pEnd; ++i)
    {
        auto const * const pReturn =
            static_cast<char const *>(std::memchr(pLine, '\r', static_cast<std::size_t>(pEnd - pLine)));
        if (!pReturn)
        {
            return false;
        }
        if (i == iLine)
        {
            std::size_t const nLine = std::min(static_cast<std::size_t>(pReturn - pLine), nSize - 1);
            std::memcpy(szText, pLine, nLine);
            szText[nLine] = '\0';
            return true;
        }
        pLine = pReturn + 2;   // a line feed follows
    }
    return false;
}
