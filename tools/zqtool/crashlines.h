// crashlines.h: what the readers of reports and of details share: lines, limits and codes.
#pragma once

#include "tools/zqtool/crashreport.h"

/// Most members of a list in a crash, such as frames, threads, modules, variables or lines of one kind, and most
/// crashes in a file. The naming of inlined calls may make a stack longer.
inline constexpr std::size_t CRASH_MAX_MEMBERS = 10000;
inline constexpr std::size_t CRASH_MAX_CRASHES = 1000;

/// Lines of a text. A line ends with LF or CR LF.
class CrashLines_c
{
public:
    /// Begins before the first line. Requires that the text and fnComplain outlive the object.
    CrashLines_c(std::string_view sText, CrashComplain_t const & fnComplain)
        : m_sRest(sText)
        , m_fnComplain(fnComplain)
        , m_bZeros(sText.find('\0') != std::string_view::npos)
    {}

    /// Sets sLine to the next line, without its end. Returns false after the last one. Cuts a line of more than 64 KiB.
    /// Skips a line within which the file breaks off, unless it is the first. Reports a line that is cut or breaks off,
    /// and the first one with zeros.
    bool Next(std::string_view & sLine);

    /// Reports what is wrong with the current line.
    void Complain(std::string const & sText) const { m_fnComplain(m_iLine, sText); }

    /// Reports what is wrong with a line, with the start of the line.
    void ComplainOf(char const * szWhat, std::string_view sLine) const;

    /// Reports that the file has more than CRASH_MAX_CRASHES crashes, and that no further one is read.
    void ComplainOfMoreCrashes() const;

    /// Returns the first 60 bytes of a line for a complaint, and "..." if the line has more.
    static std::string StartOf(std::string_view sLine);

private:
    std::string_view m_sRest;
    CrashComplain_t const & m_fnComplain;
    std::size_t m_iLine = 0;
    bool m_bBroken = false;   // whether the last line read has no end, which is not yet reported
    bool m_bZeros;            // whether the text has zeros that are not yet reported
};

/// Removes an exception code, and the blank after it, from the start of a text. Sets the code of a crash, and what is
/// left as the code's text. Returns false, and changes nothing, if the text does not begin with a hexadecimal number of
/// at most 32 bits.
bool TakeCode(std::string_view & sText, Crash_t & Crash);

/// Appends a member unless the list has CRASH_MAX_MEMBERS already. Returns whether it did.
template <typename T>
bool AppendMember(std::vector<T> & dMembers, T && Member)
{
    bool const bRoom = dMembers.size() < CRASH_MAX_MEMBERS;
    if (bRoom)
    {
        dMembers.push_back(std::forward<T>(Member));
    }
    return bRoom;
}
