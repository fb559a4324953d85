// checkreader.h: what a check of a text has from the library's readers.
#pragma once

#include "tools/zqtool/checktext.h"

#include <string>
#include <vector>

/// Name of the text in the table of files while it is checked.
inline constexpr char CHECKED_KEY[] = "checked";

/// Returns the text with the letters of ASCII in lower case.
std::string Lower(std::string sText);

/// Collects the errors of CHECKED_KEY that readers log, as long as the object lives. One object at a time.
class ReaderErrors_c
{
public:
    explicit ReaderErrors_c(std::vector<Complaint_t> & dComplaints);
    ~ReaderErrors_c();
    ReaderErrors_c & operator=(ReaderErrors_c &&) = delete;

private:
    static void Listen(char const * szLine);

    static bool s_bListens;
    static std::vector<Complaint_t> * s_pComplaints;
};
