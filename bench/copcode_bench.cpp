// copcode_bench.cpp: the code listing of a crash report and a general disassembler. Both turn 256 bytes of code into
// text. A second row measures the set-up before the listing.
#include "zqcore/copcode.h"

#include <Zydis/Zydis.h>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>

namespace
{
    constexpr std::size_t SPAN = 256;

    // Returns code of this process, which is what a crash report lists.
    unsigned char const * Code()
    {
        return reinterpret_cast<unsigned char const *>(reinterpret_cast<std::uintptr_t>(&std::qsort));
    }

    class LengthSink_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override { nCharacters += std::strlen(szLine); }

        std::size_t nCharacters = 0;
    };

    void ListCode(benchmark::State & State)
    {
        std::size_t nInstructions = 0;
        for (auto _ : State)
        {
            CodeListing_c Listing(Code(), SPAN, reinterpret_cast<std::uintptr_t>(Code()));
            nInstructions = Listing.Decode();
            LengthSink_c Sink;
            Listing.Write(Sink);
            benchmark::DoNotOptimize(Sink.nCharacters);
        }
        State.counters["instructions"] = static_cast<double>(nInstructions);
    }
    BENCHMARK(ListCode)->Name("listing of 256 bytes/ours");

    void ListCodeByZydis(benchmark::State & State)
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
                if (!ZYAN_SUCCESS(ZydisDecoderDecodeFull(&Decoder, Code() + i, SPAN - i, &Instruction, dOperands)))
                {
                    break;
                }
                char szText[256];
                ZydisFormatterFormatInstruction(&Formatter, &Instruction, dOperands, Instruction.operand_count_visible,
                    szText, sizeof szText, reinterpret_cast<std::uintptr_t>(Code() + i), nullptr);
                nCharacters += std::strlen(szText);
            }
            benchmark::DoNotOptimize(nCharacters);
        }
        State.counters["instructions"] = static_cast<double>(nInstructions);
    }
    BENCHMARK(ListCodeByZydis)->Name("listing of 256 bytes/zydis");

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
