// cserializecheck.h: checks of an archive before its load.
//
// A load of a damaged archive ends the program at the first label or chunk that is not the expected one, and may assert
// at other errors (cserialize.h). ArchiveCheck reads the archive before and does neither: its result says what is wrong
// and where. It checks the version, and then either chunks that follow one another, or all that a function of the
// caller loads, labels included. The archive is a file that is open (FileBytes) or is in memory.
//
// A check does not detect that a value has changed. A seal does (cfilesave.h).
//
// Ownership: a check copies nothing. The caller owns what its function makes.
// Threads: one thread at a time for each check.
// Cost: a list of chunks costs one step for each. A function costs what it does. The check itself allocates nothing.
// Failure: the result reports it. A chunk that is begun or ended out of order is a fault of the function and asserts.
//
//     File_c * const pFile = FileOpen("one.sav");
//     ArchiveResult_t const Result = ArchiveCheck(FileBytes(pFile), ARCHIVE_SAVED_GAME_VERSION, { "Units", "Map" });
//     if (!Result.IsSound())
//     {
//         Log("one.sav, byte %i: %s", Result.iPosition, Result.sWhyNot);
//     }
//     FileClose(pFile);
#pragma once

#include "zqcore/cserialize.h"
#include "zqcore/cstring.h"

#include <initializer_list>

/// Result of a check.
struct ArchiveResult_t
{
    /// State of an archive.
    enum State_e
    {
        SOUND,
        DAMAGED,        // or not what the check expects
        OTHER_VERSION   // another major version than the caller's, or a newer minor one
    };

    State_e eState = SOUND;   // as of the first error
    int iPosition = 0;        // where the first error was found, in bytes from the start
    int nLeft = 0;            // number of bytes after the last that the check has read; 0 unless sound
    String_T<128> sWhyNot;    // the first error, as one line of a log, empty if sound

    /// Returns whether the check has found no error.
    bool IsSound() const { return eState == SOUND; }
};

/// Reader that reports the errors of a damaged archive. ArchiveCheck makes one and passes it to a function.
class ZQ_API ArchiveCheck_c : public MemoryReadable_c
{
public:
    /// Begin a check. dwVersion is the newest version that the caller reads. Require that the bytes outlive the object.
    ArchiveCheck_c(std::span<std::byte const> Bytes, std::uint32_t dwVersion)
        : ArchiveCheck_c(Bytes.data(), Bytes.size(), dwVersion)
    {}
    ArchiveCheck_c(std::byte const * pBytes, std::size_t nBytes, std::uint32_t dwVersion);

    /// Checks the names and lengths of chunks that follow one another. GetResult returns the first error.
    void CheckChunks(std::initializer_list<char const *> dChunks)
    {
        for (char const * szChunk : dChunks)
        {
            ChunkBegin(szChunk);
            ChunkEnd(szChunk);
        }
    }

    /// Returns what the check has found so far.
    ArchiveResult_t GetResult() const;

private:
    ArchiveResult_t m_Result;
};

/// Checks the version, calls fnLoad(Archive) with an ArchiveCheck_c if the version is known, and returns the result.
/// fnLoad may make some calls of a load, such as Label, ChunkBegin and ChunkEnd, or load everything into objects that
/// are not used. Static objects (cserializer.h) have no copies: their contents are loaded into the registered ones.
template <typename LOAD>
requires std::invocable<LOAD &, ArchiveCheck_c &> ArchiveResult_t ArchiveCheck(
    std::span<std::byte const> Bytes, std::uint32_t dwVersion, LOAD fnLoad)
{
    ArchiveCheck_c Archive(Bytes, dwVersion);
    if (Archive.Open())
    {
        fnLoad(Archive);
    }
    return Archive.GetResult();
}

/// Checks the version, then chunks that follow one another after it, and returns the result. Other elements may follow
/// the last one.
inline ArchiveResult_t ArchiveCheck(
    std::span<std::byte const> Bytes, std::uint32_t dwVersion, std::initializer_list<char const *> dChunks = {})
{
    return ArchiveCheck(Bytes, dwVersion, [&](ArchiveCheck_c & Archive) { Archive.CheckChunks(dChunks); });
}
