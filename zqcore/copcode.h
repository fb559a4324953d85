// copcode.h: the code around a crash as text, for 32-bit and 64-bit x86.
//
// The instruction set is a table of byte patterns and formats; the engine knows no instruction. The table lies in the
// library's read-only data in a form of about 10 kB and is expanded into pages of the system when a listing is wanted,
// so it costs nothing in normal running. Nothing here touches the heap or takes a lock: all of it may run in a crashed
// process. One object belongs to one thread. Expansion takes some 25 us, an instruction about 1 us, each symbol what
// its callback takes.
//
// The table holds IA-32 up to SSE2, with x87, MMX and 3DNow!, and what 64-bit mode adds to them. What is newer prints
// as "db" with its byte, or as the older instruction where it differs from one by a prefix alone. Numbers print in
// hexadecimal without a prefix; displacements, and bytes that are extended to the operand's size, carry their sign. A
// memory operand has a size word unless a register beside it, as its source, tells the size. In 64-bit mode a
// RIP-relative operand prints as "[rel ADDRESS]". A prefix that an instruction does not heed leaves no trace in the
// text; lock is an instruction of its own.
//
// Rows are added in tools/opcodetable/*.txt, which describe their syntax.
#pragma once

#include "zqcore/cconfig.h"

/// The mode of the processor in which code runs.
enum OpcodeMode_e
{
    OPCODE_32_BIT,
    OPCODE_64_BIT,
    OPCODE_NATIVE = sizeof(void *) == 8 ? OPCODE_64_BIT : OPCODE_32_BIT,   // that of this process
};

/// Decodes one instruction at a time.
class OpcodeDecoder_c
{
public:
    /// Writes the name of the symbol at an address, terminated, and returns the distance from the symbol's start; a
    /// negative value if there is none.
    using SymbolCallback_t = std::int64_t (*)(
        OpcodeDecoder_c & Decoder, std::uint64_t Address, char * szName, unsigned nSize);

    /// Takes the pages and expands the table. Without pages every Decode fails.
    ZQ_API explicit OpcodeDecoder_c(OpcodeMode_e eMode = OPCODE_NATIVE);
    ZQ_API ~OpcodeDecoder_c();
    OpcodeDecoder_c(OpcodeDecoder_c const &) = delete;
    OpcodeDecoder_c & operator=(OpcodeDecoder_c const &) = delete;

    /// Asked for each absolute address, displacement of 32 bits or jump target that is not 0. Null, as at first:
    /// nobody. pUser is kept for the callback.
    void SetSymbolCallback(SymbolCallback_t fnSymbol, void * pUser)
    {
        m_fnSymbol = fnSymbol;
        m_pUser = pUser;
    }
    void * GetUser() const { return m_pUser; }

    /// Added to a pointer into the code to give the real address; 0 at first.
    void SetAddressBias(std::uint64_t nBias) { m_nBias = nBias; }

    /// The length of the instruction at pCode, at most nBytes, and its text ("%-6s %s": mnemonic, operands), cut at
    /// nText - 1 characters. 0 and no text if the bytes end inside prefixes, if nBytes is 0, or without pages.
    ZQ_API std::size_t Decode(unsigned char const * pCode, std::size_t nBytes, char * szText, std::size_t nText);

private:
    struct Row_s;
    struct Match_s;

    bool RunInstruction(unsigned char const * pCode, Match_s & Match);
    bool RunGroup(unsigned iSlot, unsigned char const * pCode, std::uint32_t * pFields, Match_s & Match);
    bool MatchPattern(Row_s & Row, unsigned char const * pPattern, std::size_t nPattern);
    bool IsFlagSet(unsigned nCondition) const;
    bool RunSubtable(Row_s & Row, unsigned nCode);

    void WriteFormat(Row_s const & Row, unsigned char const * pFormat, std::size_t nFormat);
    void RunCode(unsigned nCode, std::uint32_t nFirstField);
    void WriteField(unsigned char const * pEnd, std::uint32_t const * pField, unsigned nSelector, unsigned nShape);
    void WriteRegister(unsigned eKind, unsigned iRegister);
    void WriteGeneral(unsigned iRegister, unsigned nBits);
    void WriteNumber(unsigned char const * pEnd, std::uint32_t const * pField, unsigned eKind, unsigned nSlice);
    void WriteAddress(std::uint64_t nAddress);
    void WriteSigned(std::int64_t nValue);
    void WriteTarget(unsigned char const * pEnd, std::int64_t nDistance);
    void OfferSymbol(std::uint64_t nAddress, std::uint32_t iText);
    std::uint64_t AsAddress(std::uint64_t n) const { return m_b64Bit ? n : n & 0xFFFFFFFFu; }

