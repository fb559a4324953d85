// cserialize_internal.h: the two halves of an archive's version, and which versions a program reads.
#pragma once

#include <cstdint>

/// Return the major number, in the high 16 bits of a version, and the minor one, in the low 16 bits.
inline int VersionMajor(std::uint32_t dwVersion)
{
    return static_cast<int>(dwVersion >> 16);
}

inline int VersionMinor(std::uint32_t dwVersion)
{
    return static_cast<int>(dwVersion & 0xFFFF);
}

/// Returns whether a program whose newest version is dwKnown reads an archive of version dwFile.
inline bool VersionIsReadable(std::uint32_t dwFile, std::uint32_t dwKnown)
{
    return VersionMajor(dwFile) == VersionMajor(dwKnown) && VersionMinor(dwFile) <= VersionMinor(dwKnown);
}
