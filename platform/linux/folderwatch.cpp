// The queue of the watch over inotify.
#include "platform/linux/folderwatch_internal.h"

#include "platform/common/folderrecords.h"
#include "platform/fork.h"
#include "platform/linux/facts.h"
#include "platform/linux/openfile.h"
#include "platform/linux/spelling.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/ioctl.h>
#include <utility>
#include <vector>

namespace plat
{
    namespace
    {
        using namespace watch;

        constexpr int MAX_READS = 256;   // reads of the kernel's queue for one batch, so that a batch ends
        unsigned g_nForks = 0;           // forks from the first process down to this one
        ForkHandler_c const g_CountFork({ nullptr, nullptr, [] { ++g_nForks; } });

        constinit Lock_c g_TreeLock;   // held while a tree changes, so that a fork finds it complete
        ForkLock_c const g_TreeForkLock(g_TreeLock);
    }

    FolderWatch_c::Tree_c::Tree_c(bool (*fnKeep)(char const *))
        : m_fnKeep(fnKeep)
        , m_nForks(g_nForks)
    {}

    FolderWatch_c::Tree_c::~Tree_c()
    {
        ForkDropRemove(m_Drop);
        m_Queue.Reset(-1);
    }

    bool FolderWatch_c::Tree_c::Open(char const * szFolder)
    {
        DiskPath_c Path(szFolder);
        Path.TrimSeparators();
        m_Queue.Reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        DropAtFork();
        if (m_Queue.GetNumber() < 0 || Path.Try([](char const * szTry) { return access(szTry, R_OK | X_OK); }) != 0)
        {
            return false;
        }
        char szRoot[PATH_MAX];   // absolute, because the current folder may change
        m_sRoot = realpath(Path.Get(), szRoot) != nullptr ? szRoot : Path.Get();
        return AddRoot() && !m_dFolders.empty();
    }

    void FolderWatch_c::Tree_c::RequestBatch(void * pBuffer, std::size_t nBytes)
    {
        m_pRead = static_cast<char *>(pBuffer);
        m_nRead = nBytes;
    }

    bool FolderWatch_c::Tree_c::WriteBatch()
    {
        bool const bOfParent = m_nForks != g_nForks;
        if (m_pRead == nullptr || (bOfParent && !StartInChild()))
        {
            return false;
        }
        // FIONREAD reads no bytes, even if the host has closed the queue and another file has its number. So Get, which
        // compares the identity, is needed only if there are bytes to read.
        int nWaiting = 0;
        if (ioctl(m_Queue.GetNumber(), FIONREAD, &nWaiting) != 0 || nWaiting <= 0 || m_Queue.Get() < 0)
        {
            return false;
        }
        ssize_t const nFilled = read(m_Queue.GetNumber(), m_dEvents, sizeof m_dEvents);
        return nFilled > 0 && Collect(static_cast<std::size_t>(nFilled));
    }

    // Handles the buffer of events and the rest of the queue, at most MAX_READS buffers. Then calls Deliver and returns
    // its result. Checks the lengths, because the bytes may be those of another file: the identity does not always
    // distinguish that file from the queue.
    bool FolderWatch_c::Tree_c::Collect(std::size_t nFilled)
    {
        LockScope_c const Scope(g_TreeLock);
        for (int nReads = 1; nFilled > 0; ++nReads)
        {
            for (std::size_t iByte = 0; nFilled - iByte >= sizeof(inotify_event);)
            {
                auto const & Event = *reinterpret_cast<inotify_event const *>(m_dEvents + iByte);
                if (Event.len > nFilled - iByte - sizeof(inotify_event)
                    || (Event.len > 0 && Event.name[Event.len - 1] != '\0'))
                {
                    break;
                }
                Handle(Event);
                iByte += sizeof(inotify_event) + Event.len;
            }
            ssize_t const nMore = nReads < MAX_READS ? read(m_Queue.GetNumber(), m_dEvents, sizeof m_dEvents) : 0;
            nFilled = nMore > 0 ? static_cast<std::size_t>(nMore) : 0;
        }
        for (Detached_s const & Detached : m_dDetached)   // renamed to a place outside
        {
            RemoveTree(Detached.iFolder);
        }
        m_dDetached.clear();
        std::erase_if(m_dDisplaced,
            [this](Displaced_s const & Displaced)
            {
                bool const bWaits = m_dFolders.contains(Displaced.iParent) && m_dFolders.contains(Displaced.iFolder);
                if (!bWaits)
                {
                    RemoveTree(Displaced.iFolder);
                }
                return !bWaits;
            });
        for (ToAdd_s & ToAdd : std::exchange(m_dLater, {}))
        {
            AddTree(std::move(ToAdd));
        }
        return Deliver();
    }

    // Writes the changes to the buffer of RequestBatch, and ends that request. After a loss reads the tree again and
    // leaves the buffer as it was. Returns false if there is nothing to report.
    bool FolderWatch_c::Tree_c::Deliver()
    {
        std::vector<std::u16string> const dNames = ExtractNames();
        if (!m_bLost && dNames.empty())
        {
            return false;
        }
        if (std::exchange(m_bLost, false))
        {
            m_bLost = !Rebuild() || m_bLost;
        }
        else
        {
            WriteRecords(dNames, m_pRead, m_nRead);
        }
        m_pRead = nullptr;
        return true;
    }

