// crashcause.h: what a crash is about: its kind, the frame that a developer looks at first, one line, a signature.
#pragma once

#include "tools/zqtool/crashreport.h"

/// Index of the modules of a crash.
class CrashModules_c
{
public:
    /// Sorts the modules. Requires that Crash outlives the object and that its modules do not change.
    explicit CrashModules_c(Crash_t const & Crash);

    /// Returns the module of a frame by its file name, or null. If several share the name, returns the one that starts
    /// Frame.nOffset below the frame's address, or else the one with the lowest start.
    CrashModule_t const * Find(CrashFrame_t const & Frame) const;

private:
    std::vector<CrashModule_t const *> m_dModules;   // sorted by file name, then by start
};

/// Returns the kind of fault of an exception code, "unknown" for any other code.
char const * CrashKindOf(std::uint32_t nCode);

/// Returns whether a frame is the host's own code: its function or its module is known, and it belongs neither to this
/// library nor to the system.
bool IsOwnFrame(CrashFrame_t const & Frame);

/// Returns the frame of a stack at which a developer looks first, or null if there are no frames:
/// - the first that is the host's own code
/// - if there is none, the first whose function has a name
/// - if there is none either, the first
CrashFrame_t const * LikelyFrame(std::vector<CrashFrame_t> const & dFrames);

/// Returns a frame's function, or else its place in the module or its address.
std::string CrashFrameName(CrashFrame_t const & Frame);

/// Returns the place of a stack in one line: the likely frame, after the innermost function if that belongs to another
/// frame and has a name. Returns an empty text if there are no frames.
std::string CrashPlace(std::vector<CrashFrame_t> const & dFrames);

/// Returns what happened, where and on which thread, in one line. Leaves out a place or thread that is unknown.
std::string CrashHeadline(Crash_t const & Crash);

/// Returns what crashes of the same cause have in common, without the address of a frame:
/// - the kind
/// - the type of an exception, or the module of a fault that is neither an abort nor a complaint of the library
/// - up to three functions of the host, or of all frames if none is the host's
///
/// The innermost function is first, but after a stack overflow they are sorted. A frame without a function counts by
/// its place in its module.
std::string CrashSignature(Crash_t const & Crash);
