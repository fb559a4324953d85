// sourcetext.h: lines of source files, whichever of LF and CR LF ends them.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace zqsymbols
{
    /// Source files, each read once.
    class SourceText_c
    {
    public:
        /// Returns a line, counted from 1, without its end. Reads only regular files of at most 16 MiB. Returns null if
        /// the file can't be read or has no such line. The line is valid as long as the object.
        std::string const * GetLine(std::string const & sFile, unsigned iLine);

    private:
        std::map<std::string, std::vector<std::string>> m_dFiles;   // lines by path
    };
}
