// cfilesave_internal.h: the check of a save whose bytes are in memory. No public header includes it.
#pragma once

#include "zqcore/cfilesave.h"

/// Bytes of a seal, the last ones of a save.
inline constexpr std::size_t SAVE_SEAL_SIZE = 16;

/// Offset in a seal of its version, one character. The bytes before it are the same in all versions.
inline constexpr std::size_t SAVE_SEAL_VERSION_AT = 3;

/// Result of a check.
struct SaveCheck_t
{
    FileSave_c::State_e eState = FileSave_c::WHOLE;
    bool bMark = false;                    // whether the bytes have the mark of a seal
    bool bChecksum = false;                // whether the last 4 bytes are the CRC-32 of all before, at least 4 bytes
    FileReplacement_c::Reason_t sWhyNot;   // why the save is not whole; empty if it is
};

/// Returns the state of a save, as FileSave_c::Load does. A damaged save may have a mark, a mark and a checksum, or
/// neither.
SaveCheck_t SaveCheck(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwVersion);
