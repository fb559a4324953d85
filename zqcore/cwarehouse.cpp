#include "zqcore/cwarehouse.h"

#include "zqcore/cfile.h"
#include "zqcore/clog.h"
#include "zqcore/cnumbertext_internal.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>

namespace
{
    constexpr double ULONG_LIMIT = 4294967295.0;   // of the unsigned long form, on every machine

    char const * TextOf(File_c const & File)
    {
        return reinterpret_cast<char const *>(File.pData);
    }

    /// Whether a number took the whole text. An empty text leaves nothing over, and counts as 0.
    bool IsWhole(NumberEnd_t const & End)
    {
        return End.bInRange && *End.pEnd == '\0';
    }
}

Warehouse_c::~Warehouse_c()
{
    Close();
}

void Warehouse_c::Close()
{
    m_nPos = 0;
    m_nLine = 0;
    m_Head.Reset();
    m_Work.Reset();
    FileClose(m_pFile);
    m_pFile = nullptr;
    if (m_bCopy)
    {
        delete[] m_pData;
    }
    m_pData = nullptr;
    m_nLength = 0;
}

bool Warehouse_c::Open(
    char const * sFileName, WarehouseFormat_e eFormat, char const * sClientHeader, char const * sSeparators)
{
    Close();
    ZQ_ASSERT(sFileName);
    File_c * const pFile = sFileName ? FileOpen(sFileName) : nullptr;
    if (!pFile)
    {
        return false;
    }
    m_eFormat = WarehouseSettleFormat(eFormat, pFile->sName);
    m_sSeparators = WarehouseScan_t(nullptr, 0, 0, m_eFormat).sSeparators;
    if (sSeparators)
    {
        m_sSeparators = sSeparators;
    }

    m_nLength = pFile->iLength;
    if (m_bCopy)
    {
        auto const nBytes = static_cast<std::size_t>(m_nLength);
        char * const pCopy = ZQ_NEW char[nBytes];
        std::memcpy(pCopy, TextOf(*pFile), nBytes);
        m_pData = pCopy;
        FileClose(pFile);
    }
    else
    {
        m_pData = TextOf(*pFile);
        m_pFile = pFile;
    }

    if (ReadHeader(sClientHeader))
    {
        return true;
    }
    Log(sClientHeader ? "Warehouse_c::Open: File \"%s\": invalid client header line"
                      : "Warehouse_c::Open: File \"%s\": no client header line specified",
        static_cast<char const *>(pFile->sName));
    Log("Warehouse_c::Open: File \"%s\": no header line found", static_cast<char const *>(pFile->sName));
    Close();
    return false;
}

/// Takes the file's first header line, or else the client's.
bool Warehouse_c::ReadHeader(char const * sClientHeader)
{
    if (ScanFrom(0).FindLine(WAREHOUSE_HEADER, &m_Head))
    {
        return true;
    }
    if (!sClientHeader)
    {
        return false;
    }
    String_T<256> sHeader("@HEAD ");
    sHeader += sClientHeader;
    WarehouseScan_t(sHeader, sHeader.Length(), 0, WAREHOUSE_FORMAT_TEXT).GetLine(&m_Head);
    return m_Head.IsHeader();
}

/// The text as it is now: a refresh of the open file may have put another block, or none, in place of m_pData.
Warehouse_c::Text_s Warehouse_c::GetText() const
{
    char const * const pText = m_pFile ? TextOf(*m_pFile) : m_pData;
    return { pText, !pText ? 0 : m_pFile ? m_pFile->iLength : m_nLength };
}

WarehouseScan_t Warehouse_c::ScanFrom(int nPos) const
{
    Text_s const Text = GetText();
    WarehouseScan_t Scan(Text.pText, Text.nLength, nPos, m_eFormat);
    Scan.SetSeparators(m_sSeparators);
    return Scan;
}

bool Warehouse_c::GetFileName(char * sName, int nMaxLength) const
{
    if (!WarehouseClearText(sName, nMaxLength) || !m_pFile)
    {
        return false;
    }
    WarehouseCopyText(sName, m_pFile->sName, nMaxLength);
    return true;
}

bool Warehouse_c::StartIdent()
{
    m_nPos = 0;
    m_nLine = 0;
    m_Work.Reset();
    return m_pData != nullptr;
}

bool Warehouse_c::NextIdent(char * sIdent, int nMaxLength)
{
    bool const bUsable = WarehouseClearText(sIdent, nMaxLength);
    m_Work.Reset();
    if (!bUsable || !m_pData)
    {
        return false;
    }
    if (m_nPos == 0)
    {
        m_Walked = GetText();
    }
    else if (m_Walked != GetText())
    {
        return false;   // the place of one text means nothing in another
    }
    WarehouseScan_t Scan = ScanFrom(m_nPos);
    bool const bFound = Scan.NextItem(&m_Work, m_nLine);
    m_nPos = Scan.GetPos();
    return bFound && GetWorkIdent(sIdent, nMaxLength);
}

bool Warehouse_c::FindIdent(char const * sIdent)
{
    ZQ_ASSERT(sIdent);
    m_Work.Reset();
    bool const bHeader = sIdent && StrCompareNoCase(sIdent, WAREHOUSE_HEADER) == 0;   // header lines are no items
    return sIdent && !bHeader && m_pData && ScanFrom(0).FindLine(sIdent, &m_Work);
}

bool Warehouse_c::GetWorkIdent(char * sIdent, int nMaxLength) const
{
    if (!WarehouseClearText(sIdent, nMaxLength) || !m_pData || m_Work.IsNull(0))
    {
        return false;
    }
    WarehouseCopyText(sIdent, m_Work[0], nMaxLength);
    return true;
}

