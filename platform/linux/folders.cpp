#include "platform/files.h"
#include "platform/folding.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/facts.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/spelling.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

namespace plat
{
    struct FolderListing_c::Contents_s
    {
        bool ReadEntries(int iFolder);
        void AddEntry(FolderEntry_t & Entry, char const * szName, std::size_t nBytes);
        void GrowNames(std::size_t nBytes);
        std::size_t CommonStart() const;
        void Sort();
        std::vector<char const *> NamesToRecord() const;
        void Clear();

        // An entry of the sorted order, and the key that usually decides its place in it.
        struct Place_s
        {
            std::uint64_t nKey;
            FolderEntry_t const * pEntry;
        };

        std::vector<FolderEntry_t> dEntries;   // in the disk's order
        std::vector<Place_s> dOrder;           // in the order of listings
        std::vector<char> dNames;              // terminated names, one after the other; the entries point into it
        bool bFolded = true;                   // whether all names are folded
    };

    namespace
    {
        constexpr std::size_t ENTRIES_AT_FIRST = 64;   // most folders have no more entries
        constexpr std::size_t NAME_BYTES_AT_FIRST = 2048;
        constexpr std::size_t KEY_BYTES = sizeof(std::uint64_t);   // dNames can be read this far after any character

        // Sets bFailed by errno after the facts of an entry could not be read. Returns whether the entry belongs in the
        // listing. An entry that does not exist, a link to itself and a link to a missing target do not belong.
        ZQ_COLD bool FailFacts(FolderEntry_t & Entry)
        {
            Entry.bFailed = !LeadsNowhere(errno);
            return Entry.bFailed;
        }

        // Sets bFile of an entry that its folder reports as a regular file. Then does what FailFacts does.
        ZQ_COLD bool FailFactsOfFile(FolderEntry_t & Entry)
        {
            Entry.bFile = true;
            return FailFacts(Entry);
        }

        // Reads the facts of a link's target, or of an entry whose kind the folder does not report. Returns whether the
        // entry belongs in the listing.
        ZQ_COLD bool ReadFactsOfLink(int iFolder, char const * szName, FolderEntry_t & Entry)
        {
            struct statx Stat;
            if (statx(iFolder, szName, AT_SYMLINK_NOFOLLOW, FACTS_MASK, &Stat) != 0)
            {
                return FailFacts(Entry);
            }
            Entry.bLink = S_ISLNK(Stat.stx_mode);
            FactsFromStatx(Stat, Entry.Facts);
            return !Entry.bLink || ReadFactsAt(iFolder, szName, 0, Entry.Facts) || FailFacts(Entry);
        }

        // Reads the facts of an entry. Returns whether the entry belongs in the listing. What the folder reports as a
        // folder, a pipe, a socket or a device gets only its kind, without a system call for the entry.
        bool ReadFactsOfEntry(int iFolder, dirent64 const & Raw, FolderEntry_t & Entry)
        {
            switch (Raw.d_type)
            {
            case DT_REG:
                return ReadFactsAt(iFolder, Raw.d_name, AT_SYMLINK_NOFOLLOW, Entry.Facts) || FailFactsOfFile(Entry);

            case DT_DIR:
                Entry.Facts.bFolder = true;
                return true;

            case DT_LNK:
            case DT_UNKNOWN:
                return ReadFactsOfLink(iFolder, Raw.d_name, Entry);

            default:
                return true;
            }
        }

        // Kinds of bytes in names that a listing needs, as bits.
        constexpr unsigned char CAPITAL = 1;
        constexpr unsigned char BACKSLASH = 2;
        constexpr unsigned char NOT_ASCII = 4;

        constexpr auto BYTE_KINDS = []()
        {
            std::array<unsigned char, 256> dKinds{};
            for (unsigned char cByte = 'A'; cByte <= 'Z'; ++cByte)
            {
                dKinds[cByte] = CAPITAL;
            }
            dKinds['\\'] = BACKSLASH;
            std::fill(dKinds.begin() + 0x80, dKinds.end(), NOT_ASCII);
            return dKinds;
        }();

