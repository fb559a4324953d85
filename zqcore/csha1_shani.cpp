// csha1_shani.cpp: SHA-1 on the x86 SHA extensions (Intel, "Intel SHA Extensions", 2013).
#include "zqcore/csha1_internal.h"

#if defined(__x86_64__) || defined(__i386__)

    #include <cpuid.h>
    #include <immintrin.h>

    #define ZQ_TARGET_SHA ZQ_TARGET("sha,sse4.1")

// If the compiler reorders these instructions, the execution port of the rounds becomes the limit. The written order is
// 3 percent faster.
ZQ_WRITTEN_ORDER

namespace
{
    // The hash words in registers: a to d with a in the highest lane, and e in the highest lane of another register.
    // Within a block, E holds instead what Abcd was before the last four rounds: the next e follows from its a.
    struct State_s
    {
        __m128i Abcd;
        __m128i E;
    };

    // Sixteen words of the message schedule, in rows of four.
    struct Schedule_s
    {
        __m128i dRows[4];
    };

    // Returns four big-endian words, the first in the highest lane.
    ZQ_TARGET_SHA inline __m128i LoadRow(unsigned char const * pBytes)
    {
        __m128i const Reverse = _mm_set_epi64x(0x0001020304050607, 0x08090A0B0C0D0E0F);
        return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<__m128i const *>(pBytes)), Reverse);
    }

    // Runs rounds 4 * GROUP to 4 * GROUP + 3. Replaces the row that they used by the row of four groups later, if
    // there is one.
    template <int GROUP>
    ZQ_TARGET_SHA ZQ_INLINE void RunFourRounds(State_s & State, Schedule_s & Schedule)
    {
        __m128i & Row = Schedule.dRows[GROUP % 4];
        __m128i const Words = GROUP == 0 ? _mm_add_epi32(State.E, Row) : _mm_sha1nexte_epu32(State.E, Row);
        State.E = State.Abcd;
        State.Abcd = _mm_sha1rnds4_epu32(State.Abcd, Words, GROUP / 5);
        if constexpr (GROUP < 16)
        {
            __m128i const Mixed = _mm_sha1msg1_epu32(Row, Schedule.dRows[(GROUP + 1) % 4]);
            Row = _mm_sha1msg2_epu32(
                _mm_xor_si128(Mixed, Schedule.dRows[(GROUP + 2) % 4]), Schedule.dRows[(GROUP + 3) % 4]);
        }
    }

    // Runs five groups: the rounds of one constant.
    template <int FIRST>
    ZQ_TARGET_SHA ZQ_INLINE void RunTwentyRounds(State_s & State, Schedule_s & Schedule)
    {
        RunFourRounds<FIRST>(State, Schedule);
        RunFourRounds<FIRST + 1>(State, Schedule);
        RunFourRounds<FIRST + 2>(State, Schedule);
        RunFourRounds<FIRST + 3>(State, Schedule);
        RunFourRounds<FIRST + 4>(State, Schedule);
    }

    // Hashes blocks as a Sha1Kernel_t.
    ZQ_TARGET_SHA void Sha1HashShani(std::uint32_t * dHash, unsigned char const * pBlocks, std::size_t nBlocks)
    {
        constexpr int REVERSED = 0x1B;   // order of the lanes
        __m128i const Words = _mm_loadu_si128(reinterpret_cast<__m128i const *>(dHash));
        State_s State{ _mm_shuffle_epi32(Words, REVERSED), _mm_set_epi32(static_cast<int>(dHash[4]), 0, 0, 0) };
        for (; nBlocks > 0; --nBlocks, pBlocks += SHA1_BLOCK_SIZE)
        {
            State_s const Before = State;
            Schedule_s Schedule{ { LoadRow(pBlocks), LoadRow(pBlocks + 16), LoadRow(pBlocks + 32),
                LoadRow(pBlocks + 48) } };
            RunTwentyRounds<0>(State, Schedule);
            RunTwentyRounds<5>(State, Schedule);
            RunTwentyRounds<10>(State, Schedule);
            RunTwentyRounds<15>(State, Schedule);
            State.Abcd = _mm_add_epi32(State.Abcd, Before.Abcd);
            State.E = _mm_sha1nexte_epu32(State.E, Before.E);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dHash), _mm_shuffle_epi32(State.Abcd, REVERSED));
        dHash[4] = static_cast<std::uint32_t>(_mm_extract_epi32(State.E, 3));
    }
}

Sha1Kernel_t Sha1FindKernel()
{
    unsigned dwA = 0, dwB = 0, dwC = 0, dwD = 0;
    if (__get_cpuid(1, &dwA, &dwB, &dwC, &dwD) == 0 || (dwC & bit_SSE4_1) == 0)
    {
        return nullptr;
    }
    return __get_cpuid_count(7, 0, &dwA, &dwB, &dwC, &dwD) != 0 && (dwB & bit_SHA) != 0 ? Sha1HashShani : nullptr;
}

#else

Sha1Kernel_t Sha1FindKernel()
{
    return nullptr;
}

#endif
