// ccrc_pclmul.cpp: CRC-32 by folding with carry-less multiplication.
//
// After V. Gopal and others, "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction", Intel, 2009.
// Bits are reflected throughout: the first byte's low bit is the highest power of x.
#include "zqcore/ccrc.h"
#include "zqcore/ccrc_internal.h"

#if defined(__x86_64__) || defined(__i386__)

    #include <array>
    #include <immintrin.h>

    #define ZQ_TARGET_PCLMUL ZQ_TARGET("pclmul,sse4.1")
    #define ZQ_TARGET_PAIRS ZQ_TARGET("pclmul,sse4.1,avx2,vpclmulqdq")
    #define ZQ_TARGET_VPCLMUL ZQ_TARGET("pclmul,sse4.1,avx512f,avx512vl,vpclmulqdq")

namespace
{
    // Returns x^nPower modulo the polynomial, reflected into 33 bits: bit i is the coefficient of x^(32 - i).
    constexpr std::int64_t PowerOfX(int nPower)
    {
        std::uint32_t dwRemainder = 0x80000000u;
        for (int i = 0; i < nPower; ++i)
        {
            dwRemainder = (dwRemainder >> 1) ^ ((dwRemainder & 1) != 0 ? CRC32_POLYNOMIAL : 0);
        }
        return static_cast<std::int64_t>(dwRemainder) << 1;
    }

    // Returns the quotient of x^96 and the polynomial: bit i is the coefficient of x^(64 - i). The quotient's lowest
    // term is left out.
    constexpr std::int64_t Quotient()
    {
        std::uint64_t nQuotient = 1;
        std::uint32_t dwRemainder = CRC32_POLYNOMIAL;
        for (int i = 1; i < 64; ++i)
        {
            std::uint32_t const nBit = dwRemainder & 1;
            nQuotient |= static_cast<std::uint64_t>(nBit) << i;
            dwRemainder = (dwRemainder >> 1) ^ (nBit != 0 ? CRC32_POLYNOMIAL : 0);
        }
        return static_cast<std::int64_t>(nQuotient);
    }

    // Factors that move the second and the first half of a 16-byte block by BITS.
    template <int BITS>
    constexpr std::int64_t NEAR_FACTOR = PowerOfX(BITS - 32);
    template <int BITS>
    constexpr std::int64_t FAR_FACTOR = PowerOfX(BITS + 32);

    constexpr std::int64_t QUOTIENT = Quotient();

    constexpr std::size_t BLOCK_BYTES = 16;
    static_assert(CRC32_KERNEL_MIN >= BLOCK_BYTES);

    // Returns masks for a shuffle. The 16 bytes from offset r move the first r bytes of a block to its end, those from
    // offset 16 + r its last 16 - r bytes to its start. The other bytes become 0.
    constexpr std::array<unsigned char, 3 * BLOCK_BYTES> MakeShuffle()
    {
        std::array<unsigned char, 3 * BLOCK_BYTES> dShuffle{};
        for (std::size_t i = 0; i < dShuffle.size(); ++i)
        {
            dShuffle[i] = i >= BLOCK_BYTES && i < 2 * BLOCK_BYTES ? static_cast<unsigned char>(i - BLOCK_BYTES) : 0x80;
        }
        return dShuffle;
    }
    constexpr std::array<unsigned char, 3 * BLOCK_BYTES> SHUFFLE = MakeShuffle();

    ZQ_TARGET_PCLMUL inline __m128i LoadBlock(unsigned char const * pData)
    {
        return _mm_loadu_si128(reinterpret_cast<__m128i const *>(pData));
    }

    // Returns a block that begins with a register. The rest is 0.
    ZQ_TARGET_PCLMUL inline __m128i BlockOf(std::uint32_t dwRegister)
    {
        return _mm_cvtsi32_si128(static_cast<int>(dwRegister));
    }

    // Returns a block moved by the distance of Factors and added to the next one.
    ZQ_TARGET_PCLMUL inline __m128i FoldBlock(__m128i Block, __m128i Factors, __m128i Next)
    {
        __m128i const First = _mm_clmulepi64_si128(Block, Factors, 0x00);
        __m128i const Second = _mm_clmulepi64_si128(Block, Factors, 0x11);
        return _mm_xor_si128(_mm_xor_si128(First, Next), Second);
    }

