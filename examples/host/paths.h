// paths.h: paths as the library reads them.
#pragma once

#include <string>

/// Returns a path as wide text, in any locale. Throws std::exception if a name in it is not UTF-8.
std::wstring WideFromPath(std::string const & sPath);
