// cfilereplace.h: a file that replaces another one when it is whole.
//
// A writer that opens a file empties it at once. A full disk, a crash or a failed save then loses the old contents. A
// FileReplacement_c makes a new file in the same folder, the file beside. An archive or Write fills it. Commit renames
// it to the name of the old file in one step. Until then the old file is unchanged. A failure leaves it so, with one
// exception, which Commit states.
//
// cfilesave.h adds what a save needs: a seal, a lock and previous saves.
//
// Ownership: the object owns the file beside and deletes it in its destructor. A process that is killed leaves it.
// Threads: one thread at a time.
// Cost: each Write is a system call. Commit waits for the disk, some milliseconds. Nothing allocates from the heap,
// unless a name of the path has another spelling on the disk.
// Failure: a call returns false, and later calls fail too. GetWhyNot returns the reason of the first failure.
//
//     FileReplacement_c Replacement("saves\\two.arc");
//     BufferedWriteable_c Archive(Replacement, ARCHIVE_SAVED_GAME_VERSION);
//     if (Archive.Open())
//     {
//         Unit.Serialize(Archive);
//     }
//     bool const bSaved = Archive.Close() && !Archive.IsFailed() && Replacement.Commit();
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cstring.h"

#include "platform/files.h"
#include "platform/filewrite.h"

/// A new file that replaces an old one when it is whole.
class ZQ_API FileReplacement_c
{
public:
    /// Type of the text of a reason, such as that of GetWhyNot. A longer text is cut.
    using Reason_t = String_T<128>;

    /// Type of the path of a file beside: a path of at most 255 characters and a prefix.
    using Beside_t = String_T<272>;

    /// Makes the missing folders of szFile and, with the rights eRights, an empty file beside it. szFile has at most
    /// 255 characters and need not exist. On failure all later calls fail for that reason.
    explicit FileReplacement_c(char const * szFile, plat::Rights_e eRights = plat::Rights_e::Shared)
        : FileReplacement_c(szFile, eRights, nullptr)
    {}

    /// Deletes the file beside, unless Commit has renamed it. A forked child leaves its parent's file as it is.
    virtual ~FileReplacement_c();
    FileReplacement_c(FileReplacement_c const &) = delete;
    FileReplacement_c & operator=(FileReplacement_c const &) = delete;

    /// Appends bytes to the file beside and returns true. On failure returns false, and Commit fails too.
    bool Write(void const * pData, std::size_t nBytes);

    /// Replaces the 32-bit word at the byte nOffset and returns true. Requires that the word was written as dwOld:
    /// Rewrite corrects the CRC by the difference. On failure returns false, and Commit fails too.
    bool Rewrite(std::uint64_t nOffset, std::uint32_t dwOld, std::uint32_t dwNew);

    /// Waits until the file beside is on the disk, renames it to the name of the old file and returns true.
    /// - A new file of Rights_e::Shared gets the old file's access rights. If the old file is another user's, the
    ///   new one gets only those among them that it has already. Any other new file keeps its own rights, and so does
    ///   one that replaces a link.
    /// - If the name is that of a symbolic link, the link is replaced, not followed.
    ///
    /// Returns false and replaces nothing in these cases:
    /// - a previous call has failed, or Commit was called before.
    /// - an archive is still open on the file beside.
    /// - the file beside can't be synchronised, or has lost its name.
    /// - the folder can't be opened, unless only the right to read it is missing.
    /// - the name is that of a folder, a pipe, a socket or a device.
    /// - the system refuses the rename.
    ///
    /// Also returns false if only the new name can't be synchronised. Then the new file has the name already.
    virtual bool Commit();

    /// Returns the path of the file that Commit replaces.
    char const * GetFile() const { return m_sFile; }

    /// Return the number of bytes written, and their CRC-32 (ccrc.h).
    std::uint64_t GetSize() const { return m_nBytes; }
    std::uint32_t GetCrc() const { return m_dwCrc; }

    /// Returns the reason of the first failure, in the system's words if the system refused. Returns an empty text if
    /// no call failed.
    char const * GetWhyNot() const { return m_sWhyNot; }

    /// Begin and end the writing of an archive. EndArchive(false) makes Commit fail. BeginArchive returns the open
    /// file, or null in these cases:
    /// - a call has failed, or Commit has succeeded.
    /// - the file holds bytes.
    /// - another archive has begun.
    plat::File_t BeginArchive();
    void EndArchive(bool bWhole);

    /// Returns whether a bare name is that of a file beside or of the lock on a save. The first is `~zq`, eight
    /// hexadecimal digits, `-` and the name, the second `~zqlock-` and the name in lower case. Both are cut to fit.
    static bool IsBeside(char const * szBare);

protected:
    /// Begins a replacement as the public constructor does. If szRefused is not null, makes nothing, and all later
    /// calls fail for that reason.
    FileReplacement_c(char const * szFile, plat::Rights_e eRights, char const * szRefused);

    /// Keep a reason, unless there is one, and return false. FailAsSystem keeps the text of the system's last error.
    bool Fail(char const * szWhy);
    bool FailAsSystem();

    /// Do the steps of Commit, in this order, and return true. On failure keep the reason and return false.
    bool CheckWhole();
    bool Synchronize();
    bool Replace();

private:
    String_T<256> m_sFile;
    Beside_t m_sBeside;
    Reason_t m_sWhyNot;
    plat::Rights_e m_eRights;
    plat::File_t m_hFile = nullptr;   // the file beside, open until it is renamed
    std::uint64_t m_nBytes = 0;
    std::uint32_t m_dwCrc = 0;
    bool m_bArchive = false;   // whether an archive has begun and not ended
    int m_nForks;              // number of forks from the first process to the one that made the object
};
