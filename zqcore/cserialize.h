// cserialize.h: archives, the library's one binary form of saved data.
//
// One function for each type saves and loads. With a writing archive it stores its values. With a reading one the same
// calls in the same order fill them. An archive begins with a version word and stores no types. Labels, and chunks with
// their length, show whether reader and writer are out of step. Every value is little-endian and unaligned, so all
// builds write the same bytes. An archive stays below 4 GiB, and below 2 GiB if it is to be read.
//
// An archive is a file or memory, with the same bytes. Memory serves undo, networks and tests. A damaged archive can be
// checked before its load (cserializecheck.h).
//
// Ownership: a writer owns its file or memory, unless the memory is the caller's or the file is a replacement's. A
// reader of a file owns its reference to the File_c.
// Threads: one thread at a time for each archive.
// Cost: nothing allocates, except a MemoryWriteable_c without memory of the caller, and a writer whose path has another
// spelling on the disk. Values and texts are copied to the buffer of a BufferedWriteable_c, and to and from memory,
// without a virtual call.
// Failure: permanent. Once IsFailed is true, the position stays, values keep their contents, labels compare nothing and
// chunks do nothing. So a save or load may run to its end and be checked once. A damaged file fails the archive, or
// asserts or aborts as the declarations say.
//
//     void Unit_c::Serialize(Serializeable_c & Archive)
//     {
//         Archive.Serialize(m_iHealth).Serialize(m_fSpeed).Serialize(m_sName);
//     }
//
// A writer empties an old file at once. FileReplacement_c (cfilereplace.h) keeps it until the new one is whole, and
// FileSave_c (cfilesave.h) adds what a save needs.
//
//     BufferedWriteable_c Archive("saves\\one.arc", ARCHIVE_SAVED_GAME_VERSION);
//     if (Archive.Open()) { Unit.Serialize(Archive); }
//     bool const bSaved = Archive.Close() && !Archive.IsFailed();
//
// A reader asks the table of files, which knows a new file only after it was added (cfilepath.h). The table has one
// file for each bare name, the first that was added, so each save needs its own name.
//
//     FileAddOneFile("saves\\one.arc");
//     Readable_c Archive(FileOpen("one.arc"), ARCHIVE_SAVED_GAME_VERSION);
//     bool const bKnown = Archive.Open();   // false for a newer version, which is no failure of the archive
//     if (bKnown) { Unit.Serialize(Archive); }
//     bool const bLoaded = Archive.Close() && bKnown && !Archive.IsFailed();
//
// A MemoryWriteable_c keeps a state, and a MemoryReadable_c restores it.
//
//     MemoryWriteable_c State(1);
//     if (State.Open()) { Unit.Serialize(State); }
//     Unit.m_iHealth = 0;
//     MemoryReadable_c Undo(State.GetBytes(), 1);
//     if (Undo.Open()) { Unit.Serialize(Undo); }
//     bool const bUndone = !State.IsFailed() && !Undo.IsFailed();
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cstring.h"

#include "platform/files.h"
#include "platform/vector128.h"

#include <concepts>
#include <span>
#include <string_view>
#include <type_traits>

class File_c;
class FileReplacement_c;
class Serializeable_c;
struct ArchiveResult_t;

/// Versions of the archives of this library and of the layers above: major version in the high 16 bits, minor in the
/// low 16.
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

namespace archives
{
    /// Returns whether T is a type of numbers or of enumerators that has the same width in every build.
    template <typename T>
    constexpr bool IsOfOneWidth()
    {
        if constexpr (std::is_enum_v<T>)
        {
            return IsOfOneWidth<std::underlying_type_t<T>>();
        }
        else
        {
            constexpr bool IS_LONG = std::same_as<T, long> || std::same_as<T, unsigned long>;
            constexpr bool IS_EXACT = std::same_as<T, std::int64_t> || std::same_as<T, std::uint64_t>;
            return std::is_arithmetic_v<T> && sizeof(T) <= 8 && (!IS_LONG || IS_EXACT)
                   && !std::same_as<T, wchar_t> && !std::same_as<T, long double>;
        }
    }

