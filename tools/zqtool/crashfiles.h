// crashfiles.h: finds and loads crash reports with the details beside them.
#pragma once

#include "tools/zqtool/crashreport.h"

/// Function that receives one line for each of these:
/// - a file that is damaged or foreign
/// - a file that can't be read, or a named folder that can't be read to its end
/// - a file of more than 16 MiB, of which the rest is not read
/// - a named folder without reports and details
using CrashFileComplain_t = std::function<void(std::string const & sText)>;

/// Returns the files that arguments name. Returns the files of a stem once, even if two arguments name it. An argument
/// is one of these:
/// - A report or its details. The regular files of the same stem beside it come with it.
/// - A folder with reports at any depth. Details in it count only if their names begin with "CrashReport_".
/// - A file whose name has another ending. It counts as a report, alone.
std::vector<CrashFiles_t> FindCrashFiles(
    std::vector<std::string> const & dNames, CrashFileComplain_t const & fnComplain);

/// Reads the files of one stem and returns their crashes, as far as they are readable. Reports at most one complaint
/// for each file.
std::vector<Crash_t> LoadCrashes(
    CrashFiles_t const & Files, CrashExtent_e eExtent, CrashFileComplain_t const & fnComplain);

/// Reads all of a crash that LoadCrashes returned. Leaves it unchanged if its files hold no crash of its number.
/// Reports no complaints.
void ReloadCrash(Crash_t & Crash);
