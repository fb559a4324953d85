// cwarehouse.h: tables in text files.
//
// A table is a text or CSV file. Each line describes one item. Its first column is the item's identifier, its ident. A
// line that starts with @head names the columns. The warehouse keeps the file's bytes and two lines, the header and the
// work line, and scans the text again for every search. Idents and column names compare without regard to ASCII case.
// The warehouse skips UTF-8's byte order mark at the start. Open refuses a file in UTF-16.
//
// A warehouse is closed until Open succeeds, then open until the next Open or the destructor. On a closed one every
// search fails. Every column is missing there. If an open file is refreshed, the next search sees the new text. The
// header stays as it was. A walk of NextIdent ends.
//
// Texts are written to buffers by the rule of cstring.h, and to text objects (ctextvalue.h). Both are emptied first.
//
// Ownership: the warehouse owns its file or its copy of the text. An open file requires that the warehouse ends before
// ModuleFile_c shuts down. Texts are copied to the caller.
// Threads: one thread for each warehouse. Open belongs to the main thread, as the table of files does (cfile.h).
// Cost: a search is linear in the file. Skipping lines allocates nothing. The work line allocates its cells. The Get
// functions allocate nothing, but a std::string may. Counting the place of an error allocates the cells before it:
// GetLastError does, and a Get that fails or cuts a text while SetTextErrorLog is on.
// Failure: calls return false and leave the caller's number unchanged. GetLastError has the place.
//
//     Warehouse_c Units;
//     int iHealth = 0;
//     if (Units.Open("units.txt") && Units.FindIdent("ogre"))
//     {
//         Units.Get("health", iHealth);
//     }
#pragma once

#include "zqcore/cstring.h"
#include "zqcore/ctexterror.h"
#include "zqcore/ctextvalue.h"
#include "zqcore/cwarehousescan.h"

class File_c;

/// Table, and one line of it at a time.
class Warehouse_c
{
public:
    /// Makes a closed warehouse. With bCopy, Open copies the text and closes the file at once. Otherwise the file stays
    /// open as long as the warehouse is.
    explicit Warehouse_c(bool bCopy = false)
        : m_bCopy(bCopy)
    {}
    ZQ_API ~Warehouse_c();
    Warehouse_c(Warehouse_c const &) = delete;
    Warehouse_c & operator=(Warehouse_c const &) = delete;

    /// Closes what was open, opens a file by name and returns true. sSeparators replaces the format's separators. If
    /// the file has no header line, sClientHeader names the columns, separated by blanks, cut at 249 characters.
    /// Asserts that the name is not null. Returns false if the file can't be opened. Also returns false, with log
    /// lines, if no header is found or the file is refused.
    ZQ_API bool Open(char const * sFileName, WarehouseFormat_e eFormat = WAREHOUSE_FORMAT_AUTO,
        char const * sClientHeader = nullptr, char const * sSeparators = nullptr);

    /// Returns the error of the last Get since Open that failed or cut a text, or else that of Open. Searches set no
    /// error. A Get's error has the place of the cell, or of the line if there is no such column. It has no place
    /// without a work line, or if a refresh has changed the text after the line was read.
    ZQ_API TextError_t const & GetLastError() const;

    /// Write the key of the open file. Here and below, functions with a buffer assert that it is not null and that
    /// nMaxLength is above 1, and return false otherwise. Return false if no file is open, which is always so with
    /// bCopy.
    ZQ_API bool GetFileName(char * sName, int nMaxLength) const;
    template <TextObject_T TEXT>
    bool GetFileName(TEXT & sName) const
    {
        return TextPut(sName, FileKey());
    }

    /// Rewinds NextIdent, clears the work line and returns true. Returns false on a closed warehouse.
    ZQ_API bool StartIdent();

    /// Make the next item's line the work line and write its ident in lower case. Return false, without a work line,
    /// after the last one.
    ZQ_API bool NextIdent(char * sIdent, int nMaxLength);
    template <TextObject_T TEXT>
    bool NextIdent(TEXT & sIdent)
    {
        StepIdent();
        return GetWorkIdent(sIdent);
    }

    /// Make the line of the first item with this ident the work line and return true. A header line is no item. A walk
    /// with NextIdent continues undisturbed. Assert that the ident is not null. Return false, without a work line, if
    /// no item has it.
    ZQ_API bool FindIdent(char const * sIdent);
    bool SetWorkIdent(char const * sIdent) { return FindIdent(sIdent); }

    /// Write the ident of the work line. Return false without a work line. The work line stays until the next search,
    /// StartIdent or Open.
    ZQ_API bool GetWorkIdent(char * sIdent, int nMaxLength) const;
    template <TextObject_T TEXT>
    bool GetWorkIdent(TEXT & sIdent) const
    {
        return TextPut(sIdent, WorkIdent());
    }

    /// Returns the length in bytes of the work line's cell, 0 for an empty cell, or -1 without a work line or such a
    /// column. Here and below, asserts that the column's name is not null.
    ZQ_API int GetLength(char const * sColumn) const;

    /// Sets whether a Get that fails or cuts a text is logged, with the file (empty with bCopy) and the column. It is
    /// off at start. The log line of a bad cell also has the number of lines that NextIdent has read. That may differ
    /// from the number of the work line, which GetLastError has.
    void LogColName(bool bLog) { m_bLogColName = bLog; }