    /// Stores or loads one object, in the way that its type asks for, or refuses the type.
    template <typename T>
    void Transfer(Serializeable_c & Archive, T & Value);
}

/// Values that an archive stores as they are: `bool`, numbers and enumerators of 1, 2, 4 or 8 bytes with the same width
/// in every build. `wchar_t` and `long double` are refused. `long` is refused too, unless it is the type of
/// std::int64_t. std::size_t is not refused, because it is the name of another type, but its width differs between
/// builds: a std::uint32_t or std::uint64_t serves instead.
template <typename T>
concept ArchiveValue_T = archives::IsOfOneWidth<T>();

/// Types with a member `Serialize(Serializeable_c &)`, which transfers the fields.
template <typename T>
concept ArchiveMember_T = requires(T & Value, Serializeable_c & Archive)
{
    Value.Serialize(Archive);
};

/// Types with a function `Serialize(Serializeable_c &, T &)`, in the namespace of the type or outside of any.
template <typename T>
concept ArchiveFree_T = requires(T & Value, Serializeable_c & Archive)
{
    Serialize(Archive, Value);
};

/// Interface of an archive of either direction.
class ZQ_API Serializeable_c
{
public:
    /// Makes an archive. dwVersion is the version that a writer stores, and the newest that a reader accepts. The third
    /// argument has no effect.
    Serializeable_c(bool bIsReading, std::uint32_t dwVersion, bool);
    virtual ~Serializeable_c();
    Serializeable_c(Serializeable_c const &) = delete;
    Serializeable_c & operator=(Serializeable_c const &) = delete;

    /// Begins a chunk.
    /// - Writing: returns true if the chunk is open, and false if the archive has failed.
    /// - Reading: a chunk of another name ends in Abort. Returns false if the chunk is empty or the archive has failed.
    ///   IsFailed says which. An empty chunk still needs ChunkEnd. True does not mean success: a stored length that is
    ///   too small fails the archive and returns true.
    ///
    /// Asserts that no chunk is open, and fails the archive otherwise.
    virtual bool ChunkBegin(char const * sName) = 0;

    /// Ends the chunk of that name. A reader continues after the chunk, even if the chunk was not read to its end.
    /// Asserts that this chunk is open, and fails the archive otherwise. Also fails it if a stored length leads beyond
    /// the archive's end, or if a writer can't store the length.
    virtual void ChunkEnd(char const * sName) = 0;

    /// Stores the version word, or checks the file's. Returns true on success. GetVersion of a reader then
    /// returns the file's.
    /// - A different major version ends in Abort.
    /// - A newer minor version is logged and returns false.
    /// - A file without a whole version word fails the archive and returns false.
    /// - A writer returns true, unless its file could not be opened. A word that can't be stored fails the archive.
    virtual bool Open();

    /// Ends the archive and returns true. Returns false if a writer can't store the rest of its bytes. Closing again
    /// does nothing.
    virtual bool Close();

    /// Copies iLength bytes in or out and returns true. If pData is null, a reader skips them and a writer stores
    /// zeros. On failure returns false and fails the archive.
    virtual bool Serialize(void * pData, int iLength) = 0;

    /// Returns the path of a writer's file as it was passed, cut at 255 characters, or the key of a reader's file. An
    /// archive in memory returns its name in messages.
    virtual char const * GetFileName() const = 0;

    /// Returns the length of the whole archive in bytes. Requires that it is below 2 GiB.
    virtual int GetLength() const = 0;

    /// Returns a reader's position in bytes from the start, 0 while the reader is not open. Returns -1 for a writer.
    virtual int GetPosition() const;

    /// Returns the number of bytes after a reader's position. Returns -1 for these archives:
    /// - a writer.
    /// - an archive that has failed.
    /// - a reader that is empty or closed, or does not know its length.
    ///
    /// Asserts as the archive's GetLength does.
    int GetLeft() const;