        // Scans a terminated name once: writes its length to nLength and returns the kinds of its bytes.
        unsigned ScanName(char const * szName, std::size_t & nLength)
        {
            unsigned dwKinds = 0;
            nLength = 0;
            for (; szName[nLength] != 0; ++nLength)
            {
                dwKinds |= BYTE_KINDS[static_cast<unsigned char>(szName[nLength])];
            }
            return dwKinds;
        }
    }

    void FolderListing_c::Contents_s::Clear()
    {
        dEntries.clear();
        dOrder.clear();
        dNames.clear();
        bFolded = true;
    }

    // Appends the folder's entries in the disk's order. Returns false if reading fails.
    bool FolderListing_c::Contents_s::ReadEntries(int iFolder)
    {
        FolderReader_c Reader(iFolder);
        while (dirent64 const * pRaw = Reader.Next())
        {
            std::size_t nName;
            unsigned const dwKinds = ScanName(pRaw->d_name, nName);
            FolderEntry_t Entry;
            Entry.nName = static_cast<std::uint32_t>(nName);
            Entry.bAscii = (dwKinds & NOT_ASCII) == 0;
            Entry.bReachable = (dwKinds & BACKSLASH) == 0;
            if (!Entry.bReachable || ReadFactsOfEntry(iFolder, *pRaw, Entry))
            {
                AddEntry(Entry, pRaw->d_name, nName + 1);
                bFolded = bFolded && (dwKinds & CAPITAL) == 0;
            }
        }
        dNames.resize(dNames.size() + KEY_BYTES);   // AddEntry has reserved them, so no name moves
        return !Reader.IsBroken();
    }

    // Appends an entry and a copy of its name, which has nBytes with its terminator.
    void FolderListing_c::Contents_s::AddEntry(FolderEntry_t & Entry, char const * szName, std::size_t nBytes)
    {
        if (dNames.capacity() - dNames.size() < nBytes + KEY_BYTES)
        {
            GrowNames(nBytes);
        }
        Entry.szName = dNames.data() + dNames.size();
        dNames.insert(dNames.end(), szName, szName + nBytes);
        dEntries.push_back(Entry);
    }

    // Makes room in dNames for nBytes more and KEY_BYTES after them. The entries then point into the new block.
    ZQ_COLD void FolderListing_c::Contents_s::GrowNames(std::size_t nBytes)
    {
        std::vector<char> dLarger;
        dLarger.reserve(std::max(NAME_BYTES_AT_FIRST, dNames.size() * 2 + nBytes + KEY_BYTES));
        dLarger.assign(dNames.begin(), dNames.end());
        for (FolderEntry_t & Entry : dEntries)
        {
            Entry.szName = dLarger.data() + (Entry.szName - dNames.data());
        }
        dNames.swap(dLarger);
    }

    namespace
    {
        std::uint64_t LoadKey(char const * pText)
        {
            std::uint64_t nKey;
            std::memcpy(&nKey, pText, KEY_BYTES);
            return nKey;
        }

        // Returns eight characters as a number that compares as they do. The bytes after a terminator decide nothing:
        // two names of a folder always differ before it or at it.
        std::uint64_t OrderKey(char const * pText)
        {
            static_assert(std::endian::native == std::endian::little);
            return __builtin_bswap64(LoadKey(pText));
        }
    }

