#include "zqcore/cfile.h"

#include "zqcore/ccallback_internal.h"
#include "zqcore/cdebug_internal.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cfilereplace_internal.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/ctexterror.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>

bool g_bFileReadDisabled = false;

namespace
{
    std::atomic<bool> g_bEmptyAllowed{ false };

    // Untracks a file, then closes it: another thread may get the same handle number as soon as this one is closed.
    void CloseTracked(plat::File_t hFile)
    {
        FileCloseTracker(hFile);
        plat::FileClose(hFile);
    }

    // An open file. The end of its scope closes it, even if an exception of a host's receiver ends the scope.
    class Tracked_c
    {
    public:
        explicit Tracked_c(plat::File_t hFile)
            : m_hFile(hFile)
        {}
        ~Tracked_c() { Close(); }
        Tracked_c(Tracked_c const &) = delete;
        Tracked_c & operator=(Tracked_c const &) = delete;

        plat::File_t Get() const { return m_hFile; }
        plat::File_t Release() { return std::exchange(m_hFile, nullptr); }
        void Close()
        {
            if (m_hFile)
            {
                CloseTracked(Release());
            }
        }

    private:
        plat::File_t m_hFile;
    };

    using Reason_t = FileReplacement_c::Reason_t;

    // Opens a file for reading, stores its facts, tracks its handle and returns it. Fires g_FileOpenCallbacker while
    // opens are collected, also after a failure. On failure returns null and stores the system's reason in sReason.
    // FileOpenTracker then complains, unless it excepts the name.
    plat::File_t OpenTracked(
        char const * szLocation, plat::Share_e eShare, plat::FileFacts_t & Facts, Reason_t & sReason)
    {
        Tracked_c File(plat::FileOpenRead(szLocation, eShare, &Facts));
        if (!File.Get())
        {
            sReason = LastErrorReason();
        }
        FileOpenTracker(File.Get(), szLocation);
        if (FileIsCollecting())
        {
            FireIfGranted(g_FileOpenCallbacker, szLocation);
        }
        return File.Release();
    }

    // Stores size and times. Other threads read the length without the file's lock.
    void StoreFactsOf(File_c & File, plat::FileFacts_t const & Facts)
    {
        int const iLength = static_cast<int>(static_cast<std::uint32_t>(Facts.nSize));
        std::atomic_ref(File.iLength).store(iLength, std::memory_order_relaxed);
        File.ftCreationTime = Facts.tCreation;
        File.ftLastWriteTime = Facts.tLastWrite;
    }

    constexpr char GROWN[] = "it has grown since its buffer was allocated";

    // Returns whether a file has 2 GiB or more. Logs a line if so.
    bool IsTooLarge(plat::FileFacts_t const & Facts, char const * szWho, char const * szLocation)
    {
        if (Facts.nSize > INT_MAX)
        {
            LogEscaped("%s: File has 2 GiB or more: '%s'", szWho, szLocation);
            return true;
        }
        return false;
    }

    // Reads as plat::FileRead does. If it reads less than nBytes, stores the reason.
    std::size_t ReadOrSayWhy(plat::File_t hFile, void * pBuffer, std::size_t nBytes, Reason_t & sReason)
    {
        errno = 0;
        std::size_t const nRead = plat::FileRead(hFile, pBuffer, nBytes);
        if (nRead != nBytes)
        {
            sReason = errno ? LastErrorReason() : Reason_t(FILE_ENDS_EARLY);
        }
        return nRead;
    }

    // Scope outside of a lock: leaves it, and enters it again at the end.
    class UnlockScope_c
    {
    public:
        explicit UnlockScope_c(plat::Lock_c & Lock)
            : m_Lock(Lock)
        {
            m_Lock.Leave();
        }
        ~UnlockScope_c() { m_Lock.Enter(); }
        UnlockScope_c(UnlockScope_c const &) = delete;
        UnlockScope_c & operator=(UnlockScope_c const &) = delete;

    private:
        plat::Lock_c & m_Lock;
    };

    // Logs that a file has more bytes than the buffer that was allocated for it.
    void LogGrown(int iRoom, int iLength, char const * szLocation)
    {
        LogEscaped("FileOnDisk_c::Open: File has grown from %i to %i bytes: '%s'", iRoom, iLength, szLocation);
    }

