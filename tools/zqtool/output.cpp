#include "tools/zqtool/output.h"

#include "tools/zqtool/input.h"

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
            PrintProblem(m_sFile, "this is the file to read");
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
        PrintProblem(m_sFile, OUTPUT_UNWRITABLE);
    }
    return static_cast<bool>(m_Stream);
}
