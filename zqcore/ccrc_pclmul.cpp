// ccrc_pclmul.cpp: CRC-32 by folding with carry-less multiplication.
//
// After V. Gopal and others, "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction", Intel, 2009.
// Bits are reflected throughout: the first byte's low bit is the highest power of x.
#include "zqcore/ccrc_internal.h"

#if defined(__x86_64__) || defined(__i386__)

    #include <array>
    #include <immintrin.h>

    #define ZQ_TARGET_PCLMUL ZQ_TARGET("pclmul,sse4.1")
    #define ZQ_TARGET_PAIRS ZQ_TARGET("pclmul,sse4.1,avx2,vpclmulqdq")
    #define ZQ_TARGET_VPCLMUL ZQ_TARGET("pclmul,sse4.1,avx512f,avx512vl,vpclmulqdq")

namespace
{
    // x^nPower modulo the polynomial, reflected into 33 bits: bit i stands for x^(32 - i).
    constexpr std::int64_t PowerOfX(int nPower)
    {
        std::uint32_t dw = 0x80000000u;
        for (int i = 0; i < nPower; ++i)
        {
            dw = (dw >> 1) ^ ((dw & 1) != 0 ? CRC32_POLYNOMIAL : 0);
        }
        return static_cast<std::int64_t>(dw) << 1;
    }

    // The quotient of x^96 by the polynomial without its lowest term: bit i stands for x^(64 - i).
    constexpr std::int64_t Quotient()
    {
        std::uint64_t nQuotient = 1;
        std::uint32_t dwRemainder = CRC32_POLYNOMIAL;
        for (int i = 1; i < 64; ++i)
        {
            std::uint32_t const iBit = dwRemainder & 1;
            nQuotient |= static_cast<std::uint64_t>(iBit) << i;
            dwRemainder = (dwRemainder >> 1) ^ (iBit != 0 ? CRC32_POLYNOMIAL : 0);
        }
        return static_cast<std::int64_t>(nQuotient);
    }

    // The factors that move a 16-byte block by BITS: its second half's and its first half's.
    template <int BITS>
    constexpr std::int64_t NEAR_FACTOR = PowerOfX(BITS - 32);
    template <int BITS>
    constexpr std::int64_t FAR_FACTOR = PowerOfX(BITS + 32);
    constexpr std::int64_t QUOTIENT = Quotient();

    // 16 bytes read from offset r shuffle a block's first r bytes to its end, from offset 16 + r its last 16 - r bytes
    // to its start; the others become 0.
    constexpr std::array<unsigned char, 48> MakeShuffle()
    {
        std::array<unsigned char, 48> dShuffle{};
        for (std::size_t i = 0; i < dShuffle.size(); ++i)
        {
            dShuffle[i] = i >= 16 && i < 32 ? static_cast<unsigned char>(i - 16) : 0x80;
        }
        return dShuffle;
    }
    constexpr std::array<unsigned char, 48> SHUFFLE = MakeShuffle();

    ZQ_TARGET_PCLMUL inline __m128i Load(unsigned char const * pData)
    {
        return _mm_loadu_si128(reinterpret_cast<__m128i const *>(pData));
    }

    // A block moved by the distance of Factors and added to another.
    ZQ_TARGET_PCLMUL inline __m128i Fold(__m128i Block, __m128i Factors, __m128i Next)
    {
        __m128i const First = _mm_clmulepi64_si128(Block, Factors, 0x00);
        __m128i const Second = _mm_clmulepi64_si128(Block, Factors, 0x11);
        return _mm_xor_si128(_mm_xor_si128(First, Next), Second);
    }

    // The block's first nRest bytes moved behind it, onto the rest and the nRest bytes that end at pEnd.
    ZQ_TARGET_PCLMUL inline __m128i FoldRest(
        __m128i Block, __m128i Factors, unsigned char const * pEnd, std::size_t nRest)
    {
        __m128i const ToEnd = Load(SHUFFLE.data() + nRest);
        __m128i const ToStart = Load(SHUFFLE.data() + 16 + nRest);
        __m128i const Last = _mm_blendv_epi8(_mm_shuffle_epi8(Block, ToStart), Load(pEnd - 16), ToStart);
        return Fold(_mm_shuffle_epi8(Block, ToEnd), Factors, Last);
    }

    // The CRC of a message that folded to one block: 16 bytes to 12 by one more factor, then Barrett's reduction.
    ZQ_TARGET_PCLMUL inline std::uint32_t Reduce(__m128i Block)
    {
        __m128i const Barrett = _mm_set_epi64x(static_cast<std::int64_t>(CRC32_POLYNOMIAL) << 1 | 1, QUOTIENT);
        __m128i const Moved = _mm_clmulepi64_si128(Block, _mm_set_epi64x(0, NEAR_FACTOR<128>), 0x00);
        __m128i const Rest = _mm_xor_si128(_mm_srli_si128(Block, 8), Moved);
        __m128i const Multiple = _mm_clmulepi64_si128(Rest, Barrett, 0x00);
        __m128i const Product = _mm_clmulepi64_si128(Multiple, Barrett, 0x10);
        return ~static_cast<std::uint32_t>(_mm_extract_epi32(_mm_xor_si128(Rest, Product), 2));
    }

