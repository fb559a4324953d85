// cserialize.h: archives, the library's one binary form of saved data.
//
// One function per type saves and loads: handed a writing archive it stores its values, handed a reading one the same
// calls in the same order fill them. An archive begins with a version word and stores no types; labels, and chunks with
// their length, tell when reader and writer are out of step. Every value is little-endian and unaligned, so the bytes
// are the same from every build.
//
// Failure is sticky: once IsFailed, nothing moves any more, values keep what they held, labels compare nothing and
// chunks do nothing, so that a whole save or load may run and be asked once at its end. A damaged file ends so, or in
// one of the complaints told below.
//
// An archive belongs to one thread at a time and takes no memory; a writer owns its file, a reader its reference to the
// File_c. Values of 4 and 8 bytes go straight into the buffer or out of the file in memory. An archive stays below
// 4 GiB; what is to be read again, below 2 GiB.
//
//     void Unit_c::Serialize(Serializeable_c & Archive)
//     {
//         Archive.Serialize(m_iHealth).Serialize(m_fSpeed);
//         Archive.SerializeString(m_sName);
//     }
//
// A writer empties an old file at once; FileReplacement_c (cfilereplace.h) keeps it until the new one is whole, and
// FileSave_c (cfilesave.h) adds what a save needs.
//
//     BufferedWriteable_c Archive("saves\\one.sav", ARCHIVE_SAVED_GAME_VERSION);
//     if (Archive.Open()) { Unit.Serialize(Archive); }
//     bool const bSaved = Archive.Close() && !Archive.IsFailed();
//
// A reader asks the table of files, which knows a new file only after it was added (cfilepath.h). Of a bare name
// it has one file, the first that was added: each save needs a name of its own.
//
//     FileAddOneFile("saves\\one.sav");
//     Readable_c Archive(FileOpen("one.sav"), ARCHIVE_SAVED_GAME_VERSION);
//     bool const bKnown = Archive.Open();   // false for a newer version, which is no failure of the archive
//     if (bKnown) { Unit.Serialize(Archive); }
//     bool const bLoaded = Archive.Close() && bKnown && !Archive.IsFailed();
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cstring.h"

#include "platform/files.h"
#include "platform/vector128.h"

#include <concepts>
#include <type_traits>

class File_c;
class FileReplacement_c;

/// Versions of the archives of this library and of the layers above: major in the high 16 bits, minor in the low ones.
extern ZQ_API std::uint32_t const ARCHIVE_PARTICLE_SYSTEM_VERSION;
extern ZQ_API std::uint32_t const ARCHIVE_MESH_VERSION;
extern ZQ_API std::uint32_t const ARCHIVE_ANIM_VERSION;
extern ZQ_API std::uint32_t const ARCHIVE_COLMESH_VERSION;
extern ZQ_API std::uint32_t const ARCHIVE_PROBTREE_VERSION;
extern ZQ_API std::uint32_t const ARCHIVE_GAME_RECORD_VERSION;
extern ZQ_API std::uint32_t const ARCHIVE_KILN_WORLD_VERSION;
extern ZQ_API std::uint32_t const ARCHIVE_ACCOUNT_VERSION;
extern ZQ_API std::uint32_t const ARCHIVE_SAVED_GAME_VERSION;
extern ZQ_API std::uint32_t const REPLICATE_VERSION;
extern ZQ_API std::uint32_t const FILESYSTEMCACHE_VERSION;
extern ZQ_API std::uint32_t const DIALOG_FILE_VERSION;
extern ZQ_API std::uint32_t const CAMERATRACK_FILE_VERSION;
extern ZQ_API std::uint32_t const FJORDTRACK_FILE_VERSION;

/// What Serialize takes by reference: a number or enumerator of 4 or 8 bytes in every build. `long`, whose width is the
/// build's, is refused unless it is the type of std::int64_t.
template <typename T>
concept ArchiveValue_T =
    (std::is_arithmetic_v<T> || std::is_enum_v<T>)&&(sizeof(T) == 4 || sizeof(T) == 8)
    && (std::same_as<T,
            std::
                int64_t> || std::same_as<T, std::uint64_t> || !(std::same_as<T, long> || std::same_as<T, unsigned long>));

