#include "tools/zqtool/output.h"

#include "tools/zqtool/text.h"

#include <cstdio>
#include <filesystem>

bool OutputFile_c::Open(std::string const & sFile, std::vector<std::string> const & dInputs)
{
    m_sFile = sFile;
    if (m_sFile.empty())
    {
        return true;
    }
    for (std::string const & sInput : dInputs)
    {
        std::error_code Ignored;
        if (std::filesystem::equivalent(m_sFile, sInput, Ignored))
        {
            std::fprintf(stderr, "zqtool: %s is the file to read\n", Printable(m_sFile).c_str());
            return false;
        }
    }
    m_Stream.open(m_sFile, std::ios::binary);
    return Check();
}

bool OutputFile_c::Close()
{
    if (m_sFile.empty())
    {
        return true;
    }
    m_Stream.close();
    return Check();
}

bool OutputFile_c::Check() const
{
    if (!m_Stream)
    {
        std::fprintf(stderr, "zqtool: can't write %s\n", Printable(m_sFile).c_str());
    }
    return static_cast<bool>(m_Stream);
}
