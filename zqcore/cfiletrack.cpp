#include "zqcore/cfiletrack.h"

#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/cfiletrack_internal.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cprofile_internal.h"
#include "zqcore/cscope_internal.h"
#include "zqcore/ctokenize.h"

#include "platform/folderwatch.h"
#include "platform/text.h"

#include <cerrno>
#include <chrono>
#include <thread>

void (*g_fnTrackSleep)(int nMilliseconds) = [](int nMilliseconds)
{ std::this_thread::sleep_for(std::chrono::milliseconds(nMilliseconds)); };

namespace
{
    constexpr std::size_t BUFFER_BYTES = 4096;
    constexpr std::size_t READ_BYTES = 4094;   // part of the buffer that a batch must fit into

    constexpr int LOCK_TRIES = 500;
    constexpr int LOCK_TRIES_UNLOGGED = 10;   // tries that are not logged
    constexpr int LOCK_WAIT = 10;             // milliseconds after each try that finds the file

    String_T<256> g_sTrackPath;           // watched folder as the caller wrote it
    plat::FolderWatch_c g_hTrackFolder;   // watch of that folder; closed while tracking is off
    alignas(4) unsigned char g_dTrackBuffer[BUFFER_BYTES];
    Array_T<String_T<256>, 1024, 0> g_dTrackIgnoreExts;
    String_T<1024> g_sTrackProblem;   // text of FileTrackGetProblem
    unsigned g_iTrackRun = 0;         // identifier of the watch: a receiver may end it or start another
    bool g_bTrackWalking = false;     // whether FileTrackDoWork is in WalkBatch
    bool g_bTrackGone = false;        // whether the watched folder's end was reported

    // The changed file of a record: the watched folder and the record's name. The name's characters up to U+00FF are
    // converted to UTF-8 (RFC 3629). Others are skipped. The buffer has room for any name of a batch.
    class ChangedFile_c
    {
    public:
        ChangedFile_c(unsigned char const * pUnits, std::uint32_t nBytes)
        {
            m_nLength = StrCopy(m_szPath, g_sTrackPath, sizeof m_szPath);
            m_szPath[m_nLength++] = '\\';
            for (std::uint32_t i = 0; i + 1 < nBytes; i += 2)
            {
                char16_t cUnit;
                std::memcpy(&cUnit, pUnits + i, sizeof cUnit);
                Append(cUnit);
            }
            m_szPath[m_nLength] = '\0';
        }

        char const * GetPath() const { return m_szPath; }
        char const * GetBare() const { return PathFileName(m_szPath); }

    private:
        void Append(char16_t cUnit)
        {
            if (cUnit >= 0x100)
            {
                return;
            }
            if (cUnit >= 0x80)
            {
                m_szPath[m_nLength++] = static_cast<char>(0xC0 | (cUnit >> 6));
                cUnit = static_cast<char16_t>(0x80 | (cUnit & 0x3F));
            }
            m_szPath[m_nLength++] = static_cast<char>(cUnit);
        }

        std::size_t m_nLength;
        char m_szPath[256 + BUFFER_BYTES];   // a unit of two bytes becomes at most two bytes
    };

    // Returns whether changes of this file are ignored: it is not known, or its type is ignored.
    bool IsIgnored(char const * szBare)
    {
        if (!FileExists(szBare))
        {
            return true;
        }
        String_T<256> const sExt = FileName_c(szBare).GetExt();
        return g_dTrackIgnoreExts.Find(sExt) != nullptr;
    }

    // Waits until a file can be opened and no process has it open for writing. Returns false after LOCK_TRIES tries. A
    // file that does not exist fails all tries without a wait: the program that writes it again causes another change.
    bool WaitForWriters(char const * szPath)
    {
        plat::FileLockTest_c LockTest(szPath);
        int nTries = 0;
        bool bOpened = false;
        while (!bOpened && nTries < LOCK_TRIES)
        {
            ++nTries;
            bOpened = LockTest.Try();
            if (LockTest.IsAbsent())
            {
                nTries = LOCK_TRIES;
                break;
            }
            g_fnTrackSleep(LOCK_WAIT);
        }
        if (nTries > LOCK_TRIES_UNLOGGED)
        {
            LogEscaped("\n>>>FileTracker: Trying to refresh [%s]( %d lock-test failed ).\n ", szPath,
                bOpened ? nTries : LOCK_TRIES + 1);
        }
        return bOpened;
    }

