// cfile_internal.h: what the sources of the file services share. Nothing public includes it.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cfile.h"
#include "zqcore/cfilename.h"

#include <atomic>

inline constexpr int FOLDED_LENGTH = 255;   // characters of a caller's path that count

/// Copies up to nMax characters in lower case and with `\` for `/`, and terminates; the characters copied.
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

/// A caller's path as the tables have it, cut at 255 characters. Null counts as empty.
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

    /// Ends the text with `\`; false, and no change, if it does not fit.
    bool AppendSeparator();

private:
    int m_nLength;
    bool m_bCut;
    char m_szText[FOLDED_LENGTH + 1];
};

/// The last component of a caller's path, as keys have it: what FoldedPath_c::GetBare gives, for less.
class FoldedName_c
{
public:
    explicit FoldedName_c(char const * szPath)
    {
        szPath = szPath ? szPath : "";
        std::size_t const nPath = StrLengthMax(szPath, FOLDED_LENGTH);   // more is cut
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

/// The length of a file that another thread may be opening.
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

/// Keeps the text of a folder that is in no table, but still a file's, until FileReset. It becomes owned.
void FileKeepFolder(String_T<256> * pFolder);

/// Notes that scans could not see what lies in a folder, until it is scanned or forgotten.
void FileNoteMissed(char const * szFolder);

/// Notes size and time of a folder that a scan is about to read, while FilesystemCacheCheck is on.
void FileCacheNoteFolder(String_T<256> const & sFolder);

/// Forgets what was noted.
void FileCacheForgetFolders();

/// Takes a file that is about to go out of all tables.
void FileForget(File_c & File);

/// Takes a file's entries, all or one, out of the list of stayers, without closing it.
void FileStayerForget(File_c const & File, bool bAll);

inline constexpr int STAYER_EXT_LENGTH = 8;                         // an extension is cut at 7 characters
extern Array_T<String_T<STAYER_EXT_LENGTH>, 32, 0> g_dStayerExts;   // with their dots
extern Array_T<File_c *, 128, 0> g_dStayerFiles;   // one entry for each reference, in order of first read

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

/// Start and stop the worker. The stop drops the requests that are left. It lets a read in progress finish, lifted to
/// the normal class; where the system does not let it be lifted, a read of FileOnDisk_c is broken off.
void FileAsyncStart();
void FileAsyncStop();

/// Whether a read of the worker is to be broken off.
bool FileAsyncIsStopping();

/// Frees the locks of all known files in the child of a fork, where the threads that held them are gone.
void FileRenewLocks();

/// Bare names that a scan passes over, without regard to case. Few, so that walking them is the fastest test.
class FileExcludes_c
{
public:
    /// Adds a copy, unless the very same spelling is there.
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

/// Whether the split keeps a scan out of a folder, given in lower case and with `\` at its end.
bool FileSplitExcludes(String_T<256> const & sSub);

/// Gives the room of file objects back to the heap if there is none left.
void FilePoolTrim();

/// The template behind its `*`: how names of packs end.
char const * FileMediaTemplateTail();

/// An open handle, as the tracker holds it.
struct FileOpenTrack_t
{
    void * hFile = nullptr;
    String_T<260> sName;
};

inline constexpr int FILE_OPEN_TRACKS = 256;   // handles beyond are not listed
extern SortedArray_T<FileOpenTrack_t, StaticArrayLenTraits_T<FileOpenTrack_t, FILE_OPEN_TRACKS>> g_dOpenTracks;
extern int g_iMaxOpenFiles;   // open handles that raise no warning

extern std::uint32_t g_dwFileOpenLogMode;               // bits of the response logs that write
extern Array_T<String_T<256>, 1024, 0> g_dCleanNames;   // locations that the clean response log has

/// Lets the clean response log write every location anew.
void FileCleanNamesReset();

/// The receiver of g_FileOpenCallbacker that writes the response logs. Any thread.
void ResourceLoadCallback(char const * sFileName);

/// A file's count of disk reads.
struct FileOpenCalls_t
{
    String_T<128> sName;
    int iCalls = 0;
};
