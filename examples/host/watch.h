// watch.h: files that change while the host runs.
//
// A watch tells of each known file that somebody rewrites. Of a table it says which rows are other ones than before,
// and the world goes on with the new numbers.
#pragma once

class Survey_c;

#include <string>

/// Watches the media root from its construction on. One at a time.
class Watch_c
{
public:
    /// Remembers the rows of the survey's tables, and listens for the signals that ask a program to end: SIGINT, SIGTERM
    /// and, unless it is ignored, SIGHUP.
    Watch_c(std::string const & sMedia, Survey_c const & Survey);
    ~Watch_c();
    Watch_c(Watch_c const &) = delete;
    Watch_c & operator=(Watch_c const &) = delete;

    /// Whether the host was asked to end. A second SIGINT or SIGTERM ends it at once. Prints once what can't be watched
    /// of folders that appeared.
    static bool IsOver();

    /// Whether the terminal of a watch was closed: nobody reads what is printed.
    static bool IsHungUp();

    /// Why nothing is watched, with the remedy where there is one; empty if the media are watched.
    static std::string GetWhyNot();
};
