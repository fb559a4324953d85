// The events of the watch over inotify.
#include "platform/linux/facts.h"
#include "platform/linux/folderwatch_internal.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

namespace plat
{
    using namespace watch;

    namespace
    {
        constexpr std::size_t MAX_KEPT = 65536;   // names
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
}
