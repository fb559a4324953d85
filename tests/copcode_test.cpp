#include "zqcore/copcode.h"
#include "zqcore/copcode_internal.h"

#include "tests/test_support.h"
#include "zqcore/ccrc.h"

#ifdef TEST_ZYDIS
    #include <Zydis/Zydis.h>
#endif
#include <algorithm>
#include <iterator>
#include <random>
#include <sstream>

namespace
{
    // Sink that keeps the lines. It knows the function Blit at 0x401000 and a source line for each address.
    class Lines_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override { m_dLines.push_back(szLine); }
        unsigned WriteSource(std::uint64_t Address, unsigned iLastLine) override
        {
            m_dLines.push_back(std::to_string(iLastLine));
            return static_cast<unsigned>(Address & 0xFF);
        }
        std::int64_t GetSymbol(std::uint64_t Address, char * szName, unsigned nSize) override
        {
            EXPECT_EQ(nSize, OPCODE_SYMBOL_SIZE);
            EXPECT_NE(Address, 0u);
            std::snprintf(szName, nSize, "Blit");
            return Address >= 0x401000 && Address < 0x401100 ? static_cast<std::int64_t>(Address - 0x401000) : -1;
        }

        std::vector<std::string> m_dLines;
    };

    // Returns the lines of a listing of bytes, which sHex has as hexadecimal numbers.
    std::vector<std::string> Listing(
        int nBits, std::string const & sHex, std::uint64_t Address, std::uint64_t Fault = 1)
    {
        std::istringstream Bytes(sHex);
        Bytes >> std::hex;
        std::vector<unsigned> const dBytes(std::istream_iterator<unsigned>(Bytes), {});
        std::vector<unsigned char> const dCode(dBytes.begin(), dBytes.end());
        CodeListing_c Listing(dCode.data(), dCode.size(), Address, nBits == 64 ? OPCODE_64_BIT : OPCODE_32_BIT);
        Listing.SetFaultAddress(Fault);
        Listing.Decode();
        Lines_c Lines;
        Listing.Write(Lines);
        return Lines.m_dLines;
    }

    constexpr std::uint64_t BIAS = 0x12345670;
    constexpr char LOCK[] = "lock   ";         // an instruction of its own here
    constexpr std::size_t RANDOM_BYTES = 24;   // bytes of random code for an instruction

    // Draws random bytes, often with a prefix or two and with 0F in front, and returns them.
    std::vector<unsigned char> RandomInstruction(std::mt19937 & Random, OpcodeMode_e eMode)
    {
        static constexpr unsigned char PREFIXES[] = { 0x66, 0xF2, 0xF3, 0x66, 0x67, 0xF0, 0x2E, 0x64 };
        std::vector<unsigned char> dBytes;
        auto const OneOf = [&](std::size_t nChoices) { return static_cast<unsigned>(Random() % nChoices); };
        auto const Add = [&](unsigned nByte) { dBytes.push_back(static_cast<unsigned char>(nByte)); };
        while (OneOf(2) == 0)
        {
            Add(PREFIXES[OneOf(std::size(PREFIXES))]);
        }
        if (eMode == OPCODE_64_BIT && OneOf(3) == 0)
        {
            Add(0x40 + OneOf(16));
        }
        if (OneOf(2) == 0)
        {
            Add(0x0F);
        }
        while (dBytes.size() < RANDOM_BYTES)
        {
            Add(OneOf(256));
        }
        return dBytes;
    }

    // Decodes the first instruction, with the one that it locks, as if dBytes were at BIAS. Sets nLength to the length
    // of both and returns their text. The decoder keeps the address bias.
    std::string Decoded(OpcodeDecoder_c & Decoder, std::vector<unsigned char> const & dBytes, std::size_t & nLength)
    {
        char szText[256];
        Decoder.SetAddressBias(BIAS - reinterpret_cast<std::uintptr_t>(dBytes.data()));
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

// The rows have addresses with a symbol, examples of the rest, and vector instructions.
TEST(Opcode, WritesInstructions)
{
    for (auto const & [nBits, szBytes, szText] :
        Rows_t<int, char const *, char const *>{ { 32, "66 05 34 12", "add    ax,1234" },
            { 32, "f3 64 a5", "rep    movs dword ptr es:[edi],dword ptr fs:[esi]" },
            { 32, "a1 00 10 40 00", "mov    eax,dword ptr [Blit (00401000)]" },
            { 32, "8b 80 10 10 40 00", "mov    eax,dword ptr [eaxBlit+10 (+401010)]" },
            { 32, "a1 00 00 00 00", "mov    eax,dword ptr [00000000]" }, { 32, "eb fe", "jmp    Blit+20 (00401020)" },
            { 32, "e8 db 0f c0 ff", "call   00002000" }, { 32, "67 8b 46 10", "mov    eax,dword ptr [bp+10]" },
            { 32, "8e f8", "mov    ?7s,ax" }, { 32, "0f 04", "db     0f" }, { 32, "0f", "db     0f" },
            { 64, "48 8b 05 d9 ff ff ff", "mov    rax,qword ptr [rel Blit (00401000)]" },
            { 64, "c7 05 d6 ff ff ff 01 00 00 00", "mov    dword ptr [rel Blit (00401000)],00000001" },
            { 64, "67 8b 05 d9 1f 00 00", "mov    eax,dword ptr [rel 00403000]" },
            { 64, "42 8b 44 a5 00", "mov    eax,dword ptr [rbp+r12*4+00]" }, { 64, "06", "db     06" },
            // later instructions without a prefix of their own
            { 32, "66 0f 38 00 08", "pshufb xmm1,[eax]" }, { 64, "66 0f 38 21 00", "pmovsxbd xmm0,dword ptr [rax]" },
            { 64, "f3 48 0f b8 c1", "popcnt rax,rcx" }, { 64, "f2 0f 38 f1 c1", "crc32  eax,ecx" },
            { 64, "66 41 0f 38 dc c1", "aesenc xmm0,xmm9" }, { 64, "0f 38 cb c1", "sha256rnds2 xmm0,xmm1,xmm0" },
            { 64, "f3 48 0f ae e9", "incsspq rcx" }, { 32, "0f c7 f0", "rdrand eax" },
            { 32, "f2 0f c7 f0", "db     0f" }, { 64, "f2 0f 12 01", "movddup xmm0,qword ptr [rcx]" },
            // VEX
            { 64, "c5 fc 58 44 b1 20", "vaddps ymm0,ymm0,ymmword ptr [rcx+rsi*4+20]" },
            { 32, "c5 fc 58 44 b1 20", "vaddps ymm0,ymm0,ymmword ptr [ecx+esi*4+20]" },
            { 64, "c4 41 7c 10 4d 08", "vmovups ymm9,ymmword ptr [r13+08]" }, { 64, "c5 f8 77", "vzeroupper " },
            { 64, "c4 e2 7d 58 05 d7 ff ff ff", "vpbroadcastd ymm0,dword ptr [rel Blit (00401000)]" },
            { 64, "c4 e1 f9 7e c0", "vmovq  rax,xmm0" }, { 32, "c4 e1 f9 7e c0", "vmovd  eax,xmm0" },
            { 64, "c4 e3 7d 4a c1 20", "vblendvps ymm0,ymm0,ymm1,ymm2" },
            { 64, "c4 a2 6d 90 34 5f", "vpgatherdd ymm6,dword ptr [rdi+ymm11*2],ymm2" },
            { 64, "c4 e2 fb f6 44 24 08", "mulx   rax,rax,qword ptr [rsp+08]" },
            { 64, "c4 e2 7b 4b 0c 18", "tileloadd tmm1,[rax+rbx]" }, { 32, "c5 0a", "lds    ecx,[edx]" },
            { 64, "66 c5 f8 77", "db     c5" }, { 64, "c5 c8 77", "db     c5" }, { 64, "c5 fc", "db     c5" },
            // EVEX: masks, broadcasts, rounding, scaled displacements, registers above 15
            { 64, "62 f1 7c db 58 c2", "vaddps zmm0{k3}{z},zmm0,zmm2,{ru-sae}" },
            { 64, "62 f1 7c 58 58 41 ff", "vaddps zmm0,zmm0,dword ptr [rcx-04]{1to16}" },
            { 32, "62 f1 7c 48 58 46 01", "vaddps zmm0,zmm0,zmmword ptr [esi+40]" },
            { 64, "62 a1 fe 08 6f c7", "vmovdqu64 xmm16,xmm23" },
            { 64, "62 f1 7c 18 c2 c9 03", "vcmpps k1,zmm0,zmm1,{sae},03" },
            { 64, "62 f2 fd 49 93 4c f1 01", "vgatherqpd zmm1{k1},qword ptr [rcx+zmm6*8+08]" },
            { 64, "62 f5 7c 48 58 00", "vaddph zmm0,zmm0,zmmword ptr [rax]" }, { 32, "62 10", "bound  edx,[eax]" },
            // XOP
            { 64, "8f e9 78 90 c1", "vprotb xmm0,xmm1,xmm0" }, { 32, "8f 00", "pop    dword ptr [eax]" } })
    {
        std::vector<std::string> const dLines = Listing(nBits, szBytes, 0x401020);
        EXPECT_EQ(dLines.at(1), std::string("00401020: ") + szText) << nBits << " bits: " << szBytes;
    }
}

// The encodings are random VEX, EVEX and XOP ones. Those that an independent decoder accepts have its length and name.
TEST(Opcode, AgreesWithAnotherDecoderOnVectorInstructions)
{
#ifdef TEST_ZYDIS
    // First bytes of VEX and EVEX (Intel SDM, volume 2, chapter 2), and of XOP (AMD64 manual, volume 6).
    static constexpr unsigned char VEX2 = 0xC5, VEX3 = 0xC4, XOP = 0x8F, EVEX = 0x62;
    static constexpr unsigned char KINDS[] = { VEX2, VEX3, VEX3, XOP, EVEX, EVEX };
    static constexpr unsigned char EVEX_MAPS[] = { 1, 2, 2, 3, 5, 6 };
    for (auto const & [eMode, eMachine, eWidth] : Rows_t<OpcodeMode_e, ZydisMachineMode, ZydisStackWidth>{
             { OPCODE_32_BIT, ZYDIS_MACHINE_MODE_LEGACY_32, ZYDIS_STACK_WIDTH_32 },
             { OPCODE_64_BIT, ZYDIS_MACHINE_MODE_LONG_64, ZYDIS_STACK_WIDTH_64 } })
    {
        OpcodeDecoder_c Decoder(eMode);
        ZydisDecoder Peer;
        ZydisDecoderInit(&Peer, eMachine, eWidth);
        std::mt19937 Random(7);
        int nCompared = 0;
        for (int i = 0; i != 200'000; ++i)
        {
            std::vector<unsigned char> dBytes(RANDOM_BYTES);
            std::generate(dBytes.begin(), dBytes.end(), [&] { return static_cast<unsigned char>(Random()); });
            unsigned char const cKind = dBytes[0] = KINDS[i % 6];
            unsigned const nMap = cKind == EVEX ? EVEX_MAPS[i / 6 % 6] : i / 6 % 3 + (cKind == XOP ? 8u : 1u);
            unsigned const nMask = cKind == VEX2 ? 0xFF : cKind == EVEX ? 0xF0 : 0xE0;
            dBytes[1] = static_cast<unsigned char>(
                (dBytes[1] & nMask) | (cKind == VEX2 ? 0 : nMap) | (eMode == OPCODE_32_BIT ? 0xC0 : 0));
            unsigned char & cRegister = dBytes[cKind == VEX2 ? 1 : 2];
            cRegister = static_cast<unsigned char>(cRegister | (i % 2 ? 0x78 : 0));        // no register in the prefix
            dBytes[2] = static_cast<unsigned char>(dBytes[2] | (cKind == EVEX ? 4 : 0));   // a fixed bit
            if (cKind == EVEX && i % 4 < 2)
            {
                dBytes[3] = static_cast<unsigned char>((dBytes[3] & 0x6F) | 8);   // neither zeroing nor broadcast
            }
            ZydisDecodedInstruction Theirs;
            ZydisDecodedOperand dOperands[ZYDIS_MAX_OPERAND_COUNT];
            if (!ZYAN_SUCCESS(ZydisDecoderDecodeFull(&Peer, dBytes.data(), dBytes.size(), &Theirs, dOperands))
                || (Theirs.meta.isa_ext >= ZYDIS_ISA_EXT_KNC && Theirs.meta.isa_ext <= ZYDIS_ISA_EXT_KNCV))
            {
                continue;   // refused, or of a coprocessor that no system here has
            }
            ++nCompared;
            std::size_t nLength;
            std::string const sText = Decoded(Decoder, dBytes, nLength);
            EXPECT_EQ(std::pair(nLength, sText.substr(0, sText.find(' '))),
                std::pair(std::size_t{ Theirs.length }, std::string(ZydisMnemonicGetString(Theirs.mnemonic))))
                << testing::PrintToString(dBytes);
        }
        EXPECT_GT(nCompared, 10'000);
    }
#else
    GTEST_SKIP() << "Zydis was not found for this machine";
#endif
}

// Each mode has a checksum over texts and lengths. An independent decoder has the same mnemonics, operands and lengths.
TEST(Opcode, WritesTheKnownTextsOfRandomBytes)
{
    for (auto const & [eMode, dwCrc] :
        Rows_t<OpcodeMode_e, std::uint32_t>{ { OPCODE_32_BIT, 1560362208 }, { OPCODE_64_BIT, 3942390181 } })
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

TEST(Opcode, ListsASpan)
{
    EXPECT_THAT(Listing(32, "90 66 90 c3 66 f3", 0x10, 0x13),
        testing::ElementsAre("4294967295", "00000010: nop    ", "16", "00000011: nop    ", "17",
            "00000013: ret          <--------- FAULT!!!"));   // of the prefixes at the end, nothing
    EXPECT_THAT(Listing(64, "90 c3", 0x7F0012345678, 0x7F0012345677),
        testing::ElementsAre("4294967295", "7f0012345678: nop    ", "120", "7f0012345679: ret    "));
    EXPECT_THAT(Listing(64, "48 c5 fc 58 44 b1 20 62 f1 7c 48 58 01 90", 0x10, 0x1D),
        testing::Contains("0000001d: nop          <--------- FAULT!!!"))
        << "in step after vector instructions";
    std::vector<unsigned char> const dCode(2000, 0x90);
    CodeListing_c Listing(dCode.data(), dCode.size(), 0);
    EXPECT_EQ(Listing.Decode(), 1024u);
    EXPECT_EQ(Listing.GetDecodedBytes(), 1024u);
}

TEST(Opcode, ExpandsTheTableExactlyAndRefusesADamagedOne)
{
    auto const [pBytes, nBytes] = OpcodeTables(false).First;
    std::vector<unsigned char> dTable(plat::WordFromLittle(pBytes + 4));
    EXPECT_EQ(OpcodeExpand(pBytes, nBytes, dTable.data(), dTable.size()), dTable.size());
    EXPECT_EQ(OpcodeExpand(pBytes, nBytes, dTable.data(), dTable.size() - 1), 0u);
    EXPECT_EQ(OpcodeExpand(pBytes, nBytes - 1, dTable.data(), dTable.size()), 0u);
    std::vector<unsigned char> dDamaged(pBytes, pBytes + nBytes);
    dDamaged[OPCODE_HEADER_SIZE + 1] = 0x07;   // the first string refers to one that does not exist
    EXPECT_EQ(OpcodeExpand(dDamaged.data(), nBytes, dTable.data(), dTable.size()), 0u);
}

TEST(ZqtoolDisasm, ListsAFileOfAnyLengthAndRefusesWrongArguments)
{
    NEEDS_ZQTOOL;
    TempFolder_c const Folder;
    std::string const sFile = Folder.Write("code.bin", std::string(1500, '\x90') + "\xE9\xFB\xFF\xFF\xFF\x66");
    Result_t const Result = RunTool("disasm --bits 32 --base 0x1000 " + sFile);
    EXPECT_EQ(Result.iStatus, 1) << "a prefix ends the file";
    EXPECT_EQ(std::count(Result.sOutput.begin(), Result.sOutput.end(), '\n'), 1502);
    EXPECT_THAT(Result.sOutput, testing::StartsWith("00001000: nop    \n"));
    EXPECT_THAT(Result.sOutput, testing::HasSubstr("000015db: nop    \n000015dc: jmp    000015dc\n"));
    EXPECT_THAT(Result.sOutput, testing::HasSubstr("code.bin: the bytes from 1505 on can't be listed\n"));
    EXPECT_EQ(RunTool("disasm --bits 16 " + sFile).iStatus, 2);
    EXPECT_EQ(RunTool("disasm --base 12x " + sFile).iStatus, 2);
    EXPECT_EQ(RunTool("disasm " + Folder.Join("none")).iStatus, 1);
    EXPECT_EQ(RunTool("disasm " + Folder.GetPath()).iStatus, 1) << "a folder";
}
