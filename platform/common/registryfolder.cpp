#include "platform/common/registryfolder.h"

#include "platform/common/registryrecord.h"
#include "platform/folding.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <utility>

namespace plat
{
    namespace
    {
        constexpr std::int64_t SETTLED = 2100000000;   // nanoseconds, longer than a tick of any disk's clock
        constexpr std::int64_t FRESH = 20000000;       // nanoseconds for which a listing that is not settled is used

        constinit std::atomic<unsigned> g_nKeyChanges = 0;

        template <typename CLOCK>
        std::int64_t ClockNanoseconds()
        {
            return std::chrono::duration_cast<std::chrono::nanoseconds>(CLOCK::now().time_since_epoch()).count();
        }

        // Returns the spelling that the folder of a subkey holds, or an empty text.
        std::string StoredSpelling(StoreHandle_t hFolder, char const * szFile)
        {
            StoreScope_c const SubKey(StoreOpenFolder(hFolder, szFile));
            RecordBytes_t dBytes;
            Record_t Record;
            bool const bStored = SubKey.IsOpen() && LoadRecord(SubKey.Get(), KEY_RECORD, dBytes, Record);
            return bStored ? std::string(Record.sName) : std::string();
        }

        std::string FoldedText(std::string sText)
        {
            std::transform(sText.begin(), sText.end(), sText.begin(), Folded);
            return sText;
        }

        // Reads the folded name of the key whose folder is szFile and returns true. Returns false if szFile is not
        // a key's folder, or if the name is shortened and the key has no record of it.
        bool ReadKeyName(StoreHandle_t hFolder, char const * szFile, std::string & sName)
        {
            if (!IsShortenedName(szFile))
            {
                return KeyNameFromDisk(szFile, sName);
            }
            std::string sFile;
            sName = FoldedText(StoredSpelling(hFolder, szFile));
            return KeyNameToDisk(sName, sFile) && sFile == szFile;
        }

        // State of one listing of a key's folder.
        struct Reading_s
        {
            StoreHandle_t hFolder;
            KeyContents_t Contents;
        };

        // Adds an entry of the folder to the contents of the Reading_s.
        void AddEntry(char const * szFile, bool bFolder, void * pReading)
        {
            auto & Reading = *static_cast<Reading_s *>(pReading);
            KeyContents_t & Contents = Reading.Contents;
            std::string sName;
            if (bFolder && ReadKeyName(Reading.hFolder, szFile, sName))
            {
                Contents.dSubKeys.push_back(std::move(sName));
            }
            else if (!bFolder && szFile[0] == VALUE_MARK)
            {
                Contents.dValues.push_back(szFile);
            }
            else if (!bFolder && (szFile[0] == KEY_MARK || szFile[0] == BUSY_MARK))
            {
                Contents.dOthers.push_back(szFile);
            }
            else
            {
                Contents.bForeign = true;
            }
        }
    }

    KeyContents_t ReadKeyContents(StoreHandle_t hFolder)
    {
        StoreScope_c const Folder(StoreReopen(hFolder));
        Reading_s Reading{ Folder.Get(), {} };
        Reading.Contents.bRead = Folder.IsOpen() && StoreList(Folder.Get(), AddEntry, &Reading);
        return std::move(Reading.Contents);
    }

    std::string SpellingOf(StoreHandle_t hFolder, std::string const & sFolded)
    {
        std::string sFile;
        KeyNameToDisk(sFolded, sFile);
        std::string const sSpelling = StoredSpelling(hFolder, sFile.c_str());
        return FoldedText(sSpelling) == sFolded ? sSpelling : sFolded;
    }

    bool EmptyKey(StoreHandle_t hFolder)
    {
        KeyContents_t const Contents = ReadKeyContents(hFolder);
        errno = ENOTEMPTY;
        bool bEmpty = Contents.bRead && !Contents.bForeign && Contents.dSubKeys.empty();
        for (std::vector<std::string> const * pFiles : { &Contents.dValues, &Contents.dOthers })
        {
            for (std::size_t i = 0; bEmpty && i < pFiles->size(); ++i)
            {
                bEmpty = StoreDeleteFile(hFolder, (*pFiles)[i].c_str());
            }
        }
        return bEmpty;
    }

    bool KeyListing_c::IsCurrent(StoreHandle_t hFolder) const
    {
        return m_tRead != 0 && m_nChanges == g_nKeyChanges && m_Stamp == StoreStamp(hFolder)
               && (m_bSettled || ClockNanoseconds<std::chrono::steady_clock>() - m_tRead < FRESH);
    }

    std::deque<std::string> const & KeyListing_c::Read(StoreHandle_t hFolder)
    {
        if (!IsCurrent(hFolder))
        {
            m_nChanges = g_nKeyChanges;
            m_Stamp = StoreStamp(hFolder);
            m_bSettled = ClockNanoseconds<std::chrono::system_clock>() - m_Stamp.tChange > SETTLED;
            KeyContents_t Contents = ReadKeyContents(hFolder);
            m_tRead = Contents.bRead ? ClockNanoseconds<std::chrono::steady_clock>() : 0;
            std::sort(Contents.dSubKeys.begin(), Contents.dSubKeys.end());
            m_dNames.assign(
                std::make_move_iterator(Contents.dSubKeys.begin()), std::make_move_iterator(Contents.dSubKeys.end()));
        }
        return m_dNames;
    }

    void KeyListing_c::Drop(StoreHandle_t hFolder, std::string const & sName)
    {
        std::string const sFolded = FoldedText(sName);
        auto const itName = std::lower_bound(m_dNames.begin(), m_dNames.end(), sFolded);
        if (itName != m_dNames.end() && *itName == sFolded)
        {
            m_dNames.erase(itName);
        }
        m_Stamp = StoreStamp(hFolder);
        m_bSettled = false;
    }

    void CountKeyChange()
    {
        ++g_nKeyChanges;
    }
}
