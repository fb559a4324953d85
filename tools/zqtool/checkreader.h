// checkreader.h: the errors that the library's readers log, for a check of a text.
#pragma once

#include "tools/zqtool/checktext.h"
#include "zqcore/ctexterror.h"
#include "zqcore/cwarehousescan.h"

#include <string>
#include <vector>

/// Name of the text in the table of files while it is checked.
inline constexpr char CHECKED_KEY[] = "checked";

/// Returns the Suggestion of WAREHOUSE_HEADER for a line whose first column begins with @ and resembles that word.
/// Returns an empty text for any other line.
std::string SuggestHead(WarehouseLine_c const & Line);

/// Returns an error of a reader as a complaint.
inline Complaint_t ComplaintOf(TextError_t const & Error)
{
    return { Error.iLine, Error.iColumn, Error.sReason.CStr() };
}

/// Collector of the errors about CHECKED_KEY that readers log while the object lives. It appends them to dComplaints.
/// Requires that dComplaints outlives the object, and that only one object lives at a time.
class ReaderErrors_c
{
public:
    explicit ReaderErrors_c(std::vector<Complaint_t> & dComplaints);
    ~ReaderErrors_c();
    ReaderErrors_c(ReaderErrors_c const &) = delete;
    ReaderErrors_c & operator=(ReaderErrors_c const &) = delete;

private:
    static void Listen(char const * szLine);

    static bool s_bListens;                            // whether the log calls Listen
    static std::vector<Complaint_t> * s_pComplaints;   // of the object that lives, or null
};
