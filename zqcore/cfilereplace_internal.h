// cfilereplace_internal.h: what the sources of files that are replaced share. Nothing public includes it.
#pragma once

#include "zqcore/cfilereplace.h"

/// What begins the name of the lock on a save.
inline constexpr char SAVE_LOCK_PREFIX[] = "~zqlock-";

/// The calling thread's last system error as a text without a line end.
FileReplacement_c::Reason_t LastErrorReason();

/// The path of a file in the folder of another one, whose bare name is cut to fit after szPrefix.
String_T<272> NameBeside(String_T<256> const & sFile, char const * szPrefix);
