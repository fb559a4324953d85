// cwarehouse.h: tables in text files.
//
// A table is a text or CSV file: each line describes one item, its first column is the item's identifier (its ident),
// and a line that starts with @head names the columns. The warehouse keeps the file's bytes and two lines, the header
// and the work line, and scans the text again for every lookup; passing over lines allocates nothing, and neither do
// the Get functions. Idents and column names compare without regard to ASCII case. One thread.
//
// While the file is open in place, a refresh of it shows in the next search; the header stays as it was, and a walk of
// NextIdent ends there.
//
// UTF-8's byte order mark at the start of a file is skipped; a file in UTF-16 is refused.
//
// Closed until Open succeeds; then open until the next Open or the destructor. On a closed warehouse every search
// fails and every column is missing.
#pragma once

#include "zqcore/ctexterror.h"
#include "zqcore/cwarehousescan.h"

class File_c;

class Warehouse_c
{
public:
    /// With bCopy, Open copies the text and closes the file at once; else the file stays open as long as the warehouse.
    explicit Warehouse_c(bool bCopy = false)
        : m_bCopy(bCopy)
    {}
    ZQ_API ~Warehouse_c();
    Warehouse_c(Warehouse_c const &) = delete;
    Warehouse_c & operator=(Warehouse_c const &) = delete;

    /// Closes what was open and opens a file by name. sClientHeader names the columns, separated by blanks, if the file
    /// has no header line; sSeparators replaces the format's. False if there is no such file, or, with two lines in the
    /// log, if no header is found.
    ZQ_API bool Open(char const * sFileName, WarehouseFormat_e eFormat = WAREHOUSE_FORMAT_AUTO,
        char const * sClientHeader = nullptr, char const * sSeparators = nullptr);

    /// Why the last Open or Get failed, with the place of the cell in the file; also when a Get has cut a text. Searches
    /// set no error. The place is unknown if a refresh has changed the text since the line was read.
    ZQ_API TextError_t const & GetLastError() const;

    /// The key of the open file; false when there is none, which is always so with bCopy. Every text goes to a buffer
    /// of nMaxLength > 1 bytes, which is emptied first, and is cut to fit.
    ZQ_API bool GetFileName(char * sName, int nMaxLength) const;
    bool GetFileName(String_T<256> & sName) const { return GetFileName(sName.GetBuffer(), 256); }

    /// Rewinds NextIdent and clears the work line.
    ZQ_API bool StartIdent();

    /// Makes the next item's line the work line and gives its ident, in lower case. False, without a work line, behind
    /// the last one.
    ZQ_API bool NextIdent(char * sIdent, int nMaxLength);
    bool NextIdent(String_T<256> & sIdent) { return NextIdent(sIdent.GetBuffer(), 256); }

    /// Makes the first line with this ident the work line; false, without a work line, if there is none. A walk with
    /// NextIdent is not disturbed.
    ZQ_API bool FindIdent(char const * sIdent);
    bool SetWorkIdent(char const * sIdent) { return FindIdent(sIdent); }

    /// The ident of the work line; false without one. The work line stays until the next search or StartIdent.
    ZQ_API bool GetWorkIdent(char * sIdent, int nMaxLength) const;
    bool GetWorkIdent(String_T<256> & sIdent) const { return GetWorkIdent(sIdent.GetBuffer(), 256); }

    /// Length of the work line's cell, 0 for a null cell, -1 without a work line or such a column.
    ZQ_API int GetLength(char const * sColumn) const;

    /// Whether a Get that fails logs the file, the column and the line, which is the count of lines that NextIdent has
    /// read and not always the line of the work line; GetLastError has that one.
    void LogColName(bool bLog) { m_bLogColName = bLog; }

    /// The work line's cell as a number, true if it is one and in the type's range; else the value stays. Numbers have
    /// the form that strtol (base 10) and strtod take in the "C" locale, whatever the locale is, and fill the cell.
    /// Infinities, NaNs and numbers too small for a normal double are out of range. A null cell is no number.
    ZQ_API bool Get(char const * sColumn, long & value) const;
    ZQ_API bool Get(char const * sColumn, double & value) const;
    ZQ_API bool Get(char const * sColumn, float & value) const;
    ZQ_API bool Get(char const * sColumn, int & value) const;
    ZQ_API bool Get(char const * sColumn, short & value) const;
    ZQ_API bool Get(char const * sColumn, unsigned char & value) const;

    /// A whole number; true unless it is 0.
    ZQ_API bool Get(char const * sColumn, bool & value) const;

    /// A double from 0 to 4294967295, cut toward zero.
    ZQ_API bool Get(char const * sColumn, unsigned long & value) const;

    /// The cell as text; a null cell gives an empty one. A text that is cut counts as invalid in the log only.
    ZQ_API bool Get(char const * sColumn, char * sResult, int nMaxLength) const;
    bool Get(char const * sColumn, String_T<256> & sResult) const { return Get(sColumn, sResult.GetBuffer(), 256); }

    /// A pair written as 12-34. Minus signs in front are passed over; a piece that is no number counts as 0, one out of
    /// range as the nearest int.
    ZQ_API bool Get(char const * sColumn, int & iFirst, int & iSecond) const;

private:
    struct Text_s
    {
        char const * pText = nullptr;
        int nLength = 0;
        bool operator==(Text_s const &) const = default;
    };

    void Close();
    void TakeText(char const * pText, int nText);
    bool ReadHeader(char const * sClientHeader);
    Text_s GetText() const;
    WarehouseScan_t ScanFrom(int nPos) const;
    void NoteWork(WarehouseScan_t const & Scan);
    int FindColumn(char const * sColumn) const;
    bool FindCell(char const * sColumn, char const *& szCell) const;
    char const * NumberCell(char const * sColumn) const;
    template <typename T>
    bool GetInteger(char const * sColumn, T & value, long iMin, long iMax) const;
    ZQ_COLD bool LogNotFound(char const * sColumn) const;
    ZQ_COLD bool LogInvalid(char const * sColumn, char const * szReason) const;
    void KeepError(char const * szReason, char const * sColumn) const;
    void PlaceError() const;

    WarehouseLine_c m_Head;   // names the columns
    WarehouseLine_c m_Work;   // the work line
    String_T<256> m_sSeparators = WAREHOUSE_TEXT_SEPARATORS;
    File_c * m_pFile = nullptr;
    WarehouseFormat_e m_eFormat = WAREHOUSE_FORMAT_TEXT;
    int m_nPos = 0;                   // where NextIdent goes on
    int m_nLine = 0;                  // lines that NextIdent has scanned
    Text_s m_Walked;                  // the text that m_nPos belongs to, unless it is 0
    Text_s m_Worked;                  // the text that the work line was read from
    int m_nWork = 0;                  // where it begins there
    char const * m_pData = nullptr;   // the text; set while the warehouse is open
    int m_nLength = 0;
    bool m_bCopy;
    bool m_bLogColName = false;

    // The last error. Its place is counted when somebody asks for it, since a Get may fail as a matter of course.
    mutable TextErrors_c m_Errors;
    mutable Text_s m_ErrorText;     // the text of an error whose place is not counted yet
    mutable int m_nErrorLine = 0;   // where its line begins
    mutable int m_iErrorColumn = 0;
};
