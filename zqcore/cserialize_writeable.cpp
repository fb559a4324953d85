#include "zqcore/ccrc_internal.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/clog.h"
#include "zqcore/cserialize.h"

#include "platform/filewrite.h"

#include <algorithm>

Writeable_c::Writeable_c(char const * sFileName, std::uint32_t dwVersion)
    : ChunkWriteable_c(dwVersion)
    , m_sFileName(sFileName)
{
    if (sFileName)
    {
        plat::FoldersCreate(sFileName);
        m_hFile = plat::FileCreate(sFileName);
        FileOpenTracker(m_hFile, sFileName);
    }
}

Writeable_c::Writeable_c(FileReplacement_c & Replacement, std::uint32_t dwVersion)
    : ChunkWriteable_c(dwVersion)
    , m_hFile(Replacement.BeginArchive())
    , m_sFileName(Replacement.GetFile())
    , m_pReplacement(m_hFile ? &Replacement : nullptr)
{}

Writeable_c::~Writeable_c()
{
    Writeable_c::Close();
}

bool Writeable_c::Open()
{
    if (!m_hFile)
    {
        Fail();
        return false;
    }
    return Serializeable_c::Open();
}

// A skip at the end has moved only the position, so the file may be shorter than that of a buffered archive.
bool Writeable_c::Close()
{
    bool bWhole = true;
    if (m_hFile)
    {
        bWhole = !m_bSkipped || plat::FileSetSize(m_hFile, m_nPosition);
        if (m_pReplacement)
        {
            ZQ_ASSERT_TEXT(m_bOpened || m_nPosition == 0, "Open was called before the archive was written");
            bWhole = bWhole && m_bOpened;
            m_pReplacement->EndArchive(bWhole && !m_bFailed);
        }
        else
        {
            FileCloseTracker(m_hFile);
            bWhole = plat::FileFinish(m_hFile) && bWhole;
        }
        m_hFile = nullptr;
    }
    if (!bWhole)
    {
        Fail();
    }
    return Serializeable_c::Close() && bWhole;
}

bool Writeable_c::Put(void const * pData, std::size_t nBytes)
{
    bool const bRoom = m_hFile && nBytes <= NO_CHUNK - m_nPosition;
    if (!bRoom || !(m_pReplacement ? m_pReplacement->Write(pData, nBytes) : plat::FileWrite(m_hFile, pData, nBytes)))
    {
        return false;
    }
    m_nPosition += static_cast<std::uint32_t>(nBytes);
    m_bSkipped = m_bSkipped && nBytes == 0;
    return true;
}

// Writes the zeros that a skip leaves in a file, because a replacement counts all of its bytes. Returns false on
// failure.
bool Writeable_c::PutZeros(std::size_t nBytes)
{
    static constexpr char ZEROS[4096] = {};
    bool bDone = true;
    while (nBytes > 0 && bDone)
    {
        std::size_t const nPart = std::min(nBytes, sizeof ZEROS);
        bDone = Put(ZEROS, nPart);
        nBytes -= nPart;
    }
    return bDone;
}

bool Writeable_c::Serialize(void * pData, int iLength)
{
    if (m_bFailed)
    {
        return false;
    }
    auto const nBytes = static_cast<std::uint32_t>(iLength);
    bool bDone = iLength >= 0;
    if (pData)
    {
        bDone = bDone && Put(pData, nBytes);
    }
    else if (m_pReplacement)
    {
        bDone = bDone && PutZeros(nBytes);
    }
    else
    {
        bDone = bDone && m_hFile && nBytes <= NO_CHUNK - m_nPosition && plat::FileSeek(m_hFile, iLength, 1) >= 0;
        m_nPosition += bDone ? nBytes : 0;
        m_bSkipped = m_bSkipped || nBytes > 0;
    }
    if (!bDone)
    {
        Fail();
    }
    return bDone;
}

bool ChunkWriteable_c::ChunkBegin(char const * sName)
{
    if (m_bFailed)
    {
        return false;
    }
    ZQ_ASSERT(m_dwCurrentChunk == NO_CHUNK);
    if (m_dwCurrentChunk != NO_CHUNK)
    {
        Fail();
        return false;
    }
    m_dwChunkLabel = Crc32OfText(sName);
    LabelCrc32(sName);
    m_dwCurrentChunk = GetStored();
    std::uint32_t nUnfinished = UNFINISHED;
    Serialize(nUnfinished);
    return !m_bFailed;
}

