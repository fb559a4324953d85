// cfilereplace_internal.h: names beside a file that is replaced, and the reason of a failed call.
#pragma once

#include "zqcore/cfilereplace.h"

/// Prefix of a save's second name during a commit. It has the form of the prefix of a file beside (cfilereplace.h),
/// with number 0.
inline constexpr char SECOND_NAME_PREFIX[] = "~zq00000000-";

/// Prefix of the name of the lock on a save.
inline constexpr char SAVE_LOCK_PREFIX[] = "~zqlock-";

/// Returns the calling thread's last system error as a text without a line end.
FileReplacement_c::Reason_t LastErrorReason();

/// Returns the path of a file in the folder of sFile: szPrefix and the bare name of sFile. The bare name is cut so
/// that it has at most 255 bytes with a prefix as long as SECOND_NAME_PREFIX.
FileReplacement_c::Beside_t NameBeside(String_T<256> const & sFile, char const * szPrefix);
