#include "zqcore/cfileasync.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilepath.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cscope_internal.h"

#include "platform/fork.h"
#include "platform/threads.h"

#include <atomic>
#include <climits>
#include <cstdarg>

// Service of the requests, by the worker or without one.
class FileRequests_c
{
public:
    // Runs the worker until it must stop.
    static void Work(void *);

    // Discards the worker, in a forked child, and renews the locks that it may have held.
    static void LeaveWorker();

    // Serves all requests in this call. A receiver of the event of an open may add requests. The outer call serves
    // those.
    static void ServeAll()
    {
        static bool s_bServing = false;
        if (!s_bServing)
        {
            ValueScope_T const Serving(s_bServing, true);
            while (ServeOldest())
            {}
        }
    }

private:
    static bool ServeOldest();
    // Returns the oldest request that waits, or null. Requires the lock g_csAsync.
    static AsyncFile_t * Oldest();
};

Array_T<String_T<STAYER_EXT_LENGTH>, 32, 0> g_dStayerExts;
Array_T<File_c *, 128, 0> g_dStayerFiles;
Array_T<AsyncFile_t, 32, 0> g_pAsyncFiles;
constinit plat::Lock_c g_csAsync;
constinit plat::Thread_c g_hAsyncThread;

namespace
{
    constinit plat::Lock_c g_StayerLock;           // lock of both lists of stayers
    constinit plat::WakeUp_c g_WakeUp;             // signal that a request was added or the worker must stop
    constinit std::atomic<bool> g_bStop = false;   // whether the worker must stop
    constinit bool g_bNoWorker = false;            // whether the system refused a thread
    constinit bool g_bWorkerLost = false;          // whether a forked child must still start a worker

    plat::ForkLock_c const g_AsyncForkLock(g_csAsync);
    plat::ForkLock_c const g_StayerForkLock(g_StayerLock);
    plat::ForkHandler_c const g_WorkerForkHandler({ nullptr, nullptr, FileRequests_c::LeaveWorker });

    // Returns the part from the last dot of the last component on, or an empty text.
    char const * ExtensionOf(File_c const & File)
    {
        char const * const szDot = std::strrchr(PathFileName(File.sName), '.');
        return szDot ? szDot : "";
    }

    bool IsStayerType(File_c const & File)
    {
        plat::LockScope_c const Scope(g_StayerLock);
        return !g_dStayerExts.IsEmpty() && g_dStayerExts.Find(String_T<STAYER_EXT_LENGTH>(ExtensionOf(File)));
    }

    int CountStayers()
    {
        plat::LockScope_c const Scope(g_StayerLock);
        return g_dStayerFiles.GetLength();
    }

    File_c * StayerAt(int iStayer)
    {
        plat::LockScope_c const Scope(g_StayerLock);
        return g_dStayerFiles[iStayer];
    }

    // Deletes the entries that fnPick selects by index, and frees the storage of an empty list.
    template <typename PICK>
    void DeleteStayers(PICK fnPick)
    {
        plat::LockScope_c const Scope(g_StayerLock);
        for (int i = g_dStayerFiles.GetLength() - 1; i >= 0; --i)
        {
            if (fnPick(i))
            {
                g_dStayerFiles.Delete(i);
            }
        }
        if (g_dStayerFiles.IsEmpty())
        {
            g_dStayerFiles.Reset();
        }
    }

    // Calls a function with each file of the extension, in table order. Returns the number of these files.
    // Asserts that szExt is not null, and returns 0 if it is.
    template <typename CALL>
    int VisitOfType(char const * szExt, CALL fnCall)
    {
        ZQ_ASSERT(szExt);
        int nFiles = 0;
        if (szExt)
        {
            for (File_c & File : g_sFileObjects)
            {
                if (std::strcmp(ExtensionOf(File), szExt) == 0)
                {
                    fnCall(File);
                    ++nFiles;
                }
            }
        }
        return nFiles;
    }

    void * HandleOf(int iRequest)
    {
        return reinterpret_cast<void *>(std::intptr_t{ iRequest });
    }

    // Starts a worker at the first use in a forked child. It begins with the request that the parent's worker was
    // serving.
    void RestoreWorker()
    {
        if (std::exchange(g_bWorkerLost, false))
        {
            FileAsyncStart();
        }
    }

    // Removes a request if it is done. Returns whether it was done. Reads without the lock: only this thread moves
    // requests.
    bool RemoveIfLoaded(int iRequest)
    {
        if (!std::atomic_ref(g_pAsyncFiles[iRequest].bLoaded).load(std::memory_order_acquire))
        {
            return false;
        }
        plat::LockScope_c const Scope(g_csAsync);
        g_pAsyncFiles.Delete(iRequest);
        return true;
    }
}

void File_c::StayerDoWork()
{
    m_nBlocks.fetch_add(1, std::memory_order_relaxed);
    if (!IsStayerType(*this))
    {
        return;
    }
    {
        MemCategoryScope_c const Category(mem::file);
        plat::LockScope_c const Scope(g_StayerLock);
        g_dStayerFiles.Add(this);
        m_bStayer = true;
    }
    RefOpen();
}

void FileStayerForget(File_c const & File, bool bAll)
{
    int nToForget = bAll ? INT_MAX : 1;
    DeleteStayers([&](int i) { return g_dStayerFiles[i] == &File && nToForget-- > 0; });
}

