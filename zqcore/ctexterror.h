// ctexterror.h: why a text reader failed, and where.
//
// The text readers (SimpleTextParser_c, Spreadsheet_c, Warehouse_c, PropertyList_c, Script_c) report a failure by their
// result and log the lines that their headers describe. Each also keeps its last error: GetLastError returns the file,
// the line, the column and the reason. An error stays until the next error or the next opening. A success does not
// clear it. An error may also describe damage that does not fail a call, such as a cell that was cut or a damaged head.
//
// Ownership: a reader owns its last error.
// Threads: an error belongs to the thread of its reader. Any thread may call SetTextErrorLog.
// Cost: nothing allocates, unless a Warehouse_c counts a place (cwarehouse.h). Line and column are counted from the
// place of the previous error in the same text.
// Failure: no call fails. Long texts are cut to fit.
//
//     Spreadsheet_c Sheet;
//     if (!Sheet.Open("levels.csv"))
//     {
//         TextError_t const & Error = Sheet.GetLastError();
//         Log("%s(%d,%d): %s", Error.sFile, Error.iLine, Error.iColumn, Error.sReason);
//     }
#pragma once

#include "zqcore/clog.h"
#include "zqcore/cstring.h"

/// Error of a text reader. In both texts, control characters and bytes that are not UTF-8 are escaped as in
/// TextForLog, so each text fits on one line of a log.
struct TextError_t
{
    String_T<256> sFile;   // name as opened, cut to fit; of a text in memory empty, or in Script_c its address and size
    int iLine = 0;         // line from 1, counted by line feeds; 0 if the error has no place
    int iColumn = 0;       // character of that line from 1; a UTF-8 character counts once, and so does a tab
    String_T<256> sReason;   // one statement in English, empty without an error

    /// Returns whether there is an error.
    bool IsSet() const { return !sReason.IsEmpty(); }
};

/// Last error of one reader, for the readers themselves.
class TextErrors_c
{
public:
    /// Returns the last error, whose IsSet is false if there is none.
    TextError_t const & GetLast() const { return m_Last; }

    /// Begins another text, without an error. A null szFile counts as an empty one.
    void Begin(char const * szFile);

    /// Removes the error and discards the previous place. The file stays.
    void Clear();

    /// Sets an error without a place. If szAbout is not null, the reason ends in that text, quoted, escaped and cut to
    /// fit, so it may come from outside.
    void Set(char const * szReason, char const * szAbout = nullptr);

    /// Sets an error without a place, logs it if that is switched on, and returns false.
    bool Fail(char const * szReason, char const * szAbout = nullptr);

    /// Sets the place of the last error, nAt bytes after the start of a text. Takes time linear in the distance from
    /// the previous place in that text, or in nAt if the new place is before it.
    void Place(char const * pText, std::size_t nAt);

    /// Discards the previous place. The reader calls it when the text has changed.
    void Recount() { m_pCounted = nullptr; }

    /// Logs the last error if that is switched on.
    void LogIfWanted() const;

    /// Sets an error with a place, and logs it if that is switched on.
    ZQ_API void SetAt(char const * szReason, char const * szAbout, char const * pText, std::size_t nAt);

    /// Returns whether errors are logged.
    static bool IsWanted();

private:
    TextError_t m_Last;
    char const * m_pCounted = nullptr;   // text whose lines were counted, up to m_nCounted
    std::size_t m_nCounted = 0;
    int m_iLine = 1;     // line of the byte at m_nCounted
    int m_iColumn = 1;   // column of that byte
};

/// Sets whether each error of a reader is also logged, as one line after the reader's own. It is off at start. The line
/// is "%s(%d,%d): %s" with file, line, column and reason, or "%s: %s" for an error without a place. A text without a
/// file is logged as "text".
ZQ_API void SetTextErrorLog(bool bEnable);

/// Returns a copy of a text from outside, such as a name or a cell, that is safe in a log line or on a terminal: it
/// can't begin a line of its own or control a terminal. The copy has at most LOG_LINE_LENGTH bytes. Returns an empty
/// text for null.
///
/// Control characters, and those that end lines or change the direction of writing, become escapes such as `\n`,
/// `\x1B` or `\u009B`. A byte that is not UTF-8 becomes one such as `\xFF`. Other text is unchanged.
ZQ_API String_T<LOG_LINE_LENGTH + 1> TextForLog(char const * szText);
