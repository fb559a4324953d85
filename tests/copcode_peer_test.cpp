// The decoder beside an independent one, on every instruction of real libraries and on random bytes.
//
// Both texts are brought to one spelling before they are compared: size words dropped once they agree, numbers without
// leading zeros and cut to the operand's width, condition codes and some mnemonics by the table below, operands that a
// mnemonic implies dropped. What the peer refuses, and what came after SSE2, is left out. MayDiffer tells what remains.
#include "zqcore/copcode.h"

#include "platform/checker.h"
#include "tests/test_support.h"

#ifdef TEST_PEER_ZYDIS
    #include <Zydis/Zydis.h>
    #include <cinttypes>
    #include <cstring>
    #include <elf.h>
    #include <fstream>
    #include <iterator>
    #include <map>
    #include <random>
    #include <set>
    #include <sstream>
    #include <unordered_set>

namespace
{
    using Names_t = std::map<std::string, std::string>;

    constexpr std::uint64_t ADDRESS = 0x12345670;

    /// The peer's names, in our spelling.
    Names_t const CONDITIONS = { { "b", "c" }, { "nb", "nc" }, { "nbe", "a" }, { "p", "pe" }, { "np", "po" },
        { "nl", "ge" }, { "nle", "g" } };
    Names_t const MNEMONICS = { { "fnstcw", "fstcw" }, { "fnstsw", "fstsw" }, { "fnclex", "fclex" },
        { "fninit", "finit" }, { "fnsave", "fsave" }, { "fnstenv", "fstenv" }, { "fwait", "wait" },
        { "loopne", "loopnz" }, { "loope", "loopz" }, { "int3", "int" }, { "xlat", "xlatb" },
        { "punpckldq", "punpcklqd" }, { "fstpnce", "fstp" }, { "pfsqrt", "pfrsqrt" }, { "pfcpit1", "pfrcpit1" },
        { "fxsave64", "fxsave" }, { "fxrstor64", "fxrstor" } };

    constexpr char LISTED[] =
    #include "tests/golden/mnemonics.inc"
        ;

    /// Mnemonics that the peer cannot show: bytes of no row, and encodings that processors reserve.
    constexpr char const * NOT_OF_PEER[] = { "db", "psraq", "rcppd", "rcpsd", "rsqrtpd", "rsqrtsd" };

    std::set<ZydisISASet> const OUR_SETS = { ZYDIS_ISA_SET_I86, ZYDIS_ISA_SET_I186, ZYDIS_ISA_SET_I286PROTECTED,
        ZYDIS_ISA_SET_I286REAL, ZYDIS_ISA_SET_I386, ZYDIS_ISA_SET_I486, ZYDIS_ISA_SET_I486REAL,
        ZYDIS_ISA_SET_PENTIUMREAL, ZYDIS_ISA_SET_PENTIUMMMX, ZYDIS_ISA_SET_PPRO, ZYDIS_ISA_SET_CMOV,
        ZYDIS_ISA_SET_FCMOV, ZYDIS_ISA_SET_X87, ZYDIS_ISA_SET_AMD3DNOW, ZYDIS_ISA_SET_FAT_NOP, ZYDIS_ISA_SET_FXSAVE,
        ZYDIS_ISA_SET_FXSAVE64, ZYDIS_ISA_SET_LAHF, ZYDIS_ISA_SET_LONGMODE, ZYDIS_ISA_SET_CMPXCHG16B,
        ZYDIS_ISA_SET_PAUSE, ZYDIS_ISA_SET_PREFETCH_NOP, ZYDIS_ISA_SET_RDPMC, ZYDIS_ISA_SET_SSE, ZYDIS_ISA_SET_SSE2,
        ZYDIS_ISA_SET_SSE2MMX, ZYDIS_ISA_SET_SSEMXCSR, ZYDIS_ISA_SET_SSE_PREFETCH, ZYDIS_ISA_SET_CLFSH };

    std::string Renamed(Names_t const & Names, std::string const & sName)
    {
        auto const i = Names.find(sName);
        return i == Names.end() ? sName : i->second;
    }

    std::string Hex(std::uint64_t n, unsigned nBits)
    {
        char szDigits[24];
        std::snprintf(szDigits, sizeof szDigits, "%" PRIx64, nBits < 64 ? n & ((std::uint64_t{ 1 } << nBits) - 1) : n);
        return szDigits;
    }

