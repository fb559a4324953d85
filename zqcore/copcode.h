// copcode.h: a disassembler for the code around a crash, for 32-bit and 64-bit x86.
//
// The instruction set is two tables of byte patterns and formats. The decoder knows no instruction. The first table
// holds IA-32 up to SSE2 with x87, MMX and 3DNow!, and the additions of 64-bit mode. The second holds what followed:
// SSE3 to SSE4.2, AES, SHA, CET, XSAVE and the like, and the VEX, EVEX and XOP prefixes with AVX, AVX2, FMA, BMI,
// AVX-512 and AMX. An unknown instruction prints as "db" with its byte, or as the older instruction from which it
// differs only by a prefix. The rows follow the opcode maps in the manuals of the processors' makers. They are added in
// tools/opcodetable/*.txt, which describe their syntax.
//
// - Numbers are hexadecimal without a prefix. Displacements, and bytes that are extended to the operand's size, have a
//   sign.
// - A memory operand with a VEX, EVEX or XOP prefix has a size word. That of an integer or x87 instruction has one too,
//   unless the source is a register, which shows the size. A few others, such as those of `lea` and `fsave`, have
//   none. Most of MMX and SSE have none either.
// - EVEX prefixes show their mask, broadcast and rounding: "vaddps zmm0{k3}{z},zmm1,dword ptr [rax]{1to16}".
// - In 64-bit mode a RIP-relative operand prints as "[rel ADDRESS]".
// - A prefix that an instruction ignores leaves no trace in the text. `lock` prints as an instruction of its own.
//
// Ownership: the caller keeps the code's bytes. The decoder and the listing own pages of the system.
// Threads: one thread for each object. Nothing acquires a lock, so all of it may run in a crashed process.
// Cost: 120 KB of read-only data, which is not read until an object is made. A decoder has 76 KiB of pages, a listing
// 84 KiB. Expanding the first table takes some 30 us, an instruction some 0.3 us, each symbol what its callback takes.
// The heap is not used.
// Failure: without pages Decode returns 0.
//
//     struct Sink_c final : CodeListingSink_c
//     {
//         void WriteLine(char const * szLine) override { Log("%s", szLine); }
//     } Sink;
//     unsigned char const dCode[] = { 0x55, 0xC3 };   // push, ret
//     CodeListing_c Listing(dCode, sizeof dCode, 0x401000);
//     Listing.Decode();
//     Listing.Write(Sink);
#pragma once

#include "zqcore/cconfig.h"

/// Processor mode in which code runs.
enum OpcodeMode_e
{
    OPCODE_32_BIT,
    OPCODE_64_BIT,
    OPCODE_NATIVE = sizeof(void *) == 8 ? OPCODE_64_BIT : OPCODE_32_BIT,   // mode of this process
};

struct OpcodeIndex_s;
struct OpcodeTables_s;

/// Decoder of one instruction at a time.
class OpcodeDecoder_c
{
public:
    /// Function that writes the terminated name of the symbol at an address, of nSize bytes at most, and returns the
    /// distance in bytes from the symbol's start. Returns a negative value if there is no symbol.
    using SymbolCallback_t = std::int64_t (*)(
        OpcodeDecoder_c & Decoder, std::uint64_t Address, char * szName, unsigned nSize);

    /// Allocates the pages and expands the table. Without pages every Decode fails.
    ZQ_API explicit OpcodeDecoder_c(OpcodeMode_e eMode = OPCODE_NATIVE);
    ZQ_API ~OpcodeDecoder_c();
    OpcodeDecoder_c(OpcodeDecoder_c const &) = delete;
    OpcodeDecoder_c & operator=(OpcodeDecoder_c const &) = delete;

    /// Sets the function that Decode calls, once or more, for each jump target, address, displacement and number of 32
    /// or 64 bits that is not 0. Null, the initial value, means no symbols. Keeps pUser for the callback.
    void SetSymbolCallback(SymbolCallback_t fnSymbol, void * pUser)
    {
        m_fnSymbol = fnSymbol;
        m_pUser = pUser;
    }

    /// Returns the pUser of SetSymbolCallback.
    void * GetUser() const { return m_pUser; }

    /// Sets the number that Decode adds to a pointer into the code to get its real address. It is 0 at start.
    void SetAddressBias(std::uint64_t nBias) { m_nBias = nBias; }

