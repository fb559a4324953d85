#include "zqcore/cfilesave_internal.h"

#include "zqcore/ccrc.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilereplace_internal.h"
#include "zqcore/cmemory.h"
#include "zqcore/cserialize_internal.h"
#include "zqcore/cstring.h"

#include "platform/bytes.h"
#include "platform/filereplace.h"
#include "platform/files.h"
#include "platform/filewrite.h"

#include <climits>
#include <cstdio>
#include <memory>
#include <utility>

namespace
{
    constexpr char MARK[] = { 'Z', 'Q', 'S', '1' };   // begins a seal; the last character is its version
    constexpr int MAX_PATH_LENGTH = 255 - 6;          // characters of the longest path: leaves room for ".old99"
    constexpr std::size_t HEAD_SIZE = sizeof MARK + sizeof(std::uint64_t);
    static_assert(SAVE_SEAL_SIZE == HEAD_SIZE + sizeof(std::uint32_t));

    // Returns whether a save has the mark of a seal, of this version or a newer one.
    bool HasMark(unsigned char const * pData, std::size_t nBytes)
    {
        if (nBytes < SAVE_SEAL_SIZE || std::memcmp(pData + nBytes - SAVE_SEAL_SIZE, MARK, SAVE_SEAL_VERSION_AT) != 0)
        {
            return false;
        }
        unsigned char const cVersion = pData[nBytes - SAVE_SEAL_SIZE + SAVE_SEAL_VERSION_AT];
        return cVersion >= MARK[SAVE_SEAL_VERSION_AT] && cVersion <= '9';
    }

    // Returns whether a save ends in the CRC-32 of all before it. Returns false if fewer than 4 bytes precede it.
    bool HasChecksum(unsigned char const * pData, std::size_t nBytes)
    {
        if (nBytes < 2 * sizeof(std::uint32_t))
        {
            return false;
        }
        std::size_t const nBefore = nBytes - sizeof(std::uint32_t);
        return plat::LoadAs<std::uint32_t>(pData + nBefore)
               == GetCrc32Polynomial(reinterpret_cast<char const *>(pData), static_cast<int>(nBefore));
    }

    // Returns a text with a number at its end. Does not use Va, whose buffers all threads share.
    String_T<16> Numbered(char const * szText, int iNumber)
    {
        char szNumbered[16];
        std::snprintf(szNumbered, sizeof szNumbered, "%s%i", szText, iNumber);
        return szNumbered;
    }
}

class FileSave_c::Contents_c : public File_c
{
public:
    Contents_c(char const * szFile, unsigned char * pBytes, int nArchive)
    {
        sName = PathFileName(szFile);
        pData = pBytes;
        iLength = nArchive;
    }
    ~Contents_c() override
    {
        Contents_c::Close();
        sName = "";   // keeps the base from the table, which belongs to the main thread
    }

    void Refresh() override {}
    bool Load(std::uint32_t dwPosition, unsigned char * pBuffer, std::uint32_t & dwLength) override
    {
        bool const bInside = pData && dwPosition <= GetBytes() && dwLength <= GetBytes() - dwPosition;
        if (bInside)
        {
            std::memcpy(pBuffer, pData + dwPosition, dwLength);
        }
        dwLength = bInside ? dwLength : 0;
        return bInside;
    }
    FileStored_c * OpenStored() override { return nullptr; }
    bool Open(void *) override { return pData != nullptr; }
    void Close() override
    {
        MemCategoryScope_c const Category(mem::file);
        delete[] std::exchange(pData, nullptr);
    }

private:
    std::uint32_t GetBytes() const { return static_cast<std::uint32_t>(iLength); }
};

FileSave_c::FileSave_c(char const * szFile)
    : m_sFile(szFile ? szFile : "")
{
    if (m_sFile.Length() > MAX_PATH_LENGTH || !*PathFileName(m_sFile))
    {
        m_sWhyNot = m_sWhyNoLock = "the path is empty, too long or that of a folder";
        return;
    }
    m_sLock = NameBeside(m_sFile, SAVE_LOCK_PREFIX);
    StrToLower(m_sLock.GetBuffer() + (PathFileName(m_sLock) - m_sLock));
    plat::FoldersCreate(m_sFile);
    plat::NameLock_c::Result_e const eResult = m_Lock.Take(m_sLock);
    if (eResult == plat::NameLock_c::FAILED)
    {
        m_sWhyNoLock = LastErrorReason();
    }
    else if (eResult == plat::NameLock_c::HELD)
    {
        m_sWhyNoLock = "it is in use by another program";
    }
    else if (m_Lock.WasLeft())
    {
        DeleteLeft();
    }
    m_sWhyNot = m_sWhyNoLock;
}

FileSave_c::~FileSave_c()
{
    delete m_pContents;
    m_Lock.Drop(m_sLock);
}

bool FileSave_c::IsLocked() const
{
    return m_Lock.IsTaken();
}