    // Returns a file by its bare name, or else by its whole name, as keys with a folder need. Asserts that there
    // is a name. Returns null if there is no such file.
    File_c * Find(char const * szName)
    {
        ZQ_ASSERT_TEXT(szName && szName[0], "!NameString.empty()");
        File_c * const pFile = FileStream(szName);
        return pFile ? pFile : g_sFileObjects.FindByName(FoldedPath_c(szName));
    }

    // Sets bOpened. Complains about a duplicate.
    void MarkOpened(File_c & File)
    {
        std::atomic_ref(File.bOpened).store(true, std::memory_order_relaxed);   // outside of the file's lock
        if (File.bDuplicate)
        {
            Achtung("Opened file '%s' is DUPLICATE, random bugs may occur. Fix your media.",
                TextForLog(File.GetFullPath()).GetBuffer());
        }
    }
}

FileLocation_c::FileLocation_c(File_c const & File)
{
    std::size_t const nFolder = File.pPath ? StrCopy(m_szText, *File.pPath, sizeof m_szText) : 0;
    char const * const szName = File.pPath ? PathFileName(File.sName) : static_cast<char const *>(File.sName);
    StrCopy(m_szText + nFolder, szName, sizeof m_szText - nFolder);
}

File_c::~File_c()
{
    FileForget(*this);
    SetWhyNot(nullptr);
    if (m_bStayer)
    {
        FileStayerForget(*this, true);
    }
}

String_T<256> File_c::GetFullPath() const
{
    return String_T<256>(FileLocation_c(*this));
}

char const * File_c::GetFileName() const
{
    return sRequestedName;
}

char const * File_c::GetExt() const
{
    char const * const szName = sName;
    char const * const pEnd = szName + sName.Length();
    for (char const * pDot = pEnd; pDot > szName; --pDot)
    {
        if (*pDot == '.')
        {
            return pDot + 1;
        }
    }
    return pEnd;
}

int File_c::RefOpen()
{
    plat::LockScope_c const Scope(m_Lock);
    if (!pData)
    {
        ZQ_ASSERT_TEXT(GetOpensCount() == 0 || m_bLost, "m_iOpensCount==0");
        if (!Open(nullptr))
        {
            if (!m_pWhyNot)
            {
                SetWhyNot(FILE_UNREADABLE);   // an Open of a library above stored no reason
            }
            return m_bLost ? 0 : GetOpensCount();
        }
        m_bLost = false;
    }
    return Count(1);
}

bool File_c::RefOpenAsync(void * pBuffer, int iRoom)
{
    plat::LockScope_c const Scope(m_Lock);
    if (pBuffer && pData && iLength > iRoom)
    {
        LogGrown(iRoom, iLength, FileLocation_c(*this));
        SetWhyNot(GROWN);
        return LogWhyNot();
    }
    int const iBefore = iLength;
    bool const bReads = pBuffer && !pData;
    m_bFactsStored = false;
    if (bReads)
    {
        std::atomic_ref(iLength).store(iRoom, std::memory_order_relaxed);   // Open compares it with the size on disk
    }
    m_bUnlocked = !plat::ThreadCanBeLifted();
    bool const bResident = Open(pBuffer);
    m_bUnlocked = false;
    if (bReads && !pData && !m_bFactsStored && *GetWhyNot() && iLength == iRoom)
    {
        std::atomic_ref(iLength).store(iBefore, std::memory_order_relaxed);
    }
    if (!bResident)
    {
        return LogWhyNot();
    }
    m_bLost = false;
    Count(1);
    return true;
}

void File_c::CountRead()
{
    std::atomic_ref(iReads).fetch_add(1, std::memory_order_relaxed);   // several threads may use streams of one file
}

void File_c::ReportOpen() const
{
    if (FileIsCollecting())
    {
        FireIfGranted(g_FileOpenCallbacker, GetFullPath());
    }
}

bool File_c::ReportReadError() const
{
    FireIfGranted(g_FileReadErrorCallbacker, sName);
    return false;
}

