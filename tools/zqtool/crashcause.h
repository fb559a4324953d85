// crashcause.h: what a crash is about: its kind, the frame that a developer looks at first, one line, a signature.
#pragma once

#include "tools/zqtool/crashreport.h"

/// Returns the kind of fault of an exception code.
char const * CrashKindOf(std::uint32_t nCode);

/// The modules of a crash, which must outlive the object and not change.
class CrashModules_c
{
public:
    explicit CrashModules_c(Crash_t const & Crash);

    /// Returns the module of a frame, or null. Of several with its name the one with the right start counts first.
    CrashModule_t const * Find(CrashFrame_t const & Frame) const;

private:
    std::vector<CrashModule_t const *> m_dModules;   // sorted by file name, then by start
};

/// Returns whether a frame is the host's own code: neither of this library nor of the system.
bool IsOwnFrame(CrashFrame_t const & Frame);

/// Returns the first frame of a stack that is the host's own; without one the first that has a name; without that the
/// first. Null without frames.
CrashFrame_t const * LikelyFrame(std::vector<CrashFrame_t> const & dFrames);

/// Returns a frame's function, or else its place in the module or its address.
std::string CrashFrameName(CrashFrame_t const & Frame);

/// Returns where a stack is, in one line: its innermost function and the likely frame. Empty without frames.
std::string CrashPlace(std::vector<CrashFrame_t> const & dFrames);

/// Returns what happened, in one line.
std::string CrashHeadline(Crash_t const & Crash);

/// Returns what crashes of the same cause have in common: the kind, the module or an exception's type, and up to three
/// functions of the host, the innermost first. Holds no address; a frame without a name counts by its place in its
/// module.
std::string CrashSignature(Crash_t const & Crash);
