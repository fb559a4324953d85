// cfilepath_internal.h: what the sources of the table of files share.
//
// Threads: main thread.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cstring.h"

#include <algorithm>
#include <utility>

/// Characters of the longest key.
inline constexpr std::size_t FILE_KEY_LENGTH = File_c::Key_t::Capacity() - 1;

/// A queue of one file before the table of files. A file is added to the table when the next one is pushed, so that its
/// slot can be prefetched meanwhile. Therefore the log lines about its key follow those about the next file. Requires
/// a Flush before the queue is destroyed.
class FileTableQueue_c
{
public:
    /// Adds the waiting file to the table, and makes pFile the waiting one. nKey is the length of its name.
    void Push(File_c * pFile, std::size_t nKey)
    {
        Flush();
        m_Waiting = g_sFileObjects.Prepare(pFile, &pFile->sName, nKey);
    }

    /// Adds the waiting file, if there is one. Reports and destroys a file that the table refuses (FileReportSkip).
    /// Logs a duplicate, and sets bDuplicate of the file that has its key. Raises a Warning for the first file of the
    /// process for which the table has no room.
    void Flush()
    {
        FileTable_t::Entry_s const Entry = std::exchange(m_Waiting, {});
        switch (Entry.pObject ? g_sFileObjects.Add(Entry) : HASH_ADDED)
        {
        case HASH_ADDED:
            return;
        case HASH_PRESENT:
            return DropDuplicate(Entry.pObject);
        default:
            return DropOverflow(Entry.pObject);
        }
    }

private:
    ZQ_COLD static void DropDuplicate(File_c * pFile);
    ZQ_COLD static void DropOverflow(File_c * pFile);

    FileTable_t::Entry_s m_Waiting = {};   // pObject is null if no file waits
};

/// The objects that others hide. Each object of the table is the top of a chain of objects of one key.
class FileHiding_c
{
public:
    /// Adds a file as FileAddObject does.
    static HashAdd_e Add(File_c & File, bool bOver);

    /// Returns the first object of the chain that lies in a folder, or null.
    static File_c * FirstInFolder(File_c & Top);

    /// Adds the object that a file hid, if any, to the table. Requires that the file has left the table.
    static void Reveal(File_c & File);

    /// Removes a file from the chain of its key. Returns false if no object hides it.
    static bool Remove(File_c const & File);

    /// Destroys the objects that a file hides.
    static void DestroyBelow(File_c & Top);
};

/// Files that have left the table while others hold them open, and the folders that they still point to.
class FileOrphans_c
{
public:
    void Add(File_c * pFile) { m_dFiles.Add(pFile); }

    /// Removes a file, if it is an orphan.
    void Remove(File_c const & File);

    /// Returns whether an orphan points to this folder.
    bool HasFileIn(String_T<256> const & sFolder) const;

    /// Takes ownership of a folder, which DestroyFolders frees.
    void KeepFolder(String_T<256> * pFolder) { m_dFolders.Add(pFolder); }

    Array_T<File_c *, 64, 0> const & GetFiles() const { return m_dFiles; }

    /// Destroys all files. Their destructors remove them.
    void DestroyFiles();

    /// Frees what KeepFolder added. Requires that no orphan points to it.
    void DestroyFolders();

private:
    Array_T<File_c *, 64, 0> m_dFiles;
    Array_T<String_T<256> *, 64, 0> m_dFolders;
};

extern FileOrphans_c g_FileOrphans;

/// Adds a copy of a folder's path to g_sPaths and returns it. Returns null if the table has it already or is full.
String_T<256> const * FilePathAdd(char const * szPath);

/// Returns whether a scan has skipped a file for lack of room in the table.
bool FileTableOverflowed();

/// Makes FileTableOverflowed return false until a scan skips a file again.
void FileTableForgetOverflow();

/// Fires g_FileSkipCallbacker with these facts and the reason's text. pFirst is as in FileSkip_t. Requires that eWhy is
/// not InArchive.
ZQ_COLD void FileReportSkip(
    FileSkip_e eWhy, char const * szFolder, char const * szName, File_c const * pFirst = nullptr);

/// Logs why a file, a folder or an entry of a folder is skipped. The path of the entry is szFolder followed by szName.
ZQ_COLD void FileLogSkipped(char const * szWhy, char const * szFolder, char const * szName = "");

/// Logs that a bare name of nName characters is cut to FILE_KEY_LENGTH.
ZQ_COLD void FileLogCutName(char const * szName, std::size_t nName);

/// Writes a bare name as a key, in lower case. A name of more than FILE_KEY_LENGTH characters is cut, with a log line.
/// Returns the key's length. Requires room for the key and a terminator.
inline std::size_t FileMakeBareKey(char const * szName, std::size_t nName, char * szKey)
{
    std::size_t const nKey = std::min(nName, FILE_KEY_LENGTH);
    CopyToLower(szKey, szName, nKey);
    szKey[nKey] = '\0';
    if (nKey < nName)
    {
        FileLogCutName(szName, nName);
    }
    return nKey;
}

/// Calls fnVisit with a pointer to each object of a table, in table order. Requires that fnVisit does not change the
/// table.
template <typename TABLE, typename VISIT>
void VisitAll(TABLE & Table, VISIT fnVisit)
{
    for (auto * pSlot = Table.First(); pSlot; pSlot = Table.Next(pSlot))
    {
        fnVisit(pSlot->pObject);
    }
}

/// Destroys an object that is not in the table.
inline void FileDiscard(File_c * pFile)
{
    pFile->sName = "";   // the key may be another object's
    delete pFile;
}

/// Scans a folder as FileAddSearchPath does. sFolder has the form of the entries of g_sPaths.
void FileScanFolder(String_T<256> const & sFolder, bool bRecursive, bool bRelativeNames);

/// Stores that scans could not see all of a folder: the system failed, or the media root is missing (FileScanIsWhole).
void FileScanNoteMissed(String_T<256> const & sFolder);

/// Removes the folders that FileScanNoteMissed stored and whose paths begin with szPrefix. An empty prefix removes all.
void FileScanForgetMissed(char const * szPrefix);