    /// An instruction in the common spelling.
    struct Plain_s
    {
        std::string sMnemonic;
        std::vector<std::string> dOperands;
        unsigned nBits = 0;   // of the memory operand; 0 where ours has no size word

        std::string Text() const
        {
            std::string sText = sMnemonic + (nBits != 0 ? "/" + std::to_string(nBits) : "");
            for (std::string const & sOperand : dOperands)
            {
                sText += " " + sOperand;
            }
            return sText;
        }
    };

    /// The other decoder, with the instruction that it decoded last.
    struct Peer_s
    {
        ZydisDecoder Decoder;
        ZydisDecodedInstruction Is;
        ZydisDecodedOperand dOperands[ZYDIS_MAX_OPERAND_COUNT];

        explicit Peer_s(int nBits)
        {
            ZydisDecoderInit(&Decoder, nBits == 64 ? ZYDIS_MACHINE_MODE_LONG_64 : ZYDIS_MACHINE_MODE_LEGACY_32,
                nBits == 64 ? ZYDIS_STACK_WIDTH_64 : ZYDIS_STACK_WIDTH_32);
        }

        bool Decode(unsigned char const * pCode, std::size_t nBytes)
        {
            return ZYAN_SUCCESS(ZydisDecoderDecodeFull(&Decoder, pCode, nBytes, &Is, dOperands));
        }

        bool Has(ZydisInstructionAttributes nAttribute) const { return (Is.attributes & nAttribute) != 0; }

        std::string Mnemonic() const
        {
            std::string const sName = ZydisMnemonicGetString(Is.mnemonic);
            if (Is.mnemonic == ZYDIS_MNEMONIC_RET && Is.meta.branch_type == ZYDIS_BRANCH_TYPE_FAR)
            {
                return "retf";
            }
            for (char const * const szStem : { "cmov", "set", "j" })
            {
                if (sName.starts_with(szStem))
                {
                    return szStem + Renamed(CONDITIONS, sName.substr(std::strlen(szStem)));
                }
            }
            return Renamed(MNEMONICS, sName);
        }

        bool IsString() const
        {
            return Is.meta.category == ZYDIS_CATEGORY_STRINGOP || Is.meta.category == ZYDIS_CATEGORY_IOSTRINGOP;
        }

        /// Whether a prefix gives the operand its segment; a string's destination keeps its own.
        bool HasOverride(ZydisDecodedOperandMem const & Memory) const
        {
            bool const bDestination = Memory.base == ZYDIS_REGISTER_RDI || Memory.base == ZYDIS_REGISTER_EDI
                                      || Memory.base == ZYDIS_REGISTER_DI;
            return Has(ZYDIS_ATTRIB_HAS_SEGMENT) && Memory.type != ZYDIS_MEMOP_TYPE_AGEN
                   && !(IsString() && bDestination);
        }

        std::string Memory(ZydisDecodedOperandMem const & Memory) const
        {
            std::string sText = HasOverride(Memory) ? std::string(ZydisRegisterGetString(Memory.segment)) + ":[" : "[";
            auto const Add = [&](std::string const & sTerm) { sText += (sText.back() == '[' ? "" : "+") + sTerm; };
            if (Memory.base == ZYDIS_REGISTER_RIP || Memory.base == ZYDIS_REGISTER_EIP)
            {
                return sText + "rel " + Hex(ADDRESS + Is.length + static_cast<std::uint64_t>(Memory.disp.value), 64)
                       + "]";
            }
            if (Memory.base != ZYDIS_REGISTER_NONE)
            {
                Add(ZydisRegisterGetString(Memory.base));
            }
            if (Memory.index != ZYDIS_REGISTER_NONE)
            {
                Add(ZydisRegisterGetString(Memory.index));
                sText += Memory.scale > 1 ? "*" + std::to_string(Memory.scale) : "";
            }
            if (Memory.disp.has_displacement && (Memory.disp.value != 0 || sText.back() == '['))
            {
                Add(Hex(static_cast<std::uint64_t>(Memory.disp.value), Is.address_width));
            }
            return sText + "]";
        }

