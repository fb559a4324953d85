// crashjson.h: crashes and groups of them as JSON, which docs/formats.md describes.
#pragma once

#include "tools/zqtool/crashfold.h"
#include "tools/zqtool/crashreport.h"

/// Return a crash, or a group of crashes, as one object in one line of ASCII, without a line end.
std::string CrashJson(Crash_t const & Crash);
std::string CrashGroupJson(CrashGroup_t const & Group);