    /// Stores or loads one object and returns the archive. T is one of the following. The compiler refuses others and
    /// says what to do instead.
    /// - a value (ArchiveValue_T). A stored `bool` that is neither 0 nor 1 fails the archive. An enumerator is loaded
    ///   unchecked, as the number in the file.
    /// - a String_T, as SerializeString does.
    /// - an array of such objects, without its length. An array of `char` is refused.
    /// - a class with a member or a function `Serialize`.
    /// - a container, a text or an optional of the standard library, with zqcore/cserializestd.h.
    /// - a pointer to an object of a graph, with zqcore/cserializer.h.
    template <typename T>
    Serializeable_c & Serialize(T & Value)
    {
        archives::Transfer(*this, Value);
        return *this;
    }

    /// Copies nBytes in or out and returns true, as Serialize of a pointer does, but mostly without a virtual call.
    /// Requires that pData is not null and nBytes is not 0.
    bool SerializeBytes(void * pData, std::size_t nBytes);

    /// Stores a number of elements as an `int`, or loads one, and returns it. Requires that nBytesEach is at
    /// least 1, and that each element stores at least nBytesEach bytes. Returns 0 if the archive has failed. These
    /// numbers fail it:
    /// - a negative one.
    /// - one above the range of `int`.
    /// - one of more elements than the rest of a reader's file can hold.
    int SerializeCount(std::size_t nElements, std::size_t nBytesEach = 1);

    /// Stores the version of a type, or loads one, in two bytes, and returns it, so that a type can change without a
    /// new version of the archive. Asserts that 1 <= iNewest <= 65535. A stored version that is 0 or above iNewest
    /// fails the archive and, unless a check runs, is logged with sType. Returns iNewest if the archive has failed.
    int SerializeVersion(char const * sType, int iNewest);

    /// Store the label of a name. A reader compares it, and calls Abort if the file holds another value. The second
    /// form requires the value that LabelCalc returns for the name.
    void Label(char const * sName) { Label(sName, LabelCalc(sName)); }
    void Label(char const * sName, std::uint32_t dwLabel);

    /// Stores or compares the CRC-32 of the name, which distinguishes case, as Label does its label.
    void LabelCrc32(char const * sName);

    /// Returns a label's value: the exclusive or of the lower-case characters, each extended with its sign to 32 bits
    /// and rotated left by its index.
    static constexpr std::uint32_t LabelCalc(char const * sName);

    /// Reads a label's value, the next 4 bytes, and returns it. Asserts that the archive is reading, and returns 0
    /// otherwise. Returns 0 too if the archive has failed.
    std::uint32_t LabelRead();

    /// Stores a text, cut at iBufLength - 1 characters, or loads one into a buffer of iBufLength bytes and terminates
    /// it. Asserts that the buffer is not null and has room for a byte, and fails the archive otherwise. A stored
    /// length that is negative or does not fit asserts and fails the archive. On failure the buffer stays unchanged.
    void SerializeString(char * sBuffer, int iBufLength);

    /// Stores or loads the text in the buffer of a string.
    template <int N>
    void SerializeString(String_T<N> & sValue)
    {
        if (m_bIsReading)
        {
            SerializeString(sValue.GetBuffer(), N);
        }
        else
        {
            StoreText(sValue.CStr(), static_cast<std::size_t>(sValue.Length()));
        }
    }

    /// Stores a text of nLength characters and the byte after them. Asserts that the archive is writing, and fails
    /// it otherwise. Also fails it if the length is above the range of `int`.
    void StoreText(char const * sText, std::size_t nLength);

    /// Loads a text that the archive has in memory and returns true. Returns false and loads nothing if the archive is
    /// not a reader of memory, or if there is no whole text. sText is valid as long as the archive's memory.
    bool ViewText(std::string_view & sText);

    /// Stores or loads the first three lanes of a vector. The fourth is neither stored nor changed.
    void SerializeVector3(__m128 & vValue);

    /// Return whether the archive is reading, and whether it has failed.
    bool IsReading() const { return m_bIsReading; }
    bool IsFailed() const { return m_bFailed; }

    /// Returns the version: the constructor's, and after a reader's successful Open the file's.
    std::uint32_t GetVersion() const { return m_dwVersion; }

