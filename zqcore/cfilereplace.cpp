#include "zqcore/cfilereplace.h"

#include "zqcore/cfilename.h"
#include "zqcore/chexdigit_internal.h"

#include "platform/clock.h"
#include "platform/filewrite.h"

namespace
{
    constexpr char PREFIX[] = "~zq";
    constexpr int PREFIX_LENGTH = 3;
    constexpr int DIGITS = 8;
    constexpr int BARE_ROOM = 255 - PREFIX_LENGTH - DIGITS - 1;   // bytes, in the longest name of a file

    bool MakeExclusively(char const * szPath)
    {
        std::FILE * const pStream = plat::StreamOpen(szPath, "wbx");
        return pStream && std::fclose(pStream) == 0;
    }
}

FileReplacement_c::FileReplacement_c(char const * szFile)
    : m_sFile(szFile ? szFile : "")
{
    constexpr int TRIES = 16;
    bool const bFits = szFile && m_sFile == szFile;
    char const * const szBare = PathFileName(m_sFile);
    plat::FoldersCreate(m_sFile);
    auto nNumber = static_cast<std::uint32_t>(plat::GoodClockTicks());
    for (int i = 0; i < TRIES && bFits && !m_bMade; ++i, ++nNumber)
    {
        m_sBeside = m_sFile;
        m_sBeside.GetBuffer()[szBare - static_cast<char const *>(m_sFile)] = '\0';
        char szName[256];   // Va's buffers belong to all threads
        std::snprintf(szName, sizeof szName, "%s%08x-%.*s", PREFIX, nNumber, BARE_ROOM, szBare);
        m_sBeside += szName;
        m_bMade = MakeExclusively(m_sBeside);
    }
}

FileReplacement_c::~FileReplacement_c()
{
    if (m_bMade)
    {
        plat::TreeDelete(m_sBeside);
    }
}

bool FileReplacement_c::Commit()
{
    if (!m_bMade || !plat::FileReplace(m_sBeside, m_sFile))
    {
        return false;
    }
    m_bMade = false;
    return true;
}

bool FileReplacement_c::IsBeside(char const * szBare)
{
    if (std::strncmp(szBare, PREFIX, PREFIX_LENGTH) != 0)
    {
        return false;
    }
    int i = PREFIX_LENGTH;
    while (i < PREFIX_LENGTH + DIGITS && HexDigitValue(szBare[i]) >= 0)
    {
        ++i;
    }
    return i == PREFIX_LENGTH + DIGITS && szBare[i] == '-';
}
