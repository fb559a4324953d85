// Files and streams of archives.
#include "zip/czip_internal.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

ZipFile_c::ZipFile_c(ZipArchive_c & Archive, ZipFacts_t const & Facts)
    : m_Archive(Archive)
    , m_Facts(Facts)
{
    iLength = static_cast<int>(Facts.nSize);
    ftCreationTime = ftLastWriteTime = Facts.tLastWrite;
    m_Archive.Add(*this);
}

ZipFile_c::~ZipFile_c()
{
    ZipFile_c::Close();
    m_Archive.Remove(*this);
}

String_T<256> ZipFile_c::GetFullPath() const
{
    return m_Archive.GetPath() + "\\" + m_Archive.NameOf(m_Facts.iEntry);
}

// Logs and stores why a read failed, reports the file to g_FileReadErrorCallbacker and returns false.
bool ZipFile_c::ReportReadFailure(char const * szWho, char const * szWhyNot)
{
    String_T<256> const sLocation = GetFullPath();
    LogEscaped("%s: Error reading file: '%s'", szWho, sLocation.CStr());
    LogEscaped("%s: %s", szWho, szWhyNot);
    SetWhyNot(szWhyNot);
    return ReportReadError();
}

bool ZipFile_c::Open(void * pBuffer)
{
    MemCategoryScope_c const Category(mem::file);
    bool const bUnlocked = TakeUnlocked();
    if (pData)
    {
        if (pBuffer)
        {
            std::memcpy(pBuffer, pData, m_Facts.nSize);
        }
        return true;
    }
    ReportOpen();
    if (m_Facts.nSize == 0)
    {
        ReportEmpty(GetFullPath());
    }
    std::unique_ptr<unsigned char[]> pBlock(pBuffer ? nullptr : ZQ_NEW unsigned char[m_Facts.nSize]);
    void * const pTo = pBuffer ? pBuffer : pBlock.get();
    char const * const szWhyNot = bUnlocked ? ReadUnlocked(pTo) : Read(m_Archive, pTo);
    if (szWhyNot)
    {
        return ReportReadFailure("ZipFile_c::Open", szWhyNot);
    }
    SetWhyNot(nullptr);
    CountRead();
    if (!pBlock || pData)   // another thread may have read it meanwhile
    {
        return pBlock != nullptr;
    }
    pData = pBlock.release();
    StayerDoWork();
    return true;
}

// Reads all contents. Returns null, or the reason of a failure.
char const * ZipFile_c::Read(ZipArchive_c & Archive, void * pTo) const
{
    ZipReader_c Reader(Archive, m_Facts);
    Reader.Read(pTo, m_Facts.nSize);
    return Reader.GetWhyNot();
}

// Does what Read does, on a worker whose priority can't be raised. Holds no lock that another thread may wait for.
ZQ_COLD char const * ZipFile_c::ReadUnlocked(void * pTo)
{
    GetLock().Leave();
    ZipArchive_c * const pArchive = m_Archive.OpenForWorker();
    char const * const szWhyNot = pArchive ? Read(*pArchive, pTo) : "the archive can't be opened again";
    GetLock().Enter();
    return szWhyNot;
}

void ZipFile_c::Close()
{
    MemCategoryScope_c const Category(mem::file);
    delete[] std::exchange(pData, nullptr);
}

bool ZipFile_c::Load(std::uint32_t dwPosition, unsigned char * pBuffer, std::uint32_t & dwLength)
{
    MemCategoryScope_c const Category(mem::file);
    if (dwLength == 0)
    {
        return true;
    }
    ZQ_ASSERT_TEXT(dwPosition < m_Facts.nSize, "dwPosition<(DWORD)iLength");
    ReportOpen();
    ZipReader_c Reader(m_Archive, m_Facts);
    bool const bThere = Reader.Seek(std::min(dwPosition, m_Facts.nSize));
    auto const nRead = static_cast<std::uint32_t>(bThere ? Reader.Read(pBuffer, dwLength) : 0);
    if (nRead == dwLength)
    {
        SetWhyNot(nullptr);
        return true;
    }
    dwLength = nRead;
    ReportReadFailure("ZipFile_c::Load", Reader.GetWhyNot() ? Reader.GetWhyNot() : FILE_ENDS_EARLY);
    return LogWhyNot();
}

FileStored_c * ZipFile_c::OpenStored()
{
    MemCategoryScope_c const Category(mem::file);
    std::unique_ptr<ZipStored_c> pStored(ZQ_NEW ZipStored_c(*this));
    return pStored->OpenStored() ? pStored.release() : nullptr;
}

ZipStored_c::ZipStored_c(ZipFile_c & File)
    : FileStored_c(&File)
    , m_File(File)
    , m_Reader(File.m_Archive, File.m_Facts)
{
    ++m_File.m_nStreams;
}

ZipStored_c::~ZipStored_c()
{
    --m_File.m_nStreams;
}

bool ZipStored_c::OpenStored()
{
    ZQ_ASSERT_TEXT(!g_bFileReadDisabled, "! g_bFileReadDisabled");
    m_File.ReportOpen();
    if (!m_Reader.Seek(0))
    {
        m_File.SetWhyNot(m_Reader.GetWhyNot());
        return m_File.ReportReadError();
    }
    m_File.SetWhyNot(nullptr);
    m_File.CountRead();
    return true;
}

int ZipStored_c::SeekStored(long iOffset, int iOrigin)
{
    if (iOffset < INT_MIN || iOffset > INT_MAX)
    {
        return 0;
    }
    std::int64_t const nFrom = iOrigin == 1 ? m_nAt : iOrigin == 2 ? m_File.m_Facts.nSize : 0;
    std::int64_t const nTo = nFrom + iOffset;
    if (nTo < 0 || nTo > INT_MAX)
    {
        return 0;
    }
    m_nAt = static_cast<std::uint32_t>(nTo);
    return 1;
}

unsigned int ZipStored_c::ReadStored(void * pBuffer, unsigned int iSize, unsigned int iCount)
{
    std::uint64_t const nBytes = std::uint64_t{ iSize } * iCount;
    if (nBytes == 0 || m_nAt >= m_File.m_Facts.nSize)
    {
        return 0;
    }
    bool const bThere = m_Reader.Seek(m_nAt);
    auto const nRead = static_cast<std::uint32_t>(
        bThere ? m_Reader.Read(pBuffer, static_cast<std::size_t>(std::min<std::uint64_t>(nBytes, INT_MAX))) : 0);
    m_nAt += nRead;
    if (nRead == 0)
    {
        m_File.ReportReadFailure("ZipStored_c::ReadStored", m_Reader.GetWhyNot());
    }
    return nRead;
}

void ZipStored_c::CloseStored()
{
    m_File.CountRead();
    delete this;
}