    // Empties the list of changes and returns the paths of the changed files that still exist. A file whose name was
    // removed after the change may be back: two names may have been exchanged. The events do not distinguish that from
    // a rename.
    std::vector<std::u16string> FolderWatch_c::Tree_c::ExtractNames()
    {
        std::vector<std::u16string> dNames;
        for (Change_s const & Changed : std::exchange(m_dChanges, {}))
        {
            auto const itFolder = m_dFolders.find(Changed.iFolder);
            if (itFolder == m_dFolders.end())
            {
                continue;
            }
            auto & dFiles = itFolder->second.dFiles;
            auto const itFile = dFiles.find(Changed.sName);
            bool const bReturned =
                itFile == dFiles.end() && FactsOf(PathOf(Changed.iFolder) + '/' + Changed.sName).bRegular;
            if (bReturned)
            {
                dFiles.try_emplace(Changed.sName);
            }
            if (bReturned || (itFile != dFiles.end() && std::exchange(itFile->second.bChanged, false)))
            {
                dNames.push_back(UnitsOf(Changed));
            }
        }
        return dNames;
    }

    // Makes a child of a fork call Abandon.
    void FolderWatch_c::Tree_c::DropAtFork()
    {
        ForkDropAdd(
            m_Drop, [](void * pTree) { static_cast<Tree_c *>(pTree)->Abandon(); }, this);
    }

    // Replaces the parent's queue in the child of a fork. With the queue, the child would read the parent's events
    // and keep the queue alive. A pipe gets the queue's descriptor number, so that the number still belongs to the
    // watch. A pipe can't be confused with another file. Without a pipe the child keeps the queue.
    void FolderWatch_c::Tree_c::Abandon()
    {
        int dEnds[2];
        if (pipe2(dEnds, O_CLOEXEC) == 0)
        {
            m_Queue.Replace(dEnds[0]);
            close(dEnds[0]);
            close(dEnds[1]);
        }
    }

    // Opens a queue of its own in the child of a fork, at the child's first WriteBatch after a RequestBatch. Returns
    // false on failure. The next call tries again.
    bool FolderWatch_c::Tree_c::StartInChild()
    {
        LockScope_c const Scope(g_TreeLock);
        return m_Queue.Get() >= 0 && Rebuild();
    }

    // Reads the whole tree again with a new queue, which gets the number of the old one. Returns false if no new
    // queue can be opened, or if the old one's number can't be replaced.
    bool FolderWatch_c::Tree_c::Rebuild()
    {
        Descriptor_c const Queue(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        if (!Queue.IsOpen() || !m_Queue.Replace(Queue.Get()))
        {
            return false;
        }
        DropAtFork();
        for (auto const & [iFolder, Folder] : m_dFolders)
        {
            for (auto const & [sName, File] : Folder.dFiles)
            {
                Keep(iFolder, sName);
            }
        }
        m_dDisplaced.clear();
        m_dFolders.clear();
        m_nForks = g_nForks;
        AddRoot();
        return true;
    }

    // Watches the whole tree. Returns what AddTree returns.
    bool FolderWatch_c::Tree_c::AddRoot()
    {
        m_bStarting = true;
        m_dLater.clear();
        bool const bAll = AddTree({ NO_FOLDER, m_sRoot, Appeared_e::Before });
        m_bStarting = false;
        return bAll;
    }

    bool FolderWatch_c::Open(char const * szFolder, bool (*fnKeep)(char const * szName))
    {
        Close();
        LockScope_c const Scope(g_TreeLock);
        m_pTree = new Tree_c(fnKeep);
        if (!m_pTree->Open(szFolder))
        {
            int const iError = m_pTree->m_nUnwatched > 0 ? m_pTree->m_iRefusal : errno;
            Close();
            errno = iError;
        }
        return IsOpen();
    }

    void FolderWatch_c::Close()
    {
        LockScope_c const Scope(g_TreeLock);
        delete m_pTree;
        m_pTree = nullptr;
    }

    void * FolderWatch_c::GetHandle() const
    {
        return IsOpen() ? HandleOf(m_pTree->GetNumber()) : nullptr;
    }

    void FolderWatch_c::RequestBatch(void * pBuffer, std::size_t nBytes)
    {
        if (IsOpen())
        {
            m_pTree->RequestBatch(pBuffer, nBytes);
        }
    }

    bool FolderWatch_c::WriteBatch()
    {
        return IsOpen() && m_pTree->WriteBatch();
    }

    bool FolderWatch_c::IsGone() const
    {
        return IsOpen() && m_pTree->IsGone();
    }

    std::size_t FolderWatch_c::ExtractUnwatched()
    {
        std::size_t const nUnwatched = IsOpen() ? std::exchange(m_pTree->m_nUnwatched, 0) : 0;
        errno = nUnwatched > 0 ? m_pTree->m_iRefusal : errno;
        return nUnwatched;
    }

    void FolderWatchReason(char * szText, std::size_t nSize)
    {
        char const * const szRemedy =
            errno == ENOSPC   ? "; raise fs.inotify.max_user_watches (sysctl)"
            : errno == EMFILE ? "; raise fs.inotify.max_user_instances (sysctl) or the limit of open files (ulimit -n)"
                              : "";
        std::snprintf(
            szText, nSize, "%s%s", errno == ENOSPC ? "the system has no watches left" : std::strerror(errno), szRemedy);
    }
}
