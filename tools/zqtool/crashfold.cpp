#include "tools/zqtool/crashfold.h"

#include "tools/zqtool/crashcause.h"

#include <algorithm>
#include <tuple>

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
    auto const Rank = [](Crash_t const & Of) { return std::tie(Of.bDetails, Of.sTime, Of.sFile); };
    if (Group.nCount++ == 0 || Rank(Group.Sample) < Rank(Crash))
    {
        Group.Sample = std::move(Crash);
    }
}

std::vector<CrashGroup_t> CrashFold_c::Take()
{
    std::vector<CrashGroup_t> dGroups;
    for (auto & [sSignature, Group] : m_dGroups)
    {
        dGroups.push_back(std::move(Group));
    }
    m_dGroups.clear();
    std::sort(dGroups.begin(), dGroups.end(),
        [](CrashGroup_t const & A, CrashGroup_t const & B)
        { return std::tie(A.nCount, A.sLast, B.sSignature) > std::tie(B.nCount, B.sLast, A.sSignature); });
    return dGroups;
}