    // What is left behind a folded block: whole blocks, then the rest of fewer than 16 bytes.
    ZQ_TARGET_PCLMUL inline std::uint32_t Finish(__m128i Block, unsigned char const * pData, std::size_t nBytes)
    {
        __m128i const By1 = _mm_set_epi64x(NEAR_FACTOR<128>, FAR_FACTOR<128>);
        for (; nBytes >= 16; nBytes -= 16, pData += 16)
        {
            Block = Fold(Block, By1, Load(pData));
        }
        return Reduce(nBytes == 0 ? Block : FoldRest(Block, By1, pData + nBytes, nBytes));
    }

    ZQ_TARGET_PCLMUL std::uint32_t Crc32Pclmul(unsigned char const * pData, std::size_t nBytes)
    {
        __m128i Block = _mm_xor_si128(Load(pData), _mm_cvtsi32_si128(-1));
        if (nBytes < 64)
        {
            return Finish(Block, pData + 16, nBytes - 16);
        }
        __m128i const By4 = _mm_set_epi64x(NEAR_FACTOR<512>, FAR_FACTOR<512>);
        __m128i const By1 = _mm_set_epi64x(NEAR_FACTOR<128>, FAR_FACTOR<128>);
        __m128i Block1 = Load(pData + 16);
        __m128i Block2 = Load(pData + 32);
        __m128i Block3 = Load(pData + 48);
        for (pData += 64, nBytes -= 64; nBytes >= 64; pData += 64, nBytes -= 64)
        {
            Block = Fold(Block, By4, Load(pData));
            Block1 = Fold(Block1, By4, Load(pData + 16));
            Block2 = Fold(Block2, By4, Load(pData + 32));
            Block3 = Fold(Block3, By4, Load(pData + 48));
        }
        __m128i const By2 = _mm_set_epi64x(NEAR_FACTOR<256>, FAR_FACTOR<256>);
        return Finish(Fold(Fold(Block, By1, Block1), By2, Fold(Block2, By1, Block3)), pData, nBytes);
    }

    ZQ_TARGET_PAIRS inline __m256i LoadPair(unsigned char const * pData)
    {
        return _mm256_loadu_si256(reinterpret_cast<__m256i const *>(pData));
    }

    // Fold for two blocks side by side.
    ZQ_TARGET_PAIRS inline __m256i FoldPair(__m256i Blocks, __m256i Factors, __m256i Next)
    {
        __m256i const First = _mm256_clmulepi64_epi128(Blocks, Factors, 0x00);
        __m256i const Second = _mm256_clmulepi64_epi128(Blocks, Factors, 0x11);
        return _mm256_xor_si256(_mm256_xor_si256(First, Next), Second);
    }

    // The same distance for both blocks.
    ZQ_TARGET_PAIRS inline __m256i FactorsPair(std::int64_t nFar, std::int64_t nNear)
    {
        return _mm256_set_epi64x(nNear, nFar, nNear, nFar);
    }

    constexpr std::size_t PAIRS_MIN = 256;   // from here on pairs of blocks pay

    ZQ_TARGET_PAIRS std::uint32_t Crc32Pairs(unsigned char const * pData, std::size_t nBytes)
    {
        if (nBytes < PAIRS_MIN)
        {
            return Crc32Pclmul(pData, nBytes);
        }
        __m256i const By4 = FactorsPair(FAR_FACTOR<4 * 256>, NEAR_FACTOR<4 * 256>);
        __m256i const By1 = FactorsPair(FAR_FACTOR<256>, NEAR_FACTOR<256>);
        __m256i Blocks0 = _mm256_xor_si256(LoadPair(pData), _mm256_zextsi128_si256(_mm_cvtsi32_si128(-1)));
        __m256i Blocks1 = LoadPair(pData + 32);
        __m256i Blocks2 = LoadPair(pData + 64);
        __m256i Blocks3 = LoadPair(pData + 96);
        for (pData += 128, nBytes -= 128; nBytes >= 128; pData += 128, nBytes -= 128)
        {
            Blocks0 = FoldPair(Blocks0, By4, LoadPair(pData));
            Blocks1 = FoldPair(Blocks1, By4, LoadPair(pData + 32));
            Blocks2 = FoldPair(Blocks2, By4, LoadPair(pData + 64));
            Blocks3 = FoldPair(Blocks3, By4, LoadPair(pData + 96));
        }
        __m256i const By2 = FactorsPair(FAR_FACTOR<2 * 256>, NEAR_FACTOR<2 * 256>);
        Blocks0 = FoldPair(FoldPair(Blocks0, By1, Blocks1), By2, FoldPair(Blocks2, By1, Blocks3));
        for (; nBytes >= 32; pData += 32, nBytes -= 32)
        {
            Blocks0 = FoldPair(Blocks0, By1, LoadPair(pData));
        }
        __m128i const ToNext = _mm_set_epi64x(NEAR_FACTOR<128>, FAR_FACTOR<128>);
        __m128i const Block = Fold(_mm256_castsi256_si128(Blocks0), ToNext, _mm256_extracti128_si256(Blocks0, 1));
        return Finish(Block, pData, nBytes);
    }