        std::string Operand(ZydisDecodedOperand const & One) const
        {
            switch (One.type)
            {
            case ZYDIS_OPERAND_TYPE_REGISTER:
                return ZydisRegisterGetString(One.reg.value);
            case ZYDIS_OPERAND_TYPE_MEMORY:
                return Memory(One.mem);
            case ZYDIS_OPERAND_TYPE_POINTER:
                return Hex(One.ptr.segment, 16) + ":" + Hex(One.ptr.offset, 32);
            default:
                return One.imm.is_relative ? Hex(ADDRESS + Is.length + One.imm.value.u, Is.operand_width)
                                           : Hex(One.imm.value.u, Is.operand_width);
            }
        }

        /// Whether the texts may differ.
        bool MayDiffer(unsigned char const * pCode) const
        {
            unsigned char const * const pEnd = pCode + Is.raw.prefix_count;
            auto const HasPrefix = [&](unsigned char c) { return std::find(pCode, pEnd, c) != pEnd; };
            auto const IsOneOf = [&](std::initializer_list<ZydisMnemonic> dMnemonics)
            { return std::find(dMnemonics.begin(), dMnemonics.end(), Is.mnemonic) != dMnemonics.end(); };
            bool const bPort = Is.meta.category == ZYDIS_CATEGORY_IO || Is.meta.category == ZYDIS_CATEGORY_IOSTRINGOP;
            bool const dReasons[] = {
                // Lock is an instruction of its own here: it loses the prefixes before it.
                std::count(pCode, pEnd, 0xF0) > (pCode[0] == 0xF0),
                // 67 with base 5 and no displacement: the peer adds r13d, which processors do not.
                Is.address_width == 32 && Is.raw.rex.B != 0 && Is.raw.modrm.mod == 0 && Is.raw.modrm.rm == 4
                    && Is.raw.sib.base == 5,
                // 66 before movsxd: the manuals differ in the source's size, and so does the peer by its form.
                Is.mnemonic == ZYDIS_MNEMONIC_MOVSXD && Is.operand_width == 16,
                // 3E before an indirect branch: a segment override here, notrack with CET.
                Has(ZYDIS_ATTRIB_HAS_NOTRACK),
                // 66 beside REX.W, which means nothing to a port.
                bPort && Is.raw.rex.W != 0 && HasPrefix(0x66),
                // F2 and F3: the processor obeys the last, the table the first row.
                HasPrefix(0xF2) && HasPrefix(0xF3),
                // The short form alone.
                IsOneOf({ ZYDIS_MNEMONIC_OUTSB, ZYDIS_MNEMONIC_OUTSW, ZYDIS_MNEMONIC_OUTSD })
                    && Has(ZYDIS_ATTRIB_HAS_SEGMENT),
                // Reserved hints, whose operands mean nothing yet.
                Is.mnemonic == ZYDIS_MNEMONIC_NOP && Is.meta.isa_set == ZYDIS_ISA_SET_PPRO,
                // Remnants of the 8087 and 80287, which do nothing: no row.
                IsOneOf({ ZYDIS_MNEMONIC_FENI8087_NOP, ZYDIS_MNEMONIC_FDISI8087_NOP, ZYDIS_MNEMONIC_FSETPM287_NOP }),
                // Meant to be undefined, or undocumented: no row.
                IsOneOf({ ZYDIS_MNEMONIC_UD0, ZYDIS_MNEMONIC_UD1, ZYDIS_MNEMONIC_INT1 }),
            };
            return std::count(std::begin(dReasons), std::end(dReasons), true) != 0;
        }

        unsigned MemorySize() const
        {
            auto const * const p = std::find_if(dOperands, dOperands + Is.operand_count,
                [](ZydisDecodedOperand const & One) { return One.type == ZYDIS_OPERAND_TYPE_MEMORY; });
            return p != dOperands + Is.operand_count ? p->size : 0;
        }

