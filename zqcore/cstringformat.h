// cstringformat.h: String_T as an argument of std::format.
//
// Every format of a std::string_view is valid: width, fill, alignment, precision. If the standard library has no
// std::format, the header defines nothing. Streams need no header: `<<` writes a String_T as it writes a C text.
//
// Ownership: nothing is owned.
// Threads: any thread.
// Cost: that of formatting a std::string_view.
// Failure: std::format with an invalid format does not compile. std::vformat throws std::format_error.
//
//     String_T<16> const sName("Ogre");
//     #ifdef __cpp_lib_format
//     Log("%s", std::format("{:>8}", sName));
//     #endif
#pragma once

#include "zqcore/cstring.h"

#include <version>

#ifdef __cpp_lib_format
    #include <format>

/// Formatter of a String_T, which is that of a std::string_view.
template <int N>
struct std::formatter<String_T<N>, char> : std::formatter<std::string_view, char>
{
    template <typename CONTEXT>
    auto format(String_T<N> const & sText, CONTEXT & Context) const
    {
        return std::formatter<std::string_view, char>::format(std::string_view(sText), Context);
    }
};
#endif
