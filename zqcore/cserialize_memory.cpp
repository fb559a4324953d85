#include "zqcore/cmemory.h"
#include "zqcore/cserialize.h"

#include <algorithm>

MemoryWriteable_c::MemoryWriteable_c(std::uint32_t dwVersion)
    : ChunkWriteable_c(dwVersion)
    , m_bOwner(true)
{}

MemoryWriteable_c::MemoryWriteable_c(std::byte * pMemory, std::size_t nBytes, std::uint32_t dwVersion)
    : ChunkWriteable_c(dwVersion)
    , m_pStart(reinterpret_cast<unsigned char *>(pMemory))
    , m_bOwner(false)
{
    m_pPos = m_pStart;
    m_pEnd = m_pStart + std::min(nBytes, std::size_t{ NO_CHUNK });
}

MemoryWriteable_c::~MemoryWriteable_c()
{
    if (m_bOwner)
    {
        delete[] m_pStart;
    }
}

bool MemoryWriteable_c::Serialize(void * pData, int iLength)
{
    auto const nBytes = static_cast<std::size_t>(iLength);
    bool const bRoom = !m_bFailed && iLength >= 0 && (iLength <= m_pEnd - m_pPos || Grow(nBytes));
    if (!bRoom)
    {
        Fail();
        return false;
    }
    if (pData && iLength > 0)
    {
        std::memcpy(m_pPos, pData, nBytes);
    }
    else if (iLength > 0)
    {
        std::memset(m_pPos, 0, nBytes);
    }
    m_pPos += nBytes;
    return true;
}

// Makes room for nBytes more and returns true. Returns false if the memory is the caller's or the archive would exceed
// NO_CHUNK bytes.
bool MemoryWriteable_c::Grow(std::size_t nBytes)
{
    constexpr std::size_t FIRST_SIZE = 256;
    std::size_t const nStored = GetStored();
    if (!m_bOwner || nBytes > NO_CHUNK - nStored)
    {
        return false;
    }
    std::size_t const nSize = std::clamp(2 * nStored, std::max(FIRST_SIZE, nStored + nBytes), std::size_t{ NO_CHUNK });
    auto * const pMemory = ZQ_NEW unsigned char[nSize];
    if (nStored > 0)
    {
        std::memcpy(pMemory, m_pStart, nStored);
    }
    delete[] m_pStart;
    m_pStart = pMemory;
    m_pPos = pMemory + nStored;
    m_pEnd = pMemory + nSize;
    return true;
}

bool MemoryWriteable_c::WriteLength(std::uint32_t nLength)
{
    std::memcpy(m_pStart + m_dwCurrentChunk, &nLength, sizeof nLength);
    return true;
}

char const * MemoryWriteable_c::GetFileName() const
{
    return "memory";
}
