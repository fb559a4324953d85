// The decoder on random bytes: its texts by a checksum, its lengths beside an independent decoder. All mnemonics and
// operands were compared with the independent one's before the checksums were written down.
//
// What the peer refuses, and what came after SSE2, is left out. MayDiffer lists what remains.
#include "zqcore/copcode.h"

#include "platform/checker.h"
#include "tests/test_support.h"
#include "zqcore/ccrc.h"

#include <random>
#include <set>

namespace
{
    constexpr std::uint64_t ADDRESS = 0x12345670;
    constexpr char LOCK[] = "lock   ";   // an instruction of its own here

    /// Random bytes, often with a prefix or two and with 0F in front.
    std::vector<unsigned char> RandomInstruction(std::mt19937 & Random, OpcodeMode_e eMode)
    {
        static constexpr unsigned char PREFIXES[] = { 0x66, 0xF2, 0xF3, 0x66, 0x67, 0xF0, 0x2E, 0x64 };
        std::vector<unsigned char> dBytes;
        auto const OneOf = [&](unsigned n) { return static_cast<unsigned>(Random()) % n; };
        auto const Add = [&](unsigned c) { dBytes.push_back(static_cast<unsigned char>(c)); };
        while (OneOf(2) == 0)
        {
            Add(PREFIXES[OneOf(8)]);
        }
        if (eMode == OPCODE_64_BIT && OneOf(3) == 0)
        {
            Add(0x40 + OneOf(16));
        }
        if (OneOf(2) == 0)
        {
            Add(0x0F);
        }
        while (dBytes.size() < 24)
        {
            Add(OneOf(256));
        }
        return dBytes;
    }

    /// The text of the first instruction, with the one that it locks, and the length of both.
    std::string Decoded(OpcodeDecoder_c & Decoder, std::vector<unsigned char> const & dBytes, std::size_t & nLength)
    {
        char szText[256];
        Decoder.SetAddressBias(ADDRESS - reinterpret_cast<std::uintptr_t>(dBytes.data()));
        nLength = Decoder.Decode(dBytes.data(), dBytes.size(), szText, sizeof szText);
        std::string const sFirst = szText;
        if (sFirst != LOCK)
        {
            return sFirst;
        }
        nLength += Decoder.Decode(dBytes.data() + nLength, dBytes.size() - nLength, szText, sizeof szText);
        return sFirst + szText;
    }
}

