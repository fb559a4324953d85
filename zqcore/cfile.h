// cfile.h: files by name, read whole and shared.
//
// Every file that can be read by name is one long-lived File_c. A scan of the media folders registers it (cfilepath.h).
// The first FileOpen reads the whole file into one block. Later ones raise a count. The last FileClose frees the block.
// All readers share the block. Load and FileStored_c read from the disk and do not use the block. Case does not matter
// in names. Both `/` and `\` separate the parts of a name. Lookups ignore a folder before a known bare name.
//
// Ownership: the table of files owns the objects. The contents are valid until the caller's FileClose, or until a
// Refresh replaces them. A stream belongs to the caller of FileOpenStored. A File_c * is valid until one of these:
// - FileKill, FileResetFiles or FileReset.
// - the module's shutdown.
// Threads: the table of files belongs to the main thread. A lock of each file guards its block and count, so a file
// that was found may be opened and closed on any thread. g_FileOpenCallbacker and g_FileReadErrorCallbacker fire on the
// thread that reads, the worker of cfileasync.h included. If the whole file is read, they fire inside the file's lock.
// One thread at a time runs receivers of these lists and of complaints (cdebug.h). A receiver may log, store data and
// complain. Requires that it opens no file that another thread may be opening.
// Cost: a lookup searches a hash table by the bare name, and a second time by the whole name if that is unknown. It
// does not read the disk. The first FileOpen allocates a block of the file's size and reads the file at once.
// Failure: null or false. Opening a file of 2 GiB or more fails with a log line. Its iLength is the low 32 bits of its
// size. Unknown names are not logged. FileGetWhyNot and File_c::GetWhyNot return the reason of a failure. After
// SetTextErrorLog(true) (ctexterror.h) each failed open or Load, but no failed OpenStored, is also logged as "%s: %s"
// with the reason after the caller's name, or after the full path if the caller passed an object. FileAddOneFile logs
// the bare name. These are an Achtung (cdebug.h) too:
// - a file, known or of FileAddOneFile, that the system does not open, except packs and names in ".bin"
//   (FileOpenTracker, cfilelog.h).
// - a duplicate (bDuplicate) that FileOpen opens or FileOpenStored finds.
//
//     if (FileReference_c const File("levels.csv"); File)
//     {
//         Log("%s has %i bytes", File->GetFileName(), File->iLength);   // the bytes are at File->pData
//     }
//     else
//     {
//         Log("levels.csv: %s", FileGetWhyNot("levels.csv"));
//     }
#pragma once

#include "zqcore/cstring.h"

#include "platform/files.h"
#include "platform/threads.h"

#include <atomic>
#include <utility>

class FileStored_c;

/// One file. A library above may derive kinds of its own and add their objects to g_sFileObjects.
class ZQ_API File_c
{
public:
    /// Type of the keys of g_sFileObjects.
    using Key_t = String_T<128>;

    /// Type of reasons: one statement in English, or a text of the system. It is empty without a failure.
    using Reason_t = String_T<128>;

    File_c(File_c const &) = delete;
    File_c & operator=(File_c const &) = delete;

    /// Reads the contents again if they are resident. Requires that no thread is reading the old block, and that
    /// holders check pData afterwards and still call FileClose. On failure pData is null and the references stay. The
    /// next FileOpen reads the disk again.
    virtual void Refresh() = 0;

    /// Returns the location on disk, cut at 255 characters: the folder and the last component of the key, or the key
    /// alone for a file without a folder.
    virtual String_T<256> GetFullPath() const;

    /// Reads dwLength bytes from the byte dwPosition of the file on disk to pBuffer and returns true. Returns true at
    /// once if dwLength is 0. Otherwise asserts that dwPosition is below iLength. Returns false in these cases:
    /// - the file can't be opened, or the position can't be set.
    /// - reading fails, or the file has fewer bytes there. dwLength is then the number of bytes that were read.
    ///
    /// Any thread may call it. Enters no lock of the file.
    virtual bool Load(std::uint32_t dwPosition, unsigned char * pBuffer, std::uint32_t & dwLength) = 0;

