// cserialize.inl: fast path of small values, choice by type, and the value of labels.
#pragma once

#include <bit>
#include <climits>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "values are stored as they are in memory");

ZQ_INLINE bool Serializeable_c::SerializeBytes(void * pData, std::size_t nBytes)
{
    if (nBytes > static_cast<std::size_t>(m_pEnd - m_pPos)) [[unlikely]]
    {
        return SerializeRun(pData, nBytes);
    }
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

inline void Serializeable_c::StoreText(char const * sText, std::size_t nLength)
{
    auto const nCount = static_cast<std::uint32_t>(nLength);
    std::size_t const nBytes = sizeof nCount + nLength + 1;
    if (m_bIsReading || nBytes > static_cast<std::size_t>(m_pEnd - m_pPos) || nLength > INT_MAX) [[unlikely]]
    {
        return StoreLongText(sText, nLength);
    }
    std::memcpy(m_pPos, &nCount, sizeof nCount);
    std::memcpy(m_pPos + sizeof nCount, sText, nLength + 1);
    m_pPos += nBytes;
}

inline bool Serializeable_c::ViewText(std::string_view & sText)
{
    std::uint32_t nLength = 0;
    auto const nLeft = static_cast<std::size_t>(m_pEnd - m_pPos);
    if (!m_bIsReading || nLeft <= sizeof nLength)
    {
        return false;
    }
    std::memcpy(&nLength, m_pPos, sizeof nLength);
    if (nLength >= nLeft - sizeof nLength)
    {
        return false;
    }
    sText = { reinterpret_cast<char const *>(m_pPos + sizeof nLength), nLength };
    m_pPos += sizeof nLength + nLength + 1;
    return true;
}

inline int Serializeable_c::SerializeCount(std::size_t nElements, std::size_t nBytesEach)
{
    std::uint32_t nCount = 0;
    auto const nLeft = static_cast<std::size_t>(m_pEnd - m_pPos);
    if (!m_bIsReading || nLeft < sizeof nCount) [[unlikely]]
    {
        return SerializeCountSlowly(nElements, nBytesEach);
    }
    std::memcpy(&nCount, m_pPos, sizeof nCount);
    if (nCount > (nLeft - sizeof nCount) / nBytesEach) [[unlikely]]
    {
        return SerializeCountSlowly(nElements, nBytesEach);
    }
    m_pPos += sizeof nCount;
    return static_cast<int>(nCount);
}

inline void Serializeable_c::SerializeFlag(bool & bValue)
{
    auto nFlag = static_cast<unsigned char>(bValue);
    if (!SerializeBytes(&nFlag, 1) || !m_bIsReading)
    {
        return;
    }
    if (nFlag > 1) [[unlikely]]
    {
        return Fail("a bool that is neither 0 nor 1");
    }
    bValue = nFlag == 1;
}

namespace archives
{
    template <typename T>
    constexpr bool IS_CHAR_ARRAY = false;
    template <std::size_t N>
    constexpr bool IS_CHAR_ARRAY<char[N]> = true;

    template <typename T>
    constexpr bool NEVER = false;

    /// Refuses a type, with a message that says what to do instead.
    template <typename T>
    constexpr void Refuse()
    {
        if constexpr (std::is_const_v<T>)
        {
            static_assert(NEVER<T>, "An archive refuses a const object, because a load changes it. Remove const.");
        }
        else if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>)
        {
            static_assert(NEVER<T>,
                "An archive refuses a number or enumeration whose width differs between builds. Use "
                "std::int32_t, std::int64_t or another type of one width, also for enumerators.");
        }
        else if constexpr (std::is_pointer_v<T> || std::is_null_pointer_v<T> || std::is_member_pointer_v<T>)
        {
            static_assert(NEVER<T>, "An archive refuses a pointer. Store the object or an index. Objects that refer to "
                                    "each other form a graph: see Serializer_T in zqcore/cserializer.h.");
        }
        else if constexpr (std::is_union_v<T>)
        {
            static_assert(NEVER<T>,
                "An archive refuses a union. Give it a function Serialize(Serializeable_c &, T &) that "
                "stores which member is in use, then that member.");
        }
        else if constexpr (IS_CHAR_ARRAY<T>)
        {
            static_assert(NEVER<T>,
                "An archive refuses an array of char. Use a String_T, or SerializeString for a text "
                "and SerializeBytes for bytes.");
        }
        else
        {
            static_assert(NEVER<T>,
                "An archive does not know this class. Give it a public member "
                "Serialize(Serializeable_c &), or a function Serialize(Serializeable_c &, T &) in its "
                "namespace. Types of the standard library need zqcore/cserializestd.h.");
        }
    }

    /// Stores or loads objects that follow one another in memory.
    template <typename T>
    void TransferAll(Serializeable_c & Archive, T * pFirst, std::size_t nObjects)
    {
        if constexpr (ArchiveValue_T<T> && !std::same_as<T, bool>)
        {
            if (nObjects > 0)
            {
                Archive.SerializeBytes(pFirst, nObjects * sizeof(T));
            }
        }
        else
        {
            for (std::size_t i = 0; i < nObjects && !Archive.IsFailed(); ++i)
            {
                Archive.Serialize(pFirst[i]);
            }
        }
    }

    template <typename T>
    void Transfer(Serializeable_c & Archive, T & Value)
    {
        if constexpr (std::is_const_v<T>)
        {   // NOLINT(bugprone-branch-clone): the other refusals come last
            Refuse<T>();
        }
        else if constexpr (std::same_as<T, bool>)
        {
            Archive.SerializeFlag(Value);
        }
        else if constexpr (ArchiveValue_T<T>)
        {
            Archive.SerializeBytes(&Value, sizeof(T));
        }
        else if constexpr (ArchiveMember_T<T>)
        {
            Value.Serialize(Archive);
        }
        else if constexpr (std::is_array_v<T> && !IS_CHAR_ARRAY<T>)
        {
            TransferAll(Archive, Value, std::extent_v<T>);
        }
        else if constexpr (ArchiveFree_T<T>)
        {
            Serialize(Archive, Value);
        }
        else
        {
            Refuse<T>();
        }
    }
}

constexpr std::uint32_t Serializeable_c::LabelCalc(char const * sName)
{
    std::uint32_t dwLabel = 0;
    for (int i = 0; sName[i]; ++i)
    {
        auto const cLower = static_cast<signed char>(CharToLower(sName[i]));
        dwLabel ^= std::rotl(static_cast<std::uint32_t>(cLower), i);
    }
    return dwLabel;
}
