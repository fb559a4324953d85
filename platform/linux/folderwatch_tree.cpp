// The tree of folders of the watch over inotify.
#include "platform/common/folderrecords.h"
#include "platform/linux/facts.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/folderwatch_internal.h"
#include "platform/linux/openfile.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace plat
{
    namespace
    {
        using namespace watch;

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

    // Moves the record of a watched folder to a path that leads to it, because the folder was moved here. The event of
    // that move may follow. It never follows if this place was not watched at the time. Does nothing if the path is
    // another link to the folder. Changes count as lost if the record can't be placed.
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
}
