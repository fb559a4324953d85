#include "zqcore/cwarehouse.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cnumbertext_internal.h"
#include "zqcore/cstring.h"
#include "zqcore/ctexterror_internal.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <utility>

namespace
{
    constexpr char const * NO_WHOLE_NUMBER = "there is no whole number in column";
    constexpr char const * OUT_OF_RANGE = "the number is out of range in column";

    constexpr double ULONG_LIMIT = 4294967295.0;   // highest unsigned long that Get reads, the same on every machine

    // Returns a column's name as messages show it.
    char const * ShownName(char const * szColumn)
    {
        return szColumn ? szColumn : "nullptr";
    }

    // Returns whether a number in range fills the whole text. Returns true for an empty text.
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
    m_Worked = m_ErrorText = {};
}

bool Warehouse_c::Open(
    char const * sFileName, WarehouseFormat_e eFormat, char const * sClientHeader, char const * sSeparators)
{
    Close();
    m_Errors.Begin(sFileName);
    ZQ_ASSERT(sFileName);
    m_pFile = sFileName ? FileOpenUnlogged(sFileName) : nullptr;
    if (!m_pFile)
    {
        return m_Errors.Fail(FileGetWhyNot(sFileName));
    }
    m_eFormat = WarehouseSettleFormat(eFormat, m_pFile->sName);
    m_sSeparators = WarehouseScan_t(nullptr, 0, 0, m_eFormat).sSeparators;
    if (sSeparators)
    {
        m_sSeparators = sSeparators;
    }

    File_c const & File = *m_pFile;
    FileText_t const Text = TextOfFile(File);
    if (!Text.szRefused)
    {
        StartText(Text.pText, Text.nText);
        if (ReadHeader(sClientHeader))
        {
            return true;
        }
    }
    if (!Text.szRefused || !sClientHeader)   // the client's header of a refused file was not read
    {
        LogEscaped(sClientHeader ? "Warehouse_c::Open: File \"%s\": invalid client header line"
                                 : "Warehouse_c::Open: File \"%s\": no client header line specified",
            File.sName.CStr());
    }
    LogEscaped("Warehouse_c::Open: File \"%s\": no header line found", File.sName.CStr());
    Close();
    return m_Errors.Fail(Text.szRefused    ? Text.szRefused
                         : Text.nText == 0 ? "the file is empty"
                                           : "no line begins with @head");
}

// Opens the warehouse on the text of m_pFile or on a copy.
void Warehouse_c::StartText(char const * pText, int nText)
{
    m_pData = pText;
    m_nLength = nText;
    if (m_bCopy)
    {
        auto const nBytes = static_cast<std::size_t>(nText);
        char * const pCopy = ZQ_NEW char[nBytes];
        std::memcpy(pCopy, pText, nBytes);
        m_pData = pCopy;
        FileClose(m_pFile);
        m_pFile = nullptr;
    }
}

// Reads the file's first header line, or else the client's. Returns false if there is neither.
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
    String_T<256> sHeader("@HEAD ");   // WAREHOUSE_HEADER, which compares without regard to case
    sHeader += sClientHeader;
    WarehouseScan_t(sHeader, sHeader.Length(), 0, WAREHOUSE_FORMAT_TEXT).GetLine(&m_Head);
    return m_Head.IsHeader();
}

// Returns the current text: a refresh of the open file may have replaced the block in m_pData or removed it.
Warehouse_c::Text_s Warehouse_c::GetText() const
{
    if (!m_pFile)
    {
        return { m_pData, m_nLength, 0 };
    }
    FileText_t const Text = TextOfFile(*m_pFile);
    return { Text.pText, Text.nText, m_pFile->GetBlockCount() };
}

WarehouseScan_t Warehouse_c::ScanFrom(int nPos) const
{
    Text_s const Text = GetText();
    WarehouseScan_t Scan(Text.pText, Text.nLength, nPos, m_eFormat);
    Scan.SetSeparators(m_sSeparators);
    return Scan;
}

// Stores the place of the work line. If the text has changed, discards the previous place of an error.
void Warehouse_c::NoteWork(WarehouseScan_t const & Scan)
{
    m_nWork = Scan.GetLineStart();
    Text_s const Text = GetText();
    if (m_Worked != Text)
    {
        m_Worked = Text;
        m_Errors.Recount();
    }
}

// Returns the key of the open file, or null.
char const * Warehouse_c::FileKey() const
{
    return m_pFile ? m_pFile->sName.CStr() : nullptr;
}

bool Warehouse_c::GetFileName(char * sName, int nMaxLength) const
{
    if (!WarehouseClearText(sName, nMaxLength) || !m_pFile)
    {
        return false;
    }
    WarehouseCopyText(sName, FileKey(), nMaxLength);
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
    if (!WarehouseClearText(sIdent, nMaxLength))
    {
        m_Work.Reset();
        return false;
    }
    return StepIdent() && GetWorkIdent(sIdent, nMaxLength);
}

