// cfile.h: files by name, read whole and shared.
//
// Every file that can be read by name is one long-lived File_c, registered by a scan of the media folders
// (cfilepath.h). The first FileOpen reads the whole file into one block, later ones raise a count, the last FileClose
// frees the block; all readers share it. A File_c * stays valid across open and close, until FileKill, FileResetFiles,
// FileReset or the module's shutdown. Load and FileStored_c read from the disk and leave the block alone.
//
// Names: case does not matter, `/` and `\` both separate, and a folder in front of a known bare name is ignored.
// Threads: the table of files belongs to the main thread; the block and the count of a file are guarded by its lock, so
// a file that is found may be opened and closed on any thread. g_FileOpenCallbacker and g_FileReadErrorCallbacker fire
// on the thread that reads, the worker of cfileasync.h included, one receiver at a time and with the file's lock held:
// a receiver may log and take notes, but not open a file that another thread may be opening.
// Sizes: a file of 2 GiB or more is known by the low 32 bits of its size, and opening it is refused with a log line.
#pragma once

#include "zqcore/cstring.h"

#include "platform/files.h"
#include "platform/threads.h"

#include <atomic>

class FileStored_c;

/// One file. A library above may derive file objects of its own kind and add them to g_sFileObjects.
class ZQ_API File_c
{
public:
    using Key_t = String_T<128>;

    File_c(File_c const &) = delete;
    File_c & operator=(File_c const &) = delete;

    /// Reads the contents again if they are resident; nobody may be reading the old block. If that fails pData is null
    /// and the references stay: holders must look at pData after a refresh and close as always; the next FileOpen tries
    /// the disk again.
    virtual void Refresh() = 0;

    /// The location on disk: the folder and the last component of the key; the key alone without a folder. Cut at 255.
    virtual String_T<256> GetFullPath() const;

    /// Reads dwLength bytes from dwPosition, which must lie inside the file, from the disk. False if not all could be
    /// read; dwLength is then the bytes that were. A dwLength of 0 is true at once. Takes no lock. Any thread.
    virtual bool Load(std::uint32_t dwPosition, unsigned char * pBuffer, std::uint32_t & dwLength) = 0;

    /// The name as the caller of FileOpen last spelled it; empty until then.
    virtual char const * GetFileName() const;

    /// A streaming handle on this file, which ends with CloseStored; null if the file can't be opened.
    virtual FileStored_c * OpenStored() = 0;

    /// Takes the object out of g_sFileObjects, unless its key is empty or belongs to another object.
    virtual ~File_c();

    /// Reads the whole file, with null into its own block, else into a buffer of iLength bytes. Tells whether the own
    /// block is resident: a read into a buffer gives false though the bytes arrived, unless they could be copied from
    /// the block. A file that outgrew the caller's buffer is not read; iLength then has the new size. No reference.
    virtual bool Open(void * pBuffer) = 0;

    /// Frees the block; the count stays.
    virtual void Close() = 0;

    /// The key behind its last dot, the first character not counted as one; empty without a dot.
    char const * GetExt() const;

    /// References to the block. Any thread.
    int GetOpensCount() const { return m_iOpensCount.load(std::memory_order_relaxed); }

    /// Makes the file stay resident, by a reference of the list of stayers (cfileasync.h), if its type is registered.
    /// For an Open that has just read the own block; any thread.
    void StayerDoWork();

    unsigned char * pData = nullptr;         // the contents while resident; not terminated
    int iLength = 0;                         // bytes: the low 32 bits of the file's size when it was last seen
    Key_t sName;                             // key in g_sFileObjects, lower case
    String_T<256> const * pPath = nullptr;   // folder, an entry of g_sPaths; null: sName alone is the location
    plat::FileTime_t ftCreationTime = 0;     // 100-nanosecond ticks since 1601
    bool bOpened = false;                    // was opened once, or streamed
    bool bDuplicate = false;                 // another file of this key was met and dropped
    plat::FileTime_t ftLastWriteTime = 0;    // as ftCreationTime
    int iReads = 0;                          // reads of the disk, for statistics
    String_T<256> sRequestedName;            // see GetFileName

protected:
    File_c() = default;

    /// Guards pData and the count; re-entrant. The locks of lists and logs are taken inside it, never around it.
    plat::Lock_c & GetLock() { return m_Lock; }

    /// Says that a refresh took the block away from its holders.
    void SetLost() { m_bLost = true; }

    /// Whether this Open, of which this is asked once, is to leave the lock while it reads.
    bool TakeUnlocked();

private:
    friend ZQ_API File_c * FileOpen(char const * name);
    friend ZQ_API bool FileOpen(File_c * pFile);
    friend ZQ_API void FileClose(File_c * pFile);
    friend ZQ_API bool FileAddOneFile(char const * sFile);
    friend ZQ_API void FileLogLoadedMedia();
    friend void FileRenewLocks();
    friend class FileRequests_c;
    friend class FileStored_c;