        /// The operands that ours has nOurs of, and the size if ours has one.
        Plain_s Plain(std::size_t nOurs, bool bSized) const
        {
            Plain_s Text{ Mnemonic(), {}, bSized ? MemorySize() : 0 };
            for (unsigned i = 0; i != Is.operand_count_visible; ++i)
            {
                bool const bImpliedStack = Is.meta.isa_set == ZYDIS_ISA_SET_X87 && Is.operand_count_visible == nOurs + 1
                                           && dOperands[i].reg.value == ZYDIS_REGISTER_ST0
                                           && Text.dOperands.size() == i;
                bool const bUnused =
                    Is.mnemonic == ZYDIS_MNEMONIC_NOP && dOperands[i].encoding != ZYDIS_OPERAND_ENCODING_MODRM_RM;
                if (!bImpliedStack && !bUnused)
                {
                    Text.dOperands.push_back(Operand(dOperands[i]));
                }
            }
            for (unsigned i = 0; i != Is.operand_count && IsString(); ++i)
            {
                if (dOperands[i].type == ZYDIS_OPERAND_TYPE_MEMORY && (nOurs != 0 || HasOverride(dOperands[i].mem)))
                {
                    Text.dOperands.push_back(Operand(dOperands[i]));
                }
            }
            if (Is.mnemonic == ZYDIS_MNEMONIC_XLAT)
            {
                Text.dOperands.clear();
            }
            if (Is.mnemonic == ZYDIS_MNEMONIC_INT3)
            {
                Text.dOperands = { "3" };
            }
            return Text;
        }
    };

    bool IsNumber(std::string const & sText)
    {
        return !sText.empty() && sText.find_first_not_of("0123456789abcdef") == std::string::npos;
    }

    std::string PlainNumber(std::string const & sText, bool bNegative, unsigned nBits)
    {
        std::uint64_t const n = std::stoull(sText, nullptr, 16);
        return Hex(bNegative ? 0 - n : n, nBits);
    }

    /// [ebp-08] as [ebp+fffffff8], without a displacement of zero.
    std::string PlainMemory(std::string const & sText, unsigned nBits)
    {
        std::size_t const iOpen = sText.find('[');
        std::string sOut = sText.substr(0, iOpen + 1);
        for (std::size_t i = iOpen + 1; i < sText.size() - 1;)
        {
            bool const bNegative = sText[i] == '-';
            i += bNegative || sText[i] == '+';
            std::size_t const iEnd = sText.find_first_of("+-]", i);
            std::string sTerm = sText.substr(i, iEnd - i);
            i = iEnd;
            if (sTerm.starts_with("rel "))
            {
                sTerm = "rel " + PlainNumber(sTerm.substr(4), false, 64);
            }
            else if (IsNumber(sTerm))
            {
                sTerm = PlainNumber(sTerm, bNegative, nBits);
                if (sTerm == "0" && sOut.back() != '[')
                {
                    continue;
                }
            }
            sOut += (sOut.back() == '[' ? "" : "+") + sTerm;
        }
        return sOut + "]";
    }

    std::string PlainOperand(std::string sText, Peer_s const & Peer)
    {
        std::size_t const iPtr = sText.find(" ptr ");
        sText.erase(0, iPtr == std::string::npos ? 0 : iPtr + 5);
        std::size_t const iColon = sText.find(':');
        if (sText.back() == ']')
        {
            bool const bDestination = Peer.IsString() && sText.find("di]") != std::string::npos;
            sText.erase(0, bDestination && sText.compare(0, 3, "es:") == 0 ? 3 : 0);
            return PlainMemory(sText, Peer.Is.address_width);
        }
        if (iColon != std::string::npos)
        {
            return PlainNumber(sText.substr(0, iColon), false, 16) + ":"
                   + PlainNumber(sText.substr(iColon + 1), false, 32);
        }
        bool const bSigned = sText[0] == '+' || sText[0] == '-';
        if (IsNumber(sText.substr(bSigned)))
        {
            return PlainNumber(sText.substr(bSigned), sText[0] == '-', Peer.Is.operand_width);
        }
        return !sText.starts_with("st") ? sText : sText == "st" ? "st0" : "st" + sText.substr(3, 1);
    }

