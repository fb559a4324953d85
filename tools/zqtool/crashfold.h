// crashfold.h: any number of crashes as a list of causes.
#pragma once

#include "tools/zqtool/crashreport.h"

#include <map>
#include <unordered_map>

/// Orders texts with numbers in them: "v2.9" is before "v2.10".
struct VersionLess_t
{
    bool operator()(std::string_view sA, std::string_view sB) const;
};

/// Crashes with the same signature.
struct CrashGroup_t
{
    std::string sSignature;
    std::size_t nCount = 0;
    std::string sFirst, sLast;                                     // times; empty if none is known
    std::map<std::string, std::size_t, VersionLess_t> dVersions;   // of the host, with their crashes
    Crash_t Sample;                                                // the latest with details, or else the latest
};

class CrashFold_c
{
public:
    void Add(Crash_t Crash);

    /// Returns the groups, largest first, of equal ones the one with the latest crash first.
    std::vector<CrashGroup_t> Take();

private:
    std::unordered_map<std::string, CrashGroup_t> m_dGroups;
};
