#include "tools/zqtool/cachefile.h"

#include "tools/zqtool/input.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/cserializecheck.h"

#include <algorithm>
#include <memory>
#include <span>

namespace
{
    constexpr std::uint64_t MAX_BYTES = 64 << 20;   // a cache of full tables has less than 5 MiB

    // Reader of one cache. The tables decide, as in a load, which records fit.
    class CacheFileReader_c
    {
    public:
        CacheFileReader_c(ArchiveCheck_c & Archive, CacheContents_t & Contents)
            : m_Archive(Archive)
            , m_Contents(Contents)
        {}

        void Read()
        {
            for (int nFolders = ReadCount(); nFolders > 0 && m_Contents.IsSound(); --nFolders)
            {
                ReadFolder();
            }
            if (!m_Contents.IsSound())
            {
                return;
            }
            m_Contents.dFiles.reserve(FileTable_t::iMask + 1);   // the table points to their names
            for (int nFiles = ReadCount(); nFiles > 0 && m_Contents.IsSound(); --nFiles)
            {
                ReadFile();
            }
            if (m_Contents.IsSound())
            {
                ReadTimes();
            }
        }

    private:
        // Stores sWhat as the first damage if bIntact is false or the archive has failed. Returns whether the cache is
        // sound so far.
        bool Require(bool bIntact, std::string const & sWhat)
        {
            if (m_Contents.IsSound() && (!bIntact || m_Archive.IsFailed()))
            {
                m_Contents.iDamage = m_Archive.GetPosition();
                m_Contents.sDamage = sWhat;
            }
            return m_Contents.IsSound();
        }

        int ReadCount()
        {
            int nRecords = 0;
            m_Archive.Serialize(nRecords);
            return Require(nRecords >= 0, "no count of records") ? nRecords : 0;
        }

        void ReadFolder()
        {
            CacheFolder_s Record;
            Record.Serialize(m_Archive);
            if (!Require(true, "no whole folder record") || !Require(Record.IsSound(), "not the text of a folder"))
            {
                return;
            }
            int const iResult = m_Folders.Add(true, Record.nIndex);
            if (Require(iResult != HASH_PRESENT, "the folder is listed twice")
                && Require(iResult == HASH_ADDED, "more folders than the table has room for"))
            {
                m_Contents.dFolderOf[Record.nIndex] = m_Contents.dFolders.size();
                m_Contents.dFolders.push_back(Record);
            }
        }

        void ReadFile()
        {
            CacheFile_s Record;
            Record.Serialize(m_Archive);
            if (!Require(!Record.sName.IsEmpty(), "no whole file record")
                || !Require(m_Contents.dFolderOf.contains(Record.nIndex), "the file's folder is not listed"))
            {
                return;
            }
            if (FileReplacement_c::IsBeside(Record.sName))
            {
                return;   // a load skips it
            }
            bool const bPresent = m_Files.FindByName(Record.sName) != nullptr;
            bool const bRoom = m_Contents.dFiles.size() < m_Contents.dFiles.capacity();
            if (Require(!bPresent, "the file is listed twice") && Require(bRoom, TOO_MANY))
            {
                CacheFile_s & Stored = m_Contents.dFiles.emplace_back(Record);
                if (!Require(m_Files.Add(&Stored, &Stored.sName) == HASH_ADDED, TOO_MANY))
                {
                    m_Contents.dFiles.pop_back();
                }
            }
        }

        void ReadTimes()
        {
            std::uint32_t dwFollow = 0;
            if (m_Archive.GetLeft() >= static_cast<int>(sizeof dwFollow))
            {
                m_Archive.Serialize(dwFollow);
            }
            m_Contents.bTimes = dwFollow == CACHE_STAMPS_FOLLOW;
            for (std::size_t i = 0; m_Contents.bTimes && i < m_Contents.dFolders.size(); ++i)
            {
                CacheStamp_s Ignored;
                Ignored.Serialize(m_Archive);
                m_Contents.bTimes = Require(true, "no whole list of times: a start would scan");
            }
        }

        static constexpr char TOO_MANY[] = "more files than the table has room for";

        ArchiveCheck_c & m_Archive;
        CacheContents_t & m_Contents;
        IndexHash_T<bool, PATH_TABLE_FOLDERS, FILE_TABLE_STEP> m_Folders;
        StringHash_T<CacheFile_s, File_c::Key_t::Capacity(), FileTable_t::iMask + 1, FILE_TABLE_STEP> m_Files;
    };
}

bool CacheContents_t::IsRelative() const
{
    return std::any_of(
        dFiles.begin(), dFiles.end(), [](CacheFile_s const & File) { return File.sName.StrPos("\\") >= 0; });
}

std::string CacheContents_t::PathOf(CacheFile_s const & File) const
{
    std::string const sKey(File.sName);
    std::string const sFolder(dFolders[dFolderOf.at(File.nIndex)].sRelative);
    return sFolder + sKey.substr(sKey.rfind('\\') + 1);
}

void ReadCache(std::string_view sBytes, CacheContents_t & Contents)
{
    Contents.nSize = sBytes.size();
    // A load reads all minor versions.
    ArchiveResult_t const Result = ArchiveCheck(std::as_bytes(std::span(sBytes)), FILESYSTEMCACHE_VERSION | 0xFFFF,
        [&](ArchiveCheck_c & Archive)
        {
            Contents.dwVersion = Archive.GetVersion();
            std::make_unique<CacheFileReader_c>(Archive, Contents)->Read();
        });
    Contents.nLeft = Result.nLeft;
    if (!Result.IsSound() && Contents.IsSound())
    {
        bool const bOther = Result.eState == ArchiveResult_t::OTHER_VERSION;
        Contents.iDamage = Result.iPosition;
        Contents.sDamage = bOther ? "a cache of another major version" : Result.sWhyNot.CStr();
    }
}

bool ReadCacheFile(std::string const & sFile, CacheContents_t & Contents, std::string & sWhyNot)
{
    std::string sBytes;
    sWhyNot = ReadInput(sFile, sBytes, MAX_BYTES);
    if (sWhyNot.empty())
    {
        ReadCache(sBytes, Contents);
    }
    return sWhyNot.empty();
}
