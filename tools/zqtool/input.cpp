#include "tools/zqtool/input.h"

#include "tools/zqtool/text.h"
#include "zqcore/cfile_internal.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

std::string CheckInput(std::string const & sFile)
{
    std::error_code Ignored;
    std::filesystem::file_status const Status = std::filesystem::status(sFile, Ignored);
    switch (Status.type())
    {
    case std::filesystem::file_type::regular:
        return "";
    case std::filesystem::file_type::not_found:
        return "there is no such file";
    case std::filesystem::file_type::none:   // such as for a folder on the way that may not be searched
        return FILE_UNREADABLE;
    default:
        return "this is no regular file";
    }
}

std::string OpenInput(std::string const & sFile, std::ifstream & Stream)
{
    if (std::string sWhyNot = CheckInput(sFile); !sWhyNot.empty())
    {
        return sWhyNot;
    }
    Stream.open(sFile, std::ios::binary);
    return Stream ? "" : FILE_UNREADABLE;
}

std::string ReadInput(std::string const & sFile, std::string & sBytes, std::uintmax_t nMost)
{
    std::ifstream Stream;
    if (std::string sWhyNot = OpenInput(sFile, Stream); !sWhyNot.empty())
    {
        return sWhyNot;
    }
    std::error_code Error;
    std::uintmax_t const nBytes = std::filesystem::file_size(sFile, Error);
    if (Error || nBytes > nMost)
    {
        return Error ? Error.message()
                     : "it has " + std::to_string(nBytes) + " bytes, more than " + std::to_string(nMost);
    }
    sBytes.resize(static_cast<std::size_t>(nBytes) + 1);
    Stream.read(sBytes.data(), static_cast<std::streamsize>(sBytes.size()));
    if (Stream)
    {
        return "it has more bytes than the system reports";   // it grows, or the system makes it when it is read
    }
    bool const bWhole = Stream.eof() && static_cast<std::uintmax_t>(Stream.gcount()) == nBytes;
    sBytes.resize(static_cast<std::size_t>(nBytes));
    return bWhole ? "" : FILE_UNREADABLE;
}

namespace
{
    void PrintProblemAt(std::string const & sFile, std::string const & sPlace, std::string const & sText)
    {
        std::fflush(stdout);
        std::fprintf(stderr, "%s%s: %s\n", Printable(sFile).c_str(), sPlace.c_str(), Printable(sText).c_str());
    }
}

void PrintProblem(std::string const & sFile, std::string const & sText)
{
    PrintProblemAt(sFile, "", sText);
}

void PrintProblem(std::string const & sFile, int iLine, std::string const & sText)
{
    PrintProblemAt(sFile, "(" + std::to_string(iLine) + ")", sText);
}

void PrintProblem(std::string const & sFile, int iLine, int iColumn, std::string const & sText)
{
    std::string const sPlace = "(" + std::to_string(iLine) + ", " + std::to_string(iColumn) + ")";
    PrintProblemAt(sFile, iLine > 0 ? sPlace : "", sText);
}