    Plain_s PlainOurs(std::string const & sText, Peer_s const & Peer)
    {
        std::istringstream Words(sText);
        Plain_s Plain;
        Words >> Plain.sMnemonic;
        if (Plain.sMnemonic.compare(0, 3, "rep") == 0)
        {
            Words >> Plain.sMnemonic;
        }
        Words >> std::ws;
        for (std::string sOperand; std::getline(Words, sOperand, ',');)
        {
            Plain.dOperands.push_back(PlainOperand(sOperand, Peer));
        }
        for (auto const & [szWord, nBits] : Rows_t<char const *, unsigned>{ { "byte", 8 }, { "word", 16 },
                 { "dword", 32 }, { "fword", 48 }, { "qword", 64 }, { "real80", 80 }, { "tbyte", 80 } })
        {
            std::size_t const iWord = sText.find(std::string(szWord) + " ptr");
            bool const bWhole = iWord != std::string::npos && (sText[iWord - 1] == ' ' || sText[iWord - 1] == ',');
            Plain.nBits = bWhole ? nBits : Plain.nBits;
        }
        bool const bLongForm = Peer.IsString() && !Plain.dOperands.empty();
        if (bLongForm)   // movs byte ptr: movsb
        {
            Plain.sMnemonic += sText[sText.rfind(' ', sText.find(" ptr ") - 1) + 1];
        }
        if (Plain.dOperands.empty() && (Plain.sMnemonic == "aam" || Plain.sMnemonic == "aad"))
        {
            Plain.dOperands = { "a" };
        }
        return Plain;
    }

    /// Compares instructions, and steps over them as the peer does.
    class Comparison_c
    {
    public:
        explicit Comparison_c(int nBits)
            : m_Peer(nBits)
            , m_Decoder(nBits == 64 ? OPCODE_64_BIT : OPCODE_32_BIT)
        {}

        /// Compares one instruction; the bytes to go on by.
        std::size_t Step(unsigned char const * pCode, std::size_t nBytes)
        {
            if (!m_Peer.Decode(pCode, nBytes))
            {
                return 1;
            }
            if (OUR_SETS.count(m_Peer.Is.meta.isa_set) == 0 || m_Peer.MayDiffer(pCode))
            {
                return m_Peer.Is.length;
            }
            ++m_nCompared;
            if (!m_dDone.emplace(pCode, pCode + m_Peer.Is.length).second)
            {
                return m_Peer.Is.length;   // the very same bytes again
            }
            char szText[256];
            m_Decoder.SetAddressBias(ADDRESS - reinterpret_cast<std::uintptr_t>(pCode));
            std::size_t nLength = m_Decoder.Decode(pCode, nBytes, szText, sizeof szText);
            if (std::strcmp(szText, "lock   ") == 0)
            {
                m_dMnemonics.insert("lock");
                std::size_t const nLock = nLength;
                nLength += m_Decoder.Decode(pCode + nLock, nBytes - nLock, szText, sizeof szText);
            }
            Compare(szText, nLength, pCode);
            return m_Peer.Is.length;
        }

        std::size_t GetCompared() const { return m_nCompared; }
        std::set<std::string> const & GetMnemonics() const { return m_dMnemonics; }

    private:
        void Compare(std::string const & sText, std::size_t nLength, unsigned char const * pCode)
        {
            Plain_s const Ours = PlainOurs(sText, m_Peer);
            Plain_s const Theirs = m_Peer.Plain(Ours.dOperands.size(), Ours.nBits != 0);
            std::size_t const nStem = Ours.sMnemonic.size() - m_Peer.IsString();   // movs of movsb
            m_dMnemonics.insert({ sText.substr(0, sText.find(' ')), Ours.sMnemonic, Ours.sMnemonic.substr(0, nStem) });
            bool const bSame = Ours.Text() == Theirs.Text() && nLength == m_Peer.Is.length;
            if (!bSame && ++m_nFailed <= 20)
            {
                std::string sBytes;
                std::for_each(pCode, pCode + m_Peer.Is.length, [&](unsigned char c) { sBytes += Hex(c, 8) + " "; });
                ADD_FAILURE() << sBytes << "is \"" << sText << "\", " << nLength << " bytes, or " << Ours.Text()
                              << "; the peer has " << Theirs.Text();
            }
        }

        Peer_s m_Peer;
        OpcodeDecoder_c m_Decoder;
        std::size_t m_nCompared = 0;
        std::size_t m_nFailed = 0;
        std::set<std::string> m_dMnemonics;        // of ours
        std::unordered_set<std::string> m_dDone;   // the bytes of the instructions compared
    };

