#include "platform/text.h"
#include "tests/hash_support.h"
#include "tests/test_support.h"
#include "zqcore/csha1.h"
#include "zqcore/csha1_internal.h"

#include <array>

namespace
{
    unsigned char const * Bytes(std::string const & sText)
    {
        return reinterpret_cast<unsigned char const *>(sText.data());
    }

    // Returns a context that has the text, input in pieces of nPiece bytes.
    SHA1Context Fed(std::string const & sText, std::size_t nPiece)
    {
        SHA1Context Context;
        EXPECT_EQ(SHA1Reset(&Context), shaSuccess);
        for (std::size_t i = 0; i < sText.size(); i += nPiece)
        {
            EXPECT_EQ(SHA1Input(&Context, Bytes(sText) + i, std::min(nPiece, sText.size() - i)), shaSuccess);
        }
        return Context;
    }

    // Returns the digest in hexadecimal digits.
    std::string Result(SHA1Context Context)
    {
        unsigned char dHash[SHA1_HASH_SIZE] = {};
        EXPECT_EQ(SHA1Result(&Context, dHash), shaSuccess);
        std::string sHex;
        for (unsigned char const cByte : dHash)
        {
            sHex += { plat::LOWER_HEX_DIGITS[cByte >> 4], plat::LOWER_HEX_DIGITS[cByte & 15] };
        }
        return sHex;
    }

    // Returns the first bytes of an arbitrary text.
    std::string Pattern(std::size_t nBytes)
    {
        std::string sText(nBytes, '\0');
        std::generate(sText.begin(), sText.end(), [i = 0]() mutable { return static_cast<char>(7 * i++); });
        return sText;
    }
}

// The expected value is what hashlib of Python computes.
TEST(Sha1, PadsEveryLengthAndTakesAnyPieces)
{
    constexpr std::size_t MOST = 600;
    std::string sDigests;
    for (std::size_t nLength = 0; nLength <= MOST; ++nLength)
    {
        sDigests += Result(Fed(Pattern(nLength), MOST));
        ASSERT_EQ(Result(Fed(Pattern(MOST), nLength + 1)), Result(Fed(Pattern(MOST), MOST)))
            << "in pieces of " << nLength + 1;
    }
    EXPECT_EQ(Result(Fed(sDigests, sDigests.size())), "e27ee72ba4e393c7d72389e023c09706ad98703e");
}

TEST(Sha1, KernelsAgree)
{
    Sha1Kernel_t const fnKernel = Sha1FindKernel();
    SKIP_IF(fnKernel == nullptr, "this processor lacks the SHA instructions");
    std::string const sBytes = Pattern(20 * SHA1_BLOCK_SIZE);
    std::array<std::uint32_t, 5> dPlain{ 1, 2, 3, 4, 0xFFFFFFFFu }, dFast = dPlain;
    for (std::size_t i = 0; i < 16 * 16; ++i)
    {
        Sha1HashPlain(dPlain.data(), Bytes(sBytes) + i % 16, i / 16);
        fnKernel(dFast.data(), Bytes(sBytes) + i % 16, i / 16);
        ASSERT_EQ(dPlain, dFast) << i / 16 << " blocks at " << i % 16;
    }
}

TEST(Sha1, CarriesTheLengthIntoTheHighWord)
{
    SHA1Context Context = Fed("", 1);
    Context.dwLengthLow = 0xFFFFFE00u;
    ASSERT_EQ(SHA1Input(&Context, Bytes(Pattern(SHA1_BLOCK_SIZE)), SHA1_BLOCK_SIZE), shaSuccess);
    EXPECT_EACH(Context.dwLengthLow == 0, Context.dwLengthHigh == 1);
    SHA1Context Padded = Context;
    unsigned char dHash[SHA1_HASH_SIZE], dPadding[SHA1_BLOCK_SIZE] = { 0x80 };
    dPadding[59] = 1;   // the length 2^32, big-endian in the last 8 bytes
    Sha1HashPlain(Padded.dHash, dPadding, 1);
    EXPECT_EQ(SHA1Result(&Context, dHash), shaSuccess);
    EXPECT_EQ(std::to_array(Context.dHash), std::to_array(Padded.dHash));
}

TEST(Sha1, ReturnsThePublishedDigestAndRefusesNullTooLongAndWrongOrder)
{
    unsigned char cByte = 'x', dHash[SHA1_HASH_SIZE];
    EXPECT_EACH(
        SHA1Reset(nullptr) == shaNull, SHA1Input(nullptr, &cByte, 1) == shaNull, SHA1Result(nullptr, dHash) == shaNull);

    SHA1Context Done = Fed("abc", 1), Long = Fed("", 1), NoBytes = Done, NoOutput = Done;
    EXPECT_EQ(SHA1Result(&Done, dHash), shaSuccess);
    EXPECT_EQ(Result(Done), ABC_SHA1);
    EXPECT_EQ(SHA1Input(&Done, nullptr, 0), shaSuccess);
    EXPECT_EQ(SHA1Input(&Done, &cByte, 1), shaStateError);
    Long.dwLengthLow = 0xFFFFFFF0u;
    Long.dwLengthHigh = 0xFFFFFFFFu;
    EXPECT_EQ(SHA1Input(&Long, &cByte, 1), shaSuccess);
    EXPECT_EQ(SHA1Input(&Long, &cByte, 1), shaInputTooLong);
    EXPECT_EQ(SHA1Input(&NoBytes, nullptr, 1), shaNull);
    EXPECT_EQ(SHA1Result(&NoOutput, nullptr), shaNull);
    for (auto const & [szWhat, pFailed] : Rows_t<char const *, SHA1Context *>{
             { "done", &Done }, { "too long", &Long }, { "no bytes", &NoBytes }, { "no output", &NoOutput } })
    {
        EXPECT_EACH(SHA1Input(pFailed, &cByte, 1) == shaStateError, SHA1Result(pFailed, dHash) == shaStateError,
            SHA1Reset(pFailed) == shaSuccess, SHA1Input(pFailed, &cByte, 1) == shaSuccess)
            << szWhat;
    }
}