    // Moves the first nRest bytes of a block past its end, and adds them to the rest of it and the nRest bytes before
    // pEnd. Returns the sum.
    ZQ_TARGET_PCLMUL inline __m128i FoldRest(
        __m128i Block, __m128i Factors, unsigned char const * pEnd, std::size_t nRest)
    {
        __m128i const ToEnd = LoadBlock(SHUFFLE.data() + nRest);
        __m128i const ToStart = LoadBlock(SHUFFLE.data() + BLOCK_BYTES + nRest);
        __m128i const Last = _mm_blendv_epi8(_mm_shuffle_epi8(Block, ToStart), LoadBlock(pEnd - BLOCK_BYTES), ToStart);
        return FoldBlock(_mm_shuffle_epi8(Block, ToEnd), Factors, Last);
    }

    // Returns the CRC of a message that was folded to one block. Folds its 16 bytes to 12, then uses Barrett's
    // reduction.
    ZQ_TARGET_PCLMUL inline std::uint32_t Reduce(__m128i Block)
    {
        __m128i const Barrett = _mm_set_epi64x(static_cast<std::int64_t>(CRC32_POLYNOMIAL) << 1 | 1, QUOTIENT);
        __m128i const Moved = _mm_clmulepi64_si128(Block, _mm_set_epi64x(0, NEAR_FACTOR<128>), 0x00);
        __m128i const Rest = _mm_xor_si128(_mm_srli_si128(Block, 8), Moved);
        __m128i const Multiple = _mm_clmulepi64_si128(Rest, Barrett, 0x00);
        __m128i const Product = _mm_clmulepi64_si128(Multiple, Barrett, 0x10);
        return ~static_cast<std::uint32_t>(_mm_extract_epi32(_mm_xor_si128(Rest, Product), 2));
    }

    // Adds what follows a folded block: whole blocks, then a rest of fewer than 16 bytes. Returns the CRC.
    ZQ_TARGET_PCLMUL inline std::uint32_t Finish(__m128i Block, unsigned char const * pData, std::size_t nBytes)
    {
        __m128i const By1 = _mm_set_epi64x(NEAR_FACTOR<128>, FAR_FACTOR<128>);
        for (; nBytes >= BLOCK_BYTES; nBytes -= BLOCK_BYTES, pData += BLOCK_BYTES)
        {
            Block = FoldBlock(Block, By1, LoadBlock(pData));
        }
        return Reduce(nBytes == 0 ? Block : FoldRest(Block, By1, pData + nBytes, nBytes));
    }

    // A lane is a register with one or more blocks side by side. Its functions are inlined into FoldRun. FoldRun has
    // the instructions and the registers of the lane only after it is inlined itself. Until then a lane can't be passed
    // by value, so the functions take references. For the same reason FoldRun has four variables instead of an array.
    struct Lane128_c
    {
        using Blocks_t = __m128i;

        ZQ_TARGET_PCLMUL static inline void Load(Blocks_t & Blocks, unsigned char const * pData)
        {
            Blocks = LoadBlock(pData);
        }

        // Adds the register before a run to the first block.
        ZQ_TARGET_PCLMUL static inline void AddRegister(Blocks_t & Blocks, std::uint32_t dwRegister)
        {
            Blocks = _mm_xor_si128(Blocks, BlockOf(dwRegister));
        }

        // Sets the same distance for each block.
        ZQ_TARGET_PCLMUL static inline void SetFactors(Blocks_t & Factors, std::int64_t nFar, std::int64_t nNear)
        {
            Factors = _mm_set_epi64x(nNear, nFar);
        }

        // Moves each block by the distance of Factors and adds the next one.
        ZQ_TARGET_PCLMUL static inline void Fold(Blocks_t & Blocks, Blocks_t const & Factors, Blocks_t const & Next)
        {
            Blocks = FoldBlock(Blocks, Factors, Next);
        }

        ZQ_TARGET_PCLMUL static inline void Fold(
            Blocks_t & Blocks, Blocks_t const & Factors, unsigned char const * pNext)
        {
            Blocks_t Next;
            Load(Next, pNext);
            Fold(Blocks, Factors, Next);
        }