void File_c::ReportEmpty(char const * szLocation)
{
    if (g_bEmptyAllowed.load(std::memory_order_relaxed))
    {
        LogEscaped("File '%s' is empty!", szLocation);
        return;
    }
    ZQ_ASSERT_ESCAPED(false, "iLength>0", "File '%s' is empty!", szLocation);
}

bool File_c::TakeUnlocked()
{
    return std::exchange(m_bUnlocked, false);
}

void File_c::RenewLock()
{
    if (!m_Lock.IsFree())
    {
        m_Lock.RenewUnlessMine();
    }
}

int File_c::RefClose()
{
    plat::LockScope_c const Scope(m_Lock);
    if (pData || m_bLost)
    {
        Count(-1);
    }
    if (GetOpensCount() == 0)
    {
        m_bLost = false;
        Close();
    }
    return GetOpensCount();
}

void File_c::StoreStreamFacts(plat::FileFacts_t const & Facts)
{
    if (m_Lock.TryEnter())   // no wait: the thread that holds the lock may be reading the file
    {
        if (!pData)
        {
            StoreFactsOf(*this, Facts);
        }
        m_Lock.Leave();
    }
}

FileOnDisk_c::~FileOnDisk_c()
{
    if (pData)
    {
        FileOnDisk_c::Close();
    }
}

void FileOnDisk_c::Refresh()
{
    MemCategoryScope_c const Category(mem::file);
    plat::LockScope_c const Scope(GetLock());
    if (pData)
    {
        Close();
        if (!Open(nullptr) && GetOpensCount() > 0)
        {
            SetLost();
        }
    }
}

bool FileOnDisk_c::Open(void * pBuffer)
{
    MemCategoryScope_c const Category(mem::file);
    if (pData)
    {
        if (pBuffer)
        {
            std::memcpy(pBuffer, pData, static_cast<std::size_t>(iLength));
        }
        return true;
    }

    FileLocation_c const sLocation(*this);
    plat::FileFacts_t Facts;
    Reason_t sReason;
    Tracked_c File(OpenTracked(sLocation, plat::Share_e::ReadWrite, Facts, sReason));
    if (!File.Get())
    {
        LogEscaped("FileOnDisk_c::Open: Cannot open file: '%s'", static_cast<char const *>(sLocation));
        LogEscaped("FileOnDisk_c::Open: %s", static_cast<char const *>(sReason));
        return SetWhyNot(sReason);
    }
    SetWhyNot(nullptr);
    if (!StoreFacts(Facts, sLocation, !pBuffer))
    {
        return false;
    }
    if (iLength == 0)
    {
        ReportEmpty(sLocation);
    }
    return TakeUnlocked() ? ReadUnlocked(File.Release(), Facts, pBuffer, sLocation)
                          : Read(File.Release(), pBuffer, sLocation);
}

bool FileOnDisk_c::Read(plat::File_t hFile, void * pBuffer, char const * szLocation)
{
    Tracked_c File(hFile);
    auto const nBytes = static_cast<std::size_t>(iLength);
    plat::FileHintSequential(hFile, nBytes);
    unsigned char * const pBlock = pBuffer ? nullptr : ZQ_NEW unsigned char[nBytes];
    Reason_t sReason;
    std::size_t const nRead = ReadOrSayWhy(hFile, pBuffer ? pBuffer : pBlock, nBytes, sReason);
    File.Close();
    if (nRead != nBytes)
    {
        delete[] pBlock;
        return ReportFailedRead(szLocation, sReason);
    }
    pData = pBlock;
    CountRead();
    if (pData)
    {
        StayerDoWork();
    }
    return pData != nullptr;
}

