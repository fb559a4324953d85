// cfile_internal.h: what the sources of the file services share. Nothing public includes it.
//
// Threads: main thread, unless a declaration says otherwise. Any thread may call FileLength, FileLogWhyNot,
// FileAsyncIsStopping and FileMediaTemplateTail, and may use the classes of paths. Locks guard the lists of stayers, of
// requests and of the tracker, the tracker's limit, and the mode and the clean names of the response logs.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cfile.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilename.h"

#include <atomic>

inline constexpr int FOLDED_LENGTH = 255;      // characters of a caller's path; longer ones are cut
inline constexpr int STAYER_EXT_LENGTH = 8;    // bytes of an extension, the terminator included
inline constexpr int FILE_OPEN_TRACKS = 256;   // entries of the tracker's list; further handles are only counted

/// Reasons that several sources state.
inline constexpr char FILE_UNREADABLE[] = "it can't be read";
inline constexpr char FILE_TOO_LARGE[] = "it has 2 GiB or more";
inline constexpr char FILE_ENDS_EARLY[] = "it ends before its size";
inline constexpr char FILE_LONG_PATH[] = "its path is too long";
inline constexpr char FILE_UNFINISHED[] = "by its name it was never finished";
inline constexpr char FILE_NO_ROOM[] = "the table has no room for it";

/// Path of a file on the disk, with the whole folder and the whole name. GetFullPath cuts them.
class FileLocation_c
{
public:
    explicit FileLocation_c(File_c const & File);
    operator char const *() const { return m_szText; }

private:
    char m_szText[String_T<256>::Capacity() + File_c::Key_t::Capacity()];
};

/// A request for an asynchronous read.
struct AsyncFile_t
{
    File_c * pFile = nullptr;
    void * pBuffer = nullptr;   // buffer for the contents; null for the file's own block
    bool bLoaded = false;       // whether the request is done; the poll reads it without the lock
    int iRoom = 0;              // bytes that pBuffer holds
};

/// Bare names that a scan skips, compared without regard to ASCII case. There are few, so a linear search is fastest.
class FileExcludes_c
{
public:
    /// Adds a copy of a name, cut at 255 characters, unless the same spelling is there. Asserts that szName is not
    /// null.
    void Add(char const * szName);

    /// Returns whether a name is excluded, without regard to ASCII case.
    bool Has(char const * szName) const;

    /// Frees the names.
    void Reset();

private:
    Array_T<String_T<256> *, 32, 0> m_dNames;
};

/// An open handle in the tracker's list.
struct FileOpenTrack_t
{
    void * hFile = nullptr;
    String_T<260> sName;
};

/// A file's key and its File_c::iReads.
struct FileOpenCalls_t
{
    String_T<128> sName;
    int iCalls = 0;
};

/// A caller's path in the form of the tables, cut at FOLDED_LENGTH characters. Null counts as empty.
class FoldedPath_c
{
public:
    explicit FoldedPath_c(char const * szPath);

    operator char const *() const { return m_szText; }
    int GetLength() const { return m_nLength; }
    bool IsEmpty() const { return m_nLength == 0; }
    bool IsCut() const { return m_bCut; }

    /// Returns the last component.
    char const * GetBare() const { return PathFileName(m_szText); }

    /// Appends `\` unless the text ends with it. Returns false, without a change, if it does not fit.
    bool AppendSeparator();

private:
    int m_nLength;
    bool m_bCut;
    char m_szText[FOLDED_LENGTH + 1];
};

/// The last component of a caller's path in the form of the keys. It equals FoldedPath_c::GetBare and costs less.
class FoldedName_c
{
public:
    explicit FoldedName_c(char const * szPath)
    {
        szPath = szPath ? szPath : "";
        std::size_t const nPath = StrLengthMax(szPath, FOLDED_LENGTH);   // longer paths are cut
        char const * const pBare = PathFileName(szPath, nPath);
        m_nLength = static_cast<std::size_t>(szPath + nPath - pBare);
        CopyToLower(m_szText, pBare, m_nLength);
        m_szText[m_nLength] = '\0';
    }

    char const * GetText() const { return m_szText; }
    std::size_t GetLength() const { return m_nLength; }

private:
    std::size_t m_nLength;
    char m_szText[FOLDED_LENGTH + 1];
};

/// Copies up to nMax characters in lower case, with `\` for `/`, and a terminator. Returns the number of characters.
/// Requires room for nMax + 1 bytes.
inline int FoldText(char * szTo, char const * szFrom, int nMax)
{
    int nLength = 0;
    for (; nLength < nMax && szFrom[nLength]; ++nLength)
    {
        szTo[nLength] = szFrom[nLength] == '/' ? '\\' : CharToLower(szFrom[nLength]);
    }
    szTo[nLength] = '\0';
    return nLength;
}

inline FoldedPath_c::FoldedPath_c(char const * szPath)
{
    m_nLength = szPath ? FoldText(m_szText, szPath, FOLDED_LENGTH) : FoldText(m_szText, "", 0);
    m_bCut = szPath && szPath[m_nLength];
}

