// crashjson.h: crashes and groups of them as JSON, which docs/formats.md describes.
#pragma once

#include "tools/zqtool/crashfold.h"
#include "tools/zqtool/crashreport.h"

/// Return one object in one line, without a line end. It is ASCII, whatever the crash holds.
std::string CrashJson(Crash_t const & Crash);
std::string CrashGroupJson(CrashGroup_t const & Group);