    /// Read the work line's cell as a whole number, or for double and float as any number, in the type's range, and
    /// return true. Otherwise return false and leave the value.
    ///
    /// Numbers have the form that strtol (base 10) and strtod accept in the "C" locale. Nothing follows them in the
    /// cell. Infinities, NaNs and numbers too small for a normal double are refused. An empty cell is no number. A cell
    /// that begins with a NUL reads as 0, for bool and unsigned long below too.
    ZQ_API bool Get(char const * sColumn, long & value) const;
    ZQ_API bool Get(char const * sColumn, double & value) const;
    ZQ_API bool Get(char const * sColumn, float & value) const;
    ZQ_API bool Get(char const * sColumn, int & value) const;
    ZQ_API bool Get(char const * sColumn, short & value) const;
    ZQ_API bool Get(char const * sColumn, unsigned char & value) const;

    /// Reads the work line's cell as a whole number in the range of T, any other integer type. If std::uint64_t is
    /// unsigned long, the form of that type below limits it to 32 bits. An unsigned long long has the whole range.
    /// Returns false as the other forms do, and also for a cell that begins with a NUL.
    template <Integer_T T>
    bool Get(char const * sColumn, T & value) const
    {
        std::uint64_t iBits = 0;
        if (!GetWhole(sColumn, WholeRange_t::RangeOf<T>(), iBits))
        {
            return false;
        }
        value = static_cast<T>(iBits);
        return true;
    }

    /// Reads the work line's cell as the name of an enumerator (ctextvalue.h). Returns false as the other forms do,
    /// also for a name that the table does not have.
    template <typename ENUM>
    bool Get(char const * sColumn, ENUM & eValue, EnumNames_T<ENUM> dNames) const
    {
        char const * const szCell = ReadNumberCell(sColumn);
        return szCell
               && (EnumFromName(szCell, eValue, dNames) || LogInvalid(sColumn, "there is no known name in column"));
    }

    /// Reads the work line's cell as a whole number in the range of long. Sets value to whether the number is not 0.
    /// Returns false as the other forms do.
    ZQ_API bool Get(char const * sColumn, bool & value) const;

    /// Reads the work line's cell as a number from 0 to 4294967295, truncated toward zero. Returns false as the other
    /// forms do.
    ZQ_API bool Get(char const * sColumn, unsigned long & value) const;

    /// Read the work line's cell as text. An empty cell is an empty text. Return false without a work line or such a
    /// column. Return true for a text that is cut too: GetLastError says so, and the log if LogColName switched that
    /// on. A std::string cuts no text. A cut at WAREHOUSE_CELL_SIZE is not reported.
    ZQ_API bool Get(char const * sColumn, char * sResult, int nMaxLength) const;
    template <TextObject_T TEXT>
    bool Get(char const * sColumn, TEXT & sResult) const
    {
        return TextPut(sResult, ReadTextCell(sColumn, TextMost<TEXT>()));
    }

    /// Reads a pair written as 12-34. Leading minus signs are skipped. The number at the start of each part counts, or
    /// 0 without one. A number out of range is the nearest int. Reads at most 255 characters. Returns false as the
    /// other forms do, also without two parts.
    ZQ_API bool Get(char const * sColumn, int & iFirst, int & iSecond) const;

private:
    struct Text_s
    {
        char const * pText = nullptr;
        int nLength = 0;
        std::uint32_t nBlock = 0;   // GetBlockCount of the open file
        bool operator==(Text_s const &) const = default;
    };

    void Close();
    void StartText(char const * pText, int nText);
    bool ReadHeader(char const * sClientHeader);
    Text_s GetText() const;
    WarehouseScan_t ScanFrom(int nPos) const;
    void NoteWork(WarehouseScan_t const & Scan);
    int FindColumn(char const * sColumn) const;
    bool FindCell(char const * sColumn, char const *& szCell) const;
    ZQ_API char const * ReadNumberCell(char const * sColumn) const;
    ZQ_API char const * ReadTextCell(char const * sColumn, int nMost) const;
    ZQ_API bool GetWhole(char const * sColumn, WholeRange_t const & Range, std::uint64_t & iBits) const;
    ZQ_API char const * FileKey() const;
    ZQ_API char const * WorkIdent() const;
    ZQ_API bool StepIdent();
    template <typename T>
    bool GetInteger(char const * sColumn, T & Value, long iMin, long iMax) const;
    ZQ_COLD bool LogNotFound(char const * sColumn) const;
    ZQ_API ZQ_COLD bool LogInvalid(char const * sColumn, char const * szReason) const;
    void KeepError(char const * szReason, char const * sColumn) const;
    void PlaceError() const;

    WarehouseLine_c m_Head;   // names of the columns
    WarehouseLine_c m_Work;   // work line
    String_T<256> m_sSeparators = WAREHOUSE_TEXT_SEPARATORS;
    File_c * m_pFile = nullptr;
    WarehouseFormat_e m_eFormat = WAREHOUSE_FORMAT_TEXT;
    int m_nPos = 0;                   // position of the next NextIdent
    int m_nLine = 0;                  // lines that NextIdent has read
    Text_s m_Walked;                  // text that m_nPos belongs to, unless m_nPos is 0
    Text_s m_Worked;                  // text that the work line was read from
    int m_nWork = 0;                  // start of the work line in m_Worked
    char const * m_pData = nullptr;   // text, not null while the warehouse is open
    int m_nLength = 0;                // bytes of m_pData
    bool m_bCopy;
    bool m_bLogColName = false;

    /// Last error. Its place is counted only for GetLastError or the log, because a Get may fail in normal use.
    mutable TextErrors_c m_Errors;
    mutable Text_s m_ErrorText;     // text of an error whose place is not counted yet
    mutable int m_nErrorLine = 0;   // start of the error's line
    mutable int m_iErrorColumn = 0;
};
