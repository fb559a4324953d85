// crashprint.h: crashes and groups of them as text for people.
#pragma once

#include "tools/zqtool/crashfold.h"
#include "tools/zqtool/crashreport.h"

/// Returns a crash as text: what happened, the likely frame, the stack, the rest of the report. bColours adds a
/// terminal's escape sequences.
std::string CrashText(Crash_t const & Crash, bool bColours);

/// Returns groups of crashes as text, a few lines each. bColours is as in CrashText.
std::string CrashGroupsText(std::vector<CrashGroup_t> const & dGroups, bool bColours);
