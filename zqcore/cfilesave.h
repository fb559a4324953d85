// cfilesave.h: saved games that a failed save never destroys, and that are found whole or reported as damaged.
//
// A save is an archive followed by a seal: its length and CRC-32 (docs/formats.md). A new save is written beside the
// old one, synchronised, and replaces it in one step. The writer can keep previous saves under the name with ".1" (the
// newest), ".2" and so on. Only the file's owner can read a new save.
//
// A FileSave_c holds a lock on the save, so that one program at a time writes it. The lock is a file beside the save.
// Its name is `~zqlock-` and the first 243 bytes of the save's name in lower case, because a path finds a save in any
// spelling. The system releases the lock of a process that is killed. The next FileSave_c deletes the files that this
// process left. On a file system without locks the lock has no effect.
//
// A load changes nothing on the disk. It returns one of these states:
// - whole: OpenFile returns the archive.
// - absent: there is no save. Start from the beginning.
// - unreadable: the save may be good, so do not replace it. One of these is the reason:
//   - the constructor refused the path.
//   - the system refuses the file.
//   - it is no regular file of less than 2 GiB.
//   - another program cuts it meanwhile.
// - damaged: length or CRC-32 do not match. PutAside keeps the file under another name. A previous save may be good.
// - newer, older: whole, of a version that the caller does not read, or with a newer seal or none. Ask the player
//   before it is replaced.
//
// Ownership: the FileSave_c owns the lock and the loaded contents. A reader frees the contents when it is closed.
// Threads: an object belongs to one thread at a time.
// Cost: a load holds the whole save in memory until its reader is closed. A writer allocates as a FileReplacement_c
// does.
// Failure: calls return false, null or a state. GetWhyNot has the reason, except that of OpenFile. Nothing here logs or
// shows a dialog, except the assertion of SetPrevious and the tracker of open files (cfilelog.h).
//
// Load:
//     FileSave_c Save("saves\\three.sav");
//     bool bLoaded = false;
//     if (Save.Load(ARCHIVE_SAVED_GAME_VERSION) == FileSave_c::WHOLE)
//     {
//         Readable_c Archive(Save.OpenFile(), ARCHIVE_SAVED_GAME_VERSION);
//         if (Archive.Open()) { Unit.Serialize(Archive); }
//         bLoaded = Archive.Close() && !Archive.IsFailed();
//     }
//
// Save:
//     Save.SetPrevious(2);
//     FileSaveWriter_c Writer(Save);
//     BufferedWriteable_c Archive(Writer, ARCHIVE_SAVED_GAME_VERSION);
//     if (Archive.Open())
//     {
//         Unit.Serialize(Archive);
//     }
//     bool const bSaved = Archive.Close() && !Archive.IsFailed() && Writer.Commit();
#pragma once

#include "zqcore/cfile.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/cstring.h"

#include "platform/filereplace.h"

/// A save: its lock, and its contents once it is loaded.
class ZQ_API FileSave_c
{
public:
    /// State that Load has found, as in the list above.
    enum State_e
    {
        WHOLE,
        ABSENT,
        UNREADABLE,
        DAMAGED,
        NEWER,
        OLDER
    };

    static constexpr int MAX_PREVIOUS = 9;   // previous saves have the numbers 1 to this

    /// Makes the missing folders of szFile and acquires the lock. Deletes the files that a killed process left. Does
    /// not open the save. The path has at most 249 characters. On failure IsLocked returns false.
    explicit FileSave_c(char const * szFile);

    /// Releases the lock and frees the loaded contents. Requires that readers of OpenFile are closed.
    ~FileSave_c();
    FileSave_c(FileSave_c const &) = delete;
    FileSave_c & operator=(FileSave_c const &) = delete;

    /// Returns whether this object has the lock. Without it PutAside and writers fail. Load works, unless the path is
    /// refused. A forked child does not have its parent's lock. After the constructor GetWhyNot has the reason:
    /// - another FileSave_c has the lock, in this process or another.
    /// - the path is refused.
    /// - the system can't make the lock. The reason is in its words.
    bool IsLocked() const;

    /// Set and return how many previous saves a commit keeps, 0 at start. A commit does not delete previous saves with
    /// higher numbers. SetPrevious asserts that the number is 0 to MAX_PREVIOUS. Other values are clamped.
    void SetPrevious(int nPrevious);
    int GetPrevious() const { return m_nPrevious; }

    /// Returns the path of the save for 0, or of a previous save: 1 is the newest.
    String_T<256> GetPath(int iPrevious = 0) const;

    /// Reads the save, or a previous one as in GetPath, checks it and returns its state. Returns NEWER or OLDER for a
    /// save whose major version (the high 16 bits) differs from dwVersion's, or whose minor version is above
    /// dwVersion's. Also returns NEWER for a newer form of the seal, and OLDER for a CRC-32 without a seal. Frees the
    /// contents of the previous load. Requires that their reader is closed.
    State_e Load(std::uint32_t dwVersion, int iPrevious = 0);

    /// Opens the archive that Load has found whole and returns it, for one Readable_c, which frees the contents when it
    /// is closed. The file is not in the table of files. Returns null if there is no such archive.
    File_c * OpenFile();

    /// Renames the save, in any state, sets sTo to the new path and returns true. The new name has ".old" at its end,
    /// or the first free one of ".old1" to ".old99". On failure returns false, and sTo has no meaning.
    bool PutAside(String_T<256> & sTo);

    /// Returns why the last call of the constructor, Load or PutAside failed, or an empty text if it did not.
    char const * GetWhyNot() const { return m_sWhyNot; }

private:
    friend class FileSaveWriter_c;

    class Contents_c;   // file object of a reader, without a folder or a table, resident from the load on

    State_e Check(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwVersion);

    /// Sets the text that GetWhyNot returns. Returns eState.
    State_e SetWhyNot(State_e eState, char const * szWhyNot);

    void DeleteLeft();
    bool KeepPrevious(FileReplacement_c::Reason_t & sWhyNot);

    String_T<256> m_sFile;
    FileReplacement_c::Beside_t m_sLock;
    FileReplacement_c::Reason_t m_sWhyNot, m_sWhyNoLock;
    plat::NameLock_c m_Lock;
    Contents_c * m_pContents = nullptr;   // owned
    int m_nPrevious = 0;
};

/// Writer of a save. Requires that its FileSave_c outlives it.
class ZQ_API FileSaveWriter_c : public FileReplacement_c
{
public:
    /// Begins a new save beside the old one. If that fails, or if Save has no lock, all later calls fail for the reason
    /// in GetWhyNot.
    explicit FileSaveWriter_c(FileSave_c & Save);

    /// Seals and synchronises the new save, keeps the previous ones, replaces the old save, synchronises the folder and
    /// returns true. For a first save, also synchronises the folders of its path. Fails as FileReplacement_c::Commit
    /// does. After a failure previous saves may have the next numbers already. Also fails, and the old save stays, in
    /// these cases:
    /// - the seal can't be written.
    /// - the folders of a first save can't be synchronised.
    /// - a previous save can't be kept.
    bool Commit() override;

private:
    FileSave_c & m_Save;
};
