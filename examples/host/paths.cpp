#include "paths.h"

#include "zqcore/cstring.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

std::wstring WideFromPath(std::string const & sPath)
{
    std::filesystem::path const Path = sPath;
    if constexpr (sizeof(wchar_t) == sizeof(char32_t))
    {
        std::u32string const sWide = Path.u32string();   // libstdc++'s wstring() refuses names beyond ASCII
        return { sWide.begin(), sWide.end() };
    }
    else
    {
        return Path.wstring();
    }
}

std::string ComparedPath(std::string const & sPath)
{
    std::string sCompared = sPath;
    std::replace(sCompared.begin(), sCompared.end(), '\\', '/');
    std::error_code Error;
    std::filesystem::path const Resolved = std::filesystem::weakly_canonical(sCompared, Error);
    sCompared = Error ? sCompared : Resolved.generic_string();
    StrToLower(sCompared.data());
    return sCompared;
}

bool IsSameFile(std::string const & sPathA, std::string const & sPathB)
{
    std::error_code Error;
    return ComparedPath(sPathA) == ComparedPath(sPathB) || std::filesystem::equivalent(sPathA, sPathB, Error);
}