    /// Fail the archive, for code that finds the loaded data wrong. A check (cserializecheck.h) reports the
    /// text, formatted like printf, escaped as in TextForLog (ctexterror.h) and cut at 127 characters.
    void Fail() { Fail("the data are refused"); }
    ZQ_COLD void Fail(char const * fmt, ...) ZQ_PRINTF(2, 3);

    /// Returns whether a check runs. An error in the file then fails the archive, without assertion or Abort.
    bool IsChecked() const { return m_pResult != nullptr; }

protected:
    /// Sets the structure to which the first failure is reported. The constructor of a check calls it. Requires that
    /// the structure lives as long as the archive.
    void SetResult(ArchiveResult_t & Result) { m_pResult = &Result; }

    static constexpr std::uint32_t UNFINISHED = 0xFFFFFFFF;   // length of a chunk that is open

    bool m_bIsReading;           // set by the constructor
    bool m_bFailed = false;      // permanent; a failure also empties the memory below
    bool m_bOpened = false;      // whether Open was called
    std::uint32_t m_dwVersion;   // as GetVersion returns it

    /// Memory from which or to which small values are copied without a virtual call: the rest of a reader's bytes, the
    /// free part of a writer's memory, or that of a buffer except its last byte. It is empty if each value must pass
    /// the virtual Serialize, and once the archive has failed.
    unsigned char * m_pPos = nullptr;
    unsigned char * m_pEnd = nullptr;

private:
    /// Moves a check back by nBytes, so that the next failure names the start of the wrong value.
    void StepBack(int nBytes) { m_pPos -= IsChecked() && !m_bFailed ? nBytes : 0; }

    ArchiveResult_t * m_pResult = nullptr;   // of a check, null without one

    template <typename T>
    friend void archives::Transfer(Serializeable_c & Archive, T & Value);

    void SerializeFlag(bool & bValue);
    bool SerializeRun(void * pData, std::size_t nBytes);
    int SerializeCountSlowly(std::size_t nElements, std::size_t nBytesEach);
    bool StepLabel(std::uint32_t dwLabel);
    void StoreLongText(char const * sText, std::size_t nLength);
    void ReadString(char * sBuffer, int iBufLength);
    bool AcceptVersion(std::uint32_t dwFile);
};

/// Base of the archives that write: their chunks.
class ZQ_API ChunkWriteable_c : public Serializeable_c
{
public:
    using Serializeable_c::Serialize;

    bool ChunkBegin(char const * sName) override;
    void ChunkEnd(char const * sName) override;

protected:
    static constexpr std::uint32_t NO_CHUNK = 0xFFFFFFFF;   // not the position of a byte: no archive is longer

    /// Makes an archive that writes this version.
    explicit ChunkWriteable_c(std::uint32_t dwVersion)
        : Serializeable_c(false, dwVersion, false)
    {}

    /// Returns the number of bytes stored and skipped so far.
    virtual std::uint32_t GetStored() const = 0;

    /// Replaces the placeholder at m_dwCurrentChunk by the chunk's length in bytes and returns true. On failure returns
    /// false.
    virtual bool WriteLength(std::uint32_t nLength) = 0;

    std::uint32_t m_dwCurrentChunk = NO_CHUNK;   // position of the open chunk's length
    std::uint32_t m_dwChunkLabel = 0;            // CRC-32 of the open chunk's name
};

/// Archive that writes straight to a file.
class ZQ_API Writeable_c : public ChunkWriteable_c
{
public:
    /// Creates the folders of the path and the file, or empties an existing file. Others may read the file meanwhile. A
    /// second writer of it fails, unless the file system has no locks. Asserts that sFileName is not null, and fails
    /// Open otherwise. On failure Open returns false, and FileOpenTracker (cfilelog.h) complains unless it excepts the
    /// name.
    Writeable_c(char const * sFileName, std::uint32_t dwVersion);
    ~Writeable_c() override;

    using Serializeable_c::Serialize;

    bool Open() override;

    /// Closes the file, unless it is a replacement's. Returns false and fails the archive if the system reports at the
    /// close that something could not be written.
    bool Close() override;
    bool Serialize(void * pData, int iLength) override;
    char const * GetFileName() const override;

