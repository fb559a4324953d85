#include "zqcore/copcode.h"
#include "zqcore/copcode_internal.h"

#include "tests/test_support.h"
#include "zqcore/ccrc.h"

#include <iterator>
#include <random>
#include <sstream>

namespace
{
    // Keeps the lines; knows the function Blit at 0x401000 and a source line for each address.
    class Lines_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override { dLines.push_back(szLine); }
        unsigned WriteSource(std::uint64_t Address, unsigned nLastLine) override
        {
            dLines.push_back(Hex(nLastLine));
            return static_cast<unsigned>(Address & 0xFF);
        }
        std::int64_t GetSymbol(std::uint64_t Address, char * szName, unsigned nSize) override
        {
            EXPECT_EQ(nSize, 1008u);
            EXPECT_NE(Address, 0u);
            std::snprintf(szName, nSize, "Blit");
            return Address >= 0x401000 && Address < 0x401100 ? static_cast<std::int64_t>(Address - 0x401000) : -1;
        }
        static std::string Hex(unsigned n) { return testing::PrintToString(n); }

        std::vector<std::string> dLines;
    };

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
        return Lines.dLines;
    }

    constexpr std::uint64_t ADDRESS = 0x12345670;
    constexpr char LOCK[] = "lock   ";   // an instruction of its own here

    // Random bytes, often with a prefix or two and with 0F in front.
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

    // The text of the first instruction, with the one that it locks, and the length of both.
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

TEST(Opcode, WritesInstructions)
{
    for (auto const & [nBits, szBytes, szText] :
        Rows_t<int, char const *, char const *>{ { 32, "66 05 34 12", "add    ax,1234" },
            { 32, "05 34 12 00 80", "add    eax,80001234" }, { 32, "00 03", "add    [ebx],al" },
            { 32, "8b 45 f8", "mov    eax,dword ptr [ebp-08]" }, { 32, "f3 90", "pause  " },
            { 32, "f3 a4", "rep    movsb" }, { 32, "f3 64 a5", "rep    movs dword ptr es:[edi],dword ptr fs:[esi]" },
            { 32, "64 89 03", "mov    fs:[ebx],eax" }, { 32, "64 33 c0", "xor    eax,eax" },
            { 32, "a1 00 10 40 00", "mov    eax,dword ptr [Blit (00401000)]" },
            { 32, "8b 80 10 10 40 00", "mov    eax,dword ptr [eaxBlit+10 (+401010)]" },
            { 32, "a1 00 00 00 00", "mov    eax,dword ptr [00000000]" }, { 32, "eb fe", "jmp    Blit+20 (00401020)" },
            { 32, "e8 db 0f c0 ff", "call   00002000" }, { 32, "67 8b 46 10", "mov    eax,dword ptr [bp+10]" },
            { 32, "9a 00 00 50 00 08 00", "call   0008:00500000" }, { 32, "0f 0f c1 9e", "pfadd  mm0,mm1" },
            { 32, "8e f8", "mov    ?7s,ax" }, { 32, "0f 05", "db     0f" }, { 32, "0f", "db     0f" },
            { 64, "48 8b 05 d9 ff ff ff", "mov    rax,qword ptr [rel Blit (00401000)]" },
            { 64, "c7 05 d6 ff ff ff 01 00 00 00", "mov    dword ptr [rel Blit (00401000)],00000001" },
            { 64, "67 8b 05 d9 1f 00 00", "mov    eax,dword ptr [rel 00403000]" },
            { 64, "48 b8 88 77 66 55 44 33 22 11", "mov    rax,1122334455667788" },
            { 64, "48 05 ff ff ff ff", "add    rax,ffffffffffffffff" },
            { 64, "42 8b 44 a5 00", "mov    eax,dword ptr [rbp+r12*4+00]" }, { 64, "40 8a f7", "mov    sil,dil" },
            { 64, "48 66 8b c3", "mov    ax,bx" }, { 64, "41 ff d3", "call   r11" }, { 64, "49 90", "xchg   r8,rax" },
            { 64, "06", "db     06" }, { 64, "f3 0f 1e fa", "endbr64 " },
            { 64, "2e 8b 01", "mov    eax,dword ptr [rcx]" } })
    {
        std::vector<std::string> const dLines = Listing(nBits, szBytes, 0x401020);
        EXPECT_EQ(dLines.at(1), std::string("00401020: ") + szText) << nBits << " bits: " << szBytes;
    }
}

// A checksum over texts and lengths. Each mnemonic, operand and length was compared with an independent decoder's
// before the checksums were written down.
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

TEST(Opcode, ListsASpan)
{
    EXPECT_THAT(Listing(32, "90 66 90 c3 66 f3", 0x10, 0x13),
        testing::ElementsAre("4294967295", "00000010: nop    ", "16", "00000011: nop    ", "17",
            "00000013: ret          <--------- FAULT!!!"));   // of the prefixes at the end, nothing
    EXPECT_THAT(Listing(64, "90 c3", 0x7F0012345678, 0x7F0012345677),
        testing::ElementsAre("4294967295", "7f0012345678: nop    ", "120", "7f0012345679: ret    "));
    std::vector<unsigned char> const dCode(2000, 0x90);
    CodeListing_c Listing(dCode.data(), dCode.size(), 0);
    EXPECT_EQ(Listing.Decode(), 1024u);
    EXPECT_EQ(Listing.GetDecodedBytes(), 1024u);
}

TEST(Opcode, ExpandsTheTableExactlyAndRefusesADamagedOne)
{
    auto const [pBytes, nBytes] = OpcodeTable(false);
    std::vector<unsigned char> dTable(OpcodeWord(pBytes + 4));
    EXPECT_EQ(OpcodeExpand(pBytes, nBytes, dTable.data(), dTable.size()), dTable.size());
    EXPECT_EQ(OpcodeExpand(pBytes, nBytes, dTable.data(), dTable.size() - 1), 0u);
    EXPECT_EQ(OpcodeExpand(pBytes, nBytes - 1, dTable.data(), dTable.size()), 0u);
    std::vector<unsigned char> dDamaged(pBytes, pBytes + nBytes);
    dDamaged[OPCODE_HEADER_SIZE + 1] = 0x07;   // the first string refers to one that does not exist
    EXPECT_EQ(OpcodeExpand(dDamaged.data(), nBytes, dTable.data(), dTable.size()), 0u);
}

TEST(ZqtoolDisasm, ListsAFileOfAnyLength)
{
    TempFolder_c const Folder;
    std::string const sFile = Folder.Write("code.bin", std::string(1500, '\x90') + "\xE9\xFB\xFF\xFF\xFF\x66");
    Result_s const Result = RunTool("disasm --bits 32 --base 0x1000 " + sFile);
    EXPECT_EQ(Result.iStatus, 0);
    EXPECT_EQ(std::count(Result.sOutput.begin(), Result.sOutput.end(), '\n'), 1501);
    EXPECT_THAT(Result.sOutput, testing::StartsWith("00001000: nop    \n"));
    EXPECT_THAT(Result.sOutput, testing::EndsWith("000015db: nop    \n000015dc: jmp    000015dc\n"));
    EXPECT_EQ(RunTool("disasm --bits 16 " + sFile).iStatus, 2);
    EXPECT_EQ(RunTool("disasm --base 12x " + sFile).iStatus, 2);
    EXPECT_EQ(RunTool("disasm " + Folder.Join("none")).iStatus, 1);
    EXPECT_EQ(RunTool("disasm " + Folder.GetPath()).iStatus, 1) << "a folder";
}
