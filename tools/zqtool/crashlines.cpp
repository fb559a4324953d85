#include "tools/zqtool/crashlines.h"

#include <algorithm>
#include <charconv>

bool CrashLines_c::Next(std::string_view & sLine)
{
    constexpr std::size_t LONGEST_LINE = 64 << 10;
    if (m_sRest.empty())
    {
        if (m_bBroken)
        {
            Complain("the file breaks off within this line");
        }
        return false;
    }
    ++m_iLine;
    std::size_t const iEnd = m_sRest.find('\n');
    sLine = m_sRest.substr(0, iEnd);
    m_bBroken = iEnd == std::string_view::npos;
    m_sRest.remove_prefix(m_bBroken ? m_sRest.size() : iEnd + 1);
    if (m_bBroken && m_iLine > 1)
    {
        return Next(sLine);   // a text that is cut would pass for another one
    }
    if (sLine.ends_with('\r'))
    {
        sLine.remove_suffix(1);
    }
    if (sLine.size() > LONGEST_LINE)
    {
        Complain("a line of " + std::to_string(sLine.size()) + " bytes is cut");
        sLine = sLine.substr(0, LONGEST_LINE);
    }
    if (m_bZeros && sLine.find('\0') != std::string_view::npos)
    {
        Complain("a line has zeros in place of text");
        m_bZeros = false;
    }
    return true;
}

void CrashLines_c::ComplainOf(char const * szWhat, std::string_view sLine) const
{
    Complain(std::string(szWhat) + ": " + StartOf(sLine));
}

std::string CrashLines_c::StartOf(std::string_view sLine)
{
    constexpr std::size_t SHOWN = 60;
    return std::string(sLine.substr(0, SHOWN)) + (sLine.size() > SHOWN ? "..." : "");
}

bool TakeStart(std::string_view & sText, std::string_view sStart)
{
    bool const bStarts = sText.starts_with(sStart);
    sText.remove_prefix(bStarts ? sStart.size() : 0);
    return bStarts;
}

std::string_view TakeUpTo(std::string_view & sText, std::string_view sMark)
{
    std::size_t const iMark = sText.find(sMark);
    std::string_view const sTaken = sText.substr(0, iMark);
    sText.remove_prefix(iMark == std::string_view::npos ? sText.size() : iMark + sMark.size());
    return sTaken;
}

std::optional<std::uint64_t> TakeNumber(std::string_view & sText, int nBase)
{
    std::uint64_t nNumber = 0;
    auto const [pEnd, eError] = std::from_chars(sText.data(), sText.data() + sText.size(), nNumber, nBase);
    if (eError != std::errc())
    {
        return std::nullopt;
    }
    sText.remove_prefix(static_cast<std::size_t>(pEnd - sText.data()));
    return nNumber;
}

std::optional<std::uint64_t> WholeNumber(std::string_view sText, int nBase)
{
    std::optional<std::uint64_t> const Number = TakeNumber(sText, nBase);
    return sText.empty() ? Number : std::nullopt;
}

std::string_view FileNameOf(std::string_view sPath)
{
    return sPath.substr(std::min(sPath.find_last_of("/\\") + 1, sPath.size()));
}
