#include "tools/zqsymbols/sourcetext.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zqsymbols
{
    namespace
    {
        constexpr off_t LARGEST = 16 << 20;   // bytes of a source that is read

        // Returns the contents of a regular file of at most LARGEST bytes, or an empty text.
        std::string ReadAll(char const * szFile)
        {
            std::string sText;
            int const hFile = open(szFile, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
            struct stat Stat;
            if (hFile >= 0 && fstat(hFile, &Stat) == 0 && S_ISREG(Stat.st_mode) && Stat.st_size <= LARGEST)
            {
                sText.resize(static_cast<std::size_t>(Stat.st_size));
                ssize_t const nRead = read(hFile, sText.data(), sText.size());
                sText.resize(nRead > 0 ? static_cast<std::size_t>(nRead) : 0);
            }
            if (hFile >= 0)
            {
                close(hFile);
            }
            return sText;
        }

        // Returns the lines of a text without their ends.
        std::vector<std::string> Lines(std::string const & sText)
        {
            std::vector<std::string> dLines;
            for (std::size_t nFrom = 0; nFrom < sText.size();)
            {
                std::size_t const nEnd = std::min(sText.find('\n', nFrom), sText.size());
                bool const bReturn = nEnd > nFrom && sText[nEnd - 1] == '\r';
                dLines.push_back(sText.substr(nFrom, nEnd - nFrom - (bReturn ? 1 : 0)));
                nFrom = nEnd + 1;
            }
            return dLines;
        }
    }

    std::string const * SourceText_c::GetLine(std::string const & sFile, unsigned iLine)
    {
        auto const [itFile, bNew] = m_dFiles.try_emplace(sFile);
        if (bNew)
        {
            itFile->second = Lines(ReadAll(sFile.c_str()));
        }
        return iLine >= 1 && iLine <= itFile->second.size() ? &itFile->second[iLine - 1] : nullptr;
    }
}
