// crashfiles.h: finds and loads crash reports with the details beside them.
#pragma once

#include "tools/zqtool/crashreport.h"

/// Function that receives one line for each of these:
/// - file that is damaged or foreign
/// - named file or folder that is not readable
/// - file of more than 16 MiB, of which the rest is not read
/// - folder without reports and details
using CrashFault_t = std::function<void(std::string const & sText)>;

/// Returns the files that arguments name: a report, or its details, or a folder with reports at any depth. A file whose
/// name has another ending counts as a report, alone. Others come with the regular files of the same stem beside them;
/// in a folder only details whose names begin with "CrashReport_" count. Returns a stem once, even if two arguments name it.
std::vector<CrashFiles_t> FindCrashFiles(std::vector<std::string> const & dNames, CrashFault_t const & fnFault);

/// Reads the files of one stem and returns their crashes, as far as they are readable. Reports at most one fault for
/// each file.
std::vector<Crash_t> LoadCrashes(CrashFiles_t const & Files, CrashExtent_e eExtent, CrashFault_t const & fnFault);

/// Reads all of a crash that LoadCrashes returned. Leaves it unchanged if its files no longer hold a crash of its
/// number. Reports no faults.
void ReloadCrash(Crash_t & Crash);
