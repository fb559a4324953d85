#include "zqcore/cfilelog.h"

#include "zqcore/ccallback_internal.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemory.h"
#include "zqcore/cscope_internal.h"
#include "zqcore/cstring.h"
#include "zqcore/ctexterror.h"

#include "platform/files.h"
#include "platform/filewrite.h"
#include "platform/fork.h"

#include <atomic>
#include <optional>
#include <utility>

bool g_bCollectResource = false;
int g_iMaxOpenFiles = 50;
SortedArray_T<FileOpenTrack_t, StaticArrayLenTraits_T<FileOpenTrack_t, FILE_OPEN_TRACKS>> g_dOpenTracks;
std::uint32_t g_dwFileOpenLogMode = FILE_LOG_PLAIN | FILE_LOG_CLEAN;
Array_T<String_T<256>, 1024, 0> g_dCleanNames;

namespace
{
    using TrackName_t = decltype(FileOpenTrack_t::sName);

    constexpr int LIMIT_STEP = 10;   // open handles between two complaints

    constinit plat::Lock_c g_TrackerLock;   // lock of the list, its limit and the count below
    plat::ForkLock_c const g_TrackerForkLock(g_TrackerLock);
    int g_nUnlisted = 0;                              // open handles that found no room in the list
    ZQ_THREAD_LOCAL bool t_bTrackerDumping = false;   // whether this thread's calls are ignored: logging may open files

    bool IsValid(void const * hFile)
    {
        return hFile != nullptr && hFile != reinterpret_cast<void const *>(std::intptr_t{ -1 });
    }

    // Copies an entry's name. Returns false after the last one. The list may change between two calls.
    bool CopyName(int iTrack, TrackName_t & sName)
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
        ValueScope_T const Dumping(t_bTrackerDumping, true);
        TrackName_t sName;
        for (int i = 0; CopyName(i, sName); ++i)
        {
            LogEscaped("Opened file: '%s'", static_cast<char const *>(sName));
        }
    }

    ZQ_COLD void ComplainOfFailure(char const * szName)
    {
        if (!StrEndsNoCase(szName, FileMediaTemplateTail()) && !StrEndsNoCase(szName, ".bin"))
        {
            Achtung("CreateFile(): opening of file '%s' failed!", TextForLog(szName).GetBuffer());
        }
    }

    ZQ_COLD void ComplainOfLimit(int nLimit, char const * szName)
    {
        Achtung("CreateFile(): limit of %i opened files exceeded on opening file '%s'!", nLimit,
            TextForLog(szName).GetBuffer());
        Dump();
    }

    // Counts the handle as open, and lists it if there is room. Sets bListed to whether it is listed. If the count
    // exceeds the limit, raises the limit and returns the previous one. Otherwise returns nothing.
    std::optional<int> List(void * hFile, char const * szName, bool & bListed)
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
            Track.sName = szName;
        }
        if (g_dOpenTracks.GetLength() + g_nUnlisted <= g_iMaxOpenFiles)
        {
            return std::nullopt;
        }
        int const nLimit = g_iMaxOpenFiles;
        g_iMaxOpenFiles += LIMIT_STEP;
        return nLimit;
    }

    // Removes the handle from the list. A handle that is not listed counts as one that found no room. Returns false if
    // no such handle is open.
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
    if (t_bTrackerDumping)
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
    std::optional<int> const Exceeded = List(hFile, sName, bListed);
    ZQ_ASSERT_TEXT(bListed, "iAccessIndex >= 0 && iAccessIndex <= LENGTH");
    if (Exceeded)
    {
        ComplainOfLimit(*Exceeded, sName ? sName : "");
    }
}

void FileCloseTracker(void * hFile)
{
    if (t_bTrackerDumping || !IsValid(hFile))
    {
        return;
    }
    if (!Unlist(hFile))
    {
        AssertFailed("CloseHandle(): closing more files than we've opened");
    }
}

namespace
{
    constexpr char const * CLONE_FOLDER = ".\\LoadedMedia";

    struct ResponseLog_s
    {
        std::uint32_t dwBit;
        char const * szEnding;
        std::FILE * pStream;
    };

    constinit plat::Lock_c g_ResponseLock;   // lock of the streams, the mode and the clean names
    plat::ForkLock_c const g_ResponseForkLock(g_ResponseLock);
    constinit ResponseLog_s g_dResponseLogs[] = {
        { FILE_LOG_PLAIN, ".rsp", nullptr },
        { FILE_LOG_PREFETCH, "_prefetch.rsp", nullptr },
        { FILE_LOG_CLEAN, "_clean.rsp", nullptr },
    };