// Makes the next item's line the work line. Returns false, without a work line, if there is none.
bool Warehouse_c::StepIdent()
{
    m_Work.Reset();
    if (!m_pData)
    {
        return false;
    }
    if (m_nPos == 0)
    {
        m_Walked = GetText();
    }
    else if (m_Walked != GetText())
    {
        return false;   // a position in one text means nothing in another
    }
    WarehouseScan_t Scan = ScanFrom(m_nPos);
    bool const bFound = Scan.NextItem(&m_Work, m_nLine);
    m_nPos = Scan.GetPos();
    NoteWork(Scan);
    return bFound;
}

bool Warehouse_c::FindIdent(char const * sIdent)
{
    ZQ_ASSERT(sIdent);
    m_Work.Reset();
    bool const bHeader = sIdent && StrCompareNoCase(sIdent, WAREHOUSE_HEADER) == 0;   // header lines are not items
    if (!sIdent || bHeader || !m_pData)
    {
        return false;
    }
    WarehouseScan_t Scan = ScanFrom(0);
    bool const bFound = Scan.FindLine(sIdent, &m_Work);
    NoteWork(Scan);
    return bFound;
}

// Returns the ident of the work line, or null.
char const * Warehouse_c::WorkIdent() const
{
    return m_pData && !m_Work.IsNull(0) ? m_Work[0] : nullptr;
}

bool Warehouse_c::GetWorkIdent(char * sIdent, int nMaxLength) const
{
    char const * const szIdent = WorkIdent();
    if (!WarehouseClearText(sIdent, nMaxLength) || !szIdent)
    {
        return false;
    }
    WarehouseCopyText(sIdent, szIdent, nMaxLength);
    return true;
}

// Returns the index of a named column, or -1.
inline int Warehouse_c::FindColumn(char const * sColumn) const
{
    for (int i = 0; i < m_Head.GetLength(); ++i)
    {
        if (!m_Head.IsNull(i) && StrCompareNoCase(m_Head[i], sColumn) == 0)
        {
            return i;
        }
    }
    return -1;
}

// Sets szCell to the work line's cell in a named column, null for an empty one. Returns false without such a column or
// a work line.
inline bool Warehouse_c::FindCell(char const * sColumn, char const *& szCell) const
{
    ZQ_ASSERT(sColumn);
    if (!sColumn || !m_pData || m_Work.IsEmpty())
    {
        return false;
    }
    int const iColumn = FindColumn(sColumn);
    if (iColumn < 0)
    {
        return false;
    }
    szCell = m_Work.IsNull(iColumn) ? nullptr : m_Work[iColumn];
    return true;
}

// Returns the cell for a Get that needs one. If there is none, stores the error and returns null.
char const * Warehouse_c::ReadNumberCell(char const * sColumn) const
{
    char const * szCell = nullptr;
    if (!FindCell(sColumn, szCell))
    {
        LogNotFound(sColumn);
    }
    else if (!szCell)
    {
        LogInvalid(sColumn, "there is no value in column");
    }
    return szCell;
}

// Returns the cell for a Get of a text, and reports one of more than nMost bytes. Without the column or a work line,
// stores the error and returns null.
char const * Warehouse_c::ReadTextCell(char const * sColumn, int nMost) const
{
    char const * szCell = nullptr;
    if (!FindCell(sColumn, szCell))
    {
        LogNotFound(sColumn);
        return nullptr;
    }
    if (szCell && std::strlen(szCell) > static_cast<std::size_t>(nMost))
    {
        LogInvalid(sColumn, "the text is cut in column");
    }
    return szCell ? szCell : "";
}

// Reads the cell as a whole number in a range and returns true. Otherwise stores the error and returns false.
bool Warehouse_c::GetWhole(char const * sColumn, WholeRange_t const & Range, std::uint64_t & iBits) const
{
    char const * const szCell = ReadNumberCell(sColumn);
    if (!szCell)
    {
        return false;
    }
    WholeNumber_e const eResult = WholeFromText(szCell, Range, iBits);
    return eResult == WholeNumber_e::Good
           || LogInvalid(sColumn, eResult == WholeNumber_e::NoNumber ? NO_WHOLE_NUMBER : OUT_OF_RANGE);
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
    char const * const szCell = ReadNumberCell(sColumn);
    long iValue = 0;
    if (!szCell)
    {
        return false;
    }
    NumberEnd_t const End = TextToInteger(szCell, iValue);
    if (!IsWhole(End))
    {
        return LogInvalid(sColumn, *End.pEnd == '\0' ? OUT_OF_RANGE : NO_WHOLE_NUMBER);
    }
    value = iValue;
    return true;
}