    /// Takes over size and times that a stream learnt, unless the file is resident: then they are the block's.
    void TakeStreamFacts(plat::FileFacts_t const & Facts);

    /// Take and give back a reference; the count that results, 0 if the file can't be read.
    int RefOpen();
    int RefClose();

    /// Reads for an asynchronous request, which takes a reference if Open says that the own block is resident. A buffer
    /// holds iRoom bytes.
    bool RefOpenAsync(void * pBuffer, int iRoom);

    /// Adds to the count, under the lock; the count that results.
    int Count(int nReferences)
    {
        int const iCount = GetOpensCount() + nReferences;
        m_iOpensCount.store(iCount, std::memory_order_relaxed);
        return iCount;
    }

    /// Frees the lock if another thread holds it. For the child of a fork, where no other thread exists.
    void RenewLock();

    std::atomic<int> m_iOpensCount = 0;   // changed under the lock
    plat::Lock_c m_Lock;
    bool m_bLost = false;       // pData is null though the count is not 0
    bool m_bStayer = false;     // was entered into the list of stayers
    bool m_bUnlocked = false;   // see TakeUnlocked
};

/// A file of a folder. Objects are made and destroyed on the main thread; they stand side by side in a pool, which
/// counts as a whole under the category in which it grew.
class ZQ_API FileOnDisk_c : public File_c
{
public:
    FileOnDisk_c() = default;
    ~FileOnDisk_c() override;

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
    bool TakeFacts(plat::FileFacts_t const & Facts, char const * szLocation, bool bOwnBlock);
    bool ComplainOfRead(char const * szLocation);
    bool Read(plat::File_t hFile, void * pBuffer, char const * szLocation);
    bool ReadUnlocked(plat::File_t hFile, plat::FileFacts_t const & Facts, void * pBuffer, char const * szLocation);
};

/// A stream on one file. One thread at a time. FileOpenStored makes it, CloseStored ends it.
class ZQ_API FileStored_c
{
public:
    /// pFile is required and must outlive the stream.
    explicit FileStored_c(File_c * pFile);
    FileStored_c(FileStored_c const &) = delete;
    FileStored_c & operator=(FileStored_c const &) = delete;

    /// The stream must be closed.
    virtual ~FileStored_c();

    /// Moves the position; iOrigin 1 from the present position, 2 from the end, else from the start. 1 if it worked,
    /// else 0. Like all below it requires an open stream; on a closed one it does nothing and gives 0.
    virtual int SeekStored(long iOffset, int iOrigin);

    /// The present position.
    virtual long TellStored();

    /// Reads iSize times iCount bytes; the bytes read.
    virtual unsigned int ReadStored(void * pBuffer, unsigned int iSize, unsigned int iCount);

    /// Opens the file while nobody writes it. False, after g_FileReadErrorCallbacker, if it can't be opened. The file
    /// object learns the present size and times if it is not resident.
    virtual bool OpenStored();

    /// Closes the stream and destroys this object.
    virtual void CloseStored();

    /// Whether the position is at the file's end or beyond.
    bool IsEof();

    /// Bytes of the file when the stream was opened; before that as File_c::iLength had them.
    unsigned int FileSize() const;

private:
    void CloseHandle();

    plat::File_t m_hFile = nullptr;
    File_c * m_pFile;
    int m_iLength;   // bytes, see FileSize
};

/// For the application to set: streaming opens then fail an assertion.
extern ZQ_API bool g_bFileReadDisabled;

/// Finds a file by its bare name, then by the whole name, and takes a reference to its contents. Null if the name is
/// unknown, without a message, or if it can't be read, with log lines. The name must not be empty.
ZQ_API File_c * FileOpen(char const * name);

/// Takes a reference to the contents of a known file; false if it can't be read.
ZQ_API bool FileOpen(File_c * pFile);

/// Gives one reference back. Null does nothing.
ZQ_API void FileClose(File_c * pFile);

/// Removes and destroys an object without references. One that is not in the table fails an assertion, and goes too.
ZQ_API void FileKill(File_c * pFile);

/// The file of that bare name, or null. Opens nothing and asks no disk; nor does FileExists. A key with a folder is not
/// found here.
ZQ_API File_c * FileStream(char const * name);

/// Finds a file as FileOpen does and streams it; null if it is unknown or can't be opened.
ZQ_API FileStored_c * FileOpenStored(char const * name);

/// Whether a file of that bare name is known.
ZQ_API bool FileExists(char const * name);

/// Whether an empty file is logged ("File '%s' is empty!") and opens with a length of 0, in place of the assertion: for a
/// program that runs while files are rewritten, which editors empty first. Starts false. Any thread.
ZQ_API void FileSetEmptyAllowed(bool bAllowed);

/// Whether the disk has this folder.
ZQ_API bool DirectoryExists(char const * path);

/// The folder of the file whose key is the whole name, cut at 127 characters; null if unknown.
ZQ_API String_T<256> const * FileGetPath(char const * name);