/// The work line's cell in a named column, null for a null cell; false if there is no such column or no work line.
bool Warehouse_c::FindCell(char const * sColumn, char const *& szCell) const
{
    ZQ_ASSERT(sColumn);
    if (!sColumn || !m_pData || m_Work.IsEmpty())
    {
        return false;
    }
    for (int i = 0; i < m_Head.GetLength(); ++i)
    {
        if (!m_Head.IsNull(i) && StrCompareNoCase(m_Head[i], sColumn) == 0)
        {
            szCell = m_Work.IsNull(i) ? nullptr : m_Work[i];
            return true;
        }
    }
    return false;
}

/// The cell of a form that needs one; null after a complaint.
char const * Warehouse_c::NumberCell(char const * sColumn) const
{
    char const * szCell = nullptr;
    if (!FindCell(sColumn, szCell))
    {
        LogNotFound(sColumn);
    }
    else if (!szCell)
    {
        LogInvalid(sColumn);
    }
    return szCell;
}

int Warehouse_c::GetLength(char const * sColumn) const
{
    char const * szCell = nullptr;
    if (!FindCell(sColumn, szCell))
    {
        return -1;
    }
    return szCell ? static_cast<int>(std::strlen(szCell)) : 0;
}

bool Warehouse_c::Get(char const * sColumn, long & value) const
{
    char const * const szCell = NumberCell(sColumn);
    long iValue;
    if (!szCell)
    {
        return false;
    }
    if (!IsWhole(TextToInteger(szCell, iValue)))
    {
        return LogInvalid(sColumn);
    }
    value = iValue;
    return true;
}

bool Warehouse_c::Get(char const * sColumn, double & value) const
{
    char const * const szCell = NumberCell(sColumn);
    double fValue;
    if (!szCell)
    {
        return false;
    }
    if (!IsWhole(TextToDouble(szCell, fValue)) || !std::isfinite(fValue))
    {
        return LogInvalid(sColumn);
    }
    value = fValue;
    return true;
}

bool Warehouse_c::Get(char const * sColumn, float & value) const
{
    double fValue;
    if (!Get(sColumn, fValue))
    {
        return false;
    }
    if (std::fabs(fValue) > FLT_MAX)
    {
        return LogInvalid(sColumn);
    }
    value = static_cast<float>(fValue);
    return true;
}

bool Warehouse_c::Get(char const * sColumn, unsigned long & value) const
{
    double fValue;
    if (!Get(sColumn, fValue))
    {
        return false;
    }
    if (fValue < 0 || fValue > ULONG_LIMIT)
    {
        return LogInvalid(sColumn);
    }
    value = static_cast<unsigned long>(fValue);
    return true;
}

template <typename T>
bool Warehouse_c::GetInteger(char const * sColumn, T & value, long iMin, long iMax) const
{
    long iValue;
    if (!Get(sColumn, iValue))
    {
        return false;
    }
    if (iValue < iMin || iValue > iMax)
    {
        return LogInvalid(sColumn);
    }
    value = static_cast<T>(iValue);
    return true;
}

bool Warehouse_c::Get(char const * sColumn, int & value) const
{
    return GetInteger(sColumn, value, INT_MIN, INT_MAX);
}

bool Warehouse_c::Get(char const * sColumn, short & value) const
{
    return GetInteger(sColumn, value, -32768, 32767);
}

bool Warehouse_c::Get(char const * sColumn, unsigned char & value) const
{
    return GetInteger(sColumn, value, 0, 255);
}

bool Warehouse_c::Get(char const * sColumn, bool & value) const
{
    return GetInteger(sColumn, value, LONG_MIN, LONG_MAX);
}

bool Warehouse_c::Get(char const * sColumn, char * sResult, int nMaxLength) const
{
    bool const bUsable = WarehouseClearText(sResult, nMaxLength);
    char const * szCell = nullptr;
    if (!FindCell(sColumn, szCell))
    {
        return LogNotFound(sColumn);
    }
    if (bUsable && szCell)
    {
        WarehouseCopyText(sResult, szCell, nMaxLength);
        if (std::strlen(szCell) >= static_cast<std::size_t>(nMaxLength))
        {
            LogInvalid(sColumn);
        }
    }
    return bUsable;
}

bool Warehouse_c::Get(char const * sColumn, int & iFirst, int & iSecond) const
{
    String_T<256> sPair;
    if (!Get(sColumn, sPair))
    {
        return false;
    }
    char * const szFirst = sPair.GetBuffer() + std::strspn(sPair, "-");
    char * const szMinus = szFirst + std::strcspn(szFirst, "-");
    if (*szFirst == '\0' || szMinus[0] == '\0' || szMinus[1] == '\0')
    {
        return LogInvalid(sColumn);
    }
    *szMinus = '\0';
    iFirst = TextToInt(szFirst);
    iSecond = TextToInt(szMinus + 1);
    return true;
}

bool Warehouse_c::LogNotFound(char const * sColumn) const
{
    if (m_bLogColName)
    {
        String_T<256> sName;
        GetFileName(sName);
        Log("%s: Not found column '%s'", static_cast<char const *>(sName), sColumn ? sColumn : "nullptr");
    }
    return false;
}

bool Warehouse_c::LogInvalid(char const * sColumn) const
{
    if (m_bLogColName)
    {
        String_T<256> sName;
        GetFileName(sName);
        Log("%s: Invalid data in column '%s' line %d", static_cast<char const *>(sName), sColumn ? sColumn : "nullptr",
            m_nLine);
    }
    return false;
}