// Reads without the file's lock, so that no thread waits for a worker whose priority can't be raised. Closes hFile.
// Returns what Open returns. If another thread reads the file meanwhile, that thread's block stays. If the worker must
// stop, ends the read, stores the reason and returns false.
ZQ_COLD bool FileOnDisk_c::ReadUnlocked(
    plat::File_t hFile, plat::FileFacts_t const & Facts, void * pBuffer, char const * szLocation)
{
    constexpr std::size_t SLICE = 256 * 1024;   // bytes read between two checks of the stop flag
    Tracked_c File(hFile);
    auto const nBytes = static_cast<std::size_t>(Facts.nSize);
    std::unique_ptr<unsigned char[]> pBlock;
    std::size_t nRead = 0;
    Reason_t sReason;
    {
        UnlockScope_c const Scope(GetLock());
        pBlock.reset(pBuffer ? nullptr : ZQ_NEW unsigned char[nBytes]);
        char * const pTo = static_cast<char *>(pBuffer ? pBuffer : pBlock.get());
        std::size_t nSlice = SLICE;
        while (nSlice == SLICE && nRead < nBytes && !FileAsyncIsStopping())
        {
            nSlice = ReadOrSayWhy(hFile, pTo + nRead, std::min(SLICE, nBytes - nRead), sReason);
            nRead += nSlice;
        }
        File.Close();
    }
    if (nRead != nBytes)
    {
        return FileAsyncIsStopping() ? SetWhyNot("the module was shut down") : ReportFailedRead(szLocation, sReason);
    }
    CountRead();
    if (!pBlock || pData)
    {
        return pBlock != nullptr;
    }
    StoreFactsOf(*this, Facts);   // other threads may have stored another size meanwhile
    pData = pBlock.release();
    StayerDoWork();
    return true;
}

// Stores size and times of the open file. Returns false, with a log line, if the file can't be read whole.
bool FileOnDisk_c::StoreFacts(plat::FileFacts_t const & Facts, char const * szLocation, bool bOwnBlock)
{
    int const iRoom = iLength;
    StoreFactsOf(*this, Facts);
    NoteFacts();
    if (IsTooLarge(Facts, "FileOnDisk_c::Open", szLocation))
    {
        return SetWhyNot(FILE_TOO_LARGE);
    }
    if (!bOwnBlock && iLength > iRoom)
    {
        LogGrown(iRoom, iLength, szLocation);
        return ReportFailedRead(szLocation, GROWN);
    }
    return true;
}

bool FileOnDisk_c::ReportFailedRead(char const * szLocation, char const * szReason)
{
    SetWhyNot(szReason);
    LogEscaped("FileOnDisk_c::Open: Error reading file: '%s'", szLocation);
    return ReportReadError();
}

ZQ_COLD bool FileOnDisk_c::ReportFailedLoadOpen(char const * szLocation, char const * szReason)
{
    LogEscaped("FileOnDisk_c::Load: Cannot open file: '%s'", szLocation);
    LogEscaped("FileOnDisk_c::Load: %s", szReason);
    SetWhyNot(szReason);
    return LogWhyNot();
}

// Closes the file after a seek that failed, and reports the failure. Returns false.
ZQ_COLD bool FileOnDisk_c::ReportFailedSeek(plat::File_t hFile, char const * szLocation)
{
    SetWhyNot(LastErrorReason());
    CloseTracked(hFile);
    ReportReadError();
    LogEscaped("FileOnDisk_c::Load: Error reading file: '%s' - SetFilePointer", szLocation);
    return LogWhyNot();
}

bool FileOnDisk_c::Load(std::uint32_t dwPosition, unsigned char * pBuffer, std::uint32_t & dwLength)
{
    MemCategoryScope_c const Category(mem::file);
    if (dwLength == 0)
    {
        return true;
    }
    ZQ_ASSERT_TEXT(dwPosition < static_cast<std::uint32_t>(FileLength(*this)), "dwPosition<(DWORD)iLength");

    FileLocation_c const sLocation(*this);
    plat::FileFacts_t Facts;
    Reason_t sReason;
    plat::File_t const hFile = OpenTracked(sLocation, plat::Share_e::ReadWrite, Facts, sReason);
    if (!hFile)
    {
        return ReportFailedLoadOpen(sLocation, sReason);
    }
    if (plat::FileSeek(hFile, dwPosition, 0) < 0)
    {
        return ReportFailedSeek(hFile, sLocation);
    }
    plat::FileHintSequential(hFile, dwLength);
    std::size_t const nRead = ReadOrSayWhy(hFile, pBuffer, dwLength, sReason);
    CloseTracked(hFile);
    SetWhyNot(nRead == dwLength ? nullptr : static_cast<char const *>(sReason));
    if (nRead == dwLength)
    {
        return true;
    }
    LogEscaped("FileOnDisk_c::Load: Error reading file: '%s'", static_cast<char const *>(sLocation));
    ReportReadError();
    dwLength = static_cast<std::uint32_t>(nRead);
    return LogWhyNot();
}

