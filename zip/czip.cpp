// Mounting and unmounting.
#include "zip/czip_internal.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilepath.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/ctexterror.h"

#include <climits>
#include <cstring>
#include <string_view>

namespace
{
    File_c::Reason_t g_sWhyNot;   // of the last mount or unmount

    // An entry of a directory.
    struct Entry_s
    {
        bool bFolder = false;
        char const * szRefused = nullptr;   // why it is skipped, or null
        char const * szName = "";
        ZipFacts_t Facts;
    };

    // Stores and logs why a call fails. Returns false.
    bool Fail(char const * szWho, char const * szArchive, char const * szWhyNot)
    {
        g_sWhyNot = szWhyNot;
        LogEscaped("%s: '%s': %s", szWho, szArchive, szWhyNot);
        return false;
    }

    // Returns why a name can't be used, or null. Requires that a zero follows the name.
    char const * WhyNotName(std::string_view sName)
    {
        if (sName.size() >= static_cast<std::size_t>(String_T<256>::Capacity()))
        {
            return "its name has more than 255 characters";
        }
        if (TextForLog(sName.data()) != sName)
        {
            return "its name has characters that can't be printed";
        }
        if (sName.starts_with('/') || sName.find(':') == 1)
        {
            return "its name is absolute";
        }
        if (sName.find('\\') != std::string_view::npos)
        {
            return "its name has a '\\'";
        }
        while (true)
        {
            std::size_t const nPart = sName.find('/');
            std::string_view const sPart = sName.substr(0, nPart);
            if (sPart == ".." || sPart == "." || sPart.empty())
            {
                return "its name has '..', '.' or an empty part";
            }
            if (nPart == std::string_view::npos)
            {
                return sPart.find(':') == 1 ? "its name begins with a drive" : nullptr;
            }
            sName.remove_prefix(nPart + 1);
        }
    }

    // Returns why a file can't be read, or null.
    char const * WhyNotData(zip_stat_t const & Stat, std::uint32_t nArchive)
    {
        constexpr zip_uint64_t NEEDED =
            ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_CRC | ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD;
        constexpr zip_uint64_t ALWAYS_READ = 1 << 20;   // bytes; a file that is no larger may expand by any ratio
        bool const bDeflated = Stat.comp_method == ZIP_CM_DEFLATE;
        if ((Stat.valid & NEEDED) != NEEDED)
        {
            return "the archive lacks facts about it";
        }
        if (Stat.encryption_method != ZIP_EM_NONE)
        {
            return "it is encrypted";
        }
        if (Stat.comp_method != ZIP_CM_STORE && !bDeflated)
        {
            return "it is neither stored nor deflated";
        }
        if (Stat.size > INT_MAX)
        {
            return FILE_TOO_LARGE;
        }
        if (Stat.comp_size > nArchive || (!bDeflated && Stat.comp_size != Stat.size)
            || (Stat.comp_size == 0 && Stat.size > 0))
        {
            return "its sizes can't be true";
        }
        bool const bBomb = Stat.size > ALWAYS_READ && Stat.size > ZIP_MAX_EXPANSION * Stat.comp_size;
        return bBomb ? "it would expand too much" : nullptr;
    }

    // Returns the time of the last write, or 0 if the archive does not state it.
    plat::FileTime_t TimeOf(zip_stat_t const & Stat)
    {
        bool const bKnown = (Stat.valid & ZIP_STAT_MTIME) && Stat.mtime > 0;
        auto const nSeconds = static_cast<plat::FileTime_t>(Stat.mtime + plat::FILE_TIME_SECONDS_TO_1970);
        return bKnown ? nSeconds * plat::FILE_TIME_TICKS : 0;
    }

    // Returns what the directory states about an entry. A file whose name, type or data can't be used has a szRefused.
    Entry_s ReadEntry(ZipArchive_c & Archive, zip_uint64_t iEntry)
    {
        constexpr unsigned TYPE_MASK = 0170000, REGULAR = 0100000, FOLDER = 0040000;   // S_IFMT, S_IFREG, S_IFDIR
        Entry_s Entry;
        Entry.Facts.iEntry = iEntry;
        zip_stat_t Stat;
        zip_stat_init(&Stat);
        char const * const szName = zip_get_name(Archive.GetZip(), iEntry, 0);
        if (!szName || zip_stat_index(Archive.GetZip(), iEntry, 0, &Stat) != 0)
        {
            return { false, FILE_UNREADABLE, szName ? szName : "", {} };
        }
        Entry.szName = szName;
        zip_uint8_t iSystem = 0;
        zip_uint32_t dwAttributes = 0;
        zip_file_get_external_attributes(Archive.GetZip(), iEntry, 0, &iSystem, &dwAttributes);
        bool const bUnix = iSystem == ZIP_OPSYS_UNIX || iSystem == ZIP_OPSYS_OS_X;
        unsigned const iType = bUnix ? (dwAttributes >> 16) & TYPE_MASK : 0;
        if (std::string_view(szName).ends_with('/') || iType == FOLDER)
        {
            Entry.bFolder = true;
            return Entry;
        }
        bool const bFile = iType == 0 || iType == REGULAR;
        char const * const szWhyNotName = WhyNotName(szName);
        Entry.szRefused = szWhyNotName ? szWhyNotName
                          : bFile      ? WhyNotData(Stat, Archive.GetSize())
                                       : "it is a link or no regular file";
        Entry.Facts.nSize = static_cast<std::uint32_t>(Stat.size);
        Entry.Facts.nStored = static_cast<std::uint32_t>(Stat.comp_size);
        Entry.Facts.dwCrc = Stat.crc;
        Entry.Facts.bDeflated = Stat.comp_method == ZIP_CM_DEFLATE;
        Entry.Facts.tLastWrite = TimeOf(Stat);
        return Entry;
    }

