#include "tools/zqtool/output.h"

#include "tools/zqtool/input.h"

#include <filesystem>

namespace fs = std::filesystem;

OutputFile_c::~OutputFile_c()
{
    if (!m_sPart.empty())
    {
        m_Stream.close();
        std::error_code Ignored;
        fs::remove(m_sPart, Ignored);
    }
}

bool OutputFile_c::Open(std::string const & sFile, std::vector<std::string> const & dInputs)
{
    m_sFile = sFile;
    if (m_sFile.empty())
    {
        return true;
    }
    std::error_code Ignored;
    for (std::string const & sInput : dInputs)
    {
        if (fs::equivalent(m_sFile, sInput, Ignored))
        {
            PrintProblem(m_sFile, "this is the file to read");
            return false;
        }
    }
    fs::file_status const Status = fs::status(m_sFile, Ignored);
    if (Status.type() == fs::file_type::not_found || Status.type() == fs::file_type::regular)
    {
        fs::path const Target = fs::canonical(m_sFile, Ignored);   // a link stays one
        m_sPart = (Target.empty() ? m_sFile : Target.string()) + ".part";
        m_Stream.open(m_sPart, std::ios::binary);
    }
    if (!m_Stream.is_open())
    {
        m_sPart.clear();
        m_Stream.open(m_sFile, std::ios::binary);
    }
    return m_Stream.is_open() || Fail();
}

bool OutputFile_c::Close()
{
    if (m_sFile.empty())
    {
        return true;
    }
    m_Stream.close();
    if (!m_Stream)
    {
        return Fail();
    }
    if (m_sPart.empty())
    {
        return true;
    }
    std::error_code Error;
    fs::path const Target = fs::canonical(m_sFile, Error);
    if (!Target.empty())
    {
        fs::permissions(m_sPart, fs::status(Target, Error).permissions(), Error);
    }
    fs::rename(m_sPart, Target.empty() ? fs::path(m_sFile) : Target, Error);
    if (Error)
    {
        return Fail();
    }
    m_sPart.clear();
    return true;
}

bool OutputFile_c::Fail()
{
    PrintProblem(m_sFile, OUTPUT_UNWRITABLE);
    return false;
}
