#include "tools/zqtool/crashlines.h"

#include "tools/zqtool/parse.h"

bool CrashLines_c::Next(std::string_view & sLine)
{
    constexpr std::size_t MAX_LINE_SIZE = 64 << 10;   // bytes
    if (m_sRest.empty())
    {
        if (m_bBroken)
        {
            Complain("the file breaks off within this line");
            m_bBroken = false;
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
    if (sLine.size() > MAX_LINE_SIZE)
    {
        Complain("a line of " + std::to_string(sLine.size()) + " bytes is cut");
        sLine = sLine.substr(0, MAX_LINE_SIZE);
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

void CrashLines_c::ComplainOfMoreCrashes() const
{
    Complain("more than " + std::to_string(CRASH_MAX_CRASHES) + " crashes; the rest is not read");
}

std::string CrashLines_c::StartOf(std::string_view sLine)
{
    constexpr std::size_t SHOWN = 60;   // bytes
    return std::string(sLine.substr(0, SHOWN)) + (sLine.size() > SHOWN ? "..." : "");
}

bool TakeCode(std::string_view & sText, Crash_t & Crash)
{
    std::string_view sRest = sText;
    std::optional<std::uint64_t> const Code = TakeNumber(sRest, 16);
    if (!Code || *Code > UINT32_MAX)
    {
        return false;
    }
    TakeStart(sRest, " ");
    sText = sRest;
    Crash.nCode = static_cast<std::uint32_t>(*Code);
    Crash.sCodeText = sText;
    return true;
}
