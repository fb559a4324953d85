#include "platform/linux/spelling.h"

#include "platform/files.h"
#include "platform/folding.h"
#include "platform/fork.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/folderreader.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unordered_map>
#include <utility>
#include <vector>

namespace plat
{
    namespace
    {
        // The recorded names of one folder, which are found by their folded form.
        class FolderNames_c
        {
        public:
            // Records the names with capitals, unless their folded name is among dNames too. Requires the order of
            // listings, in which the folded name comes after those that differ from it in case only.
            explicit FolderNames_c(std::vector<char const *> const & dNames)
            {
                std::size_t nAlike = 0;   // names at the end that differ in case only
                for (char const * szName : dNames)
                {
                    bool const bAlike = nAlike > 0 && CompareFolded(NameAt(m_dOffsets.back()), szName) == 0;
                    nAlike = bAlike ? nAlike : 0;
                    if (!IsFolded(szName))
                    {
                        m_dOffsets.push_back(static_cast<std::uint32_t>(m_sText.size()));
                        m_sText.append(szName, std::strlen(szName) + 1);
                        ++nAlike;
                    }
                    else
                    {
                        m_dOffsets.resize(m_dOffsets.size() - nAlike);
                        nAlike = 0;
                    }
                }
            }

            FolderNames_c() = default;

            bool IsEmpty() const { return m_dOffsets.empty(); }

            // Returns the name itself if it is recorded, else its first recorded spelling, or null.
            char const * Find(char const * szName)
            {
                auto itPlace = FirstNotBefore(szName, ComesBefore);
                if (itPlace == m_dOffsets.end() || std::strcmp(NameAt(*itPlace), szName) != 0)
                {
                    itPlace = FirstNotBefore(szName, [](char const * szFirst, char const * szSecond)
                        { return CompareFolded(szFirst, szSecond) < 0; });
                }
                bool const bFound = itPlace != m_dOffsets.end() && CompareFolded(NameAt(*itPlace), szName) == 0;
                return bFound ? NameAt(*itPlace) : nullptr;
            }

        private:
            template <typename BEFORE>
            std::vector<std::uint32_t>::iterator FirstNotBefore(char const * szName, BEFORE fnBefore)
            {
                return std::lower_bound(m_dOffsets.begin(), m_dOffsets.end(), szName,
                    [this, fnBefore](std::uint32_t nOffset, char const * szOther)
                    { return fnBefore(NameAt(nOffset), szOther); });
            }

            char const * NameAt(std::uint32_t nOffset) const { return m_sText.c_str() + nOffset; }

            std::string m_sText;                     // terminated names, one after the other
            std::vector<std::uint32_t> m_dOffsets;   // into m_sText, in the order of listings
        };

        // Hash that finds a key without a copy of it.
        struct KeyHash_c
        {
            using is_transparent = void;
            std::size_t operator()(std::string_view sKey) const { return std::hash<std::string_view>()(sKey); }
        };

        using Record_t = std::unordered_map<std::string, FolderNames_c, KeyHash_c, std::equal_to<>>;

        // The record is created with the first recorded folder, so that it can be used before and after the life of
        // static objects. A path never waits for the lock, because a crashed thread may hold it. Without the record the
        // folders are read.
        constinit Lock_c g_RecordLock;
        ForkLock_c const g_RecordForkLock(g_RecordLock);
        constinit bool g_bInRecord = false;
        constinit Record_t * g_pRecord = nullptr;

        // One use of the record. A thread that already uses the record can't begin a second use.
        class RecordUse_c
        {
        public:
            static RecordUse_c Wait()
            {
                g_RecordLock.Enter();
                return RecordUse_c(true);
            }
            static RecordUse_c Try() { return RecordUse_c(g_RecordLock.TryEnter()); }

            ~RecordUse_c()
            {
                if (m_bEntered)
                {
                    g_bInRecord = !m_bGranted;
                    g_RecordLock.Leave();
                }
            }
            RecordUse_c(RecordUse_c const &) = delete;
            RecordUse_c & operator=(RecordUse_c const &) = delete;

