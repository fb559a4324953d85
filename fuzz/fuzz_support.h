// fuzz_support.h: what the targets share: a file without a disk, and a check that ends the process.
#pragma once

#include "zqcore/cfilepath.h"
#include "zqcore/cmemory.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

/// The file "fuzz.txt", which serves bytes in a block of exactly their size. Lives until the end of the process.
class FuzzFile_c : public File_c
{
public:
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
        iLength = static_cast<int>(sText.size());
        pData = ZQ_NEW unsigned char[sText.size()];
        std::memcpy(pData, sText.data(), sText.size());
        return true;
    }
    void Close() override
    {
        delete[] pData;
        pData = nullptr;
    }

    std::string sText;

private:
    FuzzFile_c()
    {
        sName = "fuzz.txt";
        g_sFileObjects.Add(this, &sName);
    }
};

/// Whether the readers refuse a text as UTF-16; skips the byte order mark of UTF-8.
inline bool IsRefused(std::string_view & sText)
{
    if (sText.starts_with("\xEF\xBB\xBF"))
    {
        sText.remove_prefix(3);
        return false;
    }
    return sText.starts_with("\xFF\xFE") || sText.starts_with("\xFE\xFF");
}

inline void Require(bool bAgreed)
{
    if (!bAgreed)
    {
        std::abort();
    }
}
