// options.h: the command line of the host.
#pragma once

#include <string>

inline constexpr char const * LOG_NAME = "message.log";   // main log in the log folder

/// Exit statuses of the host.
enum Status_e : int
{
    STATUS_OK = 0,
    STATUS_FAILED = 1,    // the library ended a silent run: a broken precondition or a crash
    STATUS_USAGE = 2,     // the command line makes no sense
    STATUS_MEDIA = 3,     // no media, not the requested ones, or unreadable or faulty ones
    STATUS_SAVE = 4,      // the world could not be loaded or saved
    STATUS_STATS = 5,     // the profiler's file could not be written
    STATUS_SERVICE = 6,   // a service did not start
    STATUS_WATCH = 7,     // the media can't be watched
    STATUS_OUTPUT = 8,    // standard output did not accept all of the report
    STATUS_MEMORY = 9     // the live memory could not be listed
};

/// The command line. Paths are absolute. Only `/` ends in a separator.
struct Options_s
{
    std::string sMedia;          // empty: the library discovers the media
    std::string sConfig;         // empty: no configuration
    std::string sGame = "pqx";   // folder of gamedata, a bare name in lower case
    bool bGameGiven = false;     // whether the command line names the game
    std::string sLogFolder;      // default: "logs" in the caller's current folder
    std::string sSave;           // a file; default: sGame and ".sav" in the log folder
    std::string sStats;          // the profiler's file; empty: none
    std::string sCacheFile;      // of the file system cache; empty: in the media root
    int nFrames = 480;           // from 0 to 1,000,000; bWatch ignores it
    bool bNew = false;           // whether to start a new world even if there is a save
    bool bCache = false;         // whether to start from the file system cache
    bool bWatch = false;         // whether to run until interrupted, and follow changes of the media
    bool bAllocations = false;   // whether to list the live memory after the last frame
    bool bSilent = false;
    bool bHelp = false;
};

/// Reads the command line, makes its paths absolute and returns true. With --help sets the flags only. Requires that
/// the current folder is still the caller's. Returns false, with a message, if the command line makes no sense.
bool OptionsRead(int nArguments, char ** dArguments, Options_s & Options, std::string & sMessage);

/// Returns what --help prints: the purpose of the program, its options with their defaults, and the exit statuses.
std::string OptionsHelp();
