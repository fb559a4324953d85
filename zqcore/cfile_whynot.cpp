// The reasons of failed opens.
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/ctexterror.h"

#include "platform/fork.h"

namespace
{
    constinit plat::Lock_c g_WhyNotLock;   // lock of the texts of all files
    plat::ForkLock_c const g_WhyNotForkLock(g_WhyNotLock);

    // The last failure of FileAddOneFile, which leaves no file object.
    struct NotAdded_s
    {
        String_T<FOLDED_LENGTH + 1> sBare;
        File_c::Reason_t sReason;
    } g_NotAdded;
}

File_c::Reason_t File_c::GetWhyNot() const
{
    if (!m_pWhyNot.load(std::memory_order_acquire))
    {
        return "";
    }
    plat::LockScope_c const Scope(g_WhyNotLock);
    Reason_t const * const pWhyNot = m_pWhyNot;
    return pWhyNot ? *pWhyNot : Reason_t();
}

bool File_c::SetWhyNot(char const * szReason)
{
    if (!szReason && !m_pWhyNot.load(std::memory_order_relaxed))
    {
        return false;
    }
    MemCategoryScope_c const Category(mem::file);
    auto * const pReason = szReason ? ZQ_NEW Reason_t(szReason) : nullptr;
    g_WhyNotLock.Enter();
    Reason_t const * const pPrevious = m_pWhyNot.exchange(pReason);
    g_WhyNotLock.Leave();
    delete pPrevious;
    return false;
}

bool File_c::LogWhyNot() const
{
    FileLogWhyNot(GetFullPath(), GetWhyNot());
    return false;
}

void FileLogWhyNot(char const * szName, char const * szReason)
{
    if (TextErrors_c::IsWanted() && szReason[0])
    {
        LogEscaped("%s: %s", szName ? szName : "", szReason);
    }
}

bool FileNoteNotAdded(char const * szFile, char const * szReason)
{
    g_NotAdded = { szFile, szReason };
    FileLogWhyNot(szFile, szReason);
    return false;
}

File_c::Reason_t FileGetWhyNot(char const * name)
{
    FoldedPath_c const sPath(name);
    File_c const * pFile = g_sFileObjects.FindByName(sPath.GetBare());
    pFile = pFile ? pFile : g_sFileObjects.FindByName(sPath);
    if (pFile)
    {
        return pFile->GetWhyNot();
    }
    if (!g_NotAdded.sBare.IsEmpty() && g_NotAdded.sBare == sPath.GetBare())
    {
        return g_NotAdded.sReason;
    }
    return !FileScanIsWhole("")    ? "it was not found, and a scan could not see all folders; the log says which"
           : FileTableOverflowed() ? "it was not found, and the table of files had no room for some"
                                   : "there is no such file";
}