void FileSave_c::SetPrevious(int nPrevious)
{
    ZQ_ASSERT(nPrevious >= 0 && nPrevious <= MAX_PREVIOUS);
    m_nPrevious = nPrevious < 0 ? 0 : nPrevious < MAX_PREVIOUS ? nPrevious : MAX_PREVIOUS;
}

String_T<256> FileSave_c::GetPath(int iPrevious) const
{
    return iPrevious > 0 ? m_sFile + Numbered(".", iPrevious) : m_sFile;
}

// Deletes the files that killed writers of this save left. No other program writes it at this point, because this
// object has the lock.
void FileSave_c::DeleteLeft()
{
    String_T<512> sFolder(m_sFile);
    sFolder.GetBuffer()[PathFileName(m_sFile) - m_sFile] = '\0';
    plat::FolderListing_c Listing;
    FileReplacement_c::Beside_t const sCutFile = NameBeside(m_sFile, "");
    if (!Listing.Read(sFolder.IsEmpty() ? "." : static_cast<char const *>(sFolder)))
    {
        return;
    }
    for (std::size_t i = 0; i < Listing.GetCount(); ++i)
    {
        plat::FolderEntry_t const & Entry = Listing.GetEntry(i);
        bool const bLeft = FileReplacement_c::IsBeside(Entry.szName) && Entry.Facts.bRegular && !Entry.bLink
                           && StrCompareNoCase(std::strchr(Entry.szName, '-') + 1, PathFileName(sCutFile)) == 0;
        if (bLeft && StrCompareNoCase(Entry.szName, PathFileName(m_sLock)) != 0)
        {
            plat::TreeDelete(sFolder + Entry.szName);
        }
    }
}

FileSave_c::State_e FileSave_c::SetWhyNot(State_e eState, char const * szWhyNot)
{
    m_sWhyNot = szWhyNot;
    return eState;
}

FileSave_c::State_e FileSave_c::Check(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwVersion)
{
    SaveCheck_t const Found = SaveCheck(pData, nBytes, dwVersion);
    return SetWhyNot(Found.eState, Found.sWhyNot);
}

SaveCheck_t SaveCheck(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwVersion)
{
    SaveCheck_t Found;
    auto const Set = [&Found](FileSave_c::State_e eState, char const * szWhyNot)
    {
        Found.eState = eState;
        Found.sWhyNot = szWhyNot;
        return Found;
    };
    Found.bMark = HasMark(pData, nBytes);
    Found.bChecksum = HasChecksum(pData, nBytes);
    if (nBytes == 0)
    {
        return Set(FileSave_c::DAMAGED, "it is empty");
    }
    if (!Found.bChecksum)
    {
        return Set(FileSave_c::DAMAGED, Found.bMark ? "its contents do not match its seal" : "it has no seal");
    }
    if (!Found.bMark)
    {
        return Set(FileSave_c::OLDER, "it has the checksum of an older program and no seal");
    }
    unsigned char const * const pSeal = pData + nBytes - SAVE_SEAL_SIZE;
    std::size_t const nArchive = nBytes - SAVE_SEAL_SIZE;
    if (pSeal[SAVE_SEAL_VERSION_AT] > MARK[SAVE_SEAL_VERSION_AT])
    {
        return Set(FileSave_c::NEWER, "its seal is of a newer version");
    }
    if (plat::LoadAs<std::uint64_t>(pSeal + sizeof MARK) != nArchive || nArchive < sizeof dwVersion)
    {
        return Set(FileSave_c::DAMAGED, "it is not of the length that its seal says");
    }
    auto const dwFile = plat::LoadAs<std::uint32_t>(pData);
    if (VersionIsReadable(dwFile, dwVersion))
    {
        return Set(FileSave_c::WHOLE, "");
    }
    char szWhyNot[128];
    std::snprintf(szWhyNot, sizeof szWhyNot, "it is of version %i.%i, and this program reads %i.%i",
        VersionMajor(dwFile), VersionMinor(dwFile), VersionMajor(dwVersion), VersionMinor(dwVersion));
    return Set(dwFile > dwVersion ? FileSave_c::NEWER : FileSave_c::OLDER, szWhyNot);
}

