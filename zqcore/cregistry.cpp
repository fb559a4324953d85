#include "zqcore/cregistry.h"

#include <cstring>

namespace
{
    using plat::RegistryType_e;

    std::uint32_t Narrow(std::size_t nCount)
    {
        return static_cast<std::uint32_t>(nCount);
    }
}

Registry_c::Registry_c(plat::RegistryTree_e hRoot)
    : m_hRoot(hRoot)
    , m_dwPlatform(plat::RegistryGetPlatform())
{}

Registry_c::~Registry_c()
{
    plat::RegistryCloseKey(m_hKey);
}

void Registry_c::Open(char const * sName, bool bCreate)
{
    plat::RegistryCloseKey(m_hKey);
    m_hKey = plat::RegistryOpenKey(m_hRoot, sName, m_samDesired, bCreate);
}

int Registry_c::CreateKey(char const * sName)
{
    Open(sName, true);
    return m_hKey != nullptr;
}

int Registry_c::OpenKey(char const * sName, int bCreate)
{
    Open(sName, bCreate != 0);
    return m_hKey != nullptr;
}

int Registry_c::DeleteKey(char const * sName, int bRecursive)
{
    if (!m_hKey || !sName)
    {
        return 0;
    }
    return bRecursive ? plat::RegistryDeleteTree(m_hKey, sName) : plat::RegistryDeleteKey(m_hKey, sName);
}

bool Registry_c::EnumKey(int iIndex, char * sName, int iSize)
{
    return iIndex >= 0 && sName && iSize > 0
           && plat::RegistryEnumKey(m_hKey, static_cast<std::size_t>(iIndex), sName, static_cast<std::size_t>(iSize));
}

int Registry_c::GetKeyInfo(_tag_KEY_INFO * pInfo)
{
    *pInfo = {};
    plat::RegistryKeyInfo_t Info;
    if (!plat::RegistryGetKeyInfo(m_hKey, Info))
    {
        return 0;
    }
    std::uint32_t const nUnit = m_dwPlatform == plat::REGISTRY_PLATFORM_NT ? 2 : 1;
    pInfo->dwSubKeys = Narrow(Info.nSubKeys);
    pInfo->dwMaxSubKeyLength = (Narrow(Info.nMaxSubKeyLength) + 1) * nUnit;
    pInfo->dwValues = Narrow(Info.nValues);
    pInfo->dwMaxValueNameLength = Narrow(Info.nMaxValueNameLength) * nUnit;
    pInfo->dwMaxValueLength = Narrow(Info.nMaxValueLength);
    pInfo->ftLastWrite = Info.tLastWrite;
    return 1;
}

int Registry_c::GetDataInfo(char const * sName, _tag_DATA_INFO * pInfo)
{
    *pInfo = {};
    std::size_t nSize = 0;
    RegistryType_e eType;
    if (!plat::RegistryQuery(m_hKey, sName, eType, nSize))
    {
        return 0;
    }
    *pInfo = { static_cast<std::uint32_t>(eType), Narrow(nSize) };
    return 1;
}

int Registry_c::GetSizeValue(char const * sName)
{
    _tag_DATA_INFO Info;
    return GetDataInfo(sName, &Info) ? static_cast<int>(Info.dwSize) : -1;
}

int Registry_c::ValueExists(char const * sName)
{
    _tag_DATA_INFO Info;
    return GetDataInfo(sName, &Info);
}

int Registry_c::DeleteValue(char const * sName)
{
    return plat::RegistryDeleteValue(m_hKey, sName);
}

int Registry_c::RenameValue(char const * sOldName, char const * sNewName)
{
    return plat::RegistryRenameValue(m_hKey, sOldName, sNewName);
}

// Reads a value and stores its type. nSize is the size of pData in bytes, and after the call that of the value. With
// pRequired, reads only a value of that type. Returns false, with pData unchanged, for any other value and for one that
// does not fit.
bool Registry_c::Query(char const * sName, void * pData, std::size_t & nSize, plat::RegistryType_e const * pRequired)
{
    return plat::RegistryRead(
        m_hKey, sName, m_dwType, pData, nSize, pRequired ? std::optional(*pRequired) : std::nullopt);
}

