#include "paths.h"

#include <filesystem>

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
