// folderwatch_internal.h: the watch over inotify.
//
// The kernel has one watch for each folder. Memory has the tree of folders with the names of their files. Only these
// names distinguish a rename onto a file from a rename to a free name. folderwatch.cpp reads the queue and delivers the
// changes, folderwatch_tree.cpp has the tree, and folderwatch_events.cpp handles the events.
//
// Threads: as FolderWatch_c. A tree changes under a lock, for which a fork waits.
#pragma once

#include "platform/compiler.h"
#include "platform/folderwatch.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/foldertree.h"
#include "platform/linux/forkdrop.h"

#include <cstddef>
#include <string>
#include <sys/inotify.h>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace plat
{
    /// The queue of a watch, and the tree of folders that it watches.
    class FolderWatch_c::Tree_c
    {
    public:
        /// Makes a tree without folders. fnKeep is as in FolderWatch_c::Open.
        explicit Tree_c(bool (*fnKeep)(char const *));
        ~Tree_c();
        Tree_c(Tree_c const &) = delete;
        Tree_c & operator=(Tree_c const &) = delete;

        /// Do what those of FolderWatch_c do. Open requires that the caller holds the lock.
        bool Open(char const * szFolder);
        void RequestBatch(void * pBuffer, std::size_t nBytes);
        bool WriteBatch();
        bool IsGone() const { return m_dFolders.empty(); }

        /// Returns the descriptor number of the queue, also after the host has closed it.
        int GetNumber() const { return m_Queue.GetNumber(); }

        std::size_t m_nUnwatched = 0;   // folders, and links to folders, left when the kernel refused a watch
        int m_iRefusal = 0;             // error of the latest refusal

    private:
        struct ToAdd_s
        {
            int iParent;
            std::string sName;
            watch::Appeared_e eAppeared;
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
        bool List(int iFolder, watch::Appeared_e eAppeared, FileTime_t tMade, std::vector<ToAdd_s> & dFolders,
            std::vector<ToAdd_s> & dLinks);
        void RemoveTree(int iTop);
        void Unlink(int iFolder);
        std::string PathOf(int iFolder) const;
        std::u16string UnitsOf(watch::Change_s const & Changed) const;

        void Handle(inotify_event const & Event);
        void OnAppeared(int iFolder, watch::Folder_s & Folder, inotify_event const & Event);
        void OnRemoved(int iFolder, watch::Folder_s & Folder, inotify_event const & Event);
        void OnClosed(int iFolder, watch::Folder_s & Folder, std::string const & sName);
        bool Attach(int iFolder, inotify_event const & Event);
        int ExtractDisplaced(int iParent, char const * szName);
        void Keep(int iFolder, std::string const & sName);
        bool IsKept(int iFolder, std::string const & sName) const;
        void Change(int iFolder, std::string const & sName, watch::File_s & File);

        bool (*m_fnKeep)(char const * szName);
        unsigned m_nForks;   // when the queue was opened
        KeptDescriptor_c m_Queue;
        ForkDrop_s m_Drop{};
        std::string m_sRoot;
        std::unordered_map<int, watch::Folder_s> m_dFolders;   // by the kernel's number of the watch
        std::vector<watch::Change_s> m_dChanges;               // of the present batch, in order
        std::unordered_set<std::string> m_dKept;   // paths of files that may not exist and whose names are kept
        std::vector<watch::Detached_s> m_dDetached;
        std::vector<watch::Displaced_s> m_dDisplaced;
        std::vector<ToAdd_s> m_dLater;   // folders that the paths known at that time did not lead to
        bool m_bLost = false;            // whether changes were lost: Deliver then reads the tree again
        bool m_bStarting = false;        // whether the whole tree is being added: no event has been missed
        char * m_pRead = nullptr;        // the caller's buffer while a request is pending
        std::size_t m_nRead = 0;         // bytes of m_pRead
        alignas(inotify_event) char m_dEvents[16384];
    };
}