    void SetCollecting(bool bCollect)
    {
        std::atomic_ref(g_bCollectResource).store(bCollect, std::memory_order_relaxed);
    }

    void CloseResponseLog(ResponseLog_s & Response)
    {
        if (Response.pStream)
        {
            std::fclose(std::exchange(Response.pStream, nullptr));
        }
        if (Response.dwBit == FILE_LOG_CLEAN)
        {
            g_dCleanNames.Reset();
        }
    }

    std::FILE * CreateResponseLog(char const * szName, char const * szEnding, bool bAppend)
    {
        char szPath[1024];
        int const nPath = std::snprintf(szPath, sizeof szPath, "%s\\Logs\\%s%s",
            static_cast<char const *>(GetPQXMediaPath(false)), szName, szEnding);
        bool const bWhole = nPath > 0 && nPath < static_cast<int>(sizeof szPath);
        return bWhole ? plat::StreamOpen(szPath, bAppend ? "a" : "w+") : nullptr;
    }

    // Records a name and returns whether the clean log lacked it. A name that is too long to be recorded always counts
    // as new.
    bool AddCleanName(char const * szName)
    {
        String_T<256> const sName(szName);
        if (!(sName == szName))
        {
            return true;
        }
        bool const bNew = !g_dCleanNames.Find(sName);
        if (bNew)
        {
            g_dCleanNames.Add(sName);
        }
        return bNew;
    }

    // Returns whether a name can be a line of a list. A name with a control character could forge another line, or
    // control the terminal that shows the list.
    bool FitsALine(char const * szName)
    {
        for (char const * szRest = szName; *szRest; ++szRest)
        {
            auto const cByte = static_cast<unsigned char>(szRest[0]);
            auto const cNext = static_cast<unsigned char>(szRest[1]);
            bool const bC1 = cByte == 0xC2 && cNext >= 0x80 && cNext < 0xA0;   // U+0080 to U+009F
            if (cByte < ' ' || cByte == 0x7F || bC1)
            {
                return false;
            }
        }
        return true;
    }

    // Returns whether the response logs list a name: names are collected, and this one fits a line. Logs a name that
    // does not fit. Asserts that the name is not null.
    bool CheckWanted(char const * szName)
    {
        ZQ_ASSERT_TEXT(szName, "sFileName");
        bool const bCollected = szName && FileIsCollecting();
        bool const bFits = bCollected && FitsALine(szName);
        if (bCollected && !bFits)
        {
            LogEscaped("filesystem: no response log lists \"%s\", it holds control characters", szName);
        }
        return bFits;
    }

    // A call of FileOpenToResponseLog.
    struct Report_s
    {
        std::uint32_t dwMode;   // replaces g_dwFileOpenLogMode
        bool bReceived;         // whether ResourceLoadCallback received the name
    };
    ZQ_THREAD_LOCAL Report_s * t_pReport = nullptr;   // the call of this thread, or null

    void WriteResponse(char const * szName, std::uint32_t dwMode)
    {
        for (ResponseLog_s const & Response : g_dResponseLogs)
        {
            bool const bWrites = Response.pStream && (dwMode & Response.dwBit) != 0;
            if (bWrites && (Response.dwBit != FILE_LOG_CLEAN || AddCleanName(szName)))
            {
                std::fprintf(Response.pStream, "%s\n", szName);
                std::fflush(Response.pStream);   // after a crash the list holds all files that were opened
            }
        }
    }

    bool WasOpened(File_c & File)
    {
        return std::atomic_ref(File.bOpened).load(std::memory_order_relaxed);
    }

    // Returns whether a key has a component that leads upwards.
    bool LeadsUp(char const * szKey)
    {
        char const * szDots = szKey;
        while ((szDots = std::strstr(szDots, "..")) != nullptr)
        {
            bool const bFirst = szDots == szKey || szDots[-1] == '\\' || szDots[-1] == '/';
            if (bFirst && (szDots[2] == '\0' || szDots[2] == '\\' || szDots[2] == '/'))
            {
                return true;
            }
            ++szDots;
        }
        return false;
    }

    // Returns whether the current folder has a folder of this name, which is no link to one.
    bool IsFolderOfCurrent(char const * szName)
    {
        plat::FolderListing_c Listing;
        Listing.Read(".");
        bool bFound = false;
        for (std::size_t i = 0; i < Listing.GetCount(); ++i)
        {
            plat::FolderEntry_t const & Entry = Listing.GetEntry(i);
            bFound = bFound || (Entry.Facts.bFolder && !Entry.bLink && StrCompareNoCase(Entry.szName, szName) == 0);
        }
        return bFound;
    }