    void WriteChar(char c);
    void WriteText(char const * szText);
    void WriteHex(std::uint64_t n, int nDigits);

    unsigned char const * m_pTable = nullptr;   // the expanded form
    SymbolCallback_t m_fnSymbol = nullptr;
    void * m_pUser = nullptr;
    unsigned char m_bOperandSize = 0;   // the flags of prefixes: cleared before each instruction
    unsigned char m_bAddressSize = 0;
    unsigned char m_bF2 = 0;
    unsigned char m_bF3 = 0;
    unsigned char m_nRex = 0;   // the prefix itself, 0 without one
    bool m_b64Bit;
    bool m_bRelative = false;   // an operand counts from the instruction's end, which was not known yet
    char const * m_szSegment = nullptr;
    std::uint64_t m_nBias = 0;
    void * m_pPages = nullptr;
    char * m_pText = nullptr;              // working space: the texts of groups
    std::uint32_t * m_pFields = nullptr;   // working space: the fields of the groups that run
    std::uint32_t m_nText = 0;             // characters used
    std::uint32_t m_nTextSize = 0;
    unsigned char const * m_pEnd = nullptr;              // of the bytes
    unsigned char const * m_pInstructionEnd = nullptr;   // null while it is not known
};

/// Where a listing goes. The listing of a crash report has one that writes into the report.
class ZQ_API CodeListingSink_c
{
public:
    virtual void WriteLine(char const * szLine) = 0;

    /// Writes the source lines that lead up to an address; nLastLine is the last result, all ones at first.
    virtual unsigned WriteSource(std::uint64_t Address, unsigned nLastLine);

    /// As OpcodeDecoder_c::SymbolCallback_t. Without one of its own: no symbol.
    virtual std::int64_t GetSymbol(std::uint64_t Address, char * szName, unsigned nSize);

protected:
    ~CodeListingSink_c() = default;
};

/// A span of code, decoded.
class CodeListing_c
{
public:
    static constexpr std::size_t MAX_INSTRUCTIONS = 1024;

    /// The span's bytes, which the caller keeps, their number and their real address.
    ZQ_API CodeListing_c(
        unsigned char const * pCode, std::size_t nBytes, std::uint64_t Address, OpcodeMode_e eMode = OPCODE_NATIVE);
    ZQ_API ~CodeListing_c();
    CodeListing_c(CodeListing_c const &) = delete;
    CodeListing_c & operator=(CodeListing_c const &) = delete;

    /// The instruction at this address is marked in the listing. Without a call, or if no instruction starts there:
    /// none.
    void SetFaultAddress(std::uint64_t Address)
    {
        m_FaultAddress = Address;
        m_bFault = true;
    }

    /// Finds the instructions from the first byte to the end, at most MAX_INSTRUCTIONS; their number. Prefixes at the
    /// end with no instruction behind them are none.
    ZQ_API std::size_t Decode();

    /// The bytes of the instructions found. Fewer than the span has after MAX_INSTRUCTIONS or for prefixes at the end.
    std::size_t GetDecodedBytes() const
    {
        return m_nInstructions
                   ? m_pInstructions[m_nInstructions - 1].nOffset + m_pInstructions[m_nInstructions - 1].nBytes
                   : 0;
    }

    /// Writes a line for each instruction found: "%08lx: %s" with its address and text, and the mark.
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
    std::uint64_t m_nBias;   // from a pointer into the code to its real address
    std::uint64_t m_Address;
    std::size_t m_nBytes;
    std::uint64_t m_FaultAddress = 0;
    bool m_bFault = false;
    Instruction_s * m_pInstructions;   // in pages of their own; null if there were none
    std::size_t m_nInstructions = 0;
    OpcodeDecoder_c m_Decoder;
};
