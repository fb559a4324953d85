// czip_internal.h: what the sources of the component share.
//
// Threads: the main thread calls Find, Mount, Add, Remove, GetFirst and GetNext. Declarations name the other limits.
#pragma once

#include "zqcore/cfile_internal.h"
#include "zqcore/cstring.h"
#include "zqcore/czip.h"

#include "platform/files.h"
#include "platform/fork.h"
#include "platform/threads.h"

#include <memory>
#include <zip.h>
#include <zlib.h>

/// Facts about a file that an archive's directory states.
struct ZipFacts_t
{
    zip_uint64_t iEntry = 0;     // in the directory
    std::uint32_t nSize = 0;     // bytes
    std::uint32_t nStored = 0;   // bytes in the archive
    std::uint32_t dwCrc = 0;     // CRC-32 of the contents
    bool bDeflated = false;      // whether the contents are deflated; otherwise they are stored
    plat::FileTime_t tLastWrite = 0;
};

class ZipFile_c;

/// An open archive. A mounted one lists its files.
class ZipArchive_c
{
public:
    /// Opens an archive and returns it. On failure returns null and sets sWhyNot to the reason. On success sWhyNot is
    /// undefined.
    static std::unique_ptr<ZipArchive_c> Open(char const * szPath, File_c::Reason_t & sWhyNot);

    ~ZipArchive_c();
    ZipArchive_c(ZipArchive_c const &) = delete;
    ZipArchive_c & operator=(ZipArchive_c const &) = delete;

    /// Return the path that Open received, the size in bytes that the archive's file had at Open, and libzip's object.
    String_T<256> const & GetPath() const { return m_sPath; }
    std::uint32_t GetSize() const { return m_nSize; }
    zip_t * GetZip() { return m_pZip; }

    /// Returns the name of an entry. Requires that the mount has read the name: libzip then keeps the text. Any
    /// thread may call this function.
    String_T<256> NameOf(zip_uint64_t iEntry) { return zip_get_name(m_pZip, iEntry, 0); }

    /// Returns the position of an entry's data in the archive's file, or 0 on failure. Requires that the entry has
    /// data. Any thread may call this function.
    std::uint32_t FindData(zip_uint64_t iEntry);

    /// Reads from a position of the archive's file. Returns the number of bytes read, which is smaller than nBytes at
    /// the file's end or on failure. Any thread may call it.
    std::size_t ReadAt(std::uint32_t nAt, void * pBuffer, std::size_t nBytes);

    /// Opens the archive a second time, unless it has done so, and returns that object, which has a handle and a lock
    /// of its own. Returns null if its path can't be opened again or leads to another file. Only the worker of
    /// cfileasync.h calls it.
    ZipArchive_c * OpenForWorker();

    /// Add and remove a file. Removing the last one destroys a mounted archive.
    void Add(ZipFile_c & File);
    void Remove(ZipFile_c & File);

    /// Returns the first of the files, or null. ZipFile_c::GetNext returns the others.
    ZipFile_c * GetFirst() const { return m_pFiles; }

    /// Returns the mounted archive of a path, or null.
    static ZipArchive_c * Find(char const * szPath);

    /// Adds the archive to the list of mounted archives. Its files own it from then on.
    void Mount();

    /// Makes each mounted archive open its own file again at the next read. A forked child calls this function.
    static void LeaveHandles();

private:
    explicit ZipArchive_c(char const * szPath);

    bool IsSameFile(ZipArchive_c const & Other) const
    {
        return Other.m_nSize == m_nSize && Other.m_Disk.ftLastWriteTime == m_Disk.ftLastWriteTime;
    }
    bool OpenStream(File_c::Reason_t & sWhyNot);
    void ReopenStream();
    std::size_t ReadDisk(std::uint32_t nAt, void * pBuffer, std::size_t nBytes);
    std::size_t ReadBuffered(void * pBuffer, std::size_t nBytes);
    zip_int64_t ReadDirectory(void * pBuffer, zip_uint64_t nBytes);
    zip_int64_t Serve(void * pData, zip_uint64_t nBytes, zip_source_cmd_t eCommand);
    static zip_int64_t Serve(void * pArchive, void * pData, zip_uint64_t nBytes, zip_source_cmd_t eCommand);

    static constexpr std::size_t BUFFER = 8192;   // bytes of m_dBuffer

    String_T<256> m_sPath;
    String_T<256> m_sFolder;
    FileOnDisk_c m_Disk;                  // the archive's file, in no table
    FileStored_c * m_pStream = nullptr;   // on m_Disk; null after a fork if the same file could not be opened again
    std::uint32_t m_nSize = 0;
    std::uint32_t m_nStreamAt = 0;   // position of the stream; UINT32_MAX if unknown
    bool m_bForked = false;          // whether the stream is the parent's
    zip_t * m_pZip = nullptr;
    ZipFile_c * m_pFiles = nullptr;
    std::unique_ptr<ZipArchive_c> m_pForWorker;   // result of OpenForWorker, which only the worker calls
    ZipArchive_c * m_pNext = nullptr;             // in the list of mounted archives
    bool m_bMounted = false;                      // whether its files own it