    // Copies a file to CLONE_FOLDER. If its key has folders, the copy lies in the same folders below CLONE_FOLDER.
    // Skips a file whose key leads upwards.
    void Clone(File_c const & File)
    {
        String_T<256> const sTarget = String_T<256>(CLONE_FOLDER) + "\\" + File.sName;
        if (!LeadsUp(File.sName))
        {
            if (PathFileName(File.sName) != static_cast<char const *>(File.sName))
            {
                plat::FoldersCreate(sTarget);
            }
            plat::FileCopy(FileLocation_c(File), sTarget);
        }
    }
}

void FileOpenLogEnable(char const * sName, std::uint32_t dwMask, bool bAppend)
{
    plat::LockScope_c const Scope(g_ResponseLock);
    for (ResponseLog_s & Response : g_dResponseLogs)
    {
        if (dwMask & Response.dwBit)
        {
            CloseResponseLog(Response);
            Response.pStream = CreateResponseLog(sName && sName[0] ? sName : "thegame", Response.szEnding, bAppend);
        }
    }
    SetCollecting(true);
}

void FileOpenLogDisable()
{
    plat::LockScope_c const Scope(g_ResponseLock);
    for (ResponseLog_s & Response : g_dResponseLogs)
    {
        CloseResponseLog(Response);
    }
    SetCollecting(false);
}

void FileOpenLogMode(std::uint32_t dwMode)
{
    plat::LockScope_c const Scope(g_ResponseLock);
    g_dwFileOpenLogMode = dwMode;
}

void FileOpenToResponseLog(char const * sName, std::uint32_t dwMode)
{
    if (!FileIsCollecting())
    {
        return;
    }
    Report_s Report = { dwMode, false };
    ValueScope_T const Reporting(t_pReport, &Report);
    if (sName)
    {
        FireIfGranted(g_FileOpenCallbacker, sName);
    }
    if (!Report.bReceived)
    {
        ResourceLoadCallback(sName);
    }
}

void ResourceLoadCallback(char const * sFileName)
{
    if (t_pReport)
    {
        t_pReport->bReceived = true;
    }
    if (CheckWanted(sFileName))
    {
        MemCategoryScope_c const Category(mem::file);
        plat::LockScope_c const Scope(g_ResponseLock);
        WriteResponse(sFileName, t_pReport ? t_pReport->dwMode : g_dwFileOpenLogMode);
    }
}

void FileCleanNamesReset()
{
    plat::LockScope_c const Scope(g_ResponseLock);
    g_dCleanNames.Reset();
}

void FileDumpInfo()
{
    MemCategoryScope_c const Category(mem::file);
    Array_T<FileOpenCalls_t, 16384, 0> dCalls;
    VisitAll(g_sFileObjects,
        [&dCalls](File_c * pFile) {
            dCalls.Add({ pFile->sName, std::atomic_ref(pFile->iReads).load(std::memory_order_relaxed) });
        });
    dCalls.Sort([](FileOpenCalls_t const & Left, FileOpenCalls_t const & Right)
        { return Left.iCalls > Right.iCalls ? 1 : (Left.iCalls < Right.iCalls ? -1 : 0); },
        0, -1);
    for (FileOpenCalls_t const & Calls : dCalls)
    {
        if (Calls.iCalls > 1)
        {
            Logf("fileopen_calls.log", "%-32s%d", TextForLog(Calls.sName).GetBuffer(), Calls.iCalls);
        }
    }
}

void FileLogLoadedMedia()
{
    constexpr char const * CUT = "------------ CUT ------------";
    Log("Media in memory...");
    LogText(CUT);
    VisitAll(g_sFileObjects,
        [](File_c * pFile)
        {
            plat::LockScope_c const Scope(pFile->m_Lock);
            if (WasOpened(*pFile) && pFile->pData)
            {
                LogEscaped("%i, %s", pFile->iLength, static_cast<char const *>(pFile->sName));
            }
        });
    LogText(CUT);
}

void FileCloneLoadedMedia()
{
    Log("Clone media...");
    plat::TreeDelete(CLONE_FOLDER);
    if (!plat::FolderCreate(CLONE_FOLDER) && !IsFolderOfCurrent(PathFileName(CLONE_FOLDER)))
    {
        return;
    }
    VisitAll(g_sFileObjects,
        [](File_c * pFile)
        {
            if (WasOpened(*pFile))
            {
                Clone(*pFile);
            }
        });
}