    // Calls the receivers for a changed file, unless it is ignored or WaitForWriters fails.
    void ReportChange(ChangedFile_c const & File)
    {
        if (!IsIgnored(File.GetBare()) && WaitForWriters(File.GetPath()))
        {
            g_FileTrackChangesCallbacker.Fire(File.GetBare(), true);
        }
    }

    void RequestBatch()
    {
        std::memset(g_dTrackBuffer, 0, sizeof g_dTrackBuffer);
        g_hTrackFolder.RequestBatch(g_dTrackBuffer, READ_BYTES);
    }

    // Scope of a walk. Its end requests the next batch, also after an exception, unless a receiver ended the watch.
    class NextBatch_c
    {
    public:
        ~NextBatch_c()
        {
            if (IsSameRun())
            {
                RequestBatch();
            }
        }

        bool IsSameRun() const { return m_iRun == g_iTrackRun; }

    private:
        unsigned const m_iRun = g_iTrackRun;
    };

    // Stores and logs the latest problem: what is not watched, or that changes were lost.
    template <typename... ARGS>
    void SetProblem(char const * szFormat, ARGS... Args)
    {
        std::snprintf(g_sTrackProblem.GetBuffer(), g_sTrackProblem.Capacity(), szFormat, Args...);
        LogEscaped("FileTrackChanges - %s", static_cast<char const *>(g_sTrackProblem));
    }

    // Reports that changes were lost: they did not fit the buffer, or the system had no room for them.
    ZQ_COLD void ReportLost()
    {
        SetProblem("changes below \"%s\" were lost: they need more than %zu bytes, or the system had no room for them",
            static_cast<char const *>(g_sTrackPath), READ_BYTES);
    }

    // Reports the files that a batch lists as modified, until a receiver ends the watch.
    ZQ_COLD void WalkBatch()
    {
        NextBatch_c const NextBatch;
        unsigned char const * pRecord = g_dTrackBuffer;
        plat::FolderChange_t Record;
        do
        {
            std::memcpy(&Record, pRecord, sizeof Record);
            if (Record.iAction == plat::FOLDER_CHANGE_MODIFIED)
            {
                ReportChange(ChangedFile_c(pRecord + sizeof Record, Record.nNameBytes));
            }
            else if (Record.iAction == 0)   // the buffer is as RequestBatch left it
            {
                ReportLost();
            }
            pRecord += Record.nNext;
        }
        while (Record.nNext != 0 && NextBatch.IsSameRun());
    }

    bool WriteBatch()
    {
        MemCategoryScope_c const Scope(mem::file);
        return g_hTrackFolder.WriteBatch();
    }

    String_T<256> WatchReason()
    {
        String_T<256> sReason;
        plat::FolderWatchReason(sReason.GetBuffer(), static_cast<std::size_t>(sReason.Capacity()));
        return sReason;
    }

    ZQ_COLD void ReportUnwatched(std::size_t nFolders)
    {
        SetProblem("%u new folders below \"%s\" can't be watched: %s", static_cast<unsigned>(nFolders),
            static_cast<char const *>(g_sTrackPath), WatchReason().CStr());
    }

    ZQ_COLD void ReportGone()
    {
        g_bTrackGone = true;
        SetProblem("\"%s\" is watched no longer: it was moved or deleted, or the system refused to watch it again",
            static_cast<char const *>(g_sTrackPath));
    }

    void StopTracking()
    {
        ++g_iTrackRun;
        g_sTrackProblem = "";
        g_bTrackGone = false;
        if (g_hTrackFolder.IsOpen())
        {
            FileCloseTracker(g_hTrackFolder.GetHandle());
            g_hTrackFolder.Close();
        }
    }