    /// The archive's file as libzip sees it.
    zip_error_t m_Error;
    std::uint32_t m_nAt = 0;         // position
    std::uint32_t m_nReadAt = 0;     // position of the last read
    std::uint32_t m_nBuffered = 0;   // bytes in m_dBuffer
    std::uint32_t m_nBufferAt = 0;   // position of m_dBuffer
    std::int64_t m_nMayRead = 0;     // bytes that may still be read for the directory
    int m_nMayHave = 0;              // entries that the directory may still have
    bool m_bReadingDirectory = false;
    unsigned char m_dBuffer[BUFFER];

    plat::Lock_c m_Lock;   // lock of the stream and libzip's object
    plat::ForkLock_c const m_ForkLock{ m_Lock };
};

/// Reader of the contents of one file. One thread at a time may use it.
class ZipReader_c
{
public:
    /// Begins at the start of the contents. Reads nothing yet. Requires that Archive outlives the object.
    ZipReader_c(ZipArchive_c & Archive, ZipFacts_t const & Facts);
    ~ZipReader_c();
    ZipReader_c(ZipReader_c const &) = delete;
    ZipReader_c & operator=(ZipReader_c const &) = delete;

    /// Reads the next bytes. Returns their number, which is smaller than nBytes at the end. Returns 0, and sets a
    /// reason, if the data are damaged or can't be read. The bytes at pBuffer are then undefined.
    std::size_t Read(void * pBuffer, std::size_t nBytes);

    /// Moves to a position inside the contents or to their end. Returns false, with a reason, on failure.
    bool Seek(std::uint32_t nAt);

    /// Returns why a call failed, or null. After a failure all further calls of Read and Seek fail too.
    char const * GetWhyNot() const { return m_szWhyNot; }

private:
    bool Begin();
    bool Fail(char const * szWhyNot);
    bool ReadStored(unsigned char * pBuffer, std::uint32_t nBytes);
    bool Inflate(unsigned char * pBuffer, std::uint32_t nBytes);
    bool Feed();
    bool CheckDataEnd();

    static constexpr std::uint32_t PIECE = 16384;             // bytes of m_dPiece
    static constexpr std::uint32_t MAX_LOCKED = 256 * 1024;   // bytes that are read in one hold of the lock

    ZipArchive_c & m_Archive;
    ZipFacts_t const m_Facts;
    char const * m_szWhyNot = nullptr;
    std::uint32_t m_nDataAt = 0;   // where the data begin; 0 before Begin, and for a file without data
    std::uint32_t m_nFed = 0;      // bytes of the deflated data that were read
    std::uint32_t m_nAt = 0;       // position in the contents
    std::uint32_t m_dwCrc = 0;     // of the contents before the position
    bool m_bSkipped = false;       // whether m_dwCrc lacks a part
    z_stream m_Inflater = {};
    std::uint32_t m_nPieceAt = 0;   // position in stored contents of what m_dPiece holds
    std::uint32_t m_nPiece = 0;     // bytes of it
    std::uint32_t m_nEnd = 0;       // where the previous read of stored contents ended
    unsigned char m_dPiece[PIECE];
};

/// A file of an archive.
class ZipFile_c : public File_c
{
public:
    /// Add the object to the files of the archive, and remove it.
    ZipFile_c(ZipArchive_c & Archive, ZipFacts_t const & Facts);
    ~ZipFile_c() override;

    void Refresh() override {}
    String_T<256> GetFullPath() const override;
    bool Load(std::uint32_t dwPosition, unsigned char * pBuffer, std::uint32_t & dwLength) override;
    FileStored_c * OpenStored() override;
    bool Open(void * pBuffer) override;
    void Close() override;

    /// Return the archive, and the next of its files or null.
    ZipArchive_c const & GetArchive() const { return m_Archive; }
    ZipFile_c * GetNext() const { return m_pNext; }

    /// Returns whether it has references or streams.
    bool IsInUse() const { return GetOpensCount() > 0 || m_nStreams.load() > 0; }

private:
    friend class ZipArchive_c;
    friend class ZipStored_c;

    char const * Read(ZipArchive_c & Archive, void * pTo) const;
    char const * ReadUnlocked(void * pTo);
    bool ReportReadFailure(char const * szWho, char const * szWhyNot);

    ZipArchive_c & m_Archive;
    ZipFacts_t const m_Facts;
    std::atomic<int> m_nStreams = 0;
    ZipFile_c * m_pNext = nullptr;   // in the archive
    ZipFile_c * m_pPrevious = nullptr;
};

/// A stream on a file of an archive.
class ZipStored_c : public FileStored_c
{
public:
    /// Add a stream to the count of the file, and remove it.
    explicit ZipStored_c(ZipFile_c & File);
    ~ZipStored_c() override;

    int SeekStored(long iOffset, int iOrigin) override;
    long TellStored() override { return static_cast<long>(m_nAt); }
    unsigned int ReadStored(void * pBuffer, unsigned int iSize, unsigned int iCount) override;
    bool OpenStored() override;
    void CloseStored() override;

private:
    ZipFile_c & m_File;
    ZipReader_c m_Reader;
    std::uint32_t m_nAt = 0;   // position of the next read
};
