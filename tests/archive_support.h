// archive_support.h: files in memory and survived aborts, for tests and fuzz targets of archives.
#pragma once

#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/cserialize.h"

#include "platform/dialog.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <span>
#include <string>
#include <string_view>

/// A resident file of any bytes, in a block of exactly their size.
class MemoryFile_c : public File_c
{
public:
    explicit MemoryFile_c(std::string_view sBytes)
    {
        sName = "memory.arc";
        iLength = static_cast<int>(sBytes.size());
        pData = new unsigned char[sBytes.size()];
        std::memcpy(pData, sBytes.data(), sBytes.size());
    }
    ~MemoryFile_c() override { delete[] pData; }

    void Refresh() override {}
    bool Load(std::uint32_t, unsigned char *, std::uint32_t &) override { return false; }
    FileStored_c * OpenStored() override { return nullptr; }
    bool Open(void *) override { return true; }
    void Close() override {}
};

/// Calls fnRun, and ignores its assertions. Returns false if an Abort ended it.
template <typename RUN>
bool SurvivesWithoutAbort(RUN fnRun)
{
    struct Aborted_s
    {};
    plat::DialogHandler_t const fnPrevious = plat::DialogSetHandler(
        [](plat::Dialog_t const & Dialog)
        {
            if (std::string_view(Dialog.szCaption).starts_with("Application aborted!"))
            {
                throw Aborted_s{};
            }
            return plat::DialogAnswer_e::Ignore;
        });
    bool bBack = true;
    try
    {
        fnRun();
    }
    catch (Aborted_s const &)
    {
        g_isAborting = false;
        bBack = false;
    }
    plat::DialogSetHandler(fnPrevious);
    return bBack;
}

/// Function that reads or writes the contents of an archive.
using ArchiveBody_t = std::function<void(Serializeable_c &)>;

/// Runs fnBody over an archive that reads these bytes. Returns whether the archive opened and did not fail.
inline bool LoadArchive(std::string_view sBytes, std::uint32_t dwVersion, ArchiveBody_t const & fnBody)
{
    MemoryFile_c File(sBytes);
    FileOpen(&File);
    Readable_c Archive(&File, dwVersion);
    bool const bOpen = Archive.Open();
    fnBody(Archive);
    return bOpen && !Archive.IsFailed();
}

/// Runs fnBody over a writer in memory and returns the bytes that it writes, or none if the archive failed.
inline std::string Stored(std::uint32_t dwVersion, ArchiveBody_t const & fnBody)
{
    MemoryWriteable_c Archive(dwVersion);
    Archive.Open();
    fnBody(Archive);
    std::span<std::byte const> const Bytes = Archive.GetBytes();
    return { reinterpret_cast<char const *>(Bytes.data()), Archive.IsFailed() ? 0 : Bytes.size() };
}

/// A reader that does not know its length.
class StreamArchive_c : public Serializeable_c
{
public:
    explicit StreamArchive_c(std::string const & sBytes)
        : Serializeable_c(true, 0, false)
        , m_sBytes(sBytes)
    {}
    using Serializeable_c::Serialize;
    bool ChunkBegin(char const *) override { return false; }
    void ChunkEnd(char const *) override {}
    char const * GetFileName() const override { return ""; }
    int GetLength() const override { return 0; }
    bool Serialize(void * pData, int iLength) override
    {
        auto const nBytes = static_cast<std::size_t>(iLength);
        m_bFailed = m_bFailed || m_sBytes.size() < nBytes;
        if (!m_bFailed && pData)
        {
            m_sBytes.copy(static_cast<char *>(pData), nBytes);
        }
        m_sBytes.erase(0, m_bFailed ? 0 : nBytes);
        return !m_bFailed;
    }
    std::string m_sBytes;   // not yet read
};

/// Returns the CRC-32 of IEEE 802.3, computed bit by bit, straight from the definition.
inline std::uint32_t PlainCrc32(std::string_view sBytes)
{
    std::uint32_t dwCrc = ~0u;
    for (char const c : sBytes)
    {
        dwCrc ^= static_cast<unsigned char>(c);
        for (int iBit = 0; iBit < 8; ++iBit)
        {
            dwCrc = dwCrc >> 1 ^ (dwCrc & 1 ? 0xEDB88320u : 0);
        }
    }
    return ~dwCrc;
}

/// Returns bytes as "03 00 FF".
inline std::string Hex(std::string_view sBytes)
{
    std::string sHex;
    for (char const c : sBytes)
    {
        char szByte[4];
        std::snprintf(szByte, sizeof szByte, "%02X ", static_cast<unsigned char>(c));
        sHex += szByte;
    }
    return sHex.substr(0, sHex.rfind(' '));
}

/// Returns the bytes of the dump between "```<sName>" and "```" in the page at the path sPage, in the form of Hex.
/// Returns an empty text if there is none.
inline std::string DumpOfPage(std::string const & sPage, std::string const & sName)
{
    std::ifstream Page(sPage);
    std::string sHex;
    bool bInside = false;
    for (std::string sLine; std::getline(Page, sLine);)
    {
        if (sLine.starts_with("```"))
        {
            bInside = sLine == "```" + sName;
        }
        else if (bInside)
        {
            constexpr std::size_t BYTES_FROM = 6;   // after the offset
            sHex += (sHex.empty() ? "" : " ") + sLine.substr(BYTES_FROM, sLine.find("  ", BYTES_FROM) - BYTES_FROM);
        }
    }
    return sHex;
}