    ZQ_TARGET_VPCLMUL inline __m512i LoadWide(unsigned char const * pData)
    {
        return _mm512_loadu_si512(pData);
    }

    // Fold for four blocks side by side.
    ZQ_TARGET_VPCLMUL inline __m512i FoldWide(__m512i Blocks, __m512i Factors, __m512i Next)
    {
        __m512i const First = _mm512_clmulepi64_epi128(Blocks, Factors, 0x00);
        __m512i const Second = _mm512_clmulepi64_epi128(Blocks, Factors, 0x11);
        return _mm512_ternarylogic_epi64(First, Second, Next, 0x96);
    }

    // The same distance for each of the four blocks.
    ZQ_TARGET_VPCLMUL inline __m512i FactorsWide(std::int64_t nFar, std::int64_t nNear)
    {
        return _mm512_set_epi64(nNear, nFar, nNear, nFar, nNear, nFar, nNear, nFar);
    }

    // Four blocks folded to one: each moved by its distance to the last.
    ZQ_TARGET_VPCLMUL inline __m128i Narrow(__m512i Blocks)
    {
        __m512i const Factors = _mm512_set_epi64(0, 0, NEAR_FACTOR<128>, FAR_FACTOR<128>, NEAR_FACTOR<256>,
            FAR_FACTOR<256>, NEAR_FACTOR<384>, FAR_FACTOR<384>);
        __m512i const Moved = FoldWide(Blocks, Factors, _mm512_maskz_mov_epi64(0xC0, Blocks));
        // The masked form with all bits set: g++ 12 warns of the plain one.
        __m256i const Low = _mm512_maskz_extracti64x4_epi64(0xF, Moved, 0);
        __m256i const Half = _mm256_xor_si256(Low, _mm512_maskz_extracti64x4_epi64(0xF, Moved, 1));
        return _mm_xor_si128(_mm256_castsi256_si128(Half), _mm256_extracti128_si256(Half, 1));
    }

    // From here on the wide registers pay.
    constexpr std::size_t VPCLMUL_MIN = 256;

    ZQ_TARGET_VPCLMUL std::uint32_t Crc32Vpclmul(unsigned char const * pData, std::size_t nBytes)
    {
        if (nBytes < VPCLMUL_MIN)
        {
            return Crc32Pclmul(pData, nBytes);
        }
        __m512i const By4 = FactorsWide(FAR_FACTOR<4 * 512>, NEAR_FACTOR<4 * 512>);
        __m512i const By1 = FactorsWide(FAR_FACTOR<512>, NEAR_FACTOR<512>);
        __m512i Blocks0 = _mm512_xor_si512(LoadWide(pData), _mm512_zextsi128_si512(_mm_cvtsi32_si128(-1)));
        __m512i Blocks1 = LoadWide(pData + 64);
        __m512i Blocks2 = LoadWide(pData + 128);
        __m512i Blocks3 = LoadWide(pData + 192);
        for (pData += 256, nBytes -= 256; nBytes >= 256; pData += 256, nBytes -= 256)
        {
            Blocks0 = FoldWide(Blocks0, By4, LoadWide(pData));
            Blocks1 = FoldWide(Blocks1, By4, LoadWide(pData + 64));
            Blocks2 = FoldWide(Blocks2, By4, LoadWide(pData + 128));
            Blocks3 = FoldWide(Blocks3, By4, LoadWide(pData + 192));
        }
        __m512i const By2 = FactorsWide(FAR_FACTOR<2 * 512>, NEAR_FACTOR<2 * 512>);
        Blocks0 = FoldWide(FoldWide(Blocks0, By1, Blocks1), By2, FoldWide(Blocks2, By1, Blocks3));
        for (; nBytes >= 64; pData += 64, nBytes -= 64)
        {
            Blocks0 = FoldWide(Blocks0, By1, LoadWide(pData));
        }
        return Finish(Narrow(Blocks0), pData, nBytes);
    }
}

Crc32Kernels_t Crc32FindKernels()
{
    bool const bPclmul = ZQ_PROCESSOR_HAS("pclmul") && ZQ_PROCESSOR_HAS("sse4.1");
    bool const bPairs = bPclmul && ZQ_PROCESSOR_HAS("vpclmulqdq") && ZQ_PROCESSOR_HAS("avx2");
    bool const bVpclmul = bPairs && ZQ_PROCESSOR_HAS("avx512f") && ZQ_PROCESSOR_HAS("avx512vl");
    return { bPclmul ? Crc32Pclmul : nullptr, bPairs ? Crc32Pairs : nullptr, bVpclmul ? Crc32Vpclmul : nullptr };
}

#else

Crc32Kernels_t Crc32FindKernels()
{
    return {};
}

#endif
