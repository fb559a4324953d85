// paths.h: paths as the library reads them.
#pragma once

#include <string>

/// Returns a path as wide text, in any locale. Throws std::exception if a name in it is not UTF-8.
std::wstring WideFromPath(std::string const & sPath);

/// Returns a path in lower case and with `/`, because the library ignores case, and `\` separates too. Resolves links
/// that have the path's own spelling. Requires an absolute path, which need not exist. On failure keeps the links.
std::string ComparedPath(std::string const & sPath);

/// Returns whether two paths name one file, or have the same ComparedPath. Requires absolute paths.
bool IsSameFile(std::string const & sPathA, std::string const & sPathB);
