#include "zqcore/ccrc.h"
#include "zqcore/cfile.h"
#include "zqcore/cserialize.h"

Readable_c::Readable_c(File_c * pFile, std::uint32_t dwVersion)
    : Serializeable_c(true, dwVersion, false)
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
    m_pPos = m_pFile->pData;
    m_pEnd = m_pPos + (m_bFailed ? 0 : m_pFile->iLength);
    return Serializeable_c::Open();
}

bool Readable_c::Close()
{
    FileClose(m_pFile);
    m_pFile = nullptr;
    m_pPos = m_pEnd = nullptr;
    m_pCurrentChunk = nullptr;
    return Serializeable_c::Close();
}

bool Readable_c::Serialize(void * pData, int iLength)
{
    if (m_bFailed)
    {
        return false;
    }
    if (iLength < 0 || iLength > m_pEnd - m_pPos)
    {
        Fail();
        return false;
    }
    if (pData && iLength > 0)
    {
        std::memcpy(pData, m_pPos, static_cast<std::size_t>(iLength));
    }
    m_pPos += iLength;
    return true;
}

bool Readable_c::ChunkBegin(char const * sName)
{
    constexpr std::uint32_t EMPTY_CHUNK = 4;
    if (m_bFailed)
    {
        return false;
    }
    ZQ_ASSERT(!m_pCurrentChunk);
    if (m_pCurrentChunk)
    {
        Fail();
        return false;
    }
    m_dwChunkLabel = GetCrc32Polynomial(sName, static_cast<int>(std::strlen(sName)));
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
        Fail();
    }
    return nLength != EMPTY_CHUNK;
}

void Readable_c::ChunkEnd(char const * sName)
{
    if (m_bFailed)
    {
        return;
    }
    bool const bOpen =
        m_pCurrentChunk && m_dwChunkLabel == GetCrc32Polynomial(sName, static_cast<int>(std::strlen(sName)));
    ZQ_ASSERT_TEXT(bOpen, "m_pCurrentChunk && m_dwChunkLabel == GetCrc32Polynomial(sName, strlen(sName))");
    std::uint32_t nLength = 0;
    if (bOpen)
    {
        std::memcpy(&nLength, m_pCurrentChunk, sizeof nLength);
    }
    if (!bOpen || nLength > static_cast<std::size_t>(m_pEnd - m_pCurrentChunk))
    {
        return Fail();
    }
    m_pPos = m_pCurrentChunk + nLength;
    m_pCurrentChunk = nullptr;
    m_dwChunkLabel = 0;
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

int Readable_c::GetPosition() const
{
    return m_pPos ? static_cast<int>(m_pPos - m_pFile->pData) : 0;
}