    // Adds a file of a known folder to the table, unless its name is in the table or a scan would skip it by another
    // rule than exclusions and the case of names.
    void RefreshFile(String_T<256> const & sFolder, plat::FolderEntry_t const & Entry)
    {
        bool const bDrive = Entry.szName[0] && Entry.szName[1] == ':';   // a lookup would treat it as a drive
        bool const bReadable = Entry.bReachable && Entry.Facts.bRegular && plat::IsUtf8(Entry.szName);
        if (!bReadable || bDrive || FileReplacement_c::IsBeside(Entry.szName))
        {
            return;
        }
        File_c::Key_t sKey;
        FoldText(sKey.GetBuffer(), Entry.szName, File_c::Key_t::Capacity() - 1);
        if (g_sFileObjects.FindByName(sKey))
        {
            return;
        }
        File_c * const pFile = ZQ_NEW FileOnDisk_c;
        pFile->pPath = &sFolder;
        pFile->sName = sKey;
        if (g_sFileObjects.Add(pFile, &pFile->sName) != HASH_ADDED)
        {
            FileDiscard(pFile);
        }
    }
}

void FileTrackChanges(char const * sPath)
{
    ZQ_ASSERT(sPath);
    MemCategoryScope_c const Scope(mem::file);
    StopTracking();
    g_sTrackPath = sPath;
    bool const bFits = sPath && g_sTrackPath == sPath;
    errno = bFits ? 0 : ENAMETOOLONG;
    bool const bOpened = bFits && g_hTrackFolder.Open(sPath, FileExists);
    if (!bOpened)
    {
        SetProblem("\"%s\" can't be watched: %s", static_cast<char const *>(g_sTrackPath), WatchReason().CStr());
    }
    FileOpenTracker(g_hTrackFolder.GetHandle(), sPath);
    if (!bOpened)
    {
        LogEscaped("FileTrackChanges - Can't open directory \"%s\" handle... \n", sPath ? sPath : "");
        return;
    }
    RequestBatch();
}

bool FileTrackIsOn()
{
    return g_hTrackFolder.IsOpen();
}

String_T<1024> FileTrackGetProblem()
{
    return g_sTrackProblem;
}

void FileTrackSetIgnoreExtList(char const * sList)
{
    MemCategoryScope_c const Scope(mem::file);
    String_T<256> sText;
    sText = sList;
    g_dTrackIgnoreExts.Reset();
    Tokenize(sText, g_dTrackIgnoreExts, ' ');
}

void FileTrackDoWork()
{
    if (!g_hTrackFolder.IsOpen() || g_bTrackWalking)
    {
        return;
    }
    ProfilerHostScope_c const Timer(ZQ_TIMER_FILETRACKER, "ZQ_TIMER_FILETRACKER");
    if (WriteBatch())
    {
        ValueScope_T const Walking(g_bTrackWalking, true);
        WalkBatch();
    }
    if (std::size_t const nUnwatched = g_hTrackFolder.ExtractUnwatched())
    {
        ReportUnwatched(nUnwatched);
    }
    if (g_hTrackFolder.IsGone() && !g_bTrackGone)
    {
        ReportGone();
    }
}

void FileTrackShutdown()
{
    StopTracking();
    g_dTrackIgnoreExts.Reset();
}

void FileRefresh()
{
    MemCategoryScope_c const Scope(mem::file);
    for (PathTable_t::Slot_s * pSlot = g_sPaths.First(); pSlot; pSlot = g_sPaths.Next(pSlot))
    {
        plat::FolderListing_c Listing;
        bool const bCurrent = pSlot->pObject->IsEmpty();   // the folder of a bare name
        if (!Listing.Read(bCurrent ? "." : *pSlot->pObject))
        {
            continue;
        }
        for (std::size_t i = 0; i < Listing.GetCount(); ++i)
        {
            RefreshFile(*pSlot->pObject, Listing.GetEntry(i));
        }
    }
}
