#include "tools/zqtool/textfile.h"

#include "zqcore/cfilepath.h"

#include <utility>

TextFile_c::TextFile_c(char const * szName, std::string sBytes)
    : m_sBytes(std::move(sBytes))
{
    sName = szName;
    iLength = static_cast<int>(m_sBytes.size());
    FileAddObject(this, false);
    TextFile_c::Open(nullptr);
}

bool TextFile_c::Open(void * pBuffer)
{
    pData = reinterpret_cast<unsigned char *>(m_sBytes.data());
    return pBuffer == nullptr;
}
