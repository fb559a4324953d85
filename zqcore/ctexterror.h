// ctexterror.h: why a text reader failed, and where.
//
// The readers of text (SimpleTextParser_c, Spreadsheet_c, Warehouse_c, PropertyList_c, Script_c) fail by a result and
// log what their headers say. Each also keeps its last error: GetLastError names the file, the line, the column and the
// reason. An error stays until the next one or the next opening; a success does not clear it. It may also report what a
// reader passes over without failing: a cell that is cut, a head that is damaged.
//
//     Spreadsheet_c Sheet;
//     if (!Sheet.Open("levels.csv"))
//     {
//         TextError_t const & Error = Sheet.GetLastError();
//         Log("%s(%d,%d): %s", static_cast<char const *>(Error.sFile), Error.iLine, Error.iColumn,
//             static_cast<char const *>(Error.sReason));
//     }
//
// Keeping an error costs no memory from the heap. It belongs to the thread of its reader.
#pragma once

#include "zqcore/clog.h"
#include "zqcore/cstring.h"

/// Control characters in either text, and bytes that are not UTF-8, are escaped as by TextForLog, so each fits on one
/// line of a log.
struct TextError_t
{
    String_T<256> sFile;     // the name as opened, cut to fit; in memory none, or Script_c's address and size
    int iLine = 0;           // line of the file, from 1, counted by its line feeds; 0 if the error has no place
    int iColumn = 0;         // character of that line, from 1; a character of UTF-8 counts once, a tab too
    String_T<256> sReason;   // one statement in English; empty if there was no error

    bool IsSet() const { return !sReason.IsEmpty(); }
};

/// Whether each error of a reader is also logged, as one line after those of the reader: "%s(%d,%d): %s" with file,
/// line, column and reason, or "%s: %s" for an error without a place. Starts false. Any thread.
ZQ_API void SetTextErrorLog(bool bEnable);

/// A copy for a log line or a terminal of a text that comes from outside, such as a name or a cell. Control characters
/// are shown as `\n`, `\r`, `\t`, `\x1B` or `\u009B`, a byte that is not UTF-8 as `\xFF`, so the text can't begin a line
/// of its own and a terminal obeys nothing in it. Printable text stays as it is. Null gives an empty text.
ZQ_API String_T<LOG_LINE_LENGTH + 1> TextForLog(char const * szText);

/// The last error of one reader, for the readers themselves.
class TextErrors_c
{
public:
    TextError_t const & GetLast() const { return m_Last; }

    /// Begins another text: no error yet. Null is a text in memory.
    void Begin(char const * szFile);

    /// No error yet; the file stays.
    void Clear();

    /// Sets an error without a place. With szAbout, which may come from outside, the reason ends in that text, quoted.
    void Set(char const * szReason, char const * szAbout = nullptr);

    /// Sets an error without a place and logs it if that is switched on; false.
    bool Fail(char const * szReason, char const * szAbout = nullptr);

    /// Sets the place of the last error, nAt bytes after the start of a text. Linear in the distance from the
    /// previous place in that text, or in nAt if it lies before that one.
    void Place(char const * pText, std::size_t nAt);

    /// Forgets the previous place: the text has changed.
    void Recount() { m_pCounted = nullptr; }

    /// Logs the last error if that is switched on.
    void LogIfWanted() const;

    /// All of it: sets, places, logs.
    void SetAt(char const * szReason, char const * szAbout, char const * pText, std::size_t nAt);

    /// Whether errors are logged.
    static bool IsWanted();

private:
    TextError_t m_Last;
    char const * m_pCounted = nullptr;   // the text whose lines were counted, up to m_nCounted
    std::size_t m_nCounted = 0;
    int m_iLine = 1;   // of the byte at m_nCounted
    int m_iColumn = 1;
};