bool Writeable_c::WriteLength(std::uint32_t nLength)
{
    return m_pReplacement ? m_pReplacement->Rewrite(m_dwCurrentChunk, UNFINISHED, nLength)
                          : m_hFile && plat::FileWriteAt(m_hFile, m_dwCurrentChunk, &nLength, sizeof nLength);
}

void ChunkWriteable_c::ChunkEnd(char const * sName)
{
    if (m_bFailed)
    {
        return;
    }
    bool const bOpen = m_dwCurrentChunk != NO_CHUNK && m_dwChunkLabel == Crc32OfText(sName);
    ZQ_ASSERT_TEXT(bOpen, "m_dwCurrentChunk != NO_CHUNK && m_dwChunkLabel == GetCrc32Polynomial(sName, strlen(sName))");
    if (!bOpen)
    {
        return Fail();
    }
    m_dwChunkLabel = 0;
    std::uint32_t const nLength = GetStored() - m_dwCurrentChunk;
    if (!WriteLength(nLength))
    {
        Fail();
        return LogWinLastError(nullptr);
    }
    m_dwCurrentChunk = NO_CHUNK;
}

char const * Writeable_c::GetFileName() const
{
    return m_sFileName;
}

int Writeable_c::GetLength() const
{
    ZQ_ASSERT(m_hFile);
    plat::FileFacts_t Facts;
    return m_hFile && plat::FileGetFacts(m_hFile, Facts) ? static_cast<int>(Facts.nSize) : 0;
}

BufferedWriteable_c::BufferedWriteable_c(char const * sFileName, std::uint32_t dwVersion)
    : Writeable_c(sFileName, dwVersion)
{
    UseBuffer();
}

BufferedWriteable_c::BufferedWriteable_c(FileReplacement_c & Replacement, std::uint32_t dwVersion)
    : Writeable_c(Replacement, dwVersion)
{
    UseBuffer();
}

BufferedWriteable_c::~BufferedWriteable_c()
{
    BufferedWriteable_c::Close();
}

void BufferedWriteable_c::UseBuffer()
{
    m_pPos = m_dBuffer;
    m_pEnd = m_dBuffer + BUFSIZE - 1;
}

bool BufferedWriteable_c::Serialize(void * pData, int iLength)
{
    if (m_bFailed)
    {
        return false;
    }
    if (iLength < 0)
    {
        Fail();
        return false;
    }
    auto const * pFrom = static_cast<unsigned char const *>(pData);
    auto nLeft = static_cast<std::size_t>(iLength);
    while (nLeft > 0)
    {
        if (std::size_t const nWhole = pFrom && GetWaiting() == 0 ? nLeft / BUFSIZE * BUFSIZE : 0)
        {
            if (!Send(pFrom, nWhole))
            {
                return false;
            }
            pFrom += nWhole;
            nLeft -= nWhole;
            continue;
        }
        std::size_t const nCopy = std::min(nLeft, static_cast<std::size_t>(BUFSIZE - GetWaiting()));
        if (pFrom)
        {
            std::memcpy(m_pPos, pFrom, nCopy);
        }
        else
        {
            std::memset(m_pPos, 0, nCopy);
        }
        pFrom += pFrom ? nCopy : 0;
        m_pPos += nCopy;
        nLeft -= nCopy;
        if (GetWaiting() == BUFSIZE && !Flush())
        {
            return false;
        }
    }
    return true;
}

// Writes the buffer. Returns false on failure. A failed archive does not try again.
bool BufferedWriteable_c::Flush()
{
    if (GetWaiting() == 0)
    {
        return true;
    }
    if (m_bFailed || !Send(m_dBuffer, static_cast<std::size_t>(GetWaiting())))
    {
        return false;
    }
    m_pPos = m_dBuffer;
    return true;
}

// Writes bytes and returns true. On failure fails the archive and returns false.
bool BufferedWriteable_c::Send(void const * pData, std::size_t nBytes)
{
    if (Put(pData, nBytes))
    {
        return true;
    }
    if (m_hFile)
    {
        LogWinLastError(nullptr);
    }
    Fail();
    return false;
}

void BufferedWriteable_c::ChunkEnd(char const * sName)
{
    if (Flush())
    {
        Writeable_c::ChunkEnd(sName);
    }
}

bool BufferedWriteable_c::Close()
{
    bool const bFlushed = Flush();
    bool const bClosed = Writeable_c::Close();
    return bFlushed && bClosed;
}

int BufferedWriteable_c::GetLength() const
{
    return Writeable_c::GetLength() + GetWaiting();
}
