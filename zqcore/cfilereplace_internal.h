// cfilereplace_internal.h: shared parts of the sources that replace files. No public header includes it.
#pragma once

#include "zqcore/cfilereplace.h"

/// Prefix of the name of the lock on a save.
inline constexpr char SAVE_LOCK_PREFIX[] = "~zqlock-";

/// Returns the calling thread's last system error as a text without a line end.
FileReplacement_c::Reason_t LastErrorReason();

/// Returns the path of a file in the folder of sFile: szPrefix and the bare name of sFile, cut to fit.
String_T<272> NameBeside(String_T<256> const & sFile, char const * szPrefix);