    // Returns the length of the longest common prefix of all names. No name is shorter than that.
    std::size_t FolderListing_c::Contents_s::CommonStart() const
    {
        std::size_t nCommon = dEntries.empty() ? 0 : dEntries[0].nName;
        for (FolderEntry_t const & Entry : dEntries)
        {
            std::size_t nSame = 0;
            std::uint64_t nDifferent = 0;
            while (nSame < nCommon && nDifferent == 0)
            {
                nDifferent = LoadKey(Entry.szName + nSame) ^ LoadKey(dEntries[0].szName + nSame);
                nSame += static_cast<std::size_t>(std::countr_zero(nDifferent)) / 8;
            }
            nCommon = std::min(nCommon, nSame);
        }
        return nCommon;
    }

    // Sorts the entries in the order of listings. If all names are folded, comparing their bytes is enough.
    void FolderListing_c::Contents_s::Sort()
    {
        std::size_t const nStart = bFolded ? CommonStart() : 0;
        for (FolderEntry_t const & Entry : dEntries)
        {
            dOrder.push_back({ bFolded ? OrderKey(Entry.szName + nStart) : 0, &Entry });
        }
        auto const fnPlain = [](Place_s const & First, Place_s const & Second)
        {
            return First.nKey != Second.nKey ? First.nKey < Second.nKey
                                             : std::strcmp(First.pEntry->szName, Second.pEntry->szName) < 0;
        };
        auto const fnFolded = [](Place_s const & First, Place_s const & Second)
        { return ComesBefore(First.pEntry->szName, Second.pEntry->szName); };

        if (bFolded)
        {
            std::sort(dOrder.begin(), dOrder.end(), fnPlain);
        }
        else
        {
            std::sort(dOrder.begin(), dOrder.end(), fnFolded);
        }
    }

    // Returns the names that the record of spellings selects from, or none if all are folded.
    std::vector<char const *> FolderListing_c::Contents_s::NamesToRecord() const
    {
        std::vector<char const *> dToRecord;
        if (bFolded)
        {
            return dToRecord;
        }
        for (Place_s const & Place : dOrder)
        {
            dToRecord.push_back(Place.pEntry->szName);
        }
        return dToRecord;
    }

    FolderListing_c::~FolderListing_c()
    {
        delete m_pContents;
    }

    bool FolderListing_c::Read(char const * szPath)
    {
        if (m_pContents == nullptr)
        {
            m_pContents = new Contents_s;
            m_pContents->dEntries.reserve(ENTRIES_AT_FIRST);
        }
        m_pContents->Clear();

        DiskPath_c Path(szPath);
        Descriptor_c const Folder(
            Path.Try([](char const * szTry) { return open(szTry, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
        if (!Folder.IsOpen())
        {
            return false;
        }
        if (!m_pContents->ReadEntries(Folder.Get()))
        {
            m_pContents->Clear();
            return false;
        }
        m_pContents->Sort();
        SpellingsReplace(Path.Get(), m_pContents->NamesToRecord());
        return true;
    }

    std::size_t FolderListing_c::GetCount() const
    {
        return m_pContents != nullptr ? m_pContents->dOrder.size() : 0;
    }

    bool FolderListing_c::HasCapitals() const
    {
        return m_pContents != nullptr && !m_pContents->bFolded;
    }

    FolderEntry_t const & FolderListing_c::GetEntry(std::size_t iEntry) const
    {
        return *m_pContents->dOrder[iEntry].pEntry;
    }

    bool FolderGetIdentity(char const * szPath, FileIdentity_t & Identity, bool bAsWritten)
    {
        struct stat Stat;
        DiskPath_c Path(szPath);
        auto const fnStat = [&Stat](char const * szTry) { return stat(szTry, &Stat); };
        if (bAsWritten && std::strlen(szPath) >= PATH_MAX)
        {
            errno = ENAMETOOLONG;   // the path is cut
            return false;
        }
        if ((bAsWritten ? fnStat(Path.Get()) : Path.Try(fnStat)) != 0)
        {
            return false;
        }
        if (!S_ISDIR(Stat.st_mode))
        {
            errno = ENOTDIR;
            return false;
        }
        Identity = { Stat.st_dev, Stat.st_ino };
        return true;
    }
}
