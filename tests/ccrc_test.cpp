#include "zqcore/ccrc.h"

#include "zqcore/ccrc_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{
    using Bytes_t = std::vector<unsigned char>;

    // Bit by bit, straight from the definition.
    std::uint32_t FeedBits(std::uint32_t dwRegister, unsigned char Byte)
    {
        dwRegister ^= Byte;
        for (int i = 0; i < 8; ++i)
        {
            dwRegister = (dwRegister >> 1) ^ ((dwRegister & 1) != 0 ? 0xEDB88320u : 0u);
        }
        return dwRegister;
    }

    std::uint32_t Reference(unsigned char const * pBytes, std::size_t nBytes)
    {
        std::uint32_t dwRegister = 0xFFFFFFFFu;
        std::for_each(pBytes, pBytes + nBytes, [&](unsigned char Byte) { dwRegister = FeedBits(dwRegister, Byte); });
        return ~dwRegister;
    }

    std::uint32_t Public(unsigned char const * pBytes, std::size_t nBytes)
    {
        return GetCrc32Polynomial(reinterpret_cast<char const *>(pBytes), static_cast<int>(nBytes));
    }

    Bytes_t RandomBytes(std::size_t nBytes)
    {
        std::mt19937 Random(static_cast<unsigned>(nBytes));
        Bytes_t dBytes(nBytes);
        std::generate(dBytes.begin(), dBytes.end(), [&] { return static_cast<unsigned char>(Random()); });
        return dBytes;
    }

    struct Way_s
    {
        char const * szName;
        Crc32Kernel_t fnCrc;
        std::size_t nMin;   // shortest run it takes
    };

    class Crc32Ways : public testing::TestWithParam<Way_s>
    {};

    // Runs before all other globals: the choice of a kernel must not wait for a constructor.
    struct EarlyCrc_s
    {
        std::uint32_t dwCrc = GetCrc32Polynomial(std::string(300, 'z').c_str(), 300);
    };
    ZQ_FIRST_GLOBAL EarlyCrc_s s_Early;
}

TEST(Crc32, GivesThePublishedValues)
{
    using Row_t = std::pair<std::string, std::uint32_t>;
    for (auto const & [sText, dwExpected] : { Row_t{ "", 0 }, Row_t{ "a", 0xE8B7BE43 }, Row_t{ "abc", 0x352441C2 },
             Row_t{ "123456789", 0xCBF43926 }, Row_t{ "The quick brown fox jumps over the lazy dog", 0x414FA339 },
             Row_t{ std::string(32, '\0'), 0x190A55AD }, Row_t{ std::string(32, '\xFF'), 0xFF6CAB0B } })
    {
        EXPECT_EQ(GetCrc32Polynomial(sText.data(), static_cast<int>(sText.size())), dwExpected) << sText;
    }
    EXPECT_EQ(GetCrc32Polynomial(nullptr, 0), 0u);
    EXPECT_EQ(GetCrc32Polynomial("abc", -1), 0u);
    EXPECT_EQ(g_dCrc32Tab[255], 0x2D02EF8Du);
    EXPECT_EQ(g_dCrc16Tab[1], 0x97A0);
    EXPECT_EQ(g_dCrc16Tab[2], 0xB9E1);
    EXPECT_EQ(g_dCrc16Tab[3], 0x97A0 ^ 0xB9E1) << "the entries are linear";
    EXPECT_EQ(g_dCrc16Tab[128], 0x8FD8);
    EXPECT_EQ(g_dCrc16Tab[255], 0x87F0);
}

TEST(Crc32, UnrolledFormsEqualTheGeneralOne)
{
    for (std::size_t i = 0; i < 100; ++i)
    {
        Bytes_t const dBytes = RandomBytes(8 + i);
        std::uint64_t nValue = 0;
        std::for_each(dBytes.rend() - 8, dBytes.rend(), [&](unsigned char Byte) { nValue = nValue << 8 | Byte; });
        EXPECT_EQ(GetCrc32Polynomial4(static_cast<std::uint32_t>(nValue)), Reference(dBytes.data(), 4)) << nValue;
        EXPECT_EQ(GetCrc32Polynomial8(nValue), Reference(dBytes.data(), 8)) << nValue;
    }
}

TEST(Crc32, WorksBeforeConstructors)
{
    EXPECT_EQ(s_Early.dwCrc, Reference(Bytes_t(300, 'z').data(), 300));
}

// Every length to 600 at every alignment to 15, in memory that ends with the run, then long runs.
TEST_P(Crc32Ways, AgreesWithTheDefinitionAtEveryLengthAndAlignment)
{
    if (GetParam().fnCrc == nullptr)
    {
        GTEST_SKIP() << "this processor lacks the instructions of " << GetParam().szName;
    }
    for (std::size_t n = GetParam().nMin; n <= 605; ++n)
    {
        std::size_t const nBytes = n <= 600 ? n : 3001 * (n - 600) * (n - 600);
        Bytes_t const dSource = RandomBytes(nBytes);
        std::uint32_t const dwExpected = Reference(dSource.data(), nBytes);
        for (std::size_t iAlign = 0; iAlign < 16; ++iAlign)
        {
            Bytes_t dBytes(iAlign + nBytes);
            std::copy(dSource.begin(), dSource.end(), dBytes.begin() + static_cast<std::ptrdiff_t>(iAlign));
            ASSERT_EQ(GetParam().fnCrc(dBytes.data() + iAlign, nBytes), dwExpected) << nBytes << " at " << iAlign;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Crc32, Crc32Ways,
    testing::Values(Way_s{ "Public", Public, 0 }, Way_s{ "Tables", Crc32Tables, 0 },
        Way_s{ "Pclmul", Crc32FindKernels().fnPclmul, CRC32_KERNEL_MIN },
        Way_s{ "Vpclmul", Crc32FindKernels().fnVpclmul, CRC32_KERNEL_MIN }),
    [](auto const & Info) { return std::string(Info.param.szName); });