TEST(Opcode, WritesTheKnownTextsOfRandomBytes)
{
    for (auto const & [eMode, dwCrc] :
        Rows_t<OpcodeMode_e, std::uint32_t>{ { OPCODE_32_BIT, 3312151823 }, { OPCODE_64_BIT, 4100232288 } })
    {
        OpcodeDecoder_c Decoder(eMode);
        std::mt19937 Random(7);
        std::string sAll;
        for (int i = 0; i != 500'000; ++i)
        {
            std::size_t nLength;
            sAll += Decoded(Decoder, RandomInstruction(Random, eMode), nLength);
            sAll += std::to_string(nLength) + '\n';
        }
        EXPECT_EQ(GetCrc32Polynomial(sAll.data(), static_cast<int>(sAll.size())), dwCrc);
    }
}

#ifdef TEST_PEER_ZYDIS
    #include <Zydis/Zydis.h>
    #include <iterator>

namespace
{
    std::set<ZydisISASet> const OUR_SETS = { ZYDIS_ISA_SET_I86, ZYDIS_ISA_SET_I186, ZYDIS_ISA_SET_I286PROTECTED,
        ZYDIS_ISA_SET_I286REAL, ZYDIS_ISA_SET_I386, ZYDIS_ISA_SET_I486, ZYDIS_ISA_SET_I486REAL,
        ZYDIS_ISA_SET_PENTIUMREAL, ZYDIS_ISA_SET_PENTIUMMMX, ZYDIS_ISA_SET_PPRO, ZYDIS_ISA_SET_CMOV,
        ZYDIS_ISA_SET_FCMOV, ZYDIS_ISA_SET_X87, ZYDIS_ISA_SET_AMD3DNOW, ZYDIS_ISA_SET_FAT_NOP, ZYDIS_ISA_SET_FXSAVE,
        ZYDIS_ISA_SET_FXSAVE64, ZYDIS_ISA_SET_LAHF, ZYDIS_ISA_SET_LONGMODE, ZYDIS_ISA_SET_CMPXCHG16B,
        ZYDIS_ISA_SET_PAUSE, ZYDIS_ISA_SET_PREFETCH_NOP, ZYDIS_ISA_SET_RDPMC, ZYDIS_ISA_SET_SSE, ZYDIS_ISA_SET_SSE2,
        ZYDIS_ISA_SET_SSE2MMX, ZYDIS_ISA_SET_SSEMXCSR, ZYDIS_ISA_SET_SSE_PREFETCH, ZYDIS_ISA_SET_CLFSH };

    /// The other decoder, with the instruction that it decoded last.
    struct Peer_s
    {
        ZydisDecoder Decoder;
        ZydisDecodedInstruction Is;
        ZydisDecodedOperand dOperands[ZYDIS_MAX_OPERAND_COUNT];

        explicit Peer_s(OpcodeMode_e eMode)
        {
            ZydisDecoderInit(&Decoder,
                eMode == OPCODE_64_BIT ? ZYDIS_MACHINE_MODE_LONG_64 : ZYDIS_MACHINE_MODE_LEGACY_32,
                eMode == OPCODE_64_BIT ? ZYDIS_STACK_WIDTH_64 : ZYDIS_STACK_WIDTH_32);
        }

        bool Decode(unsigned char const * pCode, std::size_t nBytes)
        {
            return ZYAN_SUCCESS(ZydisDecoderDecodeFull(&Decoder, pCode, nBytes, &Is, dOperands));
        }

        /// Whether the lengths may differ.
        bool MayDiffer(unsigned char const * pCode) const
        {
            unsigned char const * const pEnd = pCode + Is.raw.prefix_count;
            auto const HasPrefix = [&](unsigned char c) { return std::find(pCode, pEnd, c) != pEnd; };
            auto const IsOneOf = [&](std::initializer_list<ZydisMnemonic> dMnemonics)
            { return std::find(dMnemonics.begin(), dMnemonics.end(), Is.mnemonic) != dMnemonics.end(); };
            bool const dReasons[] = {
                // Lock is an instruction of its own here: it loses the prefixes before it.
                std::count(pCode, pEnd, 0xF0) > (pCode[0] == 0xF0),
                // F2 and F3: the processor obeys the last, the table the first row.
                HasPrefix(0xF2) && HasPrefix(0xF3),
                // Remnants of the 8087 and 80287, which do nothing: no row.
                IsOneOf({ ZYDIS_MNEMONIC_FENI8087_NOP, ZYDIS_MNEMONIC_FDISI8087_NOP, ZYDIS_MNEMONIC_FSETPM287_NOP }),
                // Meant to be undefined, or undocumented: no row.
                IsOneOf({ ZYDIS_MNEMONIC_UD0, ZYDIS_MNEMONIC_UD1, ZYDIS_MNEMONIC_INT1 }),
            };
            return std::count(std::begin(dReasons), std::end(dReasons), true) != 0;
        }
    };
}

TEST(OpcodePeer, AgreesOnTheLengthsOfRandomBytes)
{
    constexpr int INSTRUCTIONS = plat::ADDRESS_CHECKER ? 50'000 : 500'000;
    for (OpcodeMode_e const eMode : { OPCODE_32_BIT, OPCODE_64_BIT })
    {
        Peer_s Peer(eMode);
        OpcodeDecoder_c Decoder(eMode);
        std::mt19937 Random(7);
        int nCompared = 0;
        for (int i = 0; i != INSTRUCTIONS; ++i)
        {
            std::vector<unsigned char> const dBytes = RandomInstruction(Random, eMode);
            if (!Peer.Decode(dBytes.data(), dBytes.size()) || !OUR_SETS.contains(Peer.Is.meta.isa_set)
                || Peer.MayDiffer(dBytes.data()))
            {
                continue;
            }
            ++nCompared;
            std::size_t nLength;
            std::string const sText = Decoded(Decoder, dBytes, nLength);
            ASSERT_EQ(nLength, Peer.Is.length) << sText;
        }
        EXPECT_GT(nCompared, INSTRUCTIONS * 3 / 5);
    }
}
#else
TEST(OpcodePeer, AgreesOnTheLengthsOfRandomBytes)
{
    GTEST_SKIP() << "the independent disassembler is missing (libzydis-dev, of this word size)";
}
#endif