/// An archive of either direction.
class ZQ_API Serializeable_c
{
public:
    /// dwVersion is what a writer stores and the newest that a reader accepts. The third argument has no effect.
    Serializeable_c(bool bIsReading, std::uint32_t dwVersion, bool);
    virtual ~Serializeable_c();
    Serializeable_c(Serializeable_c const &) = delete;
    Serializeable_c & operator=(Serializeable_c const &) = delete;

    /// Begins a chunk, one at a time. Asserts that none is open, and fails the archive otherwise.
    /// - Writing: false means that the archive has failed, and true that the chunk is open.
    /// - Reading: a chunk of another name ends in Abort. False means that the chunk is empty, and then ChunkEnd must
    ///   still be called, or that the archive has failed; IsFailed says which. True does not mean success: a stored length
    ///   that is too small fails the archive and returns true.
    virtual bool ChunkBegin(char const * sName) = 0;

    /// Ends the chunk of that name. A reader goes on behind it, however much of it was read.
    virtual void ChunkEnd(char const * sName) = 0;

    /// Stores the version word, or checks the file's: another major version ends in Abort, a newer minor one is logged
    /// and gives false, and so does a file without a whole word. Where a reader returns true, GetVersion is the file's.
    virtual bool Open();

    /// Ends the archive. Closing again does nothing more.
    virtual bool Close();

    /// Moves iLength bytes; with a null pData skips them, which writes zeros. False on failure.
    virtual bool Serialize(void * pData, int iLength) = 0;

    virtual char const * GetFileName() const = 0;

    /// Bytes of the whole file.
    virtual int GetLength() const = 0;

    /// Where a reader stands, in bytes from the start; -1 of a writer.
    virtual int GetPosition() const;

    /// Moves one value.
    template <ArchiveValue_T T>
    Serializeable_c & Serialize(T & Value)
    {
        Transfer(&Value, static_cast<int>(sizeof(T)));
        return *this;
    }

    /// Stores LabelCalc of the name, or ends in Abort if the file has another value here. The second form takes the
    /// value ready made.
    void Label(char const * sName) { Label(sName, LabelCalc(sName)); }
    void Label(char const * sName, std::uint32_t dwLabel);

    /// The same with the CRC-32 of the name, which tells case apart.
    void LabelCrc32(char const * sName);

    /// A label's value: of the lowered characters, each rotated left by its index, the exclusive or.
    static constexpr std::uint32_t LabelCalc(char const * sName);

    /// The next 4 bytes of a reading archive; 0 when it has failed.
    std::uint32_t LabelRead();

    /// Stores a text, cut at iBufLength - 1 characters, or loads one into a buffer of iBufLength bytes, terminated. A
    /// stored length that is negative or does not fit fails an assertion, then the archive, and the buffer stays.
    void SerializeString(char * sBuffer, int iBufLength);

    template <int N>
    void SerializeString(String_T<N> & sValue)
    {
        SerializeString(sValue.GetBuffer(), N);
    }

    /// Three lanes of a vector; the fourth is neither stored nor changed.
    void SerializeVector3(__m128 & vValue);

    bool IsReading() const { return m_bIsReading; }
    bool IsFailed() const { return m_bFailed; }

    /// See the constructor and Open.
    std::uint32_t GetVersion() const { return m_dwVersion; }

    /// Sets the flag: for code that finds the loaded data wrong.
    void Fail();

protected:
    bool m_bIsReading;
    bool m_bFailed = false;
    std::uint32_t m_dwVersion;

    /// Memory that values are copied from or to without a call, of a class that has such: the rest of a reader's file,
    /// the room of a writer's buffer but for its last byte. Empty where each value must pass the virtual Serialize, and
    /// once the archive has failed.
    unsigned char * m_pPos = nullptr;
    unsigned char * m_pEnd = nullptr;

private:
    bool Transfer(void * pData, int iLength);
    bool StepLabel(std::uint32_t dwLabel);
    void WriteString(char * sBuffer, int iBufLength);
    void ReadString(char * sBuffer, int iBufLength);
    bool AcceptVersion(std::uint32_t dwFile);
};

