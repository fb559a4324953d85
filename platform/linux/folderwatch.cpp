// The watch over inotify. The kernel has one watch for each folder. Memory has the tree of folders with the names of
// their files. Only these names distinguish a rename onto a file from a rename to a free name.
#include "platform/folderwatch.h"

#include "platform/common/folderrecords.h"
#include "platform/fork.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/facts.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/foldertree.h"
#include "platform/linux/forkdrop.h"
#include "platform/linux/openfile.h"
#include "platform/linux/spelling.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace plat
{
    namespace
    {
        using namespace watch;

        constexpr int MAX_READS = 256;            // reads of the kernel's queue for one batch, so that a batch ends
        constexpr std::size_t MAX_KEPT = 65536;   // names
        unsigned g_nForks = 0;                    // forks from the first process down to this one
        ForkHandler_c const g_CountFork({ nullptr, nullptr, [] { ++g_nForks; } });

        constinit Lock_c g_TreeLock;   // held while a tree changes, so that a fork finds it complete
        ForkLock_c const g_TreeForkLock(g_TreeLock);

        constexpr std::uint32_t FOLDER_EVENTS =
            IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_ONLYDIR | IN_EXCL_UNLINK;

        // Returns the state of a file in a folder that was created at tMade. An older file was renamed. Any other
        // counts as changed if it has contents and no known writer. Otherwise its later close decides.
        File_s StateOfNewFile(int iFolder, char const * szName, FileTime_t tMade)
        {
            Descriptor_c const File(openat(iFolder, szName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
            FileFacts_t Facts;
            bool const bFile = File.IsOpen() && ReadFactsAt(File.Get(), "", AT_EMPTY_PATH, Facts) && Facts.bRegular;
            if (bFile && Facts.tCreation < tMade)
            {
                return {};
            }
            bool const bWritten = bFile && Facts.nSize > 0 && TestWriters(File.Get()) != Writers_e::Some;
            return bWritten ? File_s{ .bChanged = true } : File_s{ .bFresh = true };
        }
    }

    class FolderWatch_c::Tree_c
    {
    public:
        explicit Tree_c(bool (*fnKeep)(char const *))
            : m_fnKeep(fnKeep)
        {}
        ~Tree_c()
        {
            ForkDropRemove(m_Drop);
            m_Queue.Reset(-1);
        }
        Tree_c(Tree_c const &) = delete;
        Tree_c & operator=(Tree_c const &) = delete;

        bool Open(char const * szFolder);
        int GetNumber() const { return m_Queue.GetNumber(); }
        void Read(void * pBuffer, std::size_t nBytes);
        bool IsComplete();
        bool IsGone() const { return m_dFolders.empty(); }

        std::size_t m_nUnwatched = 0;   // folders, and links to folders, left when the kernel refused a watch
        int m_iRefusal = 0;             // error of the latest refusal

    private:
        struct ToAdd_s
        {
            int iParent;
            std::string sName;
            Appeared_e eAppeared;
        };

        ZQ_COLD bool Collect(std::size_t nFilled);
        bool Deliver();
        std::vector<std::u16string> ExtractNames();
        bool Rebuild();
        ZQ_COLD bool StartInChild();
        void DropAtFork();
        void Abandon();

        bool AddRoot();
        bool AddTree(ToAdd_s Top);
        int AddFolder(ToAdd_s const & ToAdd);
        void Relocate(std::string const & sPath, ToAdd_s const & ToAdd);
        bool Place(int iFolder, int iParent, std::string const & sName);
        bool IsBelow(int iFolder, int iTop) const;
        int NumberOf(std::string const & sPath);
        bool IsWhereItWas(int iFolder);
        bool List(int iFolder, Appeared_e eAppeared, FileTime_t tMade, std::vector<ToAdd_s> & dFolders,
            std::vector<ToAdd_s> & dLinks);
        void RemoveTree(int iTop);
        void Unlink(int iFolder);
        std::string PathOf(int iFolder) const;
        std::u16string UnitsOf(Change_s const & Changed) const;

        void Handle(inotify_event const & Event);
        void OnAppeared(int iFolder, Folder_s & Folder, inotify_event const & Event);
        void OnRemoved(int iFolder, Folder_s & Folder, inotify_event const & Event);
        void OnClosed(int iFolder, Folder_s & Folder, std::string const & sName);
        bool Attach(int iFolder, inotify_event const & Event);
        int ExtractDisplaced(int iParent, char const * szName);
        void Keep(int iFolder, std::string const & sName);
        bool IsKept(int iFolder, std::string const & sName) const;
        void Change(int iFolder, std::string const & sName, File_s & File);

        bool (*m_fnKeep)(char const * szName);
        unsigned m_nForks = g_nForks;   // when the queue was opened
        KeptDescriptor_c m_Queue;
        ForkDrop_s m_Drop{};
        std::string m_sRoot;
        std::unordered_map<int, Folder_s> m_dFolders;   // by the kernel's number of the watch
        std::vector<Change_s> m_dChanges;               // of the present batch, in order
        std::unordered_set<std::string> m_dKept;        // paths of files that may not exist and whose names are kept
        std::vector<Detached_s> m_dDetached;
        std::vector<Displaced_s> m_dDisplaced;
        std::vector<ToAdd_s> m_dLater;   // folders that the paths known at that time did not lead to
        bool m_bLost = false;            // whether changes were lost: Deliver then reads the tree again
        bool m_bStarting = false;        // whether the whole tree is being added: no event has been missed
        char * m_pRead = nullptr;        // the caller's buffer while a Read is pending
        std::size_t m_nRead = 0;         // bytes of m_pRead
        alignas(inotify_event) char m_dEvents[16384];
    };

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

    void FolderWatch_c::Tree_c::Read(void * pBuffer, std::size_t nBytes)
    {
        m_pRead = static_cast<char *>(pBuffer);
        m_nRead = nBytes;
    }

    bool FolderWatch_c::Tree_c::IsComplete()
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

    // Handles the buffer of events and the rest of the queue, at most MAX_READS buffers. Then does what Deliver does.
    // Checks the lengths, because the bytes may be those of another file: the identity does not always
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

    // Writes the changes to the buffer of Read, and ends that Read. After a loss reads the tree again and leaves the
    // buffer as it was. Returns false if there is nothing to report.
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

    // Opens a queue of its own in the child of a fork, at the child's first IsComplete after a Read. Returns false on
    // failure. The next call tries again.
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

    // Watches a folder with all folders below it. Folders come before the targets of links, so that a folder is known
    // by its own path. Returns false if the kernel has no watch or no memory left.
    bool FolderWatch_c::Tree_c::AddTree(ToAdd_s Top)
    {
        std::vector<ToAdd_s> dFolders;
        std::vector<ToAdd_s> dLinks;
        Appeared_e const eAppeared = Top.eAppeared;
        bool const bNow = eAppeared == Appeared_e::Now && m_dFolders.contains(Top.iParent);
        FileTime_t const tMade = bNow ? FactsOf(PathOf(Top.iParent) + '/' + Top.sName).tCreation : 0;
        dFolders.push_back(std::move(Top));
        while (!dFolders.empty() || !dLinks.empty())
        {
            std::vector<ToAdd_s> & dNext = dFolders.empty() ? dLinks : dFolders;
            ToAdd_s ToAdd = std::move(dNext.back());
            dNext.pop_back();
            int const iFolder = AddFolder(ToAdd);
            if (iFolder >= 0)
            {
                if (!List(iFolder, eAppeared, tMade, dFolders, dLinks))
                {
                    Unlink(iFolder);
                    RemoveTree(iFolder);
                    m_dLater.push_back(std::move(ToAdd));
                }
            }
            else if (errno == ENOSPC || errno == ENOMEM)
            {
                m_iRefusal = errno;
                m_nUnwatched += 1 + dFolders.size() + dLinks.size();
                return false;
            }
        }
        return true;
    }

    // Watches one folder and returns the number of the watch. Returns -1, with errno, on failure, or if the folder is
    // watched already.
    int FolderWatch_c::Tree_c::AddFolder(ToAdd_s const & ToAdd)
    {
        bool const bRoot = ToAdd.iParent == NO_FOLDER;
        if (!bRoot && !m_dFolders.contains(ToAdd.iParent))   // moved away meanwhile
        {
            errno = ENOENT;
            return -1;
        }
        std::string const sPath = bRoot ? ToAdd.sName : PathOf(ToAdd.iParent) + '/' + ToAdd.sName;
        int const iFolder = inotify_add_watch(m_Queue.GetNumber(), sPath.c_str(),
            FOLDER_EVENTS | IN_MASK_CREATE | (bRoot ? std::uint32_t(IN_MOVE_SELF) : 0u));
        int const iError = iFolder < 0 ? errno : 0;
        if (!bRoot && !IsWhereItWas(ToAdd.iParent))
        {
            if (iFolder >= 0)
            {
                inotify_rm_watch(m_Queue.GetNumber(), iFolder);
            }
            m_dLater.push_back(ToAdd);
            errno = ENOENT;
            return -1;
        }
        if (iError == EEXIST)
        {
            Relocate(sPath, ToAdd);
        }
        if (iFolder < 0)
        {
            errno = iError;
            return -1;
        }
        m_dFolders[iFolder].sName = ToAdd.sName;
        if (!bRoot)
        {
            Place(iFolder, ToAdd.iParent, ToAdd.sName);
        }
        return iFolder;
    }

    // Returns whether a folder's path, which past events have made, still leads to it. Returns true without a test
    // while the whole tree is being added.
    bool FolderWatch_c::Tree_c::IsWhereItWas(int iFolder)
    {
        return m_bStarting || NumberOf(PathOf(iFolder)) == iFolder;
    }

    // Moves the record of a watched folder to a path that leads to it, unless that is another link: the folder was
    // moved here. Changes count as lost if the record can't be placed. The event of that move may follow. It never
    // follows if this place was not watched at the time.
    void FolderWatch_c::Tree_c::Relocate(std::string const & sPath, ToAdd_s const & ToAdd)
    {
        int const iKnown = NumberOf(sPath);
        if (iKnown < 0)
        {
            return;
        }
        auto const fnIsKnown = [iKnown](auto const & Away) { return Away.iFolder == iKnown; };
        auto const nAway = std::erase_if(m_dDetached, fnIsKnown) + std::erase_if(m_dDisplaced, fnIsKnown);
        if (nAway > 0 || NumberOf(PathOf(iKnown)) != iKnown)
        {
            Unlink(iKnown);
            m_bLost = !Place(iKnown, ToAdd.iParent, ToAdd.sName) || m_bLost;
        }
    }

    // Returns the number of the folder that the path leads to. Returns -1 if it leads to no watched folder.
    int FolderWatch_c::Tree_c::NumberOf(std::string const & sPath)
    {
        int const iFolder = inotify_add_watch(m_Queue.GetNumber(), sPath.c_str(), FOLDER_EVENTS | IN_MASK_ADD);
        if (iFolder < 0 || m_dFolders.contains(iFolder))
        {
            return iFolder;
        }
        inotify_rm_watch(m_Queue.GetNumber(), iFolder);
        return -1;
    }

    // Returns whether a folder is iTop or lies below it.
    bool FolderWatch_c::Tree_c::IsBelow(int iFolder, int iTop) const
    {
        while (iFolder != iTop && iFolder != NO_FOLDER)
        {
            iFolder = m_dFolders.at(iFolder).iParent;
        }
        return iFolder == iTop;
    }

    // Puts a folder without a parent into iParent, and replaces the folder that had the name there. Returns false if
    // the parent lies below the folder, through a link that moved along. Then no path leads to either.
    bool FolderWatch_c::Tree_c::Place(int iFolder, int iParent, std::string const & sName)
    {
        if (IsBelow(iParent, iFolder))
        {
            return false;
        }
        auto const [itPlace, bFree] = m_dFolders.at(iParent).dFolders.try_emplace(sName, iFolder);
        if (!bFree && itPlace->second != iFolder)
        {
            RemoveTree(std::exchange(itPlace->second, iFolder));
        }
        Folder_s & Folder = m_dFolders.at(iFolder);
        Folder.iParent = iParent;
        Folder.sName = sName;
        return true;
    }

    // Records the files in a folder, and adds its subfolders and its links to folders to the lists. The folder is
    // watched already, so that no change in between is missed. A folder that can't be opened counts as empty. Returns
    // false if its path does not lead to it.
    bool FolderWatch_c::Tree_c::List(int iFolder, Appeared_e eAppeared, FileTime_t tMade,
        std::vector<ToAdd_s> & dFolders, std::vector<ToAdd_s> & dLinks)
    {
        Descriptor_c const Descriptor(open(PathOf(iFolder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!IsWhereItWas(iFolder))
        {
            return false;
        }
        if (!Descriptor.IsOpen())
        {
            return true;
        }
        Folder_s & Folder = m_dFolders[iFolder];
        FolderReader_c Reader(Descriptor.Get());
        while (dirent64 const * const pEntry = Reader.Next())
        {
            bool const bMayBeLink = pEntry->d_type == DT_LNK || pEntry->d_type == DT_UNKNOWN;
            if (std::strchr(pEntry->d_name, '\\') != nullptr)
            {
                continue;   // no path leads there
            }
            if (pEntry->d_type == DT_DIR || (bMayBeLink && FactsOf(pEntry->d_name, Descriptor.Get()).bFolder))
            {
                (bMayBeLink ? dLinks : dFolders).push_back({ iFolder, pEntry->d_name, eAppeared });
                continue;
            }
            File_s & File = Folder.dFiles[pEntry->d_name];
            File = eAppeared == Appeared_e::Now ? StateOfNewFile(Descriptor.Get(), pEntry->d_name, tMade) : File_s{};
            File.bChanged = File.bChanged || (!m_bStarting && !File.bFresh && IsKept(iFolder, pEntry->d_name));
            if (File.bChanged)
            {
                m_dChanges.push_back({ iFolder, pEntry->d_name });
            }
        }
        m_bLost = m_bLost || Reader.IsBroken();
        return true;
    }

    // Ends the watches of a folder and of all folders below it, and removes their records. Requires that no parent has
    // the folder.
    void FolderWatch_c::Tree_c::RemoveTree(int iTop)
    {
        std::vector<int> dTodo{ iTop };
        while (!dTodo.empty())
        {
            auto const itFolder = m_dFolders.find(dTodo.back());
            dTodo.pop_back();
            if (itFolder != m_dFolders.end())
            {
                for (auto const & [sName, iFolder] : itFolder->second.dFolders)
                {
                    dTodo.push_back(iFolder);
                }
                inotify_rm_watch(m_Queue.GetNumber(), itFolder->first);
                m_dFolders.erase(itFolder);
            }
        }
    }

    // Removes a folder from its parent.
    void FolderWatch_c::Tree_c::Unlink(int iFolder)
    {
        Folder_s & Folder = m_dFolders[iFolder];
        auto const itParent = m_dFolders.find(Folder.iParent);
        if (itParent != m_dFolders.end())
        {
            itParent->second.dFolders.erase(Folder.sName);
        }
        Folder.iParent = NO_FOLDER;
    }

    // Returns the path of a folder, which begins with that of the watched folder.
    std::string FolderWatch_c::Tree_c::PathOf(int iFolder) const
    {
        Folder_s const & Folder = m_dFolders.at(iFolder);
        std::string sPath = Folder.sName;
        for (int iParent = Folder.iParent; iParent != NO_FOLDER;)
        {
            Folder_s const & Parent = m_dFolders.at(iParent);
            sPath.insert(0, Parent.sName + '/');
            iParent = Parent.iParent;
        }
        return sPath;
    }

    // Returns the path of a changed file, relative to the watched folder.
    std::u16string FolderWatch_c::Tree_c::UnitsOf(Change_s const & Changed) const
    {
        std::vector<std::string const *> dNames;
        Folder_s const * pFolder = &m_dFolders.at(Changed.iFolder);
        for (; pFolder->iParent != NO_FOLDER; pFolder = &m_dFolders.at(pFolder->iParent))
        {
            dNames.push_back(&pFolder->sName);
        }
        std::u16string sUnits;
        for (auto itName = dNames.rbegin(); itName != dNames.rend(); ++itName)
        {
            AppendUnits(sUnits, **itName);
            sUnits += u'\\';
        }
        AppendUnits(sUnits, Changed.sName);
        return sUnits;
    }

    void FolderWatch_c::Tree_c::Handle(inotify_event const & Event)
    {
        m_bLost = m_bLost || (Event.mask & IN_Q_OVERFLOW) != 0;
        auto const itFolder = m_dFolders.find(Event.wd);
        if (itFolder == m_dFolders.end())
        {
            return;   // the watch ended meanwhile
        }
        if ((Event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0)
        {
            Unlink(Event.wd);
            RemoveTree(Event.wd);
            return;
        }
        if (Event.len == 0 || std::strchr(Event.name, '\\') != nullptr)
        {
            return;
        }
        if ((Event.mask & (IN_CREATE | IN_MOVED_TO)) != 0)
        {
            OnAppeared(Event.wd, itFolder->second, Event);
        }
        else if ((Event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0)
        {
            OnRemoved(Event.wd, itFolder->second, Event);
        }
        else if ((Event.mask & IN_CLOSE_WRITE) != 0)
        {
            OnClosed(Event.wd, itFolder->second, Event.name);
        }
    }

    void FolderWatch_c::Tree_c::OnAppeared(int iFolder, Folder_s & Folder, inotify_event const & Event)
    {
        if (Attach(iFolder, Event))
        {
            return;
        }
        bool const bMade = (Event.mask & IN_CREATE) != 0;
        if ((Event.mask & IN_ISDIR) != 0)
        {
            AddTree({ iFolder, Event.name, bMade ? Appeared_e::Now : Appeared_e::Before });
            return;
        }
        auto const [itFile, bNew] = Folder.dFiles.try_emplace(Event.name);
        itFile->second.bFresh = bMade;
        if (!bMade && (!bNew || IsKept(iFolder, itFile->first)))   // a rename onto a known name
        {
            Change(iFolder, itFile->first, itFile->second);
        }
    }

    // Handles the second half of the rename of a folder, or of a link to one. Returns false for any other event.
    bool FolderWatch_c::Tree_c::Attach(int iFolder, inotify_event const & Event)
    {
        auto const itDetached = std::find_if(m_dDetached.begin(), m_dDetached.end(),
            [&Event](Detached_s const & Detached) { return Detached.iCookie == Event.cookie; });
        if (itDetached == m_dDetached.end())
        {
            return false;
        }
        int const iMoved = itDetached->iFolder;
        m_dDetached.erase(itDetached);
        auto const & dFolders = m_dFolders.at(iFolder).dFolders;
        auto const itThere = dFolders.find(Event.name);
        if (itThere != dFolders.end() && itThere->second != iMoved)
        {
            m_dDisplaced.push_back({ iFolder, Event.name, itThere->second });
            Unlink(itThere->second);
        }
        if (!Place(iMoved, iFolder, Event.name))
        {
            RemoveTree(iMoved);
        }
        return true;
    }

    void FolderWatch_c::Tree_c::OnRemoved(int iFolder, Folder_s & Folder, inotify_event const & Event)
    {
        bool const bMoved = (Event.mask & IN_MOVED_FROM) != 0;
        int const iDisplaced = bMoved ? ExtractDisplaced(iFolder, Event.name) : NO_FOLDER;
        auto const itFolder = Folder.dFolders.find(Event.name);
        // During an exchange a folder and a file may have one name. Events report links to folders as files.
        bool const bFile =
            itFolder == Folder.dFolders.end() || ((Event.mask & IN_ISDIR) == 0 && Folder.dFiles.contains(Event.name));
        if (iDisplaced == NO_FOLDER && bFile)
        {
            Folder.dFiles.erase(Event.name);
            return Keep(iFolder, Event.name);
        }
        int const iRemoved = iDisplaced == NO_FOLDER ? itFolder->second : iDisplaced;
        Unlink(iRemoved);
        if (bMoved)
        {
            m_dDetached.push_back({ Event.cookie, iRemoved });
        }
        else
        {
            RemoveTree(iRemoved);
        }
    }

    // Removes the record of the folder that had the name before another one got it, and returns the number of that
    // folder. Returns NO_FOLDER if there is none, or if that folder is not watched.
    int FolderWatch_c::Tree_c::ExtractDisplaced(int iParent, char const * szName)
    {
        auto const itDisplaced = std::find_if(m_dDisplaced.begin(), m_dDisplaced.end(),
            [&](Displaced_s const & Displaced) { return Displaced.iParent == iParent && Displaced.sName == szName; });
        if (itDisplaced == m_dDisplaced.end())
        {
            return NO_FOLDER;
        }
        int const iFolder = itDisplaced->iFolder;
        m_dDisplaced.erase(itDisplaced);
        return m_dFolders.contains(iFolder) ? iFolder : NO_FOLDER;
    }

    // Keeps the name of a file that may not exist, if m_fnKeep wants it and fewer than MAX_KEPT are kept. Stores its
    // path, because its folder may be deleted and created again.
    void FolderWatch_c::Tree_c::Keep(int iFolder, std::string const & sName)
    {
        if (m_fnKeep(sName.c_str()) && m_dKept.size() < MAX_KEPT)
        {
            m_dKept.insert(PathOf(iFolder) + '/' + sName);
        }
    }

    bool FolderWatch_c::Tree_c::IsKept(int iFolder, std::string const & sName) const
    {
        return !m_dKept.empty() && m_dKept.contains(PathOf(iFolder) + '/' + sName);
    }

    void FolderWatch_c::Tree_c::OnClosed(int iFolder, Folder_s & Folder, std::string const & sName)
    {
        File_s & File = Folder.dFiles[sName];
        FileFacts_t Facts;
        if (!std::exchange(File.bFresh, false)
            || (ReadFactsAt(AT_FDCWD, (PathOf(iFolder) + '/' + sName).c_str(), AT_SYMLINK_NOFOLLOW, Facts)
                && Facts.nSize > 0))
        {
            Change(iFolder, sName, File);
        }
    }

    // Adds a file to the changes of the present batch, unless it belongs to them already.
    void FolderWatch_c::Tree_c::Change(int iFolder, std::string const & sName, File_s & File)
    {
        if (!std::exchange(File.bChanged, true))
        {
            m_dChanges.push_back({ iFolder, sName });
        }
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

    void FolderWatch_c::Read(void * pBuffer, std::size_t nBytes)
    {
        if (IsOpen())
        {
            m_pTree->Read(pBuffer, nBytes);
        }
    }

    bool FolderWatch_c::IsComplete()
    {
        return IsOpen() && m_pTree->IsComplete();
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
