// watch.h: files that change while the host runs.
//
// A watch reports each known file that is rewritten. For a table it reports the rows that changed. The world then
// continues with the new numbers.
#pragma once

#include <string>

class Survey_c;

/// A watch on the media root from its construction on. Requires that no other watch exists.
class Watch_c
{
public:
    /// Stores the rows of the survey's tables. Handles the signals that ask a program to end: SIGINT, SIGTERM, and
    /// SIGHUP unless it is ignored. A second SIGINT or SIGTERM ends the host at once. On failure GetWhyNot returns the
    /// reason.
    Watch_c(std::string const & sMedia, Survey_c const & Survey);

    /// Ends the watch. Restores the system's handling of SIGINT and SIGTERM.
    ~Watch_c();
    Watch_c(Watch_c const &) = delete;
    Watch_c & operator=(Watch_c const &) = delete;

    /// Prints what is not watched (FileTrackGetProblem) if that has changed since the last call and a watch is on.
    /// Returns whether the host was asked to end.
    static bool CheckForEnd();

    /// Returns whether a watch has received SIGHUP, as when its terminal is closed.
    static bool IsHungUp();

    /// Returns why nothing is watched, with the remedy if there is one, or an empty text if the watch began.
    static std::string GetWhyNot();
};
