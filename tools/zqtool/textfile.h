// textfile.h: a file in memory that the library's readers open by a name.
#pragma once

#include "zqcore/cfile.h"

#include <string>

/// File whose contents lie in memory. Only FileOpen reads it: Load and OpenStored fail. Requires that no other file has
/// its name.
class TextFile_c final : public File_c
{
public:
    /// Registers the contents under szName until the object is destroyed. Requires the following:
    /// - szName is in lower case.
    /// - The table has room.
    /// - FileReset does not run before the end of the object.
    TextFile_c(char const * szName, std::string sBytes);

    void Refresh() override {}
    bool Load(std::uint32_t, unsigned char *, std::uint32_t &) override { return false; }
    FileStored_c * OpenStored() override { return nullptr; }
    bool Open(void * pBuffer) override;
    void Close() override { pData = nullptr; }

private:
    std::string m_sBytes;
};