    /// Returns the name as the last caller of FileOpen by name spelled it, cut at 255 characters. It is empty until the
    /// first one.
    virtual char const * GetFileName() const;

    /// Opens a stream on this file and returns it. Returns null if the file can't be opened. CloseStored destroys the
    /// stream.
    virtual FileStored_c * OpenStored() = 0;

    /// Removes the object from g_sFileObjects, unless its key is empty. Another object of its key stays.
    virtual ~File_c();

    /// Reads the whole file: into its own block if pBuffer is null, else into pBuffer. Adds no reference, except for a
    /// stayer (StayerDoWork). Returns whether the own block is resident. Requires that pBuffer, if not null, has room
    /// for iLength bytes. FileOpen calls Open inside the file's lock. Open reads outside of the lock if TakeUnlocked
    /// returns true. With pBuffer:
    /// - Copies a resident block to it and returns true.
    /// - Reads a file that is not resident into it from the disk and returns false. If GetWhyNot is empty, the bytes
    ///   are there.
    /// - Reads nothing of a file that has become larger than pBuffer and returns false. iLength is then its new size.
    virtual bool Open(void * pBuffer) = 0;

    /// Frees the block. The count stays. Enters no lock itself: FileClose calls it inside the file's lock.
    virtual void Close() = 0;

    /// Returns the part of the key after its last dot, or an empty text if there is none. A dot that begins the key
    /// does not count.
    char const * GetExt() const;

    /// Returns why the last read of the disk failed: Open, Load or the opening of a stream. Returns an empty text if it
    /// did not. Any thread may call it.
    Reason_t GetWhyNot() const;

    /// Returns the number of references to the block. Any thread may call it.
    int GetOpensCount() const { return m_iOpensCount.load(std::memory_order_relaxed); }

    /// Returns the number of blocks that Open has read, modulo 2^32. A Refresh may place the new block where the old
    /// one was, but changes this number. Any thread may call it.
    std::uint32_t GetBlockCount() const { return m_nBlocks.load(std::memory_order_relaxed); }

    /// Counts a block, and adds the file to the list of stayers (cfileasync.h) if its extension is registered there.
    /// The list holds a reference, so the block stays. Open calls it after it has read the own block. Any thread may
    /// call it.
    void StayerDoWork();

    unsigned char * pData = nullptr;         // contents while resident, without a terminator; owned
    int iLength = 0;                         // bytes: low 32 bits of the file's size when it was last seen
    Key_t sName;                             // key in g_sFileObjects, lower case
    String_T<256> const * pPath = nullptr;   // folder, an entry of g_sPaths; null if sName alone is the location
    plat::FileTime_t ftCreationTime = 0;     // 100-nanosecond ticks since 1601-01-01 UTC
    bool bOpened = false;                    // whether FileOpen ever opened or FileOpenStored ever found it
    bool bDuplicate = false;                 // whether another file of this key was found and not registered
    plat::FileTime_t ftLastWriteTime = 0;    // ticks as in ftCreationTime; 0 before the first open, unless from a scan
    int iReads = 0;                          // reads of the whole file, and two for each stream; Load adds none
    String_T<256> sRequestedName;            // result of GetFileName

protected:
    File_c() = default;

    /// Returns the lock of pData and the count. It is re-entrant. The locks of lists and logs are entered inside
    /// it, never around it.
    plat::Lock_c & GetLock() { return m_Lock; }

    /// Stores a text for GetWhyNot, cut to fit, or removes it if szReason is null. Returns false. Allocates for each
    /// reason. Any thread may call it.
    bool SetWhyNot(char const * szReason);

    /// Logs the full path and the reason if SetTextErrorLog is on and there is a reason. Returns false. Any thread may
    /// call it.
    bool LogWhyNot() const;

    /// Adds one to iReads. Any thread may call it.
    void CountRead();

