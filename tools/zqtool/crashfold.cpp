#include "tools/zqtool/crashfold.h"

#include "platform/text.h"
#include "tools/zqtool/crashcause.h"
#include "tools/zqtool/parse.h"

#include <algorithm>
#include <tuple>

namespace
{
    // Removes and returns a number without its leading zeros, or else one character. The length comes first, so that
    // the longer of two numbers is the larger.
    std::pair<std::size_t, std::string_view> TakeNumberOrCharacter(std::string_view & sText)
    {
        std::size_t const nDigits = std::min(sText.find_first_not_of(plat::DECIMAL_DIGITS), sText.size());
        std::size_t const nZeros = std::min(sText.find_first_not_of('0'), nDigits);
        std::string_view const sPart = sText.substr(nZeros, nDigits > 0 ? nDigits - nZeros : 1);
        sText.remove_prefix(nZeros + sPart.size());
        return { sPart.size(), sPart };
    }
}

bool VersionLess_c::operator()(std::string_view sA, std::string_view sB) const
{
    std::string_view sRestA = sA, sRestB = sB;
    while (!sRestA.empty() && !sRestB.empty())
    {
        auto const PartA = TakeNumberOrCharacter(sRestA), PartB = TakeNumberOrCharacter(sRestB);
        if (PartA != PartB)
        {
            return PartA < PartB;
        }
    }
    return std::tuple(sRestA.size(), sA) < std::tuple(sRestB.size(), sB);
}

std::string CrashCountText(std::vector<CrashGroup_t> const & dGroups)
{
    std::size_t nCrashes = 0;
    for (CrashGroup_t const & Group : dGroups)
    {
        nCrashes += Group.nCount;
    }
    return std::to_string(nCrashes) + (nCrashes == 1 ? " crash" : " crashes");
}

std::string CrashDays(CrashGroup_t const & Group, char const * szBetween)
{
    constexpr std::size_t DAY_SIZE = 10;   // characters of the day in a crash's time, "2026-11-26"
    std::string const sFirst = Group.sFirst.substr(0, DAY_SIZE), sLast = Group.sLast.substr(0, DAY_SIZE);
    return sFirst + (sFirst == sLast ? "" : szBetween + sLast);
}

void CrashFold_c::Add(Crash_t Crash)
{
    std::string sSignature = CrashSignature(Crash);
    CrashGroup_t & Group = m_dGroups[sSignature];
    Group.sSignature = std::move(sSignature);
    std::string const & sTime = Crash.sTime;
    if (!sTime.empty())
    {
        Group.sFirst = Group.sFirst.empty() ? sTime : std::min(Group.sFirst, sTime);
        Group.sLast = std::max(Group.sLast, sTime);
    }
    if (std::string_view const sVersion = Crash.GetFact("host"); !sVersion.empty())
    {
        ++Group.dVersions[std::string(sVersion)];
    }
    auto const Rank = [](Crash_t const & Ranked) { return std::tie(Ranked.bDetails, Ranked.sTime, Ranked.sFile); };
    if (Group.nCount++ == 0 || Rank(Group.Sample) < Rank(Crash))
    {
        Group.Sample = std::move(Crash);
    }
}

std::vector<CrashGroup_t> CrashFold_c::Extract()
{
    std::vector<CrashGroup_t> dGroups;
    for (auto & [sSignature, Group] : m_dGroups)
    {
        dGroups.push_back(std::move(Group));
    }
    m_dGroups.clear();
    std::sort(dGroups.begin(), dGroups.end(),
        [](CrashGroup_t const & Left, CrashGroup_t const & Right)
        {
            return std::tie(Left.nCount, Left.sLast, Right.sSignature)
                   > std::tie(Right.nCount, Right.sLast, Left.sSignature);   // signatures ascend
        });
    return dGroups;
}
