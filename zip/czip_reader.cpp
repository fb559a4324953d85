// Contents of a file: stored bytes, or what zlib decompresses. Decompression holds no lock.
#include "zip/czip_internal.h"

#include "zqcore/ccrc.h"

#include <algorithm>
#include <cstring>

namespace
{
    constexpr char DAMAGED[] = "its data in the archive are damaged";
    constexpr char NO_MEMORY[] = "there is no memory to decompress it";
    constexpr char WRONG_SIZE[] = "its contents do not have the size that the archive states";
    constexpr char UNREADABLE[] = "its data can't be read from the archive";
}

ZipReader_c::ZipReader_c(ZipArchive_c & Archive, ZipFacts_t const & Facts)
    : m_Archive(Archive)
    , m_Facts(Facts)
{}

ZipReader_c::~ZipReader_c()
{
    inflateEnd(&m_Inflater);   // does nothing if it was not initialised
}

bool ZipReader_c::Fail(char const * szWhyNot)
{
    m_szWhyNot = szWhyNot;
    return false;
}

// Finds the data in the archive and prepares zlib, if no call has done so. Returns false, with a reason, on failure.
bool ZipReader_c::Begin()
{
    if (m_nDataAt != 0 || m_Facts.nStored == 0)
    {
        return true;
    }
    m_nDataAt = m_Archive.FindData(m_Facts.iEntry);
    if (m_nDataAt == 0 || m_Facts.nStored > m_Archive.GetSize() - m_nDataAt)
    {
        return Fail(UNREADABLE);
    }
    bool const bReady = !m_Facts.bDeflated || inflateInit2(&m_Inflater, -MAX_WBITS) == Z_OK;
    return bReady || Fail(NO_MEMORY);
}

std::size_t ZipReader_c::Read(void * pBuffer, std::size_t nBytes)
{
    auto const nWanted = static_cast<std::uint32_t>(std::min<std::size_t>(nBytes, m_Facts.nSize - m_nAt));
    auto * const pTo = static_cast<unsigned char *>(pBuffer);
    if (m_szWhyNot || !Begin() || !(m_Facts.bDeflated ? Inflate(pTo, nWanted) : ReadStored(pTo, nWanted)))
    {
        return 0;
    }
    m_nAt += nWanted;
    m_dwCrc = Crc32(std::as_bytes(std::span(pTo, nWanted)), m_dwCrc);
    bool const bAll = m_nAt == m_Facts.nSize && !m_bSkipped;
    bool const bSound = !bAll || (m_dwCrc == m_Facts.dwCrc ? CheckDataEnd() : Fail(DAMAGED));
    return bSound ? nWanted : 0;
}

bool ZipReader_c::ReadStored(unsigned char * pBuffer, std::uint32_t nBytes)
{
    std::uint32_t nDone = 0;
    while (nDone < nBytes)
    {
        std::uint32_t const nAt = m_nAt + nDone;
        // Short reads that continue one another share a piece, because each read of the archive acquires its lock and
        // reads the file.
        bool const bContinues = nAt == m_nEnd || (nDone > 0 && nAt - m_nPieceAt == m_nPiece);
        if (bContinues && nBytes - nDone < PIECE && nAt - m_nPieceAt >= m_nPiece)
        {
            m_nPieceAt = nAt;
            m_nPiece = std::min(m_Facts.nSize - nAt, PIECE);
            m_nPiece = m_Archive.ReadAt(m_nDataAt + nAt, m_dPiece, m_nPiece) == m_nPiece ? m_nPiece : 0;
        }
        if (nAt - m_nPieceAt < m_nPiece)
        {
            std::uint32_t const nFrom = nAt - m_nPieceAt;
            std::uint32_t const nCopy = std::min(nBytes - nDone, m_nPiece - nFrom);
            std::memcpy(pBuffer + nDone, m_dPiece + nFrom, nCopy);
            nDone += nCopy;
            continue;
        }
        std::uint32_t const nPiece = std::min(nBytes - nDone, MAX_LOCKED);
        if (m_Archive.ReadAt(m_nDataAt + nAt, pBuffer + nDone, nPiece) != nPiece)
        {
            return Fail(UNREADABLE);
        }
        nDone += nPiece;
    }
    m_nEnd = m_nAt + nBytes;
    return true;
}

