// crashfold.h: any number of crashes as a list of causes.
#pragma once

#include "tools/zqtool/crashreport.h"

#include <map>
#include <unordered_map>

/// Order of texts with numbers in them: "v2.9" is before "v2.10".
struct VersionLess_c
{
    /// Returns whether sA is before sB.
    bool operator()(std::string_view sA, std::string_view sB) const;
};

/// Crashes with the same signature.
struct CrashGroup_t
{
    std::string sSignature;
    std::size_t nCount = 0;
    std::string sFirst, sLast;                                     // local times; empty if none is known
    std::map<std::string, std::size_t, VersionLess_c> dVersions;   // of the host, with the number of crashes
    Crash_t Sample;                                                // the latest with details, or else the latest
};

/// Returns the number of the crashes in all groups, as "1 crash" or "3 crashes".
std::string CrashCountText(std::vector<CrashGroup_t> const & dGroups);

/// Returns the days of the first and the last crash of a group, with szBetween between them if they differ. Returns an
/// empty text if none is known.
std::string CrashDays(CrashGroup_t const & Group, char const * szBetween);

/// Groups of crashes by their signatures.
class CrashFold_c
{
public:
    /// Adds a crash to the group of its signature.
    void Add(Crash_t Crash);

    /// Removes and returns the groups, the largest first. If two have the same size, the one whose last crash is later
    /// is first. If these times are equal too, the groups are in the order of their signatures.
    std::vector<CrashGroup_t> Extract();

private:
    std::unordered_map<std::string, CrashGroup_t> m_dGroups;
};
