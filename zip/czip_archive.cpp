// The file of an archive, as libzip and the readers see it.
#include "zip/czip_internal.h"

#include "zqcore/cfilename.h"
#include "zqcore/cmemory.h"

#include <algorithm>
#include <cstring>

namespace
{
    constexpr std::int64_t MAX_DIRECTORY = std::int64_t{ 8 } << 20;   // bytes read to find and read the directory
    constexpr char TOO_LARGE[] = "its directory has more entries or bytes than a mount allows";

    ZipArchive_c * g_pArchives = nullptr;   // mounted ones; the main thread changes it
    plat::ForkHandler_c const g_ArchivesForkHandler({ nullptr, nullptr, ZipArchive_c::LeaveHandles });
}

ZipArchive_c::ZipArchive_c(char const * szPath)
    : m_sPath(szPath)
    , m_sFolder(szPath)
{
    char const * const szBare = PathFileName(szPath);
    m_sFolder.GetBuffer()[szBare - szPath] = '\0';
    m_Disk.pPath = &m_sFolder;
    m_Disk.sName = szBare;
    zip_error_init(&m_Error);
}

ZipArchive_c::~ZipArchive_c()
{
    for (ZipArchive_c ** ppLink = &g_pArchives; *ppLink; ppLink = &(*ppLink)->m_pNext)
    {
        if (*ppLink == this)
        {
            *ppLink = m_pNext;
            break;
        }
    }
    zip_discard(m_pZip);
    if (m_pStream)
    {
        m_pStream->CloseStored();
    }
    zip_error_fini(&m_Error);
    m_Disk.sName = "";   // it is in no table, and without a key ~File_c searches none
}

std::unique_ptr<ZipArchive_c> ZipArchive_c::Open(char const * szPath, File_c::Reason_t & sWhyNot)
{
    if (std::strlen(szPath) >= static_cast<std::size_t>(String_T<256>::Capacity())
        || std::strlen(PathFileName(szPath)) >= static_cast<std::size_t>(File_c::Key_t::Capacity()))
    {
        sWhyNot = FILE_LONG_PATH;
        return nullptr;
    }
    std::unique_ptr<ZipArchive_c> pArchive(ZQ_NEW ZipArchive_c(szPath));
    if (!pArchive->OpenStream(sWhyNot))
    {
        return nullptr;
    }
    pArchive->m_nSize = pArchive->m_pStream->FileSize();
    zip_error_t Error;
    zip_error_init(&Error);
    zip_source_t * const pSource = zip_source_function_create(Serve, pArchive.get(), &Error);
    pArchive->m_bReadingDirectory = true;
    pArchive->m_nMayRead = MAX_DIRECTORY;
    pArchive->m_nMayHave = ZIP_MAX_ENTRIES;
    pArchive->m_pZip = pSource ? zip_open_from_source(pSource, ZIP_RDONLY, &Error) : nullptr;
    pArchive->m_bReadingDirectory = false;
    bool const bTooLarge = pArchive->m_nMayRead < 0 || pArchive->m_nMayHave < 0;
    if (pSource && !pArchive->m_pZip)
    {
        zip_source_free(pSource);
    }
    sWhyNot = bTooLarge ? TOO_LARGE : zip_error_strerror(&Error);
    zip_error_fini(&Error);
    if (pArchive->m_pZip && zip_get_num_entries(pArchive->m_pZip, 0) > ZIP_MAX_ENTRIES)
    {
        sWhyNot = TOO_LARGE;
        return nullptr;
    }
    return pArchive->m_pZip ? std::move(pArchive) : nullptr;
}

bool ZipArchive_c::OpenStream(File_c::Reason_t & sWhyNot)
{
    m_pStream = m_Disk.OpenStored();
    m_nStreamAt = 0;
    sWhyNot = m_Disk.GetWhyNot();
    return m_pStream != nullptr;
}

ZipArchive_c * ZipArchive_c::OpenForWorker()
{
    File_c::Reason_t sWhyNot;
    if (!m_pForWorker)
    {
        m_pForWorker = Open(m_sPath, sWhyNot);
    }
    return m_pForWorker && IsSameFile(*m_pForWorker) ? m_pForWorker.get() : nullptr;
}