    // Mounting of one archive, which adds its files to the table.
    class Mounting_c
    {
    public:
        Mounting_c(ZipArchive_c & Archive, ZipOrder_e eOrder, bool bRelativeNames)
            : m_Archive(Archive)
            , m_eOrder(eOrder)
            , m_bRelativeNames(bRelativeNames)
        {}

        // Adds the files and returns how many it added. Logs each entry that it skips, and reports it to
        // g_FileSkipCallbacker.
        int Run()
        {
            zip_int64_t const nEntries = zip_get_num_entries(m_Archive.GetZip(), 0);
            for (zip_int64_t i = 0; i < nEntries; ++i)
            {
                Entry_s Entry = ReadEntry(m_Archive, static_cast<zip_uint64_t>(i));
                if (!Entry.bFolder && !Entry.szRefused)
                {
                    Entry.szRefused = Add(Entry);
                }
                if (Entry.szRefused)
                {
                    ++m_nSkipped;
                    LogEscaped("FileZipMount: skipping \"%s\" of '%s', %s", Entry.szName, m_Archive.GetPath().CStr(),
                        Entry.szRefused);
                    g_FileSkipCallbacker.Fire(
                        { FileSkip_e::InArchive, m_Archive.GetPath(), Entry.szName, Entry.szRefused, nullptr }, true);
                }
            }
            LogEscaped("FileZipMount: '%s': %i files, %i of them hide others, %i are hidden, %i skipped",
                m_Archive.GetPath().CStr(), m_nAdded, m_nOver, m_nUnder, m_nSkipped);
            return m_nAdded;
        }

    private:
        // Adds a file, unless a present one hides it. Returns why it was skipped, or null.
        char const * Add(Entry_s const & Entry)
        {
            char const * const szKey = m_bRelativeNames ? Entry.szName : PathFileName(Entry.szName);
            File_c::Key_t sKey;
            if (szKey[FoldText(sKey.GetBuffer(), szKey, File_c::Key_t::Capacity() - 1)] != '\0')
            {
                return "its key has more than 127 characters";
            }
            File_c * const pPresent = g_sFileObjects.FindByName(sKey);
            auto * const pTwin = dynamic_cast<ZipFile_c *>(pPresent);
            if (pTwin && &pTwin->GetArchive() == &m_Archive)
            {
                // Does not mark the first one as a duplicate: opening a marked file is an Achtung, which ends a silent
                // process, and anyone may have packed this archive.
                return "it is a duplicate";
            }
            if (pPresent && m_eOrder == ZipOrder_e::Under)
            {
                ++m_nUnder;
                return nullptr;
            }
            std::unique_ptr<ZipFile_c> pFile(ZQ_NEW ZipFile_c(m_Archive, Entry.Facts));
            pFile->sName = sKey;
            if (FileAddObject(pFile.get(), m_eOrder == ZipOrder_e::Over) != HASH_ADDED)
            {
                pFile->sName = "";
                return FILE_NO_ROOM;
            }
            static_cast<void>(pFile.release());   // the table owns it
            ++m_nAdded;
            m_nOver += pPresent ? 1 : 0;
            return nullptr;
        }

        ZipArchive_c & m_Archive;
        ZipOrder_e m_eOrder;
        bool m_bRelativeNames;
        int m_nAdded = 0;
        int m_nOver = 0;    // files that hide others
        int m_nUnder = 0;   // files that are hidden
        int m_nSkipped = 0;
    };
}

bool FileZipMount(char const * sArchive, ZipOrder_e eOrder, bool bRelativeNames)
{
    constexpr char WHO[] = "FileZipMount";
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sArchive);
    g_sWhyNot = "";
    if (!sArchive || ZipArchive_c::Find(sArchive))
    {
        return Fail(WHO, sArchive ? sArchive : "", sArchive ? "it is mounted already" : "there is no path");
    }
    File_c::Reason_t sWhyNot;
    std::unique_ptr<ZipArchive_c> pArchive = ZipArchive_c::Open(sArchive, sWhyNot);
    if (!pArchive)
    {
        return Fail(WHO, sArchive, sWhyNot);
    }
    if (Mounting_c(*pArchive, eOrder, bRelativeNames).Run() == 0)
    {
        return Fail(WHO, sArchive, "it adds no file");
    }
    pArchive.release()->Mount();   // owned by its files
    return true;
}

bool FileZipUnmount(char const * sArchive)
{
    constexpr char WHO[] = "FileZipUnmount";
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sArchive);
    g_sWhyNot = "";
    ZipArchive_c * const pArchive = sArchive ? ZipArchive_c::Find(sArchive) : nullptr;
    if (!pArchive)
    {
        return Fail(WHO, sArchive ? sArchive : "", "it is not mounted");
    }
    bool bInUse = false;
    for (ZipFile_c const * pFile = pArchive->GetFirst(); pFile; pFile = pFile->GetNext())
    {
        if (pFile->IsInUse())
        {
            bInUse = true;
            LogEscaped("FileZipUnmount: \"%s\" is in use", pFile->sName.CStr());
        }
    }
    if (bInUse)
    {
        return Fail(WHO, sArchive, "files of it are in use");
    }
    // The last file's destructor destroys the archive.
    for (ZipFile_c * pFile = pArchive->GetFirst(); pFile;)
    {
        ZipFile_c * const pNext = pFile->GetNext();
        delete pFile;
        pFile = pNext;
    }
    return true;
}

File_c::Reason_t FileZipGetWhyNot()
{
    return g_sWhyNot;
}