            bool IsGranted() const { return m_bGranted; }

        private:
            explicit RecordUse_c(bool bEntered)
                : m_bEntered(bEntered)
                , m_bGranted(bEntered && !std::exchange(g_bInRecord, true))
            {}

            bool const m_bEntered;
            bool const m_bGranted;
        };

        // Object whose destructor frees the record.
        struct RecordEnd_c
        {
            ~RecordEnd_c() { SpellingsForget(); }
        } g_RecordEnd;

        // Creates an empty record of a folder if there is none, and returns its names. Requires the lock.
        FolderNames_c & FindOrAddFolder(FolderKey_c const & Folder)
        {
            if (g_pRecord == nullptr)
            {
                g_pRecord = new Record_t;
            }
            auto const itFolder = g_pRecord->find(Folder.Get());
            return itFolder != g_pRecord->end() ? itFolder->second : (*g_pRecord)[std::string(Folder.Get())];
        }

        // Returns whether a name leads nowhere. A name that exists is then a link whose target is missing, which
        // listings leave out.
        bool NameLeadsNowhere(int iFolder, char const * szName)
        {
            struct stat Stat;
            return fstatat(iFolder, szName, &Stat, 0) != 0 && LeadsNowhere(errno);
        }

        // Returns sorted names without those links whose target is missing and whose names differ from a neighbour in
        // case only.
        std::vector<char const *> NamesWithoutLinksToNowhere(int iFolder, std::vector<char const *> const & dNames)
        {
            std::vector<char const *> dKept;
            for (std::size_t i = 0; i < dNames.size(); ++i)
            {
                bool const bAlike = (i > 0 && CompareFolded(dNames[i - 1], dNames[i]) == 0)
                                    || (i + 1 < dNames.size() && CompareFolded(dNames[i], dNames[i + 1]) == 0);
                if (!bAlike || !NameLeadsNowhere(iFolder, dNames[i]))
                {
                    dKept.push_back(dNames[i]);
                }
            }
            return dKept;
        }

        // Records a folder that had to be read, so that the next name in it is known. Reads it again: most folders that
        // are searched do not hold the name, and they then need no heap. Does nothing if the folder can't be read or
        // the record is in use.
        void RecordFolder(int iFolder, FolderKey_c const & Key)
        {
            std::vector<std::string> dRead;
            if (lseek(iFolder, 0, SEEK_SET) != 0 || !ReadNames(iFolder, dRead))
            {
                return;
            }
            std::vector<char const *> dNames;
            for (std::string const & sName : dRead)
            {
                dNames.push_back(sName.c_str());
            }
            std::sort(dNames.begin(), dNames.end(), ComesBefore);
            FolderNames_c Names(NamesWithoutLinksToNowhere(iFolder, dNames));
            RecordUse_c const Use = RecordUse_c::Try();
            if (Use.IsGranted())
            {
                FindOrAddFolder(Key) = std::move(Names);
            }
        }

        // Returns whether an error means more than that a name does not exist or may not be searched for.
        bool IsFault(int iError)
        {
            return !LeadsNowhere(iError) && iError != EACCES;
        }

        // Overwrites szName with the first entry, in the order of listings, that has its folded name. A link whose
        // target is missing is used only if there is no other such entry. Returns false, with errno, if no entry has
        // the name or the folder can't be read to its end.
        bool FindInFolder(int iFolder, char * szName)
        {
            char szFound[NAME_MAX + 1];
            bool bFound = false, bNowhere = false;
            FolderReader_c Reader(iFolder);
            while (dirent64 const * pEntry = Reader.Next())
            {
                if (CompareFolded(pEntry->d_name, szName) != 0)
                {
                    continue;
                }
                bool const bLink = pEntry->d_type == DT_LNK || pEntry->d_type == DT_UNKNOWN;
                bool const bEntryNowhere = bLink && NameLeadsNowhere(iFolder, pEntry->d_name);
                if (!bFound || (bEntryNowhere == bNowhere ? std::strcmp(pEntry->d_name, szFound) < 0 : bNowhere))
                {
                    std::strcpy(szFound, pEntry->d_name);
                    bFound = true;
                    bNowhere = bEntryNowhere;
                }
            }
            if (!bFound || Reader.IsBroken())
            {
                errno = Reader.IsBroken() ? errno : ENOENT;
                return false;
            }
            std::memcpy(szName, szFound, std::strlen(szName));
            return true;
        }
    }

