// fuzz_support.h: what the fuzz targets share.
//
// They share a file without a disk, a folder, the input read from front to back, and a check that ends the process.
#pragma once

#include "platform/faults.h"
#include "tests/text_support.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"
#include "zqcore/ctexterror_internal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>

/// Leaves faults to the fuzzer, which keeps the input. Returns 0.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    plat::FaultFilterSet(nullptr);
    return 0;
}

/// The file "fuzz.txt", which serves bytes in a block of exactly their size. It lives until the end of the process.
class FuzzFile_c : public File_c
{
public:
    /// Returns the only instance.
    static FuzzFile_c & Get()
    {
        static FuzzFile_c & s_File = *ZQ_NEW FuzzFile_c;
        return s_File;
    }

    void Refresh() override {}
    bool Load(std::uint32_t, unsigned char *, std::uint32_t &) override { return false; }
    FileStored_c * OpenStored() override { return nullptr; }
    bool Open(void *) override
    {
        iLength = static_cast<int>(m_sText.size());
        pData = ZQ_NEW unsigned char[m_sText.size()];
        std::memcpy(pData, m_sText.data(), m_sText.size());
        return true;
    }
    void Close() override
    {
        delete[] pData;
        pData = nullptr;
    }

    std::string m_sText;   // contents of the file

private:
    FuzzFile_c()
    {
        sName = "fuzz.txt";
        g_sFileObjects.Add(this, &sName);
    }
};

/// Skips the byte order mark of UTF-8, as the readers do. Returns false for that of UTF-16, which they refuse.
inline bool SkipMark(std::string_view & sText)
{
    if (sText.starts_with(UTF8_MARK))
    {
        sText.remove_prefix(UTF8_MARK.size());
        return true;
    }
    return !sText.starts_with(UTF16_LOW_MARK) && !sText.starts_with(UTF16_HIGH_MARK);
}

/// Prints the number of the caller's line on standard error and aborts if a condition does not hold.
inline void Require(bool bHolds, int iLine = __builtin_LINE())
{
    if (!bHolds)
    {
        std::fprintf(stderr, "line %d does not hold\n", iLine);
        std::abort();
    }
}

/// An input that is read from front to back.
class Input_c
{
public:
    Input_c(unsigned char const * pData, std::size_t nSize)
        : m_sRest(reinterpret_cast<char const *>(pData), nSize)
    {}
    explicit Input_c(std::string_view sBytes)
        : m_sRest(sBytes)
    {}
    bool IsEmpty() const { return m_sRest.empty(); }

    /// Removes the next bytes, fewer at the end, and returns them.
    std::string Extract(std::size_t nBytes = std::string::npos)
    {
        std::string const sExtracted(m_sRest.substr(0, nBytes));
        m_sRest.remove_prefix(sExtracted.size());
        return sExtracted;
    }

    /// Removes the next value and returns it. Zeros follow the end.
    template <typename T = unsigned char>
    T Get()
    {
        T Value{};
        std::string const sBytes = Extract(sizeof Value);
        std::memcpy(&Value, sBytes.data(), sBytes.size());
        return Value;
    }

private:
    std::string_view m_sRest;
};

/// Creates a folder of this process, below the one for temporary files, and returns its path.
inline std::string const & MakeFuzzFolder()
{
    static std::string const & s_sFolder =
        *new std::string(std::filesystem::temp_directory_path() / ("zqcore_fuzz_" + std::to_string(getpid())));
    std::filesystem::create_directories(s_sFolder);
    return s_sFolder;
}
