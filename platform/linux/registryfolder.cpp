#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64

#include "platform/linux/registryfolder.h"

#include "platform/common/folding.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/registryrecord.h"
#include "platform/linux/userfolder.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>

namespace plat
{
    namespace
    {
        constexpr std::int64_t SETTLED = 2100000000;   // nanoseconds; no disk's clock ticks more slowly
        constexpr std::int64_t FRESH = 20000000;       // how long a listing serves that was read before that

        constinit std::atomic<unsigned> g_nKeyChanges = 0;

        std::int64_t Nanoseconds(timespec const & Time)
        {
            return static_cast<std::int64_t>(Time.tv_sec) * 1000000000 + Time.tv_nsec;
        }

        std::int64_t ClockNanoseconds(clockid_t iClock)
        {
            timespec Now;
            clock_gettime(iClock, &Now);
            return Nanoseconds(Now);
        }

        bool IsFolderEntry(int iFolder, dirent64 const & Entry)
        {
            struct stat Stat;
            return Entry.d_type == DT_DIR
                   || (Entry.d_type == DT_UNKNOWN && fstatat(iFolder, Entry.d_name, &Stat, AT_SYMLINK_NOFOLLOW) == 0
                       && S_ISDIR(Stat.st_mode));
        }

        // The spelling that the folder of a subkey holds; empty if it holds none.
        std::string StoredSpelling(int iFolder, char const * szFile)
        {
            Descriptor_c const SubKey(OpenFolder(iFolder, szFile));
            RecordBytes_t aBytes;
            Record_t Record;
            bool const bStored = SubKey.IsOpen() && LoadRecord(SubKey.Get(), KEY_RECORD, aBytes, Record);
            return bStored ? std::string(Record.sName) : std::string();
        }

        std::string FoldedText(std::string sText)
        {
            std::transform(sText.begin(), sText.end(), sText.begin(), Folded);
            return sText;
        }

        // The folded name of the key whose folder szFile is; false if it is the folder of none.
        bool KeyNameOfFolder(int iFolder, char const * szFile, std::string & sName)
        {
            if (!IsShortenedName(szFile))
            {
                return KeyNameFromDisk(szFile, sName);
            }
            std::string sSame;
            sName = FoldedText(StoredSpelling(iFolder, szFile));
            return KeyNameOnDisk(sName, sSame) && sSame == szFile;
        }
    }

    KeyContents_s ReadKeyContents(int iFolder)
    {
        KeyContents_s Contents;
        // A descriptor of its own has a reading position of its own.
        Descriptor_c const Folder(OpenFolder(iFolder, "."));
        FolderReader_c Reader(Folder.Get());
        std::string sName;
        while (dirent64 const * pEntry = Folder.IsOpen() ? Reader.Next() : nullptr)
        {
            if (IsFolderEntry(Folder.Get(), *pEntry))
            {
                bool const bKey = KeyNameOfFolder(Folder.Get(), pEntry->d_name, sName);
                bKey ? Contents.dSubKeys.push_back(sName) : void(Contents.bForeign = true);
                continue;
            }
            switch (pEntry->d_name[0])
            {
            case VALUE_MARK:
                Contents.dValues.push_back(pEntry->d_name);
                break;
            case KEY_MARK:
            case BUSY_MARK:
                Contents.dOthers.push_back(pEntry->d_name);
                break;
            default:
                Contents.bForeign = true;
            }
        }
        Contents.bRead = Folder.IsOpen() && !Reader.IsBroken();
        return Contents;
    }

    std::string SpellingOf(int iFolder, std::string const & sFolded)
    {
        std::string sFile;
        KeyNameOnDisk(sFolded, sFile);
        std::string const sSpelling = StoredSpelling(iFolder, sFile.c_str());
        return FoldedText(sSpelling) == sFolded ? sSpelling : sFolded;
    }

    bool EmptyKey(int iFolder)
    {
        KeyContents_s const Contents = ReadKeyContents(iFolder);
        errno = ENOTEMPTY;
        bool bEmpty = Contents.bRead && !Contents.bForeign && Contents.dSubKeys.empty();
        for (std::vector<std::string> const * pFiles : { &Contents.dValues, &Contents.dOthers })
        {
            for (std::size_t i = 0; bEmpty && i < pFiles->size(); ++i)
            {
                bEmpty = unlinkat(iFolder, (*pFiles)[i].c_str(), 0) == 0;
            }
        }
        return bEmpty;
    }

    KeyListing_c::Stamp_s KeyListing_c::StampOf(int iFolder)
    {
        struct stat Stat;
        return fstat(iFolder, &Stat) == 0 ? Stamp_s{ Nanoseconds(Stat.st_ctim), Stat.st_nlink } : Stamp_s{};
    }

    bool KeyListing_c::IsCurrent(int iFolder) const
    {
        return m_tRead != 0 && m_nChanges == g_nKeyChanges && m_Stamp == StampOf(iFolder)
               && (m_bSettled || ClockNanoseconds(CLOCK_MONOTONIC) - m_tRead < FRESH);
    }

    std::deque<std::string> const & KeyListing_c::Read(int iFolder)
    {
        if (!IsCurrent(iFolder))
        {
            m_nChanges = g_nKeyChanges;
            m_Stamp = StampOf(iFolder);
            m_bSettled = ClockNanoseconds(CLOCK_REALTIME) - m_Stamp.tChange > SETTLED;
            KeyContents_s Contents = ReadKeyContents(iFolder);
            m_tRead = Contents.bRead ? ClockNanoseconds(CLOCK_MONOTONIC) : 0;
            std::sort(Contents.dSubKeys.begin(), Contents.dSubKeys.end());
            m_dNames.assign(
                std::make_move_iterator(Contents.dSubKeys.begin()), std::make_move_iterator(Contents.dSubKeys.end()));
        }
        return m_dNames;
    }

    void KeyListing_c::Drop(int iFolder, std::string const & sName)
    {
        std::string const sFolded = FoldedText(sName);
        auto const iName = std::lower_bound(m_dNames.begin(), m_dNames.end(), sFolded);
        if (iName != m_dNames.end() && *iName == sFolded)
        {
            m_dNames.erase(iName);
        }
        m_Stamp = StampOf(iFolder);
        m_bSettled = false;
    }

    void CountKeyChange()
    {
        ++g_nKeyChanges;
    }
}
