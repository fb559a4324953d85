// copcode_bench.cpp: the code listing of a crash report and a general disassembler. Both turn 256 bytes of the C
// library's code, and 256 of a loop of AVX2, into text. A last row measures the set-up before the listing.
#include "zqcore/copcode.h"

#include <Zydis/Zydis.h>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <immintrin.h>

namespace
{
    constexpr std::size_t SPAN = 256;   // bytes that are listed

    // Provides code to list, and never runs. Its loop is longer than the span.
    __attribute__((target("avx2,fma"), noinline, used)) void Transform(
        float * pValues, float const * pFactors, int nValues)
    {
        for (int i = 0; i < nValues; i += 64)
        {
#pragma GCC unroll 8
            for (int iFactor = 0; iFactor < 64; iFactor += 8)
            {
                __m256 const Factor = _mm256_loadu_ps(pFactors + iFactor);
                __m256 const Value = _mm256_fmadd_ps(_mm256_loadu_ps(pValues + i + iFactor), Factor, Factor);
                __m256i const Shuffled = _mm256_shuffle_epi32(_mm256_castps_si256(Value), 0x4E);
                _mm256_storeu_ps(pValues + i + iFactor, _mm256_max_ps(Value, _mm256_castsi256_ps(Shuffled)));
            }
        }
    }

    // Returns the code of a function of this process, as a crash report lists it.
    template <typename FUNCTION>
    unsigned char const * CodeOf(FUNCTION fnFunction)
    {
        return reinterpret_cast<unsigned char const *>(reinterpret_cast<std::uintptr_t>(fnFunction));
    }

    // Sink that counts the characters of a listing.
    class LengthSink_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override { m_nCharacters += std::strlen(szLine); }

        std::size_t m_nCharacters = 0;
    };

    void ListCode(benchmark::State & State, unsigned char const * pCode)
    {
        std::size_t nInstructions = 0;
        for (auto _ : State)
        {
            CodeListing_c Listing(pCode, SPAN, reinterpret_cast<std::uintptr_t>(pCode));
            nInstructions = Listing.Decode();
            LengthSink_c Sink;
            Listing.Write(Sink);
            benchmark::DoNotOptimize(Sink.m_nCharacters);
        }
        State.counters["instructions"] = static_cast<double>(nInstructions);
    }
    BENCHMARK_CAPTURE(ListCode, Plain, CodeOf(&std::qsort))->Name("listing of 256 bytes/ours");
    BENCHMARK_CAPTURE(ListCode, Vector, CodeOf(&Transform))->Name("listing of 256 bytes of AVX2/ours");

    void ListCodeByZydis(benchmark::State & State, unsigned char const * pCode)
    {
        std::size_t nInstructions = 0;
        for (auto _ : State)
        {
            ZydisDecoder Decoder;
            ZydisDecoderInit(&Decoder, ZYDIS_MACHINE_MODE_LONG_64, ZYDIS_STACK_WIDTH_64);
            ZydisFormatter Formatter;
            ZydisFormatterInit(&Formatter, ZYDIS_FORMATTER_STYLE_INTEL);
            ZydisDecodedInstruction Instruction;
            ZydisDecodedOperand dOperands[ZYDIS_MAX_OPERAND_COUNT];
            std::size_t nCharacters = 0;
            nInstructions = 0;
            for (std::size_t i = 0; i < SPAN; i += Instruction.length, ++nInstructions)
            {
                if (!ZYAN_SUCCESS(ZydisDecoderDecodeFull(&Decoder, pCode + i, SPAN - i, &Instruction, dOperands)))
                {
                    break;
                }
                char szText[256];
                ZydisFormatterFormatInstruction(&Formatter, &Instruction, dOperands, Instruction.operand_count_visible,
                    szText, sizeof szText, reinterpret_cast<std::uintptr_t>(pCode + i), nullptr);
                nCharacters += std::strlen(szText);
            }
            benchmark::DoNotOptimize(nCharacters);
        }
        State.counters["instructions"] = static_cast<double>(nInstructions);
    }
    BENCHMARK_CAPTURE(ListCodeByZydis, Plain, CodeOf(&std::qsort))->Name("listing of 256 bytes/zydis");
    BENCHMARK_CAPTURE(ListCodeByZydis, Vector, CodeOf(&Transform))->Name("listing of 256 bytes of AVX2/zydis");

    void ExpandTable(benchmark::State & State)
    {
        for (auto _ : State)
        {
            OpcodeDecoder_c const Decoder;
            benchmark::DoNotOptimize(&Decoder);
        }
    }
    BENCHMARK(ExpandTable)->Name("expansion of the opcode table/ours");
}