/// Returns the length in bytes of a file that another thread may be opening.
inline int FileLength(File_c const & File)
{
    return std::atomic_ref(const_cast<int &>(File.iLength)).load(std::memory_order_relaxed);
}

/// Returns whether opens are reported: g_bCollectResource. Any thread may call it.
inline bool FileIsCollecting()
{
    return std::atomic_ref(g_bCollectResource).load(std::memory_order_relaxed);
}

/// Opens a file as FileOpen does, but does not log the reason of a failure if SetTextErrorLog is on: the caller does.
File_c * FileOpenUnlogged(char const * szName);

/// Logs name and reason of a failure if SetTextErrorLog is on and the reason is not empty.
ZQ_COLD void FileLogWhyNot(char const * szName, char const * szReason);

/// Stores why FileAddOneFile failed, for FileGetWhyNot, and logs it if SetTextErrorLog is on. Returns false.
ZQ_COLD bool FileNoteNotAdded(char const * szFile, char const * szReason);

/// Takes ownership of a folder's text that left the table while a file still points to it. FileReset frees it.
void FileKeepFolder(String_T<256> * pFolder);

/// Notes that scans could not see what a folder holds (FileScanIsWhole). A scan or a removal of the folder deletes the
/// note.
void FileNoteMissed(char const * szFolder);

/// Notes size and time of a folder that a scan is about to read. Does nothing unless FilesystemCacheCheck is on.
void FileCacheNoteFolder(String_T<256> const & sFolder);

/// Deletes the notes of FileCacheNoteFolder.
void FileCacheForgetFolders();

/// Removes a file from all tables, before it is destroyed. If the table led from its key to this file, adds the object
/// that it hid, if any, in its place. Does nothing for a file without a key.
void FileForget(File_c & File);

/// Removes one or all entries of a file from the list of stayers, without closing it.
void FileStayerForget(File_c const & File, bool bAll);

extern Array_T<String_T<STAYER_EXT_LENGTH>, 32, 0> g_dStayerExts;   // registered extensions, with their dots
extern Array_T<File_c *, 128, 0> g_dStayerFiles;   // stayers, one entry per reference, in the order of the reads

extern Array_T<AsyncFile_t, 32, 0> g_pAsyncFiles;   // requests, oldest first; only the main thread adds and deletes
extern plat::Lock_c g_csAsync;                      // lock of g_pAsyncFiles
extern plat::Thread_c g_hAsyncThread;               // the worker

/// Start and stop the worker. The stop drops the remaining requests. It raises the worker to the normal scheduling
/// class and waits for a read in progress. If the system can't raise the worker, a read of FileOnDisk_c is cancelled.
/// If the system has no thread for the worker, the start logs a line and serves the waiting requests.
void FileAsyncStart();
void FileAsyncStop();

/// Returns whether the worker must cancel its read.
bool FileAsyncIsStopping();

/// Releases the locks of known files that belong to threads which the fork did not copy. A forked child calls it.
void FileRenewLocks();

extern FileExcludes_c g_sExcludedFolders;
extern FileExcludes_c g_sExcludedFiles;

extern String_T<256> g_sMediaPath;       // media root as the application set it; empty: to be discovered
extern String_T<256> g_sCurrentConfig;   // the folder below `_configdependeddata` that a scan enters
extern String_T<256> g_sMediaTemplate;   // name pattern of the packs
extern bool g_bSplit;                    // whether the split filter is on
extern String_T<256> g_sSplitLocation;   // the folder that holds one folder for each game
extern String_T<256> g_sGameFolder;      // folder of the current game, with `\` at the end
extern String_T<256> g_sSplitGame;       // location and game folder

/// Excludes the folders and files that every start excludes (ModuleFile_c).
void FileExcludeToolFiles();

/// Returns whether the split excludes a folder from a scan. Requires a path in lower case that ends with `\`.
bool FileSplitExcludes(String_T<256> const & sSub);

/// Releases the storage of the pool of file objects if none is in use.
void FilePoolTrim();

/// Returns the media template after its `*`, or all of it if it has none: the ending of pack names.
char const * FileMediaTemplateTail();

extern SortedArray_T<FileOpenTrack_t, StaticArrayLenTraits_T<FileOpenTrack_t, FILE_OPEN_TRACKS>> g_dOpenTracks;
extern int g_iMaxOpenFiles;   // limit: more open handles raise an Achtung

extern std::uint32_t g_dwFileOpenLogMode;               // a bit for each response log that is written
extern Array_T<String_T<256>, 1024, 0> g_dCleanNames;   // locations already in the clean response log

/// Empties g_dCleanNames, so that the clean response log writes each location again.
void FileCleanNamesReset();

/// Writes a path to the response logs. It is a receiver of g_FileOpenCallbacker. Any thread may call it.
void ResourceLoadCallback(char const * sFileName);