void FileStayerRegister(char const * szExtList, ...)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT_TEXT(g_dStayerExts.GetLength() < g_iMaxStayerTypes, "g_dStayerExts.GetLength() < g_iMaxStayerTypes");
    ZQ_ASSERT(szExtList);
    plat::LockScope_c const Scope(g_StayerLock);
    std::va_list Exts;
    va_start(Exts, szExtList);
    for (char const * szExt = szExtList; szExt; szExt = va_arg(Exts, char const *))
    {
        g_dStayerExts.Add(String_T<STAYER_EXT_LENGTH>(szExt));
    }
    va_end(Exts);
}

void FileStayerResetMask()
{
    plat::LockScope_c const Scope(g_StayerLock);
    g_dStayerExts.Reset();
}

void FileStayerResetAll()
{
    int const nStayers = CountStayers();
    for (int i = 0; i < nStayers; ++i)
    {
        FileClose(StayerAt(i));
    }
    DeleteStayers([nStayers](int i) { return i < nStayers; });   // the worker may have added more
}

void FilePrefetch(char const * szExt)
{
    long long nBytes = 0;
    int const nFiles = VisitOfType(szExt,
        [&nBytes](File_c & File)
        {
            FileOpen(&File);
            nBytes += FileLength(File);
        });
    Log("FilePrefetch: processed (%s) : %lli bytes in %i files", szExt ? szExt : "", nBytes, nFiles);
}

void FileUnfetch(char const * szExt)
{
    int const nFiles = VisitOfType(szExt, [](File_c & File) { FileClose(&File); });
    Log("FileUnfetch: processed (%s) : %i files", szExt ? szExt : "", nFiles);
}

void FileRequests_c::Work(void *)
{
    while (!g_bStop.load(std::memory_order_acquire))
    {
        plat::ThreadSetIdleClass();   // again after each request: a waiting thread may have raised the class
        if (!FileAsyncIsStopping() && !ServeOldest())
        {
            g_WakeUp.Wait();
        }
    }
}

void FileRequests_c::LeaveWorker()
{
    g_bWorkerLost = g_hAsyncThread.IsStarted();
    g_hAsyncThread.Forget();
    FileRenewLocks();
    for (AsyncFile_t const & Request : g_pAsyncFiles)
    {
        Request.pFile->RenewLock();   // it may be in no table
    }
}

// Serves the oldest request that waits. Returns false if none does. The lock is not held while the disk is read: a
// thread in the idle class may hold it for long. The request stays the oldest of those that wait, because only requests
// that are done are removed.
bool FileRequests_c::ServeOldest()
{
    AsyncFile_t Request;
    {
        plat::LockScope_c const Scope(g_csAsync);
        AsyncFile_t const * const pOldest = Oldest();
        if (!pOldest)
        {
            return false;
        }
        Request = *pOldest;
    }
    Request.pFile->RefOpenAsync(Request.pBuffer, Request.iRoom);
    plat::LockScope_c const Scope(g_csAsync);
    std::atomic_ref(Oldest()->bLoaded).store(true, std::memory_order_release);
    return true;
}

AsyncFile_t * FileRequests_c::Oldest()
{
    for (AsyncFile_t & Request : g_pAsyncFiles)
    {
        if (!Request.bLoaded)
        {
            return &Request;
        }
    }
    return nullptr;
}

void FileAsyncStart()
{
    g_bStop = false;
    g_bNoWorker = !g_hAsyncThread.Start(FileRequests_c::Work, nullptr);
    if (g_bNoWorker)
    {
        Log("FileAsyncStart: the system starts no thread, asynchronous files are read at once");
        FileRequests_c::ServeAll();
    }
}

void FileAsyncStop()
{
    g_bStop = true;
    g_WakeUp.Signal();
    g_hAsyncThread.Join();
    g_bNoWorker = false;
    g_bWorkerLost = false;
    plat::LockScope_c const Scope(g_csAsync);
    g_pAsyncFiles.Reset();
}

bool FileAsyncIsStopping()
{
    return g_bStop.load(std::memory_order_acquire);
}

void * FileAsyncOpen(File_c * pFile, void * pBuffer)
{
    ZQ_ASSERT(pFile);
    if (!pFile)
    {
        return HandleOf(-1);
    }
    int iRequest;
    {
        MemCategoryScope_c const Category(mem::file);
        plat::LockScope_c const Scope(g_csAsync);
        iRequest = g_pAsyncFiles.Add({ pFile, pBuffer, false, FileLength(*pFile) });
    }
    RestoreWorker();
    if (g_bNoWorker)
    {
        FileRequests_c::ServeAll();
    }
    g_WakeUp.Signal();
    return HandleOf(iRequest);
}

bool FileAsyncIsLoaded(void * file)
{
    RestoreWorker();
    auto const iRequest = reinterpret_cast<std::intptr_t>(file);
    bool const bKnown = iRequest >= 0 && iRequest < g_pAsyncFiles.GetLength();
    ZQ_ASSERT_TEXT(bKnown, "int(file) < g_pAsyncFiles.GetLength ()");
    return bKnown && RemoveIfLoaded(static_cast<int>(iRequest));
}

bool FileAsyncIsLoadedSlow(File_c * pFile)
{
    RestoreWorker();
    for (int i = 0; i < g_pAsyncFiles.GetLength(); ++i)
    {
        if (g_pAsyncFiles[i].pFile == pFile)
        {
            return RemoveIfLoaded(i);
        }
    }
    return false;
}
