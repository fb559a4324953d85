// ccrashdetails_internal.h: the words of the details of a crash (docs/formats.md), for the report and the tools.
#pragma once

/// Words of the first line.
inline constexpr char CRASH_DETAILS_TITLE[] = "ZQCore crash details ";
inline constexpr char CRASH_DETAILS_VERSION[] = "1";

/// Sections in their order.
enum class CrashSection_e
{
    None,   // before the first section
    Fault,
    Frames,
    Threads,
    Modules,
    Process,
    Unknown   // not a section of this version
};

/// Lines that begin the sections, by CrashSection_e up to Process.
inline constexpr char const * CRASH_SECTIONS[] = { "", "[Fault]", "[Frames]", "[Threads]", "[Modules]", "[Process]" };