        // Folds the blocks to one: moves each to the place of the last.
        ZQ_TARGET_PCLMUL static inline void Narrow(__m128i & Block, Blocks_t const & Blocks) { Block = Blocks; }
    };

    struct Lane256_c
    {
        using Blocks_t = __m256i;

        ZQ_TARGET_PAIRS static inline void Load(Blocks_t & Blocks, unsigned char const * pData)
        {
            Blocks = _mm256_loadu_si256(reinterpret_cast<__m256i const *>(pData));
        }

        ZQ_TARGET_PAIRS static inline void AddRegister(Blocks_t & Blocks, std::uint32_t dwRegister)
        {
            Blocks = _mm256_xor_si256(Blocks, _mm256_zextsi128_si256(BlockOf(dwRegister)));
        }

        ZQ_TARGET_PAIRS static inline void SetFactors(Blocks_t & Factors, std::int64_t nFar, std::int64_t nNear)
        {
            Factors = _mm256_set_epi64x(nNear, nFar, nNear, nFar);
        }

        ZQ_TARGET_PAIRS static inline void Fold(Blocks_t & Blocks, Blocks_t const & Factors, Blocks_t const & Next)
        {
            __m256i const First = _mm256_clmulepi64_epi128(Blocks, Factors, 0x00);
            __m256i const Second = _mm256_clmulepi64_epi128(Blocks, Factors, 0x11);
            Blocks = _mm256_xor_si256(_mm256_xor_si256(First, Next), Second);
        }

        ZQ_TARGET_PAIRS static inline void Fold(
            Blocks_t & Blocks, Blocks_t const & Factors, unsigned char const * pNext)
        {
            Blocks_t Next;
            Load(Next, pNext);
            Fold(Blocks, Factors, Next);
        }

        ZQ_TARGET_PAIRS static inline void Narrow(__m128i & Block, Blocks_t const & Blocks)
        {
            __m128i const ToNext = _mm_set_epi64x(NEAR_FACTOR<128>, FAR_FACTOR<128>);
            Block = FoldBlock(_mm256_castsi256_si128(Blocks), ToNext, _mm256_extracti128_si256(Blocks, 1));
        }
    };

    struct Lane512_c
    {
        using Blocks_t = __m512i;

        ZQ_TARGET_VPCLMUL static inline void Load(Blocks_t & Blocks, unsigned char const * pData)
        {
            Blocks = _mm512_loadu_si512(pData);
        }

        ZQ_TARGET_VPCLMUL static inline void AddRegister(Blocks_t & Blocks, std::uint32_t dwRegister)
        {
            Blocks = _mm512_xor_si512(Blocks, _mm512_zextsi128_si512(BlockOf(dwRegister)));
        }

        ZQ_TARGET_VPCLMUL static inline void SetFactors(Blocks_t & Factors, std::int64_t nFar, std::int64_t nNear)
        {
            Factors = _mm512_set_epi64(nNear, nFar, nNear, nFar, nNear, nFar, nNear, nFar);
        }

        ZQ_TARGET_VPCLMUL static inline void Fold(Blocks_t & Blocks, Blocks_t const & Factors, Blocks_t const & Next)
        {
            __m512i const First = _mm512_clmulepi64_epi128(Blocks, Factors, 0x00);
            __m512i const Second = _mm512_clmulepi64_epi128(Blocks, Factors, 0x11);
            Blocks = _mm512_ternarylogic_epi64(First, Second, Next, 0x96);   // exclusive or of all three
        }

        ZQ_TARGET_VPCLMUL static inline void Fold(
            Blocks_t & Blocks, Blocks_t const & Factors, unsigned char const * pNext)
        {
            Blocks_t Next;
            Load(Next, pNext);
            Fold(Blocks, Factors, Next);
        }

