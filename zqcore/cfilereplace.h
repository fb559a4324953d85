// cfilereplace.h: a file that replaces another one when it is whole.
//
// A writer that opens a file empties it at once: a full disk, a crash or a failed save then loses the old contents. A
// FileReplacement_c makes a file of its own in the same folder, which an archive or Write fills; Commit gives it the
// name of the old file in one step. Until then, and after any failure, the old file is as it was. The object holds an
// open file and no heap; the file beside is deleted by the destructor, so that only a process that is killed leaves
// one. One thread at a time. Each Write reaches the system at once; the sync of Commit takes milliseconds.
//
//     FileReplacement_c Replacement("saves\\two.sav");
//     BufferedWriteable_c Archive(Replacement, ARCHIVE_SAVED_GAME_VERSION);
//     if (Archive.Open()) { Unit.Serialize(Archive); }
//     bool const bSaved = Archive.Close() && !Archive.IsFailed() && Replacement.Commit();
//
// cfilesave.h adds what a save needs: a seal, a lock, former generations.
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cstring.h"

#include "platform/filewrite.h"

class ZQ_API FileReplacement_c
{
public:
    using Reason_t = String_T<128>;

    /// Makes the folders on the way and, exclusively, an empty file beside szFile. szFile, at most 255 characters, need
    /// not be there. If the file beside can't be made, every later call fails for that reason.
    explicit FileReplacement_c(char const * szFile, plat::Rights_e eRights = plat::Rights_e::Shared)
        : FileReplacement_c(szFile, eRights, nullptr)
    {}

    /// Deletes the file beside, unless Commit has succeeded.
    virtual ~FileReplacement_c();
    FileReplacement_c(FileReplacement_c const &) = delete;
    FileReplacement_c & operator=(FileReplacement_c const &) = delete;

    /// Adds bytes to the file beside. False if not all of them go out; Commit then fails too.
    bool Write(void const * pData, std::size_t nBytes);

    /// Replaces the word at nOffset, which was written as dwOld. False as of Write.
    bool Rewrite(std::uint64_t nOffset, std::uint32_t dwOld, std::uint32_t dwNew);

    /// Waits until the file beside is on the disk, and gives it the name of the old file, and its access rights unless the
    /// new one is private; a symbolic link is replaced, not followed. Requires that the archive on it is closed. On
    /// failure false, and the old file stays: a call before has failed, the file beside is still being written or can't
    /// be synchronized, or the name is that of a folder, a pipe or a device. If the new name alone can't be
    /// synchronized, false too, and the new file is there. Can be called once.
    virtual bool Commit();

    /// The file that is to be replaced.
    char const * GetFile() const { return m_sFile; }

    /// Bytes written, and their CRC-32 (ccrc.h).
    std::uint64_t GetSize() const { return m_nBytes; }
    std::uint32_t GetCrc() const { return m_dwCrc; }

    /// Why the first failed call failed, in the system's words where it was the system; empty without a failure.
    char const * GetWhyNot() const { return m_sWhyNot; }

    /// For an archive: begins to write an empty file, and ends. BeginArchive returns the open file, null on failure or
    /// if another archive has begun. An archive that is not whole makes Commit fail.
    plat::File_t BeginArchive();
    void EndArchive(bool bWhole);

    /// Whether a bare name is one of a file beside, `~zq`, eight hexadecimal digits, `-`, the name to be, cut to fit; or
    /// of the lock on a save, `~zqlock-` and the name.
    static bool IsBeside(char const * szBare);

protected:
    /// The same; with a reason why not, makes nothing and fails for that.
    FileReplacement_c(char const * szFile, plat::Rights_e eRights, char const * szRefused);

    /// Records a reason, unless there is one; false. The second form takes the system's last error.
    bool Fail(char const * szWhy);
    bool FailAsSystem();

    /// The steps of Commit. False, with the reason, on failure.
    bool CheckWhole();
    bool Synchronize();
    bool Replace();

private:
    String_T<256> m_sFile;
    String_T<272> m_sBeside;
    Reason_t m_sWhyNot;
    plat::Rights_e m_eRights;
    plat::File_t m_hFile = nullptr;   // until it is renamed
    std::uint64_t m_nBytes = 0;
    std::uint32_t m_dwCrc = 0;
    bool m_bArchive = false;   // one has begun and not ended
};