// Reads one byte, because libzip then reads the local header and passes the read of the data through, which shows their
// position.
std::uint32_t ZipArchive_c::FindData(zip_uint64_t iEntry)
{
    plat::LockScope_c const Scope(m_Lock);
    zip_file_t * const pFile = zip_fopen_index(m_pZip, iEntry, ZIP_FL_COMPRESSED);
    char cFirst;
    bool const bRead = pFile && zip_fread(pFile, &cFirst, 1) == 1;
    if (pFile)
    {
        zip_fclose(pFile);
    }
    return bRead ? m_nReadAt : 0;
}

std::size_t ZipArchive_c::ReadAt(std::uint32_t nAt, void * pBuffer, std::size_t nBytes)
{
    plat::LockScope_c const Scope(m_Lock);
    return ReadDisk(nAt, pBuffer, nBytes);
}

// Opens the file again in a forked child, which shares the parent's handle and its position. Leaves no stream if that
// fails or leads to another file.
void ZipArchive_c::ReopenStream()
{
    plat::FileTime_t const tLastWrite = m_Disk.ftLastWriteTime;
    File_c::Reason_t sWhyNot;
    bool bSame = false;
    if (m_pStream)   // null if the parent is a child that could not open the file again
    {
        m_pStream->CloseStored();
        bSame = OpenStream(sWhyNot) && m_pStream->FileSize() == m_nSize && m_Disk.ftLastWriteTime == tLastWrite;
    }
    if (m_pStream && !bSame)
    {
        m_pStream->CloseStored();
        m_pStream = nullptr;
    }
}

// Reads from a position of the file and returns the number of bytes. Reads nothing if there is no stream.
std::size_t ZipArchive_c::ReadDisk(std::uint32_t nAt, void * pBuffer, std::size_t nBytes)
{
    if (m_bForked)
    {
        m_bForked = false;
        ReopenStream();
    }
    if (!m_pStream || (nAt != m_nStreamAt && m_pStream->SeekStored(static_cast<long>(nAt), 0) == 0))
    {
        m_nStreamAt = UINT32_MAX;
        return 0;
    }
    std::size_t const nRead = m_pStream->ReadStored(pBuffer, 1, static_cast<unsigned int>(nBytes));
    m_nStreamAt = nAt + static_cast<std::uint32_t>(nRead);
    return nRead;
}

// Reads through a buffer, because libzip reads the directory in small pieces. Returns the number of bytes.
std::size_t ZipArchive_c::ReadBuffered(void * pBuffer, std::size_t nBytes)
{
    auto * const pTo = static_cast<unsigned char *>(pBuffer);
    std::size_t nDone = 0;
    while (nDone < nBytes)
    {
        std::size_t nGot = 0;
        if (m_nAt >= m_nBufferAt && m_nAt - m_nBufferAt < m_nBuffered)
        {
            nGot = std::min<std::size_t>(nBytes - nDone, m_nBuffered - (m_nAt - m_nBufferAt));
            std::memcpy(pTo + nDone, m_dBuffer + (m_nAt - m_nBufferAt), nGot);
        }
        else if (nBytes - nDone >= BUFFER)
        {
            nGot = ReadDisk(m_nAt, pTo + nDone, nBytes - nDone);
        }
        else
        {
            m_nBufferAt = m_nAt;
            m_nBuffered = static_cast<std::uint32_t>(ReadDisk(m_nAt, m_dBuffer, BUFFER));
            if (m_nBuffered > 0)
            {
                continue;
            }
        }
        if (nGot == 0)
        {
            break;
        }
        nDone += nGot;
        m_nAt += static_cast<std::uint32_t>(nGot);
    }
    return nDone;
}