FileSave_c::State_e FileSave_c::Load(std::uint32_t dwVersion, int iPrevious)
{
    MemCategoryScope_c const Category(mem::file);
    delete std::exchange(m_pContents, nullptr);
    if (m_sLock.IsEmpty())
    {
        return SetWhyNot(UNREADABLE, m_sWhyNoLock);   // the constructor refused the path
    }
    String_T<256> const sPath = GetPath(iPrevious);
    plat::FileFacts_t Facts;
    plat::File_t hFile = plat::FileOpenRead(sPath, plat::Share_e::ReadWrite, &Facts);
    if (!hFile && !plat::PathIsTaken(sPath))
    {
        return SetWhyNot(ABSENT, "there is none");
    }
    if (!hFile)   // it may have just been created
    {
        hFile = plat::FileOpenRead(sPath, plat::Share_e::ReadWrite, &Facts);
    }
    if (!hFile)
    {
        return SetWhyNot(UNREADABLE, LastErrorReason());
    }
    FileOpenTracker(hFile, sPath);
    bool const bFits = Facts.nSize <= INT_MAX;
    auto const nBytes = static_cast<std::size_t>(bFits ? Facts.nSize : 0);
    std::unique_ptr<unsigned char[]> pBytes(ZQ_NEW unsigned char[nBytes + 1]);
    std::size_t const nRead = plat::FileRead(hFile, pBytes.get(), nBytes);
    FileReplacement_c::Reason_t const sReason = LastErrorReason();
    bool const bShorter = nRead < nBytes && plat::FileGetFacts(hFile, Facts) && Facts.nSize < nBytes;
    FileCloseTracker(hFile);
    plat::FileClose(hFile);
    if (!bFits || nRead < nBytes)
    {
        return SetWhyNot(UNREADABLE, !bFits     ? FILE_TOO_LARGE
                                     : bShorter ? "it was cut meanwhile"
                                                : static_cast<char const *>(sReason));
    }
    State_e const eState = Check(pBytes.get(), nBytes, dwVersion);
    if (eState == WHOLE)
    {
        m_pContents = ZQ_NEW Contents_c(sPath, pBytes.release(), static_cast<int>(nBytes - SAVE_SEAL_SIZE));
    }
    return eState;
}

File_c * FileSave_c::OpenFile()
{
    return m_pContents && m_pContents->pData && FileOpen(m_pContents) ? m_pContents : nullptr;
}

bool FileSave_c::PutAside(String_T<256> & sTo)
{
    constexpr int TRIES = 100;
    constexpr char SUFFIX[] = ".old";
    m_sWhyNot = IsLocked() ? "" : "it is not locked";
    for (int i = 0; i < TRIES && IsLocked(); ++i)
    {
        sTo = m_sFile + (i > 0 ? Numbered(SUFFIX, i) : SUFFIX);
        if (plat::FileRename(m_sFile, sTo, false))
        {
            m_sWhyNot = "";
            return true;
        }
        m_sWhyNot = LastErrorReason();
        if (!plat::PathIsTaken(sTo))
        {
            return false;
        }
    }
    return false;
}

// Links the save to its first previous name, renames each previous save to the next name, up to a free one, and returns
// true. If none is free, replaces the oldest previous save. On failure sets sWhyNot and returns false. Returns true and
// changes nothing in these cases:
// - No previous saves are kept.
// - There is no save.
// - A failed commit has already linked the save.
bool FileSave_c::KeepPrevious(FileReplacement_c::Reason_t & sWhyNot)
{
    if (m_nPrevious == 0 || !plat::PathIsTaken(m_sFile) || plat::FileIsSame(m_sFile, GetPath(1)))
    {
        return true;
    }
    FileReplacement_c::Beside_t const sSecond = NameBeside(m_sFile, SECOND_NAME_PREFIX);
    plat::TreeDelete(sSecond);
    int iFree = 1;
    while (iFree < m_nPrevious && plat::PathIsTaken(GetPath(iFree)))
    {
        ++iFree;
    }
    bool bKept = plat::FileKeepAs(m_sFile, sSecond);
    for (int i = iFree; i > 1 && bKept; --i)
    {
        bKept = plat::FileRename(GetPath(i - 1), GetPath(i), true);
    }
    bKept = bKept && plat::FileRename(sSecond, GetPath(1), true);
    if (!bKept)
    {
        sWhyNot = LastErrorReason();
        plat::TreeDelete(sSecond);
    }
    return bKept;
}

FileSaveWriter_c::FileSaveWriter_c(FileSave_c & Save)
    : FileReplacement_c(Save.m_sFile, plat::Rights_e::Private,
        Save.IsLocked()               ? nullptr
        : Save.m_sWhyNoLock.IsEmpty() ? "it is in use by the parent process"
                                      : static_cast<char const *>(Save.m_sWhyNoLock))
    , m_Save(Save)
{}

bool FileSaveWriter_c::Commit()
{
    if (!CheckWhole())
    {
        return false;
    }
    unsigned char dHead[HEAD_SIZE];
    std::uint64_t const nArchive = GetSize();
    std::memcpy(dHead, MARK, sizeof MARK);
    std::memcpy(dHead + sizeof MARK, &nArchive, sizeof nArchive);
    if (!Write(dHead, sizeof dHead))
    {
        return false;
    }
    std::uint32_t const dwCrc = GetCrc();
    Reason_t sWhyNot;
    bool const bOnDisk = Write(&dwCrc, sizeof dwCrc) && Synchronize()
                         && (plat::PathIsTaken(GetFile()) || plat::FoldersSync(GetFile()) || FailAsSystem());
    return bOnDisk && (m_Save.KeepPrevious(sWhyNot) || Fail(sWhyNot)) && Replace();
}