    void SpellingsForget()
    {
        RecordUse_c const Use = RecordUse_c::Wait();
        if (Use.IsGranted())
        {
            delete std::exchange(g_pRecord, nullptr);
        }
    }

    void SpellingsReplace(char const * szFolder, std::vector<char const *> const & dNames)
    {
        FolderNames_c Names(dNames);
        RecordUse_c const Use = RecordUse_c::Wait();
        if (!Use.IsGranted() || (g_pRecord == nullptr && Names.IsEmpty()))
        {
            return;
        }
        FolderKey_c const Folder(szFolder);
        if (!Names.IsEmpty())
        {
            FindOrAddFolder(Folder) = std::move(Names);
        }
        else if (auto const itFolder = g_pRecord->find(Folder.Get()); itFolder != g_pRecord->end())
        {
            g_pRecord->erase(itFolder);
        }
    }

    FolderKey_c::FolderKey_c(bool bRoot)
    {
        if (bRoot)
        {
            m_dKey[m_nLength++] = '/';
        }
    }

    FolderKey_c::FolderKey_c(char const * szPath)
        : FolderKey_c(*szPath == '/')
    {
        while (*szPath != 0)
        {
            std::size_t const nName = std::strcspn(szPath, "/");
            Append(std::string_view(szPath, nName));
            szPath += nName + (szPath[nName] == '/');
        }
    }

    void FolderKey_c::Append(std::string_view sName)
    {
        if (sName.empty() || sName == ".")
        {
            return;
        }
        for (char const cByte : sName)
        {
            m_dKey[m_nLength++] = Folded(cByte);
        }
        m_dKey[m_nLength++] = '/';
    }

    std::size_t CopyWithSlashes(char const * szPath, char (&szCopy)[PATH_MAX])
    {
        std::size_t iByte = 0;
        while (szPath[iByte] != 0 && iByte < PATH_MAX - 1)
        {
            szCopy[iByte] = szPath[iByte] == '\\' ? '/' : szPath[iByte];
            ++iByte;
        }
        szCopy[iByte] = 0;
        return iByte;
    }

    DiskPath_c::DiskPath_c(char const * szPath, bool bRecord)
        : m_szOriginal(szPath != nullptr ? szPath : "")
        , m_bRecord(bRecord)
    {
        m_nLength = CopyWithSlashes(m_szOriginal, m_szPath);
        m_bTooLong = m_szOriginal[m_nLength] != 0;
    }

    // Restores the caller's text from iFrom to iTo, with `/` as the separator, and ends the path at iTo.
    void DiskPath_c::EndAsWritten(std::size_t iFrom, std::size_t iTo)
    {
        std::replace_copy(m_szOriginal + iFrom, m_szOriginal + iTo, m_szPath + iFrom, '\\', '/');
        m_szPath[iTo] = 0;
    }

    void DiskPath_c::TrimSeparators()
    {
        while (m_nLength > 1 && m_szPath[m_nLength - 1] == '/')
        {
            m_szPath[--m_nLength] = 0;
        }
    }

    void DiskPath_c::SpellFolder()
    {
        TrimSeparators();
        std::size_t const nWhole = m_nLength;
        while (m_nLength > 0 && m_szPath[m_nLength - 1] != '/')
        {
            --m_nLength;
        }
        std::size_t const nFolder = m_nLength;
        EndAsWritten(0, nFolder);
        m_eTried = Tried_e::AsWritten;
        if (nFolder > 0)
        {
            Try([](char const * szFolder) { return access(szFolder, F_OK); });
        }
        EndAsWritten(nFolder, nWhole);
        m_nLength = nWhole;
    }

