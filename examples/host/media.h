// media.h: which media the host runs over, and where the tables of files come from.
#pragma once

#include <string>

struct Options_s;

/// Finds whether the tree has the game's folder, for MediaSet and MediaCheckChoice. Returns why the host can't use a
/// media root, or an empty text if it can. Refuses a root of more than 254 characters, and a save, or stats, that would
/// replace the root's cache.
std::string MediaCheck(Options_s const & Options, std::string const & sMedia);

/// Makes the settings that ModuleFile_c reads when it starts. Requires a root that MediaCheck accepted, and that the
/// modules are not initialised yet.
void MediaSet(Options_s const & Options, std::string const & sMedia);

/// Checks the command line against the media. If --cache-file does not fit, stops the shutdown from writing a cache to
/// it. Returns which part does not fit, or an empty text. Requires that the modules are initialised.
std::string MediaCheckChoice(Options_s const & Options, std::string const & sMedia);

/// Writes a cache if --cache is set and a scan saw everything. Returns a description of where the tables of files came
/// from. Requires that the modules are initialised.
std::string MediaDescribeSource(Options_s const & Options, std::string const & sMedia);
