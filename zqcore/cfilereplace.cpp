#include "zqcore/cfilereplace.h"

#include "zqcore/ccrc.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilereplace_internal.h"

#include "platform/clock.h"
#include "platform/filereplace.h"
#include "platform/files.h"
#include "platform/fork.h"
#include "platform/process.h"
#include "platform/text.h"

#include <cstdio>

namespace
{
    constexpr char PREFIX[] = "~zq";
    constexpr int PREFIX_LENGTH = static_cast<int>(sizeof PREFIX) - 1;
    constexpr int DIGITS = 8;   // of the number after PREFIX
    // Bytes of the longest file name after the prefix.
    constexpr int BARE_ROOM = static_cast<int>(plat::FILE_NAME_LIMIT) - (PREFIX_LENGTH + DIGITS + 1);
    static_assert(PREFIX_LENGTH + DIGITS + 1 == sizeof SECOND_NAME_PREFIX - 1);

    constinit int g_nForks = 0;   // forks that lead from the first process to this one
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, [] { ++g_nForks; } });
}

FileReplacement_c::Reason_t LastErrorReason()
{
    char szError[FileReplacement_c::Reason_t::Capacity()];
    plat::LastErrorText(szError, sizeof szError);
    FileReplacement_c::Reason_t sReason(szError);
    sReason.Chop(1);   // LastErrorText writes a line end
    return sReason;
}

FileReplacement_c::Beside_t NameBeside(String_T<256> const & sFile, char const * szPrefix)
{
    char const * const szBare = PathFileName(sFile);
    FileReplacement_c::Beside_t sBeside(sFile);
    sBeside.GetBuffer()[szBare - static_cast<char const *>(sFile)] = '\0';
    sBeside += szPrefix;
    sBeside += String_T<BARE_ROOM + 1>(szBare);
    return sBeside;
}

FileReplacement_c::FileReplacement_c(char const * szFile, plat::Rights_e eRights, char const * szRefused)
    : m_sFile(szFile ? szFile : "")
    , m_eRights(eRights)
    , m_nForks(g_nForks)
{
    constexpr int TRIES = 16;
    if (szRefused || !szFile || m_sFile != szFile)
    {
        Fail(szRefused ? szRefused : szFile ? "the path is too long" : "there is no path");
        return;
    }
    plat::FoldersCreate(m_sFile);
    auto iNumber = static_cast<std::uint32_t>(plat::GoodClockTicks());
    for (int i = 0; i < TRIES && !m_hFile; ++i, ++iNumber)
    {
        char szPrefix[16];   // not Va, whose buffers are shared by all threads
        std::snprintf(szPrefix, sizeof szPrefix, "%s%0*x-", PREFIX, DIGITS, iNumber);
        m_sBeside = NameBeside(m_sFile, szPrefix);
        m_hFile = plat::FileMake(m_sBeside, eRights);
    }
    if (m_hFile)
    {
        FileOpenTracker(m_hFile, m_sBeside);
    }
    else
    {
        FailAsSystem();
    }
}

FileReplacement_c::~FileReplacement_c()
{
    if (m_hFile)
    {
        FileCloseTracker(m_hFile);
        if (m_nForks != g_nForks)
        {
            plat::FileClose(m_hFile);   // FileFinish would end the parent's claim
            return;
        }
        plat::FileFinish(m_hFile);
        plat::TreeDelete(m_sBeside);
    }
}

bool FileReplacement_c::Fail(char const * szWhy)
{
    m_sWhyNot = m_sWhyNot.IsEmpty() ? szWhy : static_cast<char const *>(m_sWhyNot);
    return false;
}

bool FileReplacement_c::FailAsSystem()
{
    return Fail(LastErrorReason());
}

bool FileReplacement_c::Write(void const * pData, std::size_t nBytes)
{
    if (!m_sWhyNot.IsEmpty())
    {
        return false;
    }
    if (!plat::FileWrite(m_hFile, pData, nBytes))
    {
        return FailAsSystem();
    }
    m_dwCrc = Crc32(pData, nBytes, m_dwCrc);
    m_nBytes += nBytes;
    return true;
}

bool FileReplacement_c::Rewrite(std::uint64_t nOffset, std::uint32_t dwOld, std::uint32_t dwNew)
{
    if (!m_sWhyNot.IsEmpty())
    {
        return false;
    }
    if (m_nBytes < sizeof dwNew || nOffset > m_nBytes - sizeof dwNew)
    {
        return Fail("nothing was written there");
    }
    if (!plat::FileWriteAt(m_hFile, nOffset, &dwNew, sizeof dwNew))
    {
        return FailAsSystem();
    }
    m_dwCrc ^= Crc32Join(Crc32Feed4(0, dwOld ^ dwNew), 0, m_nBytes - sizeof dwNew - nOffset);
    return true;
}

plat::File_t FileReplacement_c::BeginArchive()
{
    if (m_bArchive || m_nBytes > 0 || !m_sWhyNot.IsEmpty())
    {
        return nullptr;
    }
    m_bArchive = m_hFile != nullptr;
    return m_hFile;
}

void FileReplacement_c::EndArchive(bool bWhole)
{
    m_bArchive = false;
    if (!bWhole)
    {
        Fail("not all of it was stored");
    }
}

bool FileReplacement_c::CheckWhole()
{
    if (m_sWhyNot.IsEmpty() && (m_bArchive || !m_hFile))
    {
        Fail(m_bArchive ? "it is still being written" : "it is committed already");
    }
    return m_sWhyNot.IsEmpty();
}

bool FileReplacement_c::Synchronize()
{
    return plat::FileSync(m_hFile) || FailAsSystem();
}

bool FileReplacement_c::Replace()
{
    if (!plat::FileReplace(m_hFile, m_sBeside, m_sFile, m_eRights))
    {
        return FailAsSystem();
    }
    FileCloseTracker(m_hFile);
    plat::FileFinish(m_hFile);   // the data was synchronised, so a failure here loses nothing
    m_hFile = nullptr;
    return true;
}

bool FileReplacement_c::Commit()
{
    return CheckWhole() && Synchronize() && Replace();
}

bool FileReplacement_c::IsBeside(char const * szBare)
{
    if (std::strncmp(szBare, SAVE_LOCK_PREFIX, sizeof SAVE_LOCK_PREFIX - 1) == 0)
    {
        return true;
    }
    if (std::strncmp(szBare, PREFIX, PREFIX_LENGTH) != 0)
    {
        return false;
    }
    int i = PREFIX_LENGTH;
    while (i < PREFIX_LENGTH + DIGITS && plat::HexDigitValue(szBare[i]) >= 0)
    {
        ++i;
    }
    return i == PREFIX_LENGTH + DIGITS && szBare[i] == '-';
}
