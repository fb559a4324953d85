// cserialize.inl: fast path of small values, and the value of labels.
#pragma once

#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "values are stored as they are in memory");

inline bool Serializeable_c::Transfer(void * pData, int iLength)
{
    if (iLength > m_pEnd - m_pPos) [[unlikely]]
    {
        return Serialize(pData, iLength);
    }
    auto const nBytes = static_cast<std::size_t>(iLength);
    if (m_bIsReading)
    {
        std::memcpy(pData, m_pPos, nBytes);
    }
    else
    {
        std::memcpy(m_pPos, pData, nBytes);
    }
    m_pPos += nBytes;
    return true;
}

constexpr std::uint32_t Serializeable_c::LabelCalc(char const * sName)
{
    std::uint32_t dwLabel = 0;
    for (int i = 0; sName[i]; ++i)
    {
        auto const iCharacter = static_cast<signed char>(CharToLower(sName[i]));
        dwLabel ^= std::rotl(static_cast<std::uint32_t>(iCharacter), i);
    }
    return dwLabel;
}
