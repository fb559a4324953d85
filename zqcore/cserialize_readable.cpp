#include "zqcore/ccrc_internal.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/cserialize.h"

#include <limits>

MemoryReadable_c::MemoryReadable_c(
    std::byte const * pBytes, std::size_t nBytes, std::uint32_t dwVersion, char const * szName)
    : Serializeable_c(true, dwVersion, false)
    , m_Bytes(pBytes, nBytes)
    , m_szName(szName)
{}

bool MemoryReadable_c::Open()
{
    m_pPos = reinterpret_cast<unsigned char *>(const_cast<std::byte *>(m_Bytes.data()));   // a reader changes no byte
    m_pEnd = m_pPos + (m_bFailed ? 0 : m_Bytes.size());
    if (m_Bytes.size() > std::size_t{ std::numeric_limits<int>::max() })
    {
        Fail("the archive has 2 GiB or more");
        return false;
    }
    return Serializeable_c::Open();
}

bool MemoryReadable_c::Close()
{
    m_Bytes = {};
    m_pPos = m_pEnd = nullptr;
    m_pCurrentChunk = nullptr;
    return Serializeable_c::Close();
}

bool MemoryReadable_c::Serialize(void * pData, int iLength)
{
    if (m_bFailed)
    {
        return false;
    }
    if (iLength < 0 || iLength > m_pEnd - m_pPos)
    {
        Fail("the archive ends after %d of %d bytes", static_cast<int>(m_pEnd - m_pPos), iLength);
        return false;
    }
    if (pData && iLength > 0)
    {
        std::memcpy(pData, m_pPos, static_cast<std::size_t>(iLength));
    }
    m_pPos += iLength;
    return true;
}

bool MemoryReadable_c::ChunkBegin(char const * sName)
{
    constexpr std::uint32_t EMPTY_CHUNK = sizeof(std::uint32_t);   // of a chunk that holds only its length
    if (m_bFailed)
    {
        return false;
    }
    ZQ_ASSERT(!m_pCurrentChunk);
    if (m_pCurrentChunk)
    {
        Fail("chunk '%s' begins in another one", sName);
        return false;
    }
    m_dwChunkLabel = Crc32OfText(sName);
    LabelCrc32(sName);
    m_pCurrentChunk = m_pPos;
    std::uint32_t nLength = 0;
    Serialize(nLength);
    if (m_bFailed)
    {
        return false;
    }
    if (nLength < EMPTY_CHUNK)
    {
        Fail("chunk '%s' has a length of %u", sName, nLength);
    }
    return nLength != EMPTY_CHUNK;
}

void MemoryReadable_c::ChunkEnd(char const * sName)
{
    if (m_bFailed)
    {
        return;
    }
    bool const bOpen = m_pCurrentChunk && m_dwChunkLabel == Crc32OfText(sName);
    ZQ_ASSERT_TEXT(bOpen, "m_pCurrentChunk && m_dwChunkLabel == GetCrc32Polynomial(sName, strlen(sName))");
    std::uint32_t nLength = 0;
    if (bOpen)
    {
        std::memcpy(&nLength, m_pCurrentChunk, sizeof nLength);
    }
    if (!bOpen || nLength > static_cast<std::size_t>(m_pEnd - m_pCurrentChunk))
    {
        return Fail(!bOpen                  ? "chunk '%s' is not open"
                    : nLength == UNFINISHED ? "chunk '%s' was not finished"
                                            : "chunk '%s' ends after the archive",
            sName);
    }
    m_pPos = m_pCurrentChunk + nLength;
    m_pCurrentChunk = nullptr;
    m_dwChunkLabel = 0;
}

char const * MemoryReadable_c::GetFileName() const
{
    return m_szName;
}

int MemoryReadable_c::GetLength() const
{
    return static_cast<int>(m_Bytes.size());
}

int MemoryReadable_c::GetPosition() const
{
    return m_pPos ? static_cast<int>(m_pPos - reinterpret_cast<unsigned char const *>(m_Bytes.data())) : 0;
}

std::byte const * FileBytes(File_c const * pFile, std::size_t & nBytes)
{
    bool const bResident = pFile && pFile->pData;
    nBytes = bResident ? static_cast<std::size_t>(pFile->iLength) : 0;
    return reinterpret_cast<std::byte const *>(bResident ? pFile->pData : nullptr);
}

Readable_c::Readable_c(File_c * pFile, std::uint32_t dwVersion)
    : MemoryReadable_c(nullptr, 0, dwVersion)
    , m_pFile(pFile)
{}

Readable_c::~Readable_c()
{
    Readable_c::Close();
}

bool Readable_c::Open()
{
    if (!m_pFile || !m_pFile->pData)
    {
        Fail();
        return false;
    }
    m_Bytes = FileBytes(m_pFile);
    return MemoryReadable_c::Open();
}

bool Readable_c::Close()
{
    FileClose(m_pFile);
    m_pFile = nullptr;
    return MemoryReadable_c::Close();
}

char const * Readable_c::GetFileName() const
{
    ZQ_ASSERT(m_pFile);
    return m_pFile ? static_cast<char const *>(m_pFile->sName) : "";
}

int Readable_c::GetLength() const
{
    ZQ_ASSERT(m_pFile);
    return m_pFile ? m_pFile->iLength : 0;
}
