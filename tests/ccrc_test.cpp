#include "tests/archive_support.h"
#include "tests/test_support.h"
#include "zqcore/ccrc.h"
#include "zqcore/ccrc_internal.h"

#include <random>
#include <span>

namespace
{
    using Bytes_t = std::vector<unsigned char>;

    std::uint32_t ReferenceCrc(unsigned char const * pBytes, std::size_t nBytes)
    {
        return PlainCrc32({ reinterpret_cast<char const *>(pBytes), nBytes });
    }

    std::uint32_t PublicCrc(unsigned char const * pBytes, std::size_t nBytes)
    {
        return GetCrc32Polynomial(reinterpret_cast<char const *>(pBytes), static_cast<int>(nBytes));
    }

    std::uint32_t ContinuedCrc(unsigned char const * pBytes, std::size_t nBytes, std::uint32_t dwRegister)
    {
        return Crc32(std::as_bytes(std::span(pBytes, nBytes)), ~dwRegister);
    }

    Bytes_t RandomBytes(std::size_t nBytes)
    {
        std::mt19937 Random(static_cast<unsigned>(nBytes));
        Bytes_t dBytes(nBytes);
        std::generate(dBytes.begin(), dBytes.end(), [&] { return static_cast<unsigned char>(Random()); });
        return dBytes;
    }

    // Global that is constructed before all others: the choice of a kernel waits for no constructor.
    struct EarlyCrc_s
    {
        std::uint32_t dwCrc = GetCrc32Polynomial(std::string(300, 'z').c_str(), 300);
    };
    ZQ_FIRST_GLOBAL EarlyCrc_s g_EarlyCrc;
}

TEST(Crc32, ReturnsThePublishedValues)
{
    // Values of zlib's crc32, which is the checksum of RFC 1952.
    for (auto const & [sText, dwExpected] : Rows_t<std::string, std::uint32_t>{ { "", 0 }, { "a", 0xE8B7BE43 },
             { "123456789", 0xCBF43926 }, { "The quick brown fox jumps over the lazy dog", 0x414FA339 },
             { std::string(32, '\0'), 0x190A55AD }, { std::string(32, '\xFF'), 0xFF6CAB0B } })
    {
        EXPECT_EQ(GetCrc32Polynomial(sText.data(), static_cast<int>(sText.size())), dwExpected) << sText;
    }
    EXPECT_EQ(GetCrc32Polynomial(nullptr, 0), 0u);
    EXPECT_EQ(GetCrc32Polynomial("abc", -1), 0u);
    EXPECT_EQ(g_EarlyCrc.dwCrc, ReferenceCrc(Bytes_t(300, 'z').data(), 300)) << "before constructors";
    EXPECT_EQ(g_dCrc32Tab[255], 0x2D02EF8Du);
    for (auto const & [i, iExpected] :
        Rows_t<std::size_t, int>{ { 1, 0x97A0 }, { 2, 0xB9E1 }, { 128, 0x8FD8 }, { 255, 0x87F0 } })
    {
        EXPECT_EQ(g_dCrc16Tab[i], iExpected) << i;
    }
    EXPECT_EQ(g_dCrc16Tab[3], g_dCrc16Tab[1] ^ g_dCrc16Tab[2]) << "the entries are linear";
}

TEST(Crc32, UnrolledFormsAgreeWithTheDefinition)
{
    for (std::size_t i = 0; i < 100; ++i)
    {
        Bytes_t const dBytes = RandomBytes(8 + i);
        std::uint64_t nValue = 0;
        std::for_each(dBytes.rend() - 8, dBytes.rend(), [&](unsigned char cByte) { nValue = nValue << 8 | cByte; });
        EXPECT_EQ(GetCrc32Polynomial4(static_cast<std::uint32_t>(nValue)), ReferenceCrc(dBytes.data(), 4)) << nValue;
        EXPECT_EQ(GetCrc32Polynomial8(nValue), ReferenceCrc(dBytes.data(), 8)) << nValue;
    }
}

TEST(Crc32, TwoRunsAreJoinedAndOneIsContinued)
{
    Bytes_t const dBytes = RandomBytes(70000);
    for (std::size_t const nFirst : { 0, 1, 255, 4464, 69999, 70000 })
    {
        std::size_t const nSecond = dBytes.size() - nFirst;
        EXPECT_EQ(Crc32Join(PublicCrc(dBytes.data(), nFirst), PublicCrc(dBytes.data() + nFirst, nSecond), nSecond),
            PublicCrc(dBytes.data(), dBytes.size()))
            << nFirst;
    }
    for (std::size_t const nPiece : { 1, 7, 511, 512, 5000 })
    {
        std::uint32_t dwCrc = 0;
        for (std::span dRest = std::as_bytes(std::span(dBytes)); !dRest.empty();
             dRest = dRest.subspan(std::min(nPiece, dRest.size())))
        {
            dwCrc = Crc32(dRest.first(std::min(nPiece, dRest.size())), dwCrc);
        }
        EXPECT_EQ(dwCrc, PublicCrc(dBytes.data(), dBytes.size())) << nPiece;
    }
    EXPECT_EQ(Crc32({}, 7), 7u);
}

// Checks every length up to 600 that a kernel accepts, then long ones. Each run lies at every alignment up to 15, in
// memory that ends with it, and continues as many bytes.
TEST(Crc32, EveryKernelAgreesWithTheDefinitionAtEveryLengthAndAlignment)
{
    // A kernel whose instructions this processor lacks is null.
    for (auto const & [szKernel, fnCrc, nMin] :
        Rows_t<char const *, Crc32Kernel_t, std::size_t>{ { "public", ContinuedCrc, 0 }, { "tables", Crc32ByTables, 0 },
            { "pclmul", Crc32FindKernels().fnPclmul, CRC32_KERNEL_MIN },
            { "pairs", Crc32FindKernels().fnPairs, CRC32_KERNEL_MIN },
            { "vpclmul", Crc32FindKernels().fnVpclmul, CRC32_KERNEL_MIN } })
    {
        for (std::size_t n = nMin; fnCrc && n <= 605; ++n)
        {
            std::size_t const nBytes = n <= 600 ? n : 3001 * (n - 600) * (n - 600);
            Bytes_t const dSource = RandomBytes(15 + nBytes);
            for (std::size_t iAlign = 0; iAlign < 16; ++iAlign)
            {
                Bytes_t const dBytes(dSource.end() - static_cast<std::ptrdiff_t>(iAlign + nBytes), dSource.end());
                std::uint32_t const dwBefore = ~ReferenceCrc(dBytes.data(), iAlign);
                ASSERT_EQ(fnCrc(dBytes.data() + iAlign, nBytes, dwBefore), ReferenceCrc(dBytes.data(), dBytes.size()))
                    << szKernel << ' ' << n << ' ' << iAlign;
                ASSERT_EQ(PublicCrc(dBytes.data() + iAlign, nBytes), ReferenceCrc(dBytes.data() + iAlign, nBytes)) << n;
            }
        }
    }
}
