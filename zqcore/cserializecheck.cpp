#include "zqcore/cserializecheck.h"

#include <algorithm>

ArchiveCheck_c::ArchiveCheck_c(std::span<std::byte const> Bytes, std::uint32_t dwVersion)
    : MemoryReadable_c(Bytes, dwVersion)
{
    SetResult(m_Result);
}

void ArchiveCheck_c::CheckChunks(std::initializer_list<char const *> dChunks)
{
    for (char const * szChunk : dChunks)
    {
        ChunkBegin(szChunk);
        ChunkEnd(szChunk);
    }
}

ArchiveResult_t ArchiveCheck_c::GetResult() const
{
    ArchiveResult_t Result = m_Result;
    Result.nLeft = std::max(GetLeft(), 0);
    return Result;
}

ArchiveResult_t ArchiveCheck(
    std::span<std::byte const> Bytes, std::uint32_t dwVersion, std::initializer_list<char const *> dChunks)
{
    return ArchiveCheck(Bytes, dwVersion, [&](ArchiveCheck_c & Archive) { Archive.CheckChunks(dChunks); });
}
