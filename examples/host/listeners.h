// listeners.h: what the host hears from the log and from complaints while it runs.
#pragma once

#include "zqcore/cstring.h"

/// The first few texts of a kind, and how many there were.
struct Heard_s
{
    static constexpr int KEPT = 5;

    void Add(char const * szText);
    int GetKept() const { return nHeard < KEPT ? nHeard : KEPT; }

    int nHeard = 0;
    String_T<256> dTexts[KEPT];
};

struct Notes_s
{
    Heard_s Dropped;      // locations of files whose name was taken already
    Heard_s Kept;         // and of the files that have the name
    Heard_s PassedOver;   // what the scan left out
    Heard_s Complaints;   // warnings and worse
};

/// Starts to listen. The lists that the library keeps its listeners in are emptied by AppMiscShutdown.
void ListenersAdd();

/// What was heard so far, on all threads.
Notes_s ListenersGetNotes();