    /// Returns the file's size on disk in bytes, or 0 if the system does not report it. Asserts that the archive has a
    /// file and is not closed, and returns 0 otherwise.
    int GetLength() const override;

protected:
    /// Writes the file of a replacement, to which nothing was written yet.
    Writeable_c(FileReplacement_c & Replacement, std::uint32_t dwVersion);

    /// Appends bytes and returns true. Returns false if not all of them are written, or if the file would reach 4 GiB.
    bool Put(void const * pData, std::size_t nBytes);

    std::uint32_t GetStored() const override { return m_nPosition; }
    bool WriteLength(std::uint32_t nLength) override;

    plat::File_t m_hFile = nullptr;   // null if it could not be opened, and after Close
    String_T<256> m_sFileName;        // its path, cut at 255 characters
    std::uint32_t m_nPosition = 0;    // bytes written and skipped
    bool m_bSkipped = false;          // whether the file may be shorter than the position

private:
    bool PutZeros(std::size_t nBytes);

    FileReplacement_c * m_pReplacement = nullptr;   // owner of the file, if not null
};

/// Archive that writes the same bytes as Writeable_c through a buffer. It writes to disk when the buffer is full, at
/// ChunkEnd and at Close. Whole multiples of BUFSIZE bypass an empty buffer.
class ZQ_API BufferedWriteable_c : public Writeable_c
{
public:
    /// Bytes of the buffer.
    static constexpr int BUFSIZE = 4096;

    /// Creates the file as Writeable_c does.
    BufferedWriteable_c(char const * sFileName, std::uint32_t dwVersion);

    /// Writes the file of a replacement (cfilereplace.h). Requires that the replacement outlives the archive. Commit
    /// comes after Close, and fails if the archive has failed. Open fails in these cases:
    /// - the replacement has failed or is committed.
    /// - the replacement holds bytes.
    /// - the replacement has another archive.
    ///
    /// Close fails the archive if Open was not called. Then it asserts that nothing was written.
    BufferedWriteable_c(FileReplacement_c & Replacement, std::uint32_t dwVersion);
    ~BufferedWriteable_c() override;

    using Serializeable_c::Serialize;

    void ChunkEnd(char const * sName) override;

    /// Writes the buffer and does the same as Writeable_c::Close. Returns false if that does, or if the buffer can't
    /// be written.
    bool Close() override;
    bool Serialize(void * pData, int iLength) final;

    /// Returns the number of bytes on disk and in the buffer. Asserts as Writeable_c::GetLength does.
    int GetLength() const override;

private:
    /// Returns the number of bytes in the buffer. It is below BUFSIZE between calls, unless a write has failed.
    int GetWaiting() const { return static_cast<int>(m_pPos - m_dBuffer); }
    std::uint32_t GetStored() const override { return m_nPosition + static_cast<std::uint32_t>(GetWaiting()); }
    void UseBuffer();
    bool Flush();
    bool Send(void const * pData, std::size_t nBytes);

    unsigned char m_dBuffer[BUFSIZE];
};

/// Archive that writes the same bytes to memory.
class ZQ_API MemoryWriteable_c : public ChunkWriteable_c
{
public:
    /// Writes to memory that the archive allocates and owns.
    explicit MemoryWriteable_c(std::uint32_t dwVersion);

    /// Write to the caller's memory. Require that it outlives the archive. A write that does not fit fails the archive.
    MemoryWriteable_c(std::span<std::byte> Memory, std::uint32_t dwVersion)
        : MemoryWriteable_c(Memory.data(), Memory.size(), dwVersion)
    {}
    MemoryWriteable_c(std::byte * pMemory, std::size_t nBytes, std::uint32_t dwVersion);
    ~MemoryWriteable_c() override;

    using Serializeable_c::Serialize;

    bool Serialize(void * pData, int iLength) final;

    /// Returns "memory".
    char const * GetFileName() const override;

    /// Returns the number of bytes that were written.
    int GetLength() const override { return static_cast<int>(GetStored()); }

