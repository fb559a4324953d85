// crashsymbols.h: names for the addresses of stripped programs, from files with debug information of the same build.
//
// A module's build-id finds its file.
#pragma once

#include "tools/zqtool/crashreport.h"

#include <memory>

/// Files with debug information, and what was read from them.
class CrashSymbols_c
{
public:
    /// Searches folders, at any depth, for files with a build-id. Passes a text to fnComplain for each folder that it
    /// can't read to its end. Does not search the rest of that folder.
    explicit CrashSymbols_c(
        std::vector<std::string> const & dFolders, std::function<void(std::string const &)> const & fnComplain);
    ~CrashSymbols_c();
    CrashSymbols_c(CrashSymbols_c const &) = delete;
    CrashSymbols_c & operator=(CrashSymbols_c const &) = delete;

    /// Returns whether this build can read debug information. If not, the other functions do nothing.
    static bool CanRead();

    /// Names the frames without a source line that are not inlined, in all threads, and adds the calls that are inlined
    /// there. Numbers the frames anew. Does not name a frame if the stack up to it would then have more than
    /// CRASH_MAX_MEMBERS frames (crashlines.h).
    void Name(Crash_t & Crash);

    /// Returns the host's own modules whose names were wanted and whose files were not found: path and build-id.
    std::vector<std::string> GetMissing() const;

private:
    struct State_s;

    std::unique_ptr<State_s> m_pState;
};
