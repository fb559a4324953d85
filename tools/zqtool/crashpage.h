// crashpage.h: groups of crashes as one HTML page that loads nothing.
#pragma once

#include "tools/zqtool/crashfold.h"

#include <iosfwd>

/// Writes the page. Only the first 500 groups show their samples. dComplaints says what could not be read. The page
/// shows only the first 50 texts of dComplaints. Requires the groups as CrashFold_c::Extract returns them, the largest
/// first.
void WriteCrashPage(
    std::ostream & Stream, std::vector<CrashGroup_t> const & dGroups, std::vector<std::string> const & dComplaints);