    /// Returns the bytes that were written, valid until more are written or the archive is destroyed.
    std::span<std::byte const> GetBytes() const
    {
        return { reinterpret_cast<std::byte const *>(m_pStart), GetStored() };
    }

protected:
    std::uint32_t GetStored() const override { return static_cast<std::uint32_t>(m_pPos - m_pStart); }
    bool WriteLength(std::uint32_t nLength) override;

private:
    bool Grow(std::size_t nBytes);

    unsigned char * m_pStart = nullptr;
    bool m_bOwner;   // whether the memory is the archive's
};

/// Archive that reads bytes in memory.
class ZQ_API MemoryReadable_c : public Serializeable_c
{
public:
    /// Read bytes of the caller. szName is the archive's name in messages. Require that the bytes stay until Close, and
    /// that szName outlives the archive. Open fails if there are 2 GiB or more.
    MemoryReadable_c(std::span<std::byte const> Bytes, std::uint32_t dwVersion, char const * szName = "memory")
        : MemoryReadable_c(Bytes.data(), Bytes.size(), dwVersion, szName)
    {}
    MemoryReadable_c(
        std::byte const * pBytes, std::size_t nBytes, std::uint32_t dwVersion, char const * szName = "memory");

    using Serializeable_c::Serialize;

    bool ChunkBegin(char const * sName) override;
    void ChunkEnd(char const * sName) override;
    bool Open() override;
    bool Close() override;
    bool Serialize(void * pData, int iLength) final;

    /// Returns the name that the constructor received.
    char const * GetFileName() const override;

    /// Returns the number of all bytes, or 0 after Close.
    int GetLength() const override;

    int GetPosition() const override;

protected:
    std::span<std::byte const> m_Bytes;   // the whole archive

private:
    char const * m_szName;
    unsigned char * m_pCurrentChunk = nullptr;   // the open chunk's length
    std::uint32_t m_dwChunkLabel = 0;            // CRC-32 of the open chunk's name
};

/// Archive that reads a file which is resident in memory. It never reads the disk.
class ZQ_API Readable_c : public MemoryReadable_c
{
public:
    /// Makes the archive the owner of a reference to the file, as FileOpen returns it. With null, or a file that is not
    /// resident, Open fails.
    Readable_c(File_c * pFile, std::uint32_t dwVersion);
    ~Readable_c() override;

    using Serializeable_c::Serialize;

    bool Open() override;
    bool Close() override;

    /// Return the file's key and its length in bytes. Assert that the reader has a file and is not closed, and return
    /// "" and 0 otherwise.
    char const * GetFileName() const override;
    int GetLength() const override;

private:
    File_c * m_pFile;
};

/// Scope of a chunk: calls ChunkBegin, and ChunkEnd at the end. Requires that sName outlives it.
class ArchiveChunk_c
{
public:
    ArchiveChunk_c(Serializeable_c & Archive, char const * sName)
        : m_Archive(Archive)
        , m_szName(sName)
        , m_bBegun(Archive.ChunkBegin(sName))
    {}
    ~ArchiveChunk_c() { m_Archive.ChunkEnd(m_szName); }
    ArchiveChunk_c(ArchiveChunk_c const &) = delete;
    ArchiveChunk_c & operator=(ArchiveChunk_c const &) = delete;

    /// Returns the result of ChunkBegin.
    explicit operator bool() const { return m_bBegun; }

private:
    Serializeable_c & m_Archive;
    char const * const m_szName;
    bool const m_bBegun;
};

/// Stores or loads the text in the buffer of a string. Serialize of the archive calls it.
template <int N>
void Serialize(Serializeable_c & Archive, String_T<N> & sValue)
{
    Archive.SerializeString(sValue);
}

/// Return the contents of a file, or none if it is null or not resident. The first function returns their start, or
/// null, and sets nBytes to their number.
ZQ_API std::byte const * FileBytes(File_c const * pFile, std::size_t & nBytes);
inline std::span<std::byte const> FileBytes(File_c const * pFile)
{
    std::size_t nBytes = 0;
    std::byte const * const pBytes = FileBytes(pFile, nBytes);
    return { pBytes, nBytes };
}

#include "zqcore/cserialize.inl"