void FileOnDisk_c::Close()
{
    MemCategoryScope_c const Category(mem::file);
    delete[] std::exchange(pData, nullptr);
}

FileStored_c * FileOnDisk_c::OpenStored()
{
    MemCategoryScope_c const Category(mem::file);
    std::unique_ptr<FileStored_c> pStored(ZQ_NEW FileStored_c(this));
    return pStored->OpenStored() ? pStored.release() : nullptr;
}

FileStored_c::FileStored_c(File_c * pFile)
    : m_pFile(pFile)
    , m_iLength(pFile ? FileLength(*pFile) : 0)
{
    ZQ_ASSERT(pFile);
}

FileStored_c::~FileStored_c()
{
    ZQ_ASSERT(!m_hFile);
    CloseHandle();
}

bool FileStored_c::OpenStored()
{
    ZQ_ASSERT_TEXT(!g_bFileReadDisabled, "! g_bFileReadDisabled");
    ZQ_ASSERT(m_pFile && !m_hFile);
    if (!m_pFile || m_hFile)
    {
        return m_hFile != nullptr;
    }
    FileLocation_c const sLocation(*m_pFile);
    plat::FileFacts_t Facts;
    Reason_t sReason;
    m_hFile = OpenTracked(sLocation, plat::Share_e::Read, Facts, sReason);
    if (m_hFile && IsTooLarge(Facts, "FileStored_c::OpenStored", sLocation))
    {
        CloseHandle();
        sReason = FILE_TOO_LARGE;
    }
    m_pFile->SetWhyNot(m_hFile ? nullptr : static_cast<char const *>(sReason));
    if (!m_hFile)
    {
        return m_pFile->ReportReadError();
    }
    plat::FileHintSequential(m_hFile, Facts.nSize);
    m_iLength = static_cast<int>(Facts.nSize);
    m_pFile->StoreStreamFacts(Facts);
    m_pFile->CountRead();
    return true;
}

int FileStored_c::SeekStored(long iOffset, int iOrigin)
{
    ZQ_ASSERT(m_hFile);
    if (!m_hFile || iOffset < INT_MIN || iOffset > INT_MAX)
    {
        return 0;
    }
    // A position above INT_MAX is out of the range of TellStored if long has 32 bits. The end can lie there, because
    // the file may have grown since it was opened.
    std::int64_t const iBefore = iOrigin == 2 ? plat::FileSeek(m_hFile, 0, 1) : 0;
    std::int64_t const iAfter = plat::FileSeek(m_hFile, iOffset, iOrigin);
    if (iAfter > INT_MAX)
    {
        plat::FileSeek(m_hFile, iOrigin == 1 ? iAfter - iOffset : iBefore, 0);
    }
    return iAfter >= 0 && iAfter <= INT_MAX ? 1 : 0;
}

long FileStored_c::TellStored()
{
    ZQ_ASSERT(m_hFile);
    return m_hFile ? static_cast<long>(plat::FileSeek(m_hFile, 0, 1)) : 0;
}

unsigned int FileStored_c::ReadStored(void * pBuffer, unsigned int iSize, unsigned int iCount)
{
    ZQ_ASSERT(m_hFile);
    std::uint64_t const nRequested = std::uint64_t{ iSize } * iCount;
    // Only a file that has grown since it was opened has more bytes. Further calls read them.
    auto const nBytes = static_cast<std::size_t>(std::min<std::uint64_t>(nRequested, INT_MAX));
    errno = 0;
    std::size_t const nRead = m_hFile ? plat::FileRead(m_hFile, pBuffer, nBytes) : 0;
    if (nRead == nBytes || errno == 0)
    {
        return static_cast<unsigned int>(nRead);
    }
    plat::FileSeek(m_hFile, -static_cast<std::int64_t>(nRead), 1);   // the system failed after a part
    return 0;
}

void FileStored_c::CloseStored()
{
    if (m_hFile)
    {
        CloseHandle();
        if (m_pFile)
        {
            m_pFile->CountRead();
        }
    }
    delete this;
}

