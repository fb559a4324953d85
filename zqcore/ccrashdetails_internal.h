// ccrashdetails_internal.h: the names of a crash report's files and the words of its details (docs/formats.md).
#pragma once

/// Parts of the names of a report's files: STEM.rpt, and STEM_details.txt or, if that name is taken,
/// STEM_details_0123abcd.txt. STEM begins with CrashReport_.
inline constexpr char CRASH_REPORT_START[] = "CrashReport_", CRASH_REPORT_END[] = ".rpt";
inline constexpr char CRASH_DETAILS_NAME[] = "_details", CRASH_DETAILS_END[] = ".txt";

/// Mark of a call that the compiler has inlined, the form of a blank in the name of a module, and the start of a line
/// about a part that is missing. Such a line ends with a bracket.
inline constexpr char CRASH_INLINED[] = " [inlined]", CRASH_BLANK[] = "\\x20", CRASH_CUT[] = "(cut: ";

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
