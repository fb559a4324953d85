// paths.h: paths as the library reads them.
#pragma once

#include <string>

/// Returns a path as wide text, in any locale. Throws std::exception if a name in it is not UTF-8.
std::wstring WideFromPath(std::string const & sPath);

/// Returns a path without links, in lower case and with `/`. Two paths by which the library finds the same file have
/// the same result: it ignores case, and `\` separates too. The path need not exist. Requires an absolute path.
std::string ComparedPath(std::string const & sPath);

/// Returns whether two paths name one file, or would once it is written. Requires absolute paths.
bool IsSameFile(std::string const & sPathA, std::string const & sPathB);