bool Warehouse_c::Get(char const * sColumn, double & value) const
{
    char const * const szCell = ReadNumberCell(sColumn);
    double fValue = 0;
    if (!szCell)
    {
        return false;
    }
    NumberEnd_t const End = TextToDouble(szCell, fValue);
    if (!IsWhole(End) || !std::isfinite(fValue))
    {
        bool const bTooWide = !End.bInRange && *End.pEnd == '\0';
        return LogInvalid(sColumn, bTooWide ? OUT_OF_RANGE : "there is no number in column");
    }
    value = fValue;
    return true;
}

bool Warehouse_c::Get(char const * sColumn, float & value) const
{
    double fValue = 0;
    if (!Get(sColumn, fValue))
    {
        return false;
    }
    if (std::fabs(fValue) > FLT_MAX)
    {
        return LogInvalid(sColumn, OUT_OF_RANGE);
    }
    value = static_cast<float>(fValue);
    return true;
}

bool Warehouse_c::Get(char const * sColumn, unsigned long & value) const
{
    double fValue = 0;
    if (!Get(sColumn, fValue))
    {
        return false;
    }
    if (fValue < 0 || fValue > ULONG_LIMIT)
    {
        return LogInvalid(sColumn, OUT_OF_RANGE);
    }
    value = static_cast<unsigned long>(fValue);
    return true;
}

// Reads the cell as a long from iMin to iMax and returns true. Otherwise stores the error and returns false.
template <typename T>
bool Warehouse_c::GetInteger(char const * sColumn, T & Value, long iMin, long iMax) const
{
    long iValue = 0;
    if (!Get(sColumn, iValue))
    {
        return false;
    }
    if (iValue < iMin || iValue > iMax)
    {
        return LogInvalid(sColumn, OUT_OF_RANGE);
    }
    Value = static_cast<T>(iValue);
    return true;
}

bool Warehouse_c::Get(char const * sColumn, int & value) const
{
    return GetInteger(sColumn, value, INT_MIN, INT_MAX);
}

bool Warehouse_c::Get(char const * sColumn, short & value) const
{
    return GetInteger(sColumn, value, SHRT_MIN, SHRT_MAX);
}

bool Warehouse_c::Get(char const * sColumn, unsigned char & value) const
{
    return GetInteger(sColumn, value, 0, UCHAR_MAX);
}

bool Warehouse_c::Get(char const * sColumn, bool & value) const
{
    return GetInteger(sColumn, value, LONG_MIN, LONG_MAX);
}

bool Warehouse_c::Get(char const * sColumn, char * sResult, int nMaxLength) const
{
    bool const bUsable = WarehouseClearText(sResult, nMaxLength);
    char const * const szCell = ReadTextCell(sColumn, bUsable ? nMaxLength - 1 : INT_MAX);
    if (szCell && bUsable)
    {
        WarehouseCopyText(sResult, szCell, nMaxLength);
    }
    return szCell && bUsable;
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
        return LogInvalid(sColumn, "there is no pair of numbers in column");
    }
    *szMinus = '\0';
    iFirst = TextToInt(szFirst);
    iSecond = TextToInt(szMinus + 1);
    return true;
}

// Stores the error of a missing column or work line, logs it if LogColName switched that on, and returns false.
bool Warehouse_c::LogNotFound(char const * sColumn) const
{
    if (m_bLogColName)
    {
        String_T<256> sName;
        GetFileName(sName);
        LogEscaped("%s: Not found column '%s'", sName.CStr(), ShownName(sColumn));
    }
    KeepError(m_Work.IsEmpty() ? "without a work line there is no column" : "there is no column", sColumn);
    return false;
}

// Stores why a cell is bad or a text is cut, logs the column if LogColName switched that on, and returns false.
bool Warehouse_c::LogInvalid(char const * sColumn, char const * szReason) const
{
    if (m_bLogColName)
    {
        String_T<256> sName;
        GetFileName(sName);
        LogEscaped("%s: Invalid data in column '%s' line %d", sName.CStr(), ShownName(sColumn), m_nLine);
    }
    KeepError(szReason, sColumn);
    return false;
}

void Warehouse_c::KeepError(char const * szReason, char const * sColumn) const
{
    m_Errors.Set(szReason, ShownName(sColumn));
    m_ErrorText = m_Work.IsEmpty() ? Text_s{} : m_Worked;
    m_nErrorLine = m_nWork;
    m_iErrorColumn = sColumn ? std::max(FindColumn(sColumn), 0) : 0;
    if (TextErrors_c::IsWanted())
    {
        PlaceError();
        m_Errors.LogIfWanted();
    }
}

// Counts the place of the last error, if the text has not changed since.
void Warehouse_c::PlaceError() const
{
    Text_s const Text = std::exchange(m_ErrorText, Text_s{});
    if (Text.pText && Text == GetText())
    {
        WarehouseScan_t Scan = ScanFrom(m_nErrorLine);
        Scan.SeekColumn(m_iErrorColumn);
        m_Errors.Place(Text.pText, static_cast<std::size_t>(Scan.GetPos()));
    }
}

TextError_t const & Warehouse_c::GetLastError() const
{
    PlaceError();
    return m_Errors.GetLast();
}