    /// Fires g_FileOpenCallbacker with GetFullPath, not forced, if g_bCollectResource is set. Open, Load and OpenStored
    /// of a library above call it after they have tried to open what they read.
    void ReportOpen() const;

    /// Fires g_FileReadErrorCallbacker with the key, not forced. Returns false.
    bool ReportReadError() const;

    /// Reports an empty file: asserts, or logs if FileSetEmptyAllowed allows it.
    static void ReportEmpty(char const * szLocation);

    /// Stores that a refresh freed the block although there are references to it.
    void SetLost() { m_bLost = true; }

    /// Returns whether Open must leave the lock while it reads, and clears the flag that says so. Open calls it once.
    bool TakeUnlocked();

    /// Stores that Open has set size and times to those of the open file. A failed asynchronous request leaves them
    /// then.
    void NoteFacts() { m_bFactsStored = true; }

private:
    friend File_c * FileOpenUnlogged(char const * szName);
    friend ZQ_API bool FileOpen(File_c * pFile);
    friend ZQ_API void FileClose(File_c * pFile);
    friend ZQ_API bool FileAddOneFile(char const * sFile);
    friend ZQ_API void FileLogLoadedMedia();
    friend void FileRenewLocks();
    friend class FileHiding_c;
    friend class FileRequests_c;
    friend class FileStored_c;

    /// Sets size and times from a stream. Does nothing while the file is resident, because size and times then describe
    /// the block, or while another thread holds the lock.
    void StoreStreamFacts(plat::FileFacts_t const & Facts);

    /// Add and remove a reference. Return the new count. RefOpen returns 0 if the file can't be read.
    int RefOpen();
    int RefClose();

    /// Opens the file for an asynchronous request and returns the result of Open. Adds a reference if Open returns
    /// true. Requires that pBuffer, if not null, has room for iRoom bytes. Returns false without an open if the
    /// resident contents do not fit. Logs as LogWhyNot if the result is false.
    bool RefOpenAsync(void * pBuffer, int iRoom);

    /// Adds nReferences to the count. Returns the new count. Requires the lock.
    int Count(int nReferences)
    {
        int const iCount = GetOpensCount() + nReferences;
        m_iOpensCount.store(iCount, std::memory_order_relaxed);
        return iCount;
    }

    /// Releases the lock if it belongs to a thread that the fork did not copy. A forked child calls it.
    void RenewLock();

    std::atomic<int> m_iOpensCount = 0;   // references to the block; changed under the lock
    plat::Lock_c m_Lock;
    std::atomic<Reason_t *> m_pWhyNot = nullptr;   // reason for GetWhyNot, owned; null without one
    File_c * m_pHidden = nullptr;                  // object of the same key that this one hides
    std::atomic<std::uint32_t> m_nBlocks = 0;      // result of GetBlockCount
    bool m_bLost = false;                          // whether a refresh freed the block despite references
    bool m_bFactsStored = false;                   // whether NoteFacts was called since the latest request began
    bool m_bStayer = false;                        // whether it was added to the list of stayers
    bool m_bUnlocked = false;                      // whether Open must leave the lock while it reads
};

/// A file in a folder. Requires that objects are made and destroyed on the main thread. They are allocated from a pool.
/// Each growth of the pool is counted as a whole under the memory category of that moment.
class ZQ_API FileOnDisk_c : public File_c
{
public:
    FileOnDisk_c() = default;
    ~FileOnDisk_c() override;

    /// Allocate and free the storage of an object: in the pool, or in the heap if a derived class has another size.
    static void * operator new(std::size_t nBytes);
    static void * operator new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine) noexcept;
    static void operator delete(void * pObject, std::size_t nBytes);
    static void operator delete(void * pObject, int iBlockType, char const * sFile, int iLine) noexcept;

    void Refresh() override;
    bool Load(std::uint32_t dwPosition, unsigned char * pBuffer, std::uint32_t & dwLength) override;
    FileStored_c * OpenStored() override;
    bool Open(void * pBuffer) override;
    void Close() override;

