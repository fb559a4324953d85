#include "heldfile.h"

#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath.h"

HeldFile_c::HeldFile_c(char const * szFile)
{
    if (!FileExists(szFile))
    {
        m_WhyNot.bFault = !FileScanIsWhole(GetPQXMediaPath(false));
        m_WhyNot.sWhy =
            NewString(m_WhyNot.bFault ? "%s was not found in media that can't be read whole; the log says what failed"
                                      : "these media have no %s",
                szFile);
        return;
    }
    m_File = FileReference_c(szFile);
    m_WhyNot.bFault = !m_File || m_File->iLength == 0;
    if (m_WhyNot.bFault)
    {
        m_WhyNot.sWhy = NewString(m_File ? "%s is empty" : "%s can't be read; the log says why", szFile);
    }
}
