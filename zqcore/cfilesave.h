// cfilesave.h: saves, which are found whole or are said to be damaged, and are never lost to a failed save.
//
// A save is an archive with a seal after it, its length and CRC-32 (docs/formats.md), which is computed while the
// archive is written. A new save is written beside the old one, synchronized, and takes its name in one step; the
// writer can keep former ones under the name with ".1" (the newest), ".2" and so on. Only the file's owner can read a
// new save.
//
// A FileSave_c holds a lock on the save from its construction to its end, so that one program at a time writes it: a
// file `~zqlock-` and the name, deleted at the end, whose lock the system drops with a process that is killed. What
// such a process left beside the save is deleted by the next FileSave_c. Where a file system knows no locks, the lock
// excludes nobody. The name of the lock is in lower case, since a path finds a save in any spelling.
//
// A load changes nothing on the disk. It says apart what a caller must treat apart:
// - absent: begin anew.
// - unreadable: the system refuses the file, or it is no regular one. It may be good, so it must not be replaced.
// - damaged: length or CRC-32 do not fit. PutAside keeps the file under another name; a former save may be good.
// - newer, older: whole, of a version that the caller does not read. It must not be replaced unasked.
//
// Objects belong to one thread at a time. A load holds the whole save in memory until its reader is closed; a writer
// takes no memory. Nothing here shows a dialog or logs: GetWhyNot has the reason.
//
//     FileSave_c Save("saves\\three.sav");
//     bool bLoaded = false;
//     if (Save.Load(ARCHIVE_SAVED_GAME_VERSION) == FileSave_c::WHOLE)
//     {
//         Readable_c Archive(Save.OpenFile(), ARCHIVE_SAVED_GAME_VERSION);
//         if (Archive.Open()) { Unit.Serialize(Archive); }
//         bLoaded = Archive.Close() && !Archive.IsFailed();
//     }
//     Save.SetFormer(2);
//     FileSaveWriter_c Writer(Save);
//     BufferedWriteable_c Archive(Writer, ARCHIVE_SAVED_GAME_VERSION);
//     if (Archive.Open()) { Unit.Serialize(Archive); }
//     bool const bSaved = Archive.Close() && !Archive.IsFailed() && Writer.Commit();
#pragma once

#include "zqcore/cfile.h"
#include "zqcore/cfilereplace.h"

#include "platform/filereplace.h"

class ZQ_API FileSave_c
{
public:
    enum State_e
    {
        WHOLE,
        ABSENT,
        UNREADABLE,
        DAMAGED,
        NEWER,
        OLDER
    };

    static constexpr int MOST_FORMER = 9;

    /// Makes the folders on the way and takes the lock; asks nothing about the save itself. At most 249 characters.
    explicit FileSave_c(char const * szFile);

    /// Drops the lock. Readers of OpenFile must be closed.
    ~FileSave_c();
    FileSave_c(FileSave_c const &) = delete;
    FileSave_c & operator=(FileSave_c const &) = delete;

    /// Whether the lock is this object's. Without it a load works, PutAside and writers fail, and GetWhyNot says at
    /// first why: another FileSave_c has it, in this process or another, or the system's reason.
    bool IsLocked() const;

    /// Former saves that a commit keeps, 0 to MOST_FORMER, 0 at first. Those beyond are left alone.
    void SetFormer(int nFormer);
    int GetFormer() const { return m_nFormer; }

    /// The path of the save, 0, or of a former one, 1 the newest.
    String_T<256> GetPath(int iFormer = 0) const;

    /// Reads the save or a former one whole and checks it. A version is newer or older as archives have it: of another
    /// major, or a newer minor, than dwVersion. Contents that are loaded already go; their reader must be closed.
    State_e Load(std::uint32_t dwVersion, int iFormer = 0);

    /// The archive that Load found whole, for one Readable_c, which frees it; null if there is none. Not in the table of
    /// files.
    File_c * OpenFile();

    /// Renames the save, whatever it is, to its name with ".old", or ".old1" and so on where that is taken. sTo is the
    /// new path. False on failure.
    bool PutAside(String_T<256> & sTo);

    /// Why the last call, the constructor included, did not work; empty if it did.
    char const * GetWhyNot() const { return m_sWhyNot; }

private:
    friend class FileSaveWriter_c;

    class Contents_c;   // the file object that a reader gets

    State_e Check(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwVersion);
    State_e Say(State_e eState, char const * szWhyNot);
    void DeleteLeft();
    bool KeepFormer(FileReplacement_c::Reason_t & sWhyNot);

    String_T<256> m_sFile;
    String_T<272> m_sLock;
    FileReplacement_c::Reason_t m_sWhyNot, m_sWhyNoLock;
    plat::NameLock_c m_Lock;
    Contents_c * m_pContents = nullptr;   // owned
    int m_nFormer = 0;
};

/// Writes a save. It ends, like the lock, before its FileSave_c.
class ZQ_API FileSaveWriter_c : public FileReplacement_c
{
public:
    /// If Save has no lock, every later call fails for the reason that GetWhyNot says.
    explicit FileSaveWriter_c(FileSave_c & Save);

    /// Seals and synchronizes the new save, keeps the former ones and gives it its name; the folder is synchronized too.
    /// As FileReplacement_c::Commit. A former save that can't be kept is a failure, and the save stays.
    bool Commit() override;

private:
    FileSave_c & m_Save;
};