// Reads a value of 4 bytes. Returns false for any other, and for a text, whose size may include a terminator.
bool Registry_c::ReadNumber(char const * sName, void * pData)
{
    char dBytes[4];
    std::size_t nSize = sizeof(dBytes);
    bool const bNumber = Query(sName, dBytes, nSize) && nSize == sizeof(dBytes) && m_dwType != RegistryType_e::Text;
    if (bNumber)
    {
        std::memcpy(pData, dBytes, sizeof(dBytes));
    }
    return bNumber;
}

int Registry_c::ReadInt(char const * sName, int iDefault)
{
    ReadNumber(sName, &iDefault);
    return iDefault;
}

float Registry_c::ReadFloat(char const * sName, float fDefault)
{
    ReadNumber(sName, &fDefault);
    return fDefault;
}

int Registry_c::ReadValue(char const * sName, int * pValue)
{
    int iValue;
    bool const bRead = ReadNumber(sName, &iValue) && m_dwType == RegistryType_e::Dword;
    *pValue = bRead ? iValue : *pValue;
    return bRead;
}

int Registry_c::ReadValue(char const * sName, double * pValue)
{
    double fValue;
    std::size_t nSize = sizeof(fValue);
    bool const bRead = Query(sName, &fValue, nSize) && nSize == sizeof(fValue) && m_dwType == RegistryType_e::Untyped;
    *pValue = bRead ? fValue : *pValue;
    return bRead;
}

int Registry_c::ReadValue(char const * sName, float * pValue)
{
    char dBytes[sizeof(double)];
    std::size_t nSize = sizeof(dBytes);
    if (!Query(sName, dBytes, nSize))
    {
        return 0;
    }
    *pValue = 0.0f;
    if (m_dwType == RegistryType_e::Untyped && nSize == sizeof(float))
    {
        std::memcpy(pValue, dBytes, sizeof(float));
        return 1;
    }
    if (m_dwType == RegistryType_e::Untyped && nSize == sizeof(double))
    {
        double fValue;
        std::memcpy(&fValue, dBytes, sizeof(fValue));
        *pValue = static_cast<float>(fValue);
        return 1;
    }
    return 0;
}

// Reads a value of the type eType and of at most nSize bytes. Returns 0 for any other value.
int Registry_c::ReadTyped(char const * sName, RegistryType_e eType, void * pData, std::size_t nSize)
{
    return Query(sName, pData, nSize, &eType);
}

// Reads a text of at most nSize - 1 bytes and terminates it. Returns false for any other value.
bool Registry_c::ReadText(char const * sName, char * sBuffer, std::size_t nSize)
{
    std::size_t nText = nSize - 1;
    constexpr RegistryType_e TEXT = RegistryType_e::Text;
    if (!Query(sName, sBuffer, nText, &TEXT))
    {
        return false;
    }
    sBuffer[nText] = '\0';
    return true;
}

int Registry_c::ReadString(char const * sName, char * sBuffer, std::uint32_t dwSize)
{
    return ReadTyped(sName, RegistryType_e::Text, sBuffer, dwSize);
}

int Registry_c::ReadData(char const * sName, void * pData, std::uint32_t dwSize)
{
    return ReadTyped(sName, RegistryType_e::Binary, pData, dwSize);
}

int Registry_c::Write(char const * sName, RegistryType_e eType, void const * pData, std::size_t nSize)
{
    return plat::RegistryWrite(m_hKey, sName, eType, pData, nSize);
}

int Registry_c::WriteValue(char const * sName, int iValue)
{
    return Write(sName, RegistryType_e::Dword, &iValue, sizeof(iValue));
}

int Registry_c::WriteValue(char const * sName, float fValue)
{
    return Write(sName, RegistryType_e::Untyped, &fValue, sizeof(fValue));
}

int Registry_c::WriteString(char const * sName, char const * sText)
{
    return sText && Write(sName, RegistryType_e::Text, sText, std::strlen(sText));
}

int Registry_c::WriteData(char const * sName, void const * pData, std::uint32_t dwSize)
{
    return pData || dwSize == 0 ? Write(sName, RegistryType_e::Binary, pData, dwSize) : 0;
}