private:
    bool StoreFacts(plat::FileFacts_t const & Facts, char const * szLocation, bool bOwnBlock);
    bool ReportFailedRead(char const * szLocation, char const * szReason);
    bool ReportFailedLoadOpen(char const * szLocation, char const * szReason);
    bool ReportFailedSeek(plat::File_t hFile, char const * szLocation);
    bool Read(plat::File_t hFile, void * pBuffer, char const * szLocation);
    bool ReadUnlocked(plat::File_t hFile, plat::FileFacts_t const & Facts, void * pBuffer, char const * szLocation);
};

/// A stream on one file. SeekStored, TellStored, ReadStored and IsEof assert that the stream is open. Each makes at
/// least one system call, so reads of some kilobytes are cheaper than small ones. FileOpenStored makes the stream, and
/// CloseStored destroys it. One thread at a time may use it.
class ZQ_API FileStored_c
{
public:
    /// Makes a closed stream. Asserts that pFile is not null. Requires that the file outlives the stream.
    explicit FileStored_c(File_c * pFile);
    FileStored_c(FileStored_c const &) = delete;
    FileStored_c & operator=(FileStored_c const &) = delete;

    /// Asserts that the stream is closed, and closes an open one.
    virtual ~FileStored_c();

    /// Moves the position to iOffset bytes from iOrigin: 1 for the current position, 2 for the end, anything else for
    /// the start. Returns 1. Returns 0 without a move in these cases:
    /// - the stream is closed.
    /// - iOffset is outside INT_MIN to INT_MAX, or the new position would be outside 0 to INT_MAX.
    /// - the system refuses.
    virtual int SeekStored(long iOffset, int iOrigin);

    /// Returns the current position in bytes. Returns 0 if the stream is closed.
    virtual long TellStored();

    /// Reads up to iSize * iCount bytes, at most INT_MAX, to pBuffer. Returns the number of bytes that were read: fewer
    /// at the end of the file, 0 if the stream is closed. On failure returns 0, and the position stays.
    virtual unsigned int ReadStored(void * pBuffer, unsigned int iSize, unsigned int iCount);

    /// Opens the file and returns true. Stores the current size and times in the file object, unless it is resident or
    /// another thread holds its lock. Asserts that g_bFileReadDisabled is not set, and that the stream is closed: an
    /// open one stays as it is. Fails if the file is open for writing (plat::Share_e) or has 2 GiB or more. On
    /// failure fires g_FileReadErrorCallbacker and returns false.
    virtual bool OpenStored();

    /// Closes the stream, if it is open, and destroys this object.
    virtual void CloseStored();

    /// Returns whether the position is at FileSize or after it. A file that has grown since the stream was opened
    /// has more to read.
    bool IsEof();

    /// Returns the size in bytes that the file had when the stream was opened. Before that, returns File_c::iLength as
    /// of the constructor.
    unsigned int FileSize() const;

private:
    void CloseHandle();

    plat::File_t m_hFile = nullptr;
    File_c * m_pFile;
    int m_iLength;   // result of FileSize
};

/// Whether opening a stream asserts. If the developer continues, the stream opens. It is false at start. The
/// application sets it.
extern ZQ_API bool g_bFileReadDisabled;

/// Finds a file by its bare name, or else by the whole name, adds a reference to its contents and returns it. Asserts
/// that the name is not empty. An empty file asserts, unless FileSetEmptyAllowed allows it, and opens with a length of
/// 0. On failure returns null. Logs lines if the file can't be read, but none for an unknown name, unless
/// SetTextErrorLog is on.
ZQ_API File_c * FileOpen(char const * name);

/// Adds a reference to the contents of a known file and returns true. Asserts that pFile is not null and has a key. On
/// failure returns false.
ZQ_API bool FileOpen(File_c * pFile);

