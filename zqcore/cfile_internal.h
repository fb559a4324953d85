// cfile_internal.h: what the sources of the file services share. Nothing public includes it.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cfile.h"
#include "zqcore/cfilename.h"

#include <atomic>

inline constexpr int FOLDED_LENGTH = 255;   // characters of a caller's path that count

/// Copies up to nMax characters in lower case, with `\` for `/`, and a terminator. Returns the number of characters.
inline int FoldText(char * szTo, char const * szFrom, int nMax)
{
    int n = 0;
    for (; n < nMax && szFrom[n]; ++n)
    {
        szTo[n] = szFrom[n] == '/' ? '\\' : CharToLower(szFrom[n]);
    }
    szTo[n] = '\0';
    return n;
}

/// A caller's path in the form of the tables, cut at 255 characters. Null counts as empty.
class FoldedPath_c
{
public:
    explicit FoldedPath_c(char const * szPath)
    {
        m_nLength = szPath ? FoldText(m_szText, szPath, FOLDED_LENGTH) : FoldText(m_szText, "", 0);
        m_bCut = szPath && szPath[m_nLength];
    }

    operator char const *() const { return m_szText; }
    int GetLength() const { return m_nLength; }
    bool IsEmpty() const { return m_nLength == 0; }

    /// Whether the path was longer than the text.
    bool IsCut() const { return m_bCut; }

    /// The last component.
    char const * GetBare() const { return PathFileName(m_szText); }

    /// Appends `\` unless the text ends with it. Returns false, without a change, if it does not fit.
    bool AppendSeparator();

private:
    int m_nLength;
    bool m_bCut;
    char m_szText[FOLDED_LENGTH + 1];
};

/// The last component of a caller's path in the form of the keys: what FoldedPath_c::GetBare returns, at less cost.
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

/// Returns the length of a file that another thread may be opening.
inline int FileLength(File_c const & File)
{
    return std::atomic_ref(const_cast<int &>(File.iLength)).load(std::memory_order_relaxed);
}

/// Where a file lies on disk. Holds folder and name at full length, unlike GetFullPath.
class FileLocation_c
{
public:
    explicit FileLocation_c(File_c const & File);
    operator char const *() const { return m_szText; }

private:
    char m_szText[256 + 128];
};

/// Takes ownership of a folder's text that left the table while a file still points to it. It is freed by FileReset.
void FileKeepFolder(String_T<256> * pFolder);

/// Notes that scans could not see what lies in a folder, until it is scanned or forgotten.
void FileNoteMissed(char const * szFolder);

/// While FilesystemCacheCheck is on, notes size and time of a folder that a scan is about to read.
void FileCacheNoteFolder(String_T<256> const & sFolder);

/// Forgets the notes of FileCacheNoteFolder.
void FileCacheForgetFolders();

/// Removes a file from all tables; called before it is destroyed.
void FileForget(File_c & File);

/// Removes one or all entries of a file from the list of stayers, without closing it.
void FileStayerForget(File_c const & File, bool bAll);

inline constexpr int STAYER_EXT_LENGTH = 8;                         // an extension is cut at 7 characters
extern Array_T<String_T<STAYER_EXT_LENGTH>, 32, 0> g_dStayerExts;   // with their dots
extern Array_T<File_c *, 128, 0> g_dStayerFiles;                    // one entry per reference, in order of first read

/// A request for an asynchronous read.
struct AsyncFile_t
{
    File_c * pFile = nullptr;
    void * pBuffer = nullptr;   // where the contents go; null for the file's own block
    bool bLoaded = false;       // read by the poll without the lock
    int iRoom = 0;              // bytes that pBuffer holds
};

extern Array_T<AsyncFile_t, 32, 0> g_pAsyncFiles;   // oldest first; only the main thread adds and deletes
extern plat::Lock_c g_csAsync;                      // guards g_pAsyncFiles
extern plat::Thread_c g_hAsyncThread;               // the worker

/// Start and stop the worker. The stop drops the remaining requests. A read in progress finishes, raised to the normal
/// scheduling class. If the system refuses to raise it, a read of FileOnDisk_c is cancelled.
void FileAsyncStart();
void FileAsyncStop();

/// Whether a read of the worker is to be cancelled.
bool FileAsyncIsStopping();

/// Releases the locks of all known files in a forked child, which lacks the threads that held them.
void FileRenewLocks();

/// Bare names that a scan skips, without regard to case. There are few, so a linear search is fastest.
class FileExcludes_c
{
public:
    /// Adds a copy unless the same spelling is there.
    void Add(char const * szName);
    bool Has(char const * szName) const;

    /// Frees the names.
    void Reset();

private:
    Array_T<String_T<256> *, 32, 0> m_dNames;
};

extern FileExcludes_c g_sExcludedFolders;
extern FileExcludes_c g_sExcludedFiles;

extern String_T<256> g_sMediaPath;       // media root as the application set it; empty: to be discovered
extern String_T<256> g_sCurrentConfig;   // the folder below `_configdependeddata` that a scan enters
extern String_T<256> g_sMediaTemplate;   // name pattern of the packs
extern bool g_bSplit;                    // the split filter works
extern String_T<256> g_sSplitLocation;   // the folder that holds one folder for each game
extern String_T<256> g_sGameFolder;      // the current game's, with `\`
extern String_T<256> g_sSplitGame;       // location and game folder

/// Whether the split excludes a folder from a scan. The path is in lower case and ends with `\`.
bool FileSplitExcludes(String_T<256> const & sSub);

/// Releases the pool of file objects if it holds none.
void FilePoolTrim();

/// Returns the media template after its `*`: the ending of pack names.
char const * FileMediaTemplateTail();

/// An open handle, as the tracker holds it.
struct FileOpenTrack_t
{
    void * hFile = nullptr;
    String_T<260> sName;
};

inline constexpr int FILE_OPEN_TRACKS = 256;   // further handles are not listed
extern SortedArray_T<FileOpenTrack_t, StaticArrayLenTraits_T<FileOpenTrack_t, FILE_OPEN_TRACKS>> g_dOpenTracks;
extern int g_iMaxOpenFiles;   // more open handles raise a warning

extern std::uint32_t g_dwFileOpenLogMode;               // a bit for each response log that is written
extern Array_T<String_T<256>, 1024, 0> g_dCleanNames;   // locations already in the clean response log

/// Forgets g_dCleanNames, so that the clean response log writes each location again.
void FileCleanNamesReset();

/// The receiver of g_FileOpenCallbacker that writes the response logs. Any thread.
void ResourceLoadCallback(char const * sFileName);

/// A file's count of disk reads.
struct FileOpenCalls_t
{
    String_T<128> sName;
    int iCalls = 0;
};
