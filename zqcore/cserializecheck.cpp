#include "zqcore/cserializecheck.h"

#include <algorithm>

ArchiveCheck_c::ArchiveCheck_c(std::byte const * pBytes, std::size_t nBytes, std::uint32_t dwVersion)
    : MemoryReadable_c(pBytes, nBytes, dwVersion)
{
    SetResult(m_Result);
}

ArchiveResult_t ArchiveCheck_c::GetResult() const
{
    ArchiveResult_t Result = m_Result;
    Result.nLeft = std::max(GetLeft(), 0);
    return Result;
}
