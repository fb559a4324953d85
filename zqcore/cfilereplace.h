// cfilereplace.h: a file that replaces another one when it is whole.
//
// A writer that opens a file empties it at once: a full disk, a crash or a failed save then loses the old contents. A
// FileReplacement_c makes an empty file in the same folder, which any archive or stream writes; Commit gives it the
// name of the old file in one step. Until then, and after any failure, the old file is as it was. The object holds no
// heap and no open file; the file beside is deleted by the destructor, so that only a process that is killed leaves
// one. One thread at a time.
//
//     FileReplacement_c Replacement("saves\\two.sav");
//     BufferedWriteable_c Archive(Replacement.GetBeside(), ARCHIVE_SAVED_GAME_VERSION);
//     if (Archive.Open()) { Unit.Serialize(Archive); }
//     bool const bSaved = Archive.Close() && !Archive.IsFailed() && Replacement.Commit();
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cstring.h"

class ZQ_API FileReplacement_c
{
public:
    /// Makes the folders on the way and, exclusively, an empty file beside szFile. szFile, at most 255 characters, need
    /// not be there.
    explicit FileReplacement_c(char const * szFile);

    /// Deletes the file beside, unless Commit has succeeded.
    ~FileReplacement_c();
    FileReplacement_c(FileReplacement_c const &) = delete;
    FileReplacement_c & operator=(FileReplacement_c const &) = delete;

    /// The path to write, valid as long as the object. If the file could not be made, whoever opens it for writing
    /// fails for the same reason.
    char const * GetBeside() const { return m_sBeside; }

    /// Waits until the file beside is on the disk, and gives it the name and the access rights of the old file; a
    /// symbolic link is replaced, not followed. Requires that its writer has closed it. On failure false, and the old
    /// file stays: the file beside was not made, is still being written or can't be synchronized, or the name is that of
    /// a folder, a pipe or a device. The reason is the system's last error. Can be called once.
    bool Commit();

    /// Whether a bare name is one that GetBeside gives: `~zq`, eight hexadecimal digits, `-`, the name to be, cut to fit.
    static bool IsBeside(char const * szBare);

private:
    String_T<256> m_sFile;
    String_T<272> m_sBeside;
    bool m_bMade = false;   // and not yet renamed or deleted
};