    bool DiskPath_c::NextSpelling()
    {
        int const iError = errno;
        if (m_eTried == Tried_e::AsWritten)
        {
            m_eTried = Tried_e::Record;
            if (SpellFromRecord())
            {
                return true;
            }
        }
        if (m_eTried == Tried_e::Record)
        {
            m_eTried = Tried_e::Folders;
            if (SpellFromFolders())
            {
                return true;
            }
        }
        errno = m_iFault != 0 ? m_iFault : iError;
        return false;
    }

    // Finds the next name of the path from iEnd on. Returns false after the last one.
    bool DiskPath_c::NextName(std::size_t & iBegin, std::size_t & iEnd) const
    {
        iBegin = iEnd + std::strspn(m_szPath + iEnd, "/");
        iEnd = iBegin + std::strcspn(m_szPath + iBegin, "/");
        return iBegin < iEnd;
    }

    // Spells the names of the path that the record has. Returns whether this changed the path.
    bool DiskPath_c::SpellFromRecord()
    {
        RecordUse_c const Use = RecordUse_c::Try();
        if (!Use.IsGranted() || g_pRecord == nullptr)
        {
            return false;
        }
        bool bChanged = false;
        FolderKey_c Key(m_szPath[0] == '/');
        for (std::size_t iBegin = 0, iEnd = 0; NextName(iBegin, iEnd);)
        {
            char const cEnd = m_szPath[iEnd];
            m_szPath[iEnd] = 0;
            auto const itFolder = g_pRecord->find(Key.Get());
            char const * const szFound =
                itFolder != g_pRecord->end() ? itFolder->second.Find(m_szPath + iBegin) : nullptr;
            if (szFound != nullptr)
            {
                bChanged = bChanged || std::strcmp(m_szPath + iBegin, szFound) != 0;
                std::memcpy(m_szPath + iBegin, szFound, iEnd - iBegin);
            }
            Key.Append(std::string_view(m_szPath + iBegin, iEnd - iBegin));
            m_szPath[iEnd] = cEnd;
        }
        return bChanged;
    }

    // Spells the name at iBegin, which ends the path for the moment, as the folder before it does, and may record the
    // folder. Returns false, with errno, if the folder has no such name or can't be searched.
    bool DiskPath_c::SpellName(std::size_t iBegin, FolderKey_c const & Folder)
    {
        std::size_t const nName = std::strlen(m_szPath + iBegin);
        if (nName > NAME_MAX || IsDots(m_szPath + iBegin))
        {
            errno = ENOENT;
            return false;
        }
        char szName[NAME_MAX + 1];
        std::memcpy(szName, m_szPath + iBegin, nName + 1);
        m_szPath[iBegin] = 0;
        Descriptor_c const Open(open(iBegin > 0 ? m_szPath : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        bool const bFound = Open.IsOpen() && FindInFolder(Open.Get(), szName);
        if (bFound && m_bRecord)
        {
            RecordFolder(Open.Get(), Folder);
        }
        std::memcpy(m_szPath + iBegin, szName, nName);
        return bFound;
    }

    // Spells each name of the path that leads nowhere as its folder does. Returns false if there is none, or if one was
    // not found. m_iFault is then the error that prevented the search, or 0 for a missing name or right.
    bool DiskPath_c::SpellFromFolders()
    {
        EndAsWritten(0, m_nLength);
        bool bChanged = false;
        FolderKey_c Key(m_szPath[0] == '/');
        for (std::size_t iBegin = 0, iEnd = 0; NextName(iBegin, iEnd);)
        {
            char const cEnd = m_szPath[iEnd];
            m_szPath[iEnd] = 0;
            struct stat Stat;
            if (stat(m_szPath, &Stat) != 0 && (errno != EACCES || lstat(m_szPath, &Stat) != 0))
            {
                bChanged = LeadsNowhere(errno) && SpellName(iBegin, Key);
                if (!bChanged)
                {
                    m_iFault = IsFault(errno) ? errno : 0;
                    m_szPath[iEnd] = cEnd;
                    return false;
                }
            }
            Key.Append(std::string_view(m_szPath + iBegin, iEnd - iBegin));
            m_szPath[iEnd] = cEnd;
        }
        return bChanged;
    }
}
