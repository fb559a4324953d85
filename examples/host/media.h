// media.h: which media the host runs over, and where the tables of files come from.
#pragma once

#include <string>

struct Options_s;

/// Says what is wrong with a media root; nothing if it can be read.
std::string MediaCheck(std::string const & sMedia);

/// The settings that ModuleFile_c reads when it comes up.
void MediaSet(Options_s const & Options, std::string const & sMedia);

/// With the modules up: says what of the command line does not go with the media; nothing if all does.
std::string MediaCheckChoice(Options_s const & Options, std::string const & sMedia);

/// With the modules up: where the tables came from, in words. With --cache, a run that had to scan leaves a cache.
std::string MediaTellSource(Options_s const & Options, std::string const & sMedia);
