#include "zqcore/cbuffer.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"

#include <cstring>
#include <functional>

Buffer_c::~Buffer_c() = default;

bool ArrayBuffer_c::ExpandBuffer(void const * pBytes, unsigned int nBytes)
{
    if (nBytes == 0)
    {
        return false;
    }
    unsigned int const nOld = GetBufferDataLength();
    ZQ_ASSERT(pBytes != nullptr);
    bool const bFits = nOld <= MAX_BYTES && nBytes <= MAX_BYTES - nOld;   // the array's own functions may exceed it
    ZQ_ASSERT_TEXT(bFits, "nBytes <= MAX_BYTES - nOld");
    if (!pBytes || !bFits)
    {
        return false;
    }
    // Growing frees the storage that the bytes may lie in.
    char const * pFrom = static_cast<char const *>(pBytes);
    bool const bOwn = !std::less<>()(pFrom, begin()) && std::less<>()(pFrom, end());
    std::ptrdiff_t const iOwn = bOwn ? pFrom - begin() : 0;
    Grow(static_cast<int>(nOld + nBytes));
    std::memcpy(begin() + nOld, bOwn ? begin() + iOwn : pFrom, nBytes);
    return true;
}

void * ArrayBuffer_c::GetBufferData() const
{
    return const_cast<char *>(begin());
}

unsigned int ArrayBuffer_c::GetBufferDataLength() const
{
    return static_cast<unsigned int>(GetLength());
}

FileBuffer_c::FileBuffer_c(File_c * pFile)
    : m_pFile(pFile)
{
    bool const bOpen = m_pFile && FileOpen(m_pFile);
    ZQ_ASSERT_TEXT(bOpen, "FileOpen ( m_pFile )");
    if (!bOpen)
    {
        m_pFile = nullptr;
    }
}

FileBuffer_c::~FileBuffer_c()
{
    if (m_pFile)
    {
        FileClose(m_pFile);
        m_pFile = nullptr;
    }
}

void * FileBuffer_c::GetBufferData() const
{
    return m_pFile ? m_pFile->pData : nullptr;
}

unsigned int FileBuffer_c::GetBufferDataLength() const
{
    return GetBufferData() ? static_cast<unsigned int>(m_pFile->iLength) : 0;
}

StringBuffer_c::StringBuffer_c(char const * sText)
    : m_szText(sText ? sText : "")
    , m_nLength(static_cast<unsigned int>(std::strlen(m_szText)))
{
    ZQ_ASSERT(sText != nullptr);
}

void * StringBuffer_c::GetBufferData() const
{
    return const_cast<char *>(m_szText);
}

unsigned int StringBuffer_c::GetBufferDataLength() const
{
    return m_nLength;
}