// Reads the next piece of the deflated data, if there is one. Returns false, with a reason, if it can't be read.
bool ZipReader_c::Feed()
{
    std::uint32_t const nPiece = std::min(m_Facts.nStored - m_nFed, PIECE);
    if (nPiece > 0 && m_Archive.ReadAt(m_nDataAt + m_nFed, m_dPiece, nPiece) != nPiece)
    {
        return Fail(UNREADABLE);
    }
    m_nFed += nPiece;
    m_Inflater.next_in = m_dPiece;
    m_Inflater.avail_in = nPiece;
    return true;
}

bool ZipReader_c::Inflate(unsigned char * pBuffer, std::uint32_t nBytes)
{
    m_Inflater.next_out = pBuffer;
    m_Inflater.avail_out = nBytes;
    // With Z_FINISH, zlib allocates no window if one call of inflate reaches the end of the contents.
    int const iFlush = nBytes == m_Facts.nSize ? Z_FINISH : Z_NO_FLUSH;
    while (m_Inflater.avail_out > 0)
    {
        if (m_Inflater.avail_in == 0 && !Feed())
        {
            return false;
        }
        uInt const nBefore = m_Inflater.avail_in + m_Inflater.avail_out;
        int const iResult = inflate(&m_Inflater, iFlush);
        if (iResult == Z_STREAM_END && m_Inflater.avail_out > 0)
        {
            return Fail(WRONG_SIZE);
        }
        bool const bMoved = m_Inflater.avail_in + m_Inflater.avail_out < nBefore;
        if (iResult != Z_OK && iResult != Z_STREAM_END && !(iResult == Z_BUF_ERROR && bMoved))
        {
            return Fail(iResult == Z_MEM_ERROR ? NO_MEMORY : DAMAGED);
        }
    }
    return true;
}

// Decompresses what follows the contents. Returns true if the data end with the contents, as stored data always do.
// Returns false, with a reason, if they do not or can't be read.
bool ZipReader_c::CheckDataEnd()
{
    if (!m_Facts.bDeflated || m_Facts.nStored == 0)
    {
        return true;
    }
    unsigned char cMore;
    m_Inflater.next_out = &cMore;
    m_Inflater.avail_out = 1;
    int iResult = inflate(&m_Inflater, Z_NO_FLUSH);   // repeats the end of data that it has reached
    while ((iResult == Z_OK || iResult == Z_BUF_ERROR) && m_Inflater.avail_out > 0
           && (m_Inflater.avail_in > 0 || m_nFed < m_Facts.nStored))
    {
        if (m_Inflater.avail_in == 0 && !Feed())
        {
            return false;
        }
        iResult = inflate(&m_Inflater, Z_NO_FLUSH);
    }
    if (m_Inflater.avail_out == 0)
    {
        return Fail(WRONG_SIZE);
    }
    return iResult == Z_STREAM_END || Fail(iResult == Z_MEM_ERROR ? NO_MEMORY : DAMAGED);
}

bool ZipReader_c::Seek(std::uint32_t nAt)
{
    if (m_szWhyNot || !Begin())
    {
        return false;
    }
    if (!m_Facts.bDeflated)
    {
        m_bSkipped = m_bSkipped || nAt != m_nAt;
        m_nAt = nAt;
        return true;
    }
    if (nAt < m_nAt)
    {
        inflateReset(&m_Inflater);
        m_Inflater.avail_in = 0;
        m_nFed = m_nAt = 0;
        m_dwCrc = 0;
    }
    unsigned char dSkipped[4096];
    while (m_nAt < nAt)
    {
        if (Read(dSkipped, std::min<std::size_t>(sizeof dSkipped, nAt - m_nAt)) == 0)
        {
            return false;
        }
    }
    return true;
}