/// Writes straight to a file. GetPosition is -1.
class ZQ_API Writeable_c : public Serializeable_c
{
public:
    /// Makes the folders on the way and the file, which others may read but not write meanwhile; an existing one is
    /// replaced. If that fails, FileOpenTracker complains, and Open is false.
    Writeable_c(char const * sFileName, std::uint32_t dwVersion);
    ~Writeable_c() override;

    using Serializeable_c::Serialize;

    bool ChunkBegin(char const * sName) override;
    void ChunkEnd(char const * sName) override;
    bool Open() override;

    /// False, and the failure flag, if the system tells only now that something could not be written.
    bool Close() override;
    bool Serialize(void * pData, int iLength) override;
    char const * GetFileName() const override;

    /// The file's size on disk; 0, with a failed assertion, when closed.
    int GetLength() const override;

protected:
    static constexpr std::uint32_t NO_CHUNK = 0xFFFFFFFF;   // not a position: an archive is shorter

    /// Writes through an empty file beside another one.
    Writeable_c(FileReplacement_c & Replacement, std::uint32_t dwVersion);

    /// Writes at the end of what was written; false if not all of it goes out, or is below 4 GiB.
    bool Put(void const * pData, std::size_t nBytes);

    std::uint32_t m_dwCurrentChunk = NO_CHUNK;   // where the open chunk's length goes
    std::uint32_t m_dwChunkLabel = 0;            // CRC-32 of the open chunk's name
    plat::File_t m_hFile;
    String_T<256> m_sFileName;
    std::uint32_t m_nPosition = 0;   // in the file: bytes written and skipped
    bool m_bSkipped = false;         // the file may be shorter than the position

private:
    bool WriteLength(std::uint32_t nLength);

    FileReplacement_c * m_pReplacement = nullptr;   // which owns the file
};

/// Writes through a buffer, the same bytes as Writeable_c. The disk is reached when the buffer is full, at ChunkEnd and
/// at Close.
class ZQ_API BufferedWriteable_c : public Writeable_c
{
public:
    static constexpr int BUFSIZE = 4096;

    BufferedWriteable_c(char const * sFileName, std::uint32_t dwVersion);

    /// Writes a file that replaces another one (cfilereplace.h), to which nothing was written yet and which must outlive
    /// the archive. Commit comes after Close.
    BufferedWriteable_c(FileReplacement_c & Replacement, std::uint32_t dwVersion);
    ~BufferedWriteable_c() override;

    using Serializeable_c::Serialize;

    bool ChunkBegin(char const * sName) override;
    void ChunkEnd(char const * sName) override;

    /// False if what waits in the buffer can't be written, too.
    bool Close() override;
    bool Serialize(void * pData, int iLength) final;

    /// Bytes on disk and in the buffer.
    int GetLength() const override;

private:
    /// Bytes waiting in the buffer; between calls below BUFSIZE.
    int GetWaiting() const { return static_cast<int>(m_pPos - m_dBuffer); }
    bool Flush();
    bool Send(void const * pData, std::size_t nBytes);

    unsigned char m_dBuffer[BUFSIZE];
};

/// Reads a file that is resident in memory; asks no disk.
class ZQ_API Readable_c : public Serializeable_c
{
public:
    /// Takes over a reference to the file, which FileOpen gave. With null, or a file that is not resident, Open fails.
    Readable_c(File_c * pFile, std::uint32_t dwVersion);
    ~Readable_c() override;

    using Serializeable_c::Serialize;

    bool ChunkBegin(char const * sName) override;
    void ChunkEnd(char const * sName) override;
    bool Open() override;
    bool Close() override;
    bool Serialize(void * pData, int iLength) final;

    /// Of the file; on a closed reader "" and 0, with a failed assertion.
    char const * GetFileName() const override;
    int GetLength() const override;

    int GetPosition() const override;

private:
    File_c * m_pFile;
    unsigned char * m_pCurrentChunk = nullptr;   // the open chunk's length
    std::uint32_t m_dwChunkLabel = 0;            // CRC-32 of the open chunk's name
};

#include "zqcore/cserialize.inl"
