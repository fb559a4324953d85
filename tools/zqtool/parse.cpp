#include "tools/zqtool/parse.h"

#include "zqcore/cstring.h"

#include <algorithm>
#include <charconv>
#include <utility>

bool TakeStart(std::string_view & sText, std::string_view sStart)
{
    bool const bStarts = sText.starts_with(sStart);
    sText.remove_prefix(bStarts ? sStart.size() : 0);
    return bStarts;
}

std::optional<std::string_view> TakePart(std::string_view & sText, std::string_view sSeparator)
{
    std::size_t const iEnd = sText.find(sSeparator);
    if (iEnd == std::string_view::npos)
    {
        return std::nullopt;
    }
    std::string_view const sPart = sText.substr(0, iEnd);
    sText.remove_prefix(iEnd + sSeparator.size());
    return sPart;
}

std::string_view TakeUpTo(std::string_view & sText, std::string_view sSeparator)
{
    std::optional<std::string_view> const Part = TakePart(sText, sSeparator);
    return Part ? *Part : std::exchange(sText, {});
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
    return sPath.substr(sPath.find_last_of("/\\") + 1);   // npos + 1 is 0
}

std::string Lower(std::string_view sText)
{
    std::string sLower(sText);
    std::ranges::transform(sLower, sLower.begin(), CharToLower);
    return sLower;
}