    /// Writes the text of the instruction at pCode, of nBytes at most, and returns the instruction's length in bytes.
    /// The text is "%-6s %s" with mnemonic and operands, cut at nText - 1 characters. Requires nText > 0. Returns 0 and
    /// an empty text in these cases:
    /// - nBytes is 0.
    /// - The bytes end inside prefixes.
    /// - Too many prefixes precede the instruction.
    /// - The object has no pages.
    ZQ_API std::size_t Decode(unsigned char const * pCode, std::size_t nBytes, char * szText, std::size_t nText);

private:
    struct Row_s;
    struct Match_t;

    /// Bits of a VEX, XOP or EVEX prefix, except R, X and B, which m_nRex has, and what the text shows of them.
    struct Vex_s
    {
        bool bPresent;
        bool bEvex;
        bool bW;
        bool bBroadcast;      // whether EVEX.b is set with a memory operand
        bool bRounding;       // whether EVEX.b is set with a register operand
        bool bZero;           // whether elements outside of the mask become 0
        unsigned iRounding;   // mode
        unsigned nLength;     // log2 of the vector's bytes, less 4
        unsigned iMask;       // register of the mask
        unsigned iRegister;   // operand of the prefix
        unsigned nHighReg;    // bit 4 of the registers in ModR/M and SIB
        unsigned nHighRm;
        unsigned nHighIndex;
        bool bRegisterShown;   // whether the text shows iRegister, as for the next ones
        bool bIndexShown;
        bool bMaskShown;
        bool bRoundingShown;
    };

    bool RunInstruction(unsigned char const * pCode, Match_t & Match);
    bool RunTables(unsigned char const * pCode, Match_t & Match);
    bool RunGroup(unsigned iSlot, unsigned char const * pCode, std::uint32_t * pFields, Match_t & Match);
    bool MatchPattern(Row_s & Row, unsigned char const * pPattern, std::size_t nPattern);
    bool IsConditionMet(unsigned eCondition) const;
    bool RunSubtable(Row_s & Row, unsigned eCode);
    bool TakeVex(std::uint32_t const * pFields, unsigned char const * pCode);
    bool TakeEvex(unsigned nFirst, unsigned nThird, unsigned char const * pCode);
    bool SetMemorySize(unsigned eCode);
    bool IsVexShown() const;

    void WriteFormat(Row_s const & Row, unsigned char const * pFormat, std::size_t nFormat);
    void RunCode(unsigned eCode, std::uint32_t nFirstField);
    void WriteField(unsigned char const * pEnd, std::uint32_t const * pField, unsigned nSelector, unsigned nShape);
    void WriteRegister(unsigned eKind, unsigned iRegister);
    void WriteGeneral(unsigned iRegister, unsigned nBits);
    void WriteVector(std::uint32_t nField, unsigned nShape);
    void WriteNumbered(char const * szClass, unsigned iRegister);
    void WriteSize(unsigned nBytes);
    void WritePart(unsigned eCode);
    void WriteNumber(unsigned char const * pEnd, std::uint32_t const * pField, unsigned eKind, unsigned nSlice);
    void WriteAddress(std::uint64_t Address);
    void WriteSigned(std::int64_t iValue);
    void WriteTarget(unsigned char const * pEnd, std::int64_t nDistance);
    void OfferSymbol(std::uint64_t Address, std::uint32_t iText);
    std::uint64_t AsAddress(std::uint64_t nAddress) const { return m_b64Bit ? nAddress : nAddress & 0xFFFFFFFFu; }

    void WriteChar(char c);
    void WriteText(char const * szText);
    void WriteHex(std::uint64_t nNumber, int nDigits);

    unsigned char const * m_pTable = nullptr;   // the first table, expanded
    OpcodeTables_s const & m_Tables;
    unsigned char const * m_pRows = nullptr;   // the table that is being matched, and its index
    OpcodeIndex_s const * m_pIndex = nullptr;
    SymbolCallback_t m_fnSymbol = nullptr;
    void * m_pUser = nullptr;
    unsigned char m_bOperandSize = 0;   // whether the instruction has this prefix, as for the next three
    unsigned char m_bAddressSize = 0;
    unsigned char m_bF2 = 0;
    unsigned char m_bF3 = 0;
    unsigned char m_nRex = 0;   // value of the REX prefix, 0 without one
    Vex_s m_Vex{};
    unsigned m_nMemory = 0;     // bytes of the memory operand if a row sets them, else 0
    unsigned m_nElements = 0;   // elements that a broadcast fills
    bool m_b64Bit;
    bool m_bRelative = false;   // whether an operand is relative to the instruction's end, which is not known yet
    char const * m_szSegment = nullptr;   // register of the segment prefix; null without one
    std::uint64_t m_nBias = 0;
    void * m_pPages = nullptr;
    char * m_pText = nullptr;              // working space for the texts of groups
    std::uint32_t * m_pFields = nullptr;   // working space for the fields of the groups that run
    std::uint32_t m_nText = 0;             // characters in m_pText
    std::uint32_t m_nTextSize = 0;
    unsigned char const * m_pEnd = nullptr;              // end of the code's bytes
    unsigned char const * m_pInstructionEnd = nullptr;   // null while it is not known
};