// Reads through the buffer and returns the number of bytes. Returns -1 for what exceeds the limits. They bound time and
// memory of libzip, also if an archive has several directories.
zip_int64_t ZipArchive_c::ReadDirectory(void * pBuffer, zip_uint64_t nBytes)
{
    constexpr char ENTRY[] = { 'P', 'K', 1, 2 };   // signature of an entry (APPNOTE.TXT 4.3.12)
    m_nMayRead -= static_cast<std::int64_t>(std::min<zip_uint64_t>(nBytes, m_nSize));
    std::size_t const nRead = m_nMayRead < 0 ? 0 : ReadBuffered(pBuffer, static_cast<std::size_t>(nBytes));
    m_nMayHave -= nRead >= sizeof ENTRY && std::memcmp(pBuffer, ENTRY, sizeof ENTRY) == 0 ? 1 : 0;
    if (m_nMayRead < 0 || m_nMayHave < 0)
    {
        zip_error_set(&m_Error, ZIP_ER_MEMORY, 0);
        return -1;
    }
    return static_cast<zip_int64_t>(nRead);
}

zip_int64_t ZipArchive_c::Serve(void * pData, zip_uint64_t nBytes, zip_source_cmd_t eCommand)
{
    switch (eCommand)
    {
    case ZIP_SOURCE_SUPPORTS:
        return ZIP_SOURCE_SUPPORTS_SEEKABLE;
    case ZIP_SOURCE_OPEN:
        m_nAt = 0;
        return 0;
    case ZIP_SOURCE_CLOSE:
    case ZIP_SOURCE_FREE:
        return 0;
    case ZIP_SOURCE_READ:
        m_nReadAt = m_nAt;
        nBytes = std::min<zip_uint64_t>(nBytes, m_nSize - m_nAt);
        return m_bReadingDirectory ? ReadDirectory(pData, nBytes)
                                   : static_cast<zip_int64_t>(ReadBuffered(pData, static_cast<std::size_t>(nBytes)));
    case ZIP_SOURCE_TELL:
        return m_nAt;
    case ZIP_SOURCE_SEEK:
    {
        zip_int64_t const nTo = zip_source_seek_compute_offset(m_nAt, m_nSize, pData, nBytes, &m_Error);
        if (nTo < 0)
        {
            return -1;
        }
        m_nAt = static_cast<std::uint32_t>(nTo);
        return 0;
    }
    case ZIP_SOURCE_STAT:
    {
        zip_stat_t Stat;
        zip_stat_init(&Stat);
        Stat.valid = ZIP_STAT_SIZE;
        Stat.size = m_nSize;
        std::memcpy(pData, &Stat, static_cast<std::size_t>(std::min<zip_uint64_t>(nBytes, sizeof Stat)));
        return sizeof Stat;
    }
    case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&m_Error, pData, nBytes);
    default:
        zip_error_set(&m_Error, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
}

zip_int64_t ZipArchive_c::Serve(void * pArchive, void * pData, zip_uint64_t nBytes, zip_source_cmd_t eCommand)
{
    return static_cast<ZipArchive_c *>(pArchive)->Serve(pData, nBytes, eCommand);
}

void ZipArchive_c::Add(ZipFile_c & File)
{
    File.m_pNext = m_pFiles;
    if (m_pFiles)
    {
        m_pFiles->m_pPrevious = &File;
    }
    m_pFiles = &File;
}

void ZipArchive_c::Remove(ZipFile_c & File)
{
    ZipFile_c *& pLink = File.m_pPrevious ? File.m_pPrevious->m_pNext : m_pFiles;
    pLink = File.m_pNext;
    if (File.m_pNext)
    {
        File.m_pNext->m_pPrevious = File.m_pPrevious;
    }
    if (!m_pFiles && m_bMounted)
    {
        delete this;
    }
}

ZipArchive_c * ZipArchive_c::Find(char const * szPath)
{
    FoldedPath_c const sFolded(szPath);
    ZipArchive_c * pArchive = g_pArchives;
    while (pArchive && std::strcmp(FoldedPath_c(pArchive->m_sPath), sFolded) != 0)
    {
        pArchive = pArchive->m_pNext;
    }
    return pArchive;
}

void ZipArchive_c::Mount()
{
    m_pNext = g_pArchives;
    g_pArchives = this;
    m_bMounted = true;
}

void ZipArchive_c::LeaveHandles()
{
    for (ZipArchive_c * pArchive = g_pArchives; pArchive; pArchive = pArchive->m_pNext)
    {
        pArchive->m_bForked = true;
        if (pArchive->m_pForWorker)
        {
            pArchive->m_pForWorker->m_bForked = true;
        }
    }
}