    /// Random bytes, often with a prefix or two and with 0F in front.
    std::vector<unsigned char> RandomInstruction(std::mt19937 & Random, int nBits)
    {
        static constexpr unsigned char PREFIXES[] = { 0x66, 0xF2, 0xF3, 0x66, 0x67, 0xF0, 0x2E, 0x64 };
        std::vector<unsigned char> dBytes;
        auto const OneOf = [&](unsigned n) { return static_cast<unsigned>(Random()) % n; };
        auto const Add = [&](unsigned c) { dBytes.push_back(static_cast<unsigned char>(c)); };
        while (OneOf(2) == 0)
        {
            Add(PREFIXES[OneOf(8)]);
        }
        if (nBits == 64 && OneOf(3) == 0)
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

    template <typename EHDR, typename SHDR>
    std::vector<unsigned char> CodeOf(std::string const & sFile)
    {
        std::ifstream Stream(sFile, std::ios::binary);
        std::string const sBytes{ std::istreambuf_iterator<char>(Stream), {} };
        std::vector<unsigned char> dCode;
        EHDR Header{};
        std::memcpy(&Header, sBytes.data(), std::min(sizeof Header, sBytes.size()));
        for (unsigned i = 0; i != Header.e_shnum; ++i)
        {
            SHDR Section;
            std::memcpy(&Section, sBytes.data() + Header.e_shoff + i * sizeof Section, sizeof Section);
            if (Section.sh_type == SHT_PROGBITS && (Section.sh_flags & SHF_EXECINSTR))
            {
                dCode.insert(dCode.end(), sBytes.begin() + static_cast<std::ptrdiff_t>(Section.sh_offset),
                    sBytes.begin() + static_cast<std::ptrdiff_t>(Section.sh_offset + Section.sh_size));
            }
        }
        return dCode;
    }
}

TEST(OpcodePeer, AgreesOnRandomBytesAndKnowsEveryMnemonic)
{
    constexpr int INSTRUCTIONS = plat::ADDRESS_CHECKER ? 50'000 : 500'000;   // the rare ones need many
    std::set<std::string> dSeen(std::begin(NOT_OF_PEER), std::end(NOT_OF_PEER));
    for (int const nBits : { 32, 64 })
    {
        Comparison_c Comparison(nBits);
        std::mt19937 Random(7);
        for (int i = 0; i != INSTRUCTIONS; ++i)
        {
            Comparison.Step(RandomInstruction(Random, nBits).data(), 24);
        }
        EXPECT_GT(Comparison.GetCompared(), INSTRUCTIONS * 3 / 5u) << nBits;
        dSeen.insert(Comparison.GetMnemonics().begin(), Comparison.GetMnemonics().end());
    }
    std::istringstream Names(LISTED);
    for (std::string sName; Names >> sName && !plat::ADDRESS_CHECKER;)
    {
        EXPECT_EQ(dSeen.count(sName), 1u) << sName;
    }
}

TEST(OpcodePeer, AgreesOnEveryInstructionOfRealLibraries)
{
    std::string const sWide = "/usr/lib/x86_64-linux-gnu/";
    std::string sMissing;
    for (auto const & [nBits, sFile] : Rows_t<int, std::string>{ { 32, "/usr/lib32/libm.so.6" },
             { 64, sWide + "libm.so.6" }, { 32, "/usr/lib32/libc.so.6" }, { 32, "/usr/lib32/libstdc++.so.6" },
             { 64, sWide + "libc.so.6" }, { 64, sWide + "libstdc++.so.6" }, { 64, sWide + "libcrypto.so.3" } })
    {
        std::vector<unsigned char> const dCode =
            nBits == 64 ? CodeOf<Elf64_Ehdr, Elf64_Shdr>(sFile) : CodeOf<Elf32_Ehdr, Elf32_Shdr>(sFile);
        sMissing += dCode.empty() ? " " + sFile : "";
        Comparison_c Comparison(nBits);
        for (std::size_t i = 0; i < dCode.size();)
        {
            i += Comparison.Step(dCode.data() + i, std::min<std::size_t>(dCode.size() - i, 24));
        }
        EXPECT_GE(Comparison.GetCompared(), dCode.size() / 6) << sFile;
        if (plat::ADDRESS_CHECKER && sFile == sWide + "libm.so.6")
        {
            break;   // the rest is left to builds that take less time
        }
    }
    if (!sMissing.empty())
    {
        GTEST_SKIP() << "not installed (libc6-i386, lib32stdc++6, libssl3):" << sMissing;
    }
}
#else
TEST(OpcodePeer, AgreesOnRandomBytesAndKnowsEveryMnemonic)
{
    GTEST_SKIP() << "the independent disassembler is missing (libzydis-dev, of this word size)";
}
#endif
