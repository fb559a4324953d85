// listeners.h: what the host learns from the log and from complaints while it runs.
#pragma once

#include "zqcore/cstring.h"

/// The first few texts of a kind, and the number of all.
struct Heard_s
{
    static constexpr int MAX_TEXTS = 5;   // that are stored

    /// Counts a text. Stores it, cut at 255 bytes, if it is one of the first MAX_TEXTS.
    void Add(char const * szText);

    /// Returns the number of stored texts.
    int GetStored() const { return nHeard < MAX_TEXTS ? nHeard : MAX_TEXTS; }

    int nHeard = 0;                    // texts counted, also those not stored
    String_T<256> dTexts[MAX_TEXTS];   // oldest first
};

/// Texts that were heard, by their kind.
struct Notes_s
{
    Heard_s Dropped;      // locations of files whose name was in use already
    Heard_s Kept;         // locations of the files that have the name
    Heard_s Skipped;      // remarks of the scan and its cache, such as what was skipped
    Heard_s Complaints;   // texts of Warning and Achtung
};

/// Starts to listen. AppMiscShutdown ends that, because it empties the library's lists of listeners and receivers.
void ListenersAdd();

/// Returns what was heard so far, on all threads.
Notes_s ListenersGetNotes();