/// Destination of a listing. A crash report has one that writes into the report.
class ZQ_API CodeListingSink_c
{
public:
    /// Writes one line, which has no line feed.
    virtual void WriteLine(char const * szLine) = 0;

    /// Writes the source lines that lead up to an address and returns the number of the last one. iLastLine is the
    /// previous result, all bits set at the first call. The default writes nothing and returns iLastLine.
    virtual unsigned WriteSource(std::uint64_t Address, unsigned iLastLine);

    /// Does and returns the same as OpcodeDecoder_c::SymbolCallback_t. The default knows no symbol.
    virtual std::int64_t GetSymbol(std::uint64_t Address, char * szName, unsigned nSize);

protected:
    ~CodeListingSink_c() = default;
};

/// Instructions of a span of code: Decode finds them, and Write sends them to a sink as lines of text.
class CodeListing_c
{
public:
    /// A listing ends after this number of instructions.
    static constexpr std::size_t MAX_INSTRUCTIONS = 1024;

    /// Makes a listing of nBytes bytes. Address is the real address of the first one. The last instruction may end in
    /// the nAfter bytes that follow, where none begins. Requires that all these bytes stay until the last Write.
    ZQ_API CodeListing_c(unsigned char const * pCode, std::size_t nBytes, std::uint64_t Address,
        OpcodeMode_e eMode = OPCODE_NATIVE, std::size_t nAfter = 0);
    ZQ_API ~CodeListing_c();
    CodeListing_c(CodeListing_c const &) = delete;
    CodeListing_c & operator=(CodeListing_c const &) = delete;

    /// Marks the instruction that starts at this address. No instruction is marked without a call, or if none starts
    /// there.
    void SetFaultAddress(std::uint64_t Address)
    {
        m_FaultAddress = Address;
        m_bFault = true;
    }

    /// Finds the instructions from the first byte on and returns their number, MAX_INSTRUCTIONS at most. Prefixes at
    /// the end without an instruction are not counted.
    ZQ_API std::size_t Decode();

    /// Returns the number of bytes in the instructions found. Returns another number than nBytes in these cases:
    /// - 0 if Decode was not called, or if there are no pages.
    /// - A smaller number if Decode stopped at MAX_INSTRUCTIONS or inside prefixes.
    /// - A larger number if the last instruction ends in the nAfter bytes.
    std::size_t GetDecodedBytes() const
    {
        return m_nInstructions
                   ? m_pInstructions[m_nInstructions - 1].nOffset + m_pInstructions[m_nInstructions - 1].nBytes
                   : 0;
    }

    /// Calls the sink's WriteSource and WriteLine for each instruction found. The line is "%08llx: %s" with address and
    /// text, the text cut at 2047 characters, then the mark if there is one. Symbols are those of the sink's GetSymbol.
    ZQ_API void Write(CodeListingSink_c & Sink);

private:
    struct Instruction_s
    {
        std::uint32_t nOffset;
        std::uint32_t nBytes;
    };
    static_assert(sizeof(Instruction_s) == 8);

    static constexpr std::size_t LINE_SIZE = 2048;
    static constexpr std::size_t PAGES_SIZE = MAX_INSTRUCTIONS * sizeof(Instruction_s);

    unsigned char const * m_pCode;
    std::uint64_t m_nBias;   // real address minus pointer into the code
    std::uint64_t m_Address;
    std::size_t m_nBytes;
    std::size_t m_nAfter;
    std::uint64_t m_FaultAddress = 0;
    bool m_bFault = false;
    Instruction_s * m_pInstructions;   // in pages of their own; null if they could not be allocated
    std::size_t m_nInstructions = 0;
    OpcodeDecoder_c m_Decoder;
};