        ZQ_TARGET_VPCLMUL static inline void Narrow(__m128i & Block, Blocks_t const & Blocks)
        {
            __m512i const Factors = _mm512_set_epi64(0, 0, NEAR_FACTOR<128>, FAR_FACTOR<128>, NEAR_FACTOR<256>,
                FAR_FACTOR<256>, NEAR_FACTOR<384>, FAR_FACTOR<384>);
            __m512i Moved = Blocks;
            Fold(Moved, Factors, _mm512_maskz_mov_epi64(0xC0, Blocks));
            // This is the masked form with all bits set, because g++ 12 warns of the plain one.
            __m256i const Low = _mm512_maskz_extracti64x4_epi64(0xF, Moved, 0);
            __m256i const Half = _mm256_xor_si256(Low, _mm512_maskz_extracti64x4_epi64(0xF, Moved, 1));
            Block = _mm_xor_si128(_mm256_castsi256_si128(Half), _mm256_extracti128_si256(Half, 1));
        }
    };

    // Folds a run from the register before it: four lanes at a time, the four to one, one lane at a time, and the rest.
    // Returns the CRC. Requires at least four lanes.
    template <typename LANE>
    ZQ_TARGET_PCLMUL ZQ_INLINE std::uint32_t FoldRun(
        unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister)
    {
        using Blocks_t = typename LANE::Blocks_t;
        constexpr std::size_t LANE_BYTES = sizeof(Blocks_t);
        constexpr std::size_t STEP = 4 * LANE_BYTES;
        constexpr int BITS = 8 * static_cast<int>(LANE_BYTES);
        Blocks_t Blocks0, Blocks1, Blocks2, Blocks3, By1, By2, By4;
        LANE::SetFactors(By1, FAR_FACTOR<BITS>, NEAR_FACTOR<BITS>);
        LANE::SetFactors(By2, FAR_FACTOR<2 * BITS>, NEAR_FACTOR<2 * BITS>);
        LANE::SetFactors(By4, FAR_FACTOR<4 * BITS>, NEAR_FACTOR<4 * BITS>);
        LANE::Load(Blocks0, pData);
        LANE::Load(Blocks1, pData + LANE_BYTES);
        LANE::Load(Blocks2, pData + 2 * LANE_BYTES);
        LANE::Load(Blocks3, pData + 3 * LANE_BYTES);
        LANE::AddRegister(Blocks0, dwRegister);
        pData += STEP;
        nBytes -= STEP;
        for (; nBytes >= STEP; pData += STEP, nBytes -= STEP)
        {
            LANE::Fold(Blocks0, By4, pData);
            LANE::Fold(Blocks1, By4, pData + LANE_BYTES);
            LANE::Fold(Blocks2, By4, pData + 2 * LANE_BYTES);
            LANE::Fold(Blocks3, By4, pData + 3 * LANE_BYTES);
        }
        LANE::Fold(Blocks0, By1, Blocks1);
        LANE::Fold(Blocks2, By1, Blocks3);
        LANE::Fold(Blocks0, By2, Blocks2);
        for (; nBytes >= LANE_BYTES; nBytes -= LANE_BYTES, pData += LANE_BYTES)
        {
            LANE::Fold(Blocks0, By1, pData);
        }
        __m128i Block;
        LANE::Narrow(Block, Blocks0);
        return Finish(Block, pData, nBytes);
    }

    // Number of bytes from which on lanes of more than one block are faster.
    constexpr std::size_t WIDE_MIN = 256;
    static_assert(WIDE_MIN >= 4 * sizeof(Lane512_c::Blocks_t));

    ZQ_TARGET_PCLMUL std::uint32_t Crc32Pclmul(
        unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister)
    {
        if (nBytes < 4 * BLOCK_BYTES)
        {
            __m128i const First = _mm_xor_si128(LoadBlock(pData), BlockOf(dwRegister));
            return Finish(First, pData + BLOCK_BYTES, nBytes - BLOCK_BYTES);
        }
        return FoldRun<Lane128_c>(pData, nBytes, dwRegister);
    }

    ZQ_TARGET_PAIRS std::uint32_t Crc32Pairs(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister)
    {
        return nBytes < WIDE_MIN ? Crc32Pclmul(pData, nBytes, dwRegister)
                                 : FoldRun<Lane256_c>(pData, nBytes, dwRegister);
    }

    ZQ_TARGET_VPCLMUL std::uint32_t Crc32Vpclmul(
        unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister)
    {
        return nBytes < WIDE_MIN ? Crc32Pclmul(pData, nBytes, dwRegister)
                                 : FoldRun<Lane512_c>(pData, nBytes, dwRegister);
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