void FileStored_c::CloseHandle()
{
    if (m_hFile)
    {
        CloseTracked(m_hFile);
        m_hFile = nullptr;
    }
}

bool FileStored_c::IsEof()
{
    ZQ_ASSERT(m_pFile);
    return !m_pFile || TellStored() >= m_iLength;
}

unsigned int FileStored_c::FileSize() const
{
    ZQ_ASSERT(m_pFile);
    return static_cast<unsigned int>(m_iLength);
}

File_c * FileOpenUnlogged(char const * szName)
{
    MemCategoryScope_c const Category(mem::file);
    File_c * const pFile = Find(szName);
    if (!pFile)
    {
        return nullptr;
    }
    pFile->sRequestedName = szName;
    if (pFile->RefOpen() == 0)
    {
        LogEscaped("CAN'T OPEN FILE %s", szName);
        return nullptr;
    }
    MarkOpened(*pFile);
    return pFile;
}

File_c * FileOpen(char const * name)
{
    File_c * const pFile = FileOpenUnlogged(name);
    if (!pFile && TextErrors_c::IsWanted())
    {
        FileLogWhyNot(name, FileGetWhyNot(name));
    }
    return pFile;
}

bool FileOpen(File_c * pFile)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(pFile);
    bool const bOpen = pFile && pFile->RefOpen() != 0;
    ZQ_ASSERT(!pFile || !pFile->sName.IsEmpty());
    if (bOpen)
    {
        MarkOpened(*pFile);
        return true;
    }
    return pFile && pFile->LogWhyNot();
}

void FileClose(File_c * pFile)
{
    MemCategoryScope_c const Category(mem::file);
    if (pFile)
    {
        int const iRefCount = pFile->RefClose();
        ZQ_ASSERT_TEXT(iRefCount >= 0, "iRefCount>=0");
    }
}

namespace
{
    // Returns whether the table has this file, although a search for its name finds another file of that name first.
    ZQ_COLD bool IsRegisteredTwin(File_c const & File)
    {
        auto * pSlot = g_sFileObjects.First();
        while (pSlot && !(pSlot->pObject == &File && *pSlot->pName == File.sName))
        {
            pSlot = g_sFileObjects.Next(pSlot);
        }
        return pSlot != nullptr;
    }
}

void FileKill(File_c * pFile)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(pFile);
    if (!pFile)
    {
        return;
    }
    ZQ_ASSERT_TEXT(pFile->GetOpensCount() == 0, "pFile->m_iOpensCount==0");
    File_c const * const pFound = g_sFileObjects.FindByName(pFile->sName);
    bool const bRegistered = pFound == pFile || (pFound && IsRegisteredTwin(*pFile));
    ZQ_ASSERT_TEXT(bRegistered, "g_sFileObjects.DeleteByName(pFile->sName)");
    delete pFile;   // its destructor removes it from the table
}

// Lookups allocate nothing, so they select no category.

File_c * FileStream(char const * name)
{
    FoldedName_c const sName(name);
    return g_sFileObjects.FindByName(sName.GetText(), sName.GetLength());
}

bool FileExists(char const * name)
{
    return FileStream(name) != nullptr;
}

String_T<256> const * FileGetPath(char const * name)
{
    File_c const * const pFile = g_sFileObjects.FindByName(File_c::Key_t(FoldedPath_c(name)));
    return pFile ? pFile->pPath : nullptr;
}

FileStored_c * FileOpenStored(char const * name)
{
    MemCategoryScope_c const Category(mem::file);
    File_c * const pFile = Find(name);
    if (pFile)
    {
        MarkOpened(*pFile);
    }
    FileStored_c * const pStored = pFile ? pFile->OpenStored() : nullptr;
    if (!pStored && TextErrors_c::IsWanted())
    {
        FileLogWhyNot(name, FileGetWhyNot(name));
    }
    return pStored;
}

void FileSetEmptyAllowed(bool bAllowed)
{
    g_bEmptyAllowed.store(bAllowed, std::memory_order_relaxed);
}

bool DirectoryExists(char const * path)
{
    plat::FileFacts_t Facts;
    return path && plat::PathGetFacts(path, Facts) && Facts.bFolder;
}
