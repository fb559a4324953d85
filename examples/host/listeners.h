// listeners.h: what the host learns from the log and from complaints while it runs.
#pragma once

#include "zqcore/cstring.h"

/// The first few texts of a kind, and the number of all.
struct Heard_s
{
    static constexpr int KEPT = 5;

    void Add(char const * szText);
    int GetKept() const { return nHeard < KEPT ? nHeard : KEPT; }

    int nHeard = 0;
    String_T<256> dTexts[KEPT];
};

/// What was heard, by its kind.
struct Notes_s
{
    Heard_s Dropped;      // locations of files whose name was in use already
    Heard_s Kept;         // locations of the files that have the name
    Heard_s Skipped;      // what the scan skipped
    Heard_s Complaints;   // warnings and worse
};

/// Starts to listen. AppMiscShutdown empties the library's lists of listeners.
void ListenersAdd();

/// Returns what was heard so far, on all threads.
Notes_s ListenersGetNotes();
