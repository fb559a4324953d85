#include "zqcore/cfilelog.h"

#include "zqcore/cfile_internal.h"
#include "zqcore/clog.h"

bool g_bCollectResource = false;
int g_iMaxOpenFiles = 50;
SortedArray_T<FileOpenTrack_t, StaticArrayLenTraits_T<FileOpenTrack_t, FILE_OPEN_TRACKS>> g_dOpenTracks;

namespace
{
    constexpr int LIMIT_STEP = 10;   // open handles from one warning to the next

    constinit plat::Lock_c g_TrackerLock;             // guards the list, its limit and the count below
    int g_nUnlisted = 0;                              // open handles that found no room in the list
    ZQ_THREAD_LOCAL bool g_bTrackerDumping = false;   // logging may open files: this thread's calls are ignored

    bool IsValid(void const * hFile)
    {
        return hFile != nullptr && hFile != reinterpret_cast<void const *>(std::intptr_t{ -1 });
    }

    // Copies an entry's name; false past the last. The list may change from one call to the next.
    bool CopyName(int iTrack, String_T<260> & sName)
    {
        plat::LockScope_c const Scope(g_TrackerLock);
        if (iTrack >= g_dOpenTracks.GetLength())
        {
            return false;
        }
        sName = g_dOpenTracks[iTrack].sName;
        return true;
    }

    ZQ_COLD void Dump()
    {
        g_bTrackerDumping = true;
        String_T<260> sName;
        for (int i = 0; CopyName(i, sName); ++i)
        {
            Log("Opened file: '%s'", static_cast<char const *>(sName));
        }
        g_bTrackerDumping = false;
    }

    bool EndsNoCase(char const * szText, char const * szEnd)
    {
        std::size_t const nText = std::strlen(szText);
        std::size_t const nEnd = std::strlen(szEnd);
        return nEnd <= nText && StrCompareNoCase(szText + nText - nEnd, szEnd) == 0;
    }

    ZQ_COLD void ComplainOfFailure(char const * sName)
    {
        if (!EndsNoCase(sName, FileMediaTemplateTail()) && !EndsNoCase(sName, ".bin"))
        {
            Achtung("CreateFile(): opening of file '%s' failed!", sName);
        }
    }

    ZQ_COLD void ComplainOfLimit(int iLimit, char const * sName)
    {
        Achtung("CreateFile(): limit of %i opened files exceeded on opening file '%s'!", iLimit, sName);
        Dump();
    }

    // Lists the handle. The limit that this exceeds, else 0; bListed says whether there was room.
    int List(void * hFile, char const * sName, bool & bListed)
    {
        plat::LockScope_c const Scope(g_TrackerLock);
        bListed = g_dOpenTracks.GetLength() < FILE_OPEN_TRACKS;
        if (!bListed)
        {
            ++g_nUnlisted;
        }
        else
        {
            FileOpenTrack_t & Track = g_dOpenTracks[g_dOpenTracks.Add({})];
            Track.hFile = hFile;
            Track.sName = sName;
        }
        if (g_dOpenTracks.GetLength() + g_nUnlisted <= g_iMaxOpenFiles)
        {
            return 0;
        }
        int const iLimit = g_iMaxOpenFiles;
        g_iMaxOpenFiles += LIMIT_STEP;
        return iLimit;
    }

    // Takes the handle out; false if it is not there.
    bool Unlist(void const * hFile)
    {
        plat::LockScope_c const Scope(g_TrackerLock);
        for (int i = 0; i < g_dOpenTracks.GetLength(); ++i)
        {
            if (g_dOpenTracks[i].hFile == hFile)
            {
                g_dOpenTracks.Delete(i);
                return true;
            }
        }
        bool const bUnlisted = g_nUnlisted > 0;
        g_nUnlisted -= bUnlisted ? 1 : 0;
        return bUnlisted;
    }
}

void FileOpenTracker(void * hFile, char const * sName)
{
    if (g_bTrackerDumping)
    {
        return;
    }
    if (!IsValid(hFile))
    {
        if (sName)
        {
            ComplainOfFailure(sName);
        }
        return;
    }
    bool bListed;
    int const iExceeded = List(hFile, sName, bListed);
    ZQ_ASSERT_TEXT(bListed, "iAccessIndex >= 0 && iAccessIndex <= LENGTH");
    if (iExceeded != 0)
    {
        ComplainOfLimit(iExceeded, sName ? sName : "");
    }
}

void FileCloseTracker(void * hFile)
{
    if (g_bTrackerDumping || !IsValid(hFile))
    {
        return;
    }
    if (!Unlist(hFile))
    {
        AssertFailed("CloseHandle(): closing more files than we've opened");
    }
}