/// Returns why FileOpen, FileOpenStored or FileAddOneFile failed for this name: File_c::GetWhyNot of a known file. For
/// an unknown name returns why FileAddOneFile failed if its last failure had this bare name. Otherwise says that there
/// is no such file, that a scan could not see all folders, or that the table of files had no room for some. Only the
/// main thread may call it.
ZQ_API File_c::Reason_t FileGetWhyNot(char const * name);

/// Removes one reference. Frees the contents with the last one. Null does nothing. Asserts that a resident file has a
/// reference.
ZQ_API void FileClose(File_c * pFile);

/// Reference to the contents of a file: calls FileOpen, and FileClose at its end. It may be moved, and may be of no
/// file.
class FileReference_c
{
public:
    FileReference_c() = default;

    /// Add a reference. If FileOpen fails, or pFile is null, the reference is of no file.
    explicit FileReference_c(char const * szName)
        : m_pFile(FileOpen(szName))
    {}
    explicit FileReference_c(File_c * pFile)
        : m_pFile(pFile && FileOpen(pFile) ? pFile : nullptr)
    {}
    ~FileReference_c() { FileClose(m_pFile); }
    FileReference_c(FileReference_c && Other) noexcept
        : m_pFile(std::exchange(Other.m_pFile, nullptr))
    {}
    FileReference_c & operator=(FileReference_c && Other) noexcept
    {
        FileReference_c Moved(std::move(Other));
        std::swap(m_pFile, Moved.m_pFile);
        return *this;
    }

    /// Return the file, or null, and whether there is one.
    File_c * Get() const { return m_pFile; }
    explicit operator bool() const { return m_pFile != nullptr; }

    /// Return the file. Require that there is one.
    File_c * operator->() const { return m_pFile; }
    File_c & operator*() const { return *m_pFile; }

private:
    File_c * m_pFile = nullptr;
};

/// Removes an object from the table and destroys it. Asserts that it has no references and that it is in the table. If
/// the developer continues, it is destroyed in any case. Null asserts and does nothing.
ZQ_API void FileKill(File_c * pFile);

/// Returns the file of a bare name, without opening it, or null. Any folder in name is ignored. Does not find a file
/// whose key has a folder.
ZQ_API File_c * FileStream(char const * name);

/// Finds a file as FileOpen does. Returns a new stream on it, which CloseStored destroys. Returns null if the file is
/// unknown or can't be opened.
ZQ_API FileStored_c * FileOpenStored(char const * name);

/// Scope of a stream: calls FileOpenStored or File_c::OpenStored, and CloseStored at the end if there is a stream.
class FileStoredScope_c
{
public:
    /// Open a stream by name, or on a file. On failure there is no stream.
    explicit FileStoredScope_c(char const * szName)
        : m_pStream(FileOpenStored(szName))
    {}
    explicit FileStoredScope_c(File_c & File)
        : m_pStream(File.OpenStored())
    {}
    ~FileStoredScope_c()
    {
        if (m_pStream)
        {
            m_pStream->CloseStored();
        }
    }
    FileStoredScope_c(FileStoredScope_c const &) = delete;
    FileStoredScope_c & operator=(FileStoredScope_c const &) = delete;

    /// Return whether there is a stream, and the stream. The second requires that there is one.
    explicit operator bool() const { return m_pStream != nullptr; }
    FileStored_c * operator->() const { return m_pStream; }

private:
    FileStored_c * const m_pStream;
};

/// Returns whether FileStream finds the name.
ZQ_API bool FileExists(char const * name);

/// Sets whether opening an empty file logs "File '%s' is empty!" instead of asserting. It is for a program that runs
/// while editors rewrite files, because they empty a file before they write it. At start opening asserts. Any thread
/// may call it.
ZQ_API void FileSetEmptyAllowed(bool bAllowed);

/// Returns whether the disk has this folder.
ZQ_API bool DirectoryExists(char const * path);

/// Returns the folder of the file whose whole key is this name, cut at 127 characters. Returns null if there is no such
/// file or it has no folder.
ZQ_API String_T<256> const * FileGetPath(char const * name);
