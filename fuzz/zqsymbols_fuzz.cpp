// zqsymbols_fuzz.cpp: the helper with any records from the library, about a small program at the address 4 MiB.
//
// The first byte's lowest bit says whether there is memory. If its second bit is set, the rest is an index file: as a
// whole, then its ranges in a file with a right head. Otherwise its next two bits choose the program, and the rest is:
// 1. of a program with split debug information, the damage to that (Split_c).
// 2. the 8 words of the memory.
// 3. the records. Here and in the memory, an address below 16 MiB counts from the start of the program.
#define main ZqsymbolsMain
#include "tools/zqsymbols/main.cpp"
#undef main

#include "fuzz/fuzz_support.h"

#include <array>
#include <cerrno>
#include <cinttypes>
#include <fstream>
#include <iterator>

namespace
{
    Input_c * g_pInput = nullptr;
    std::uint64_t g_dMemory[8];
    bool g_bMemory = false;
    std::string g_sProgram;
    constexpr std::uint64_t PROGRAM_START = 0x400000, PROGRAM_SIZE = 0x1000000;   // where the program lies

    std::uint64_t GetAddress()
    {
        std::uint64_t const nNumber = g_pInput->Get<std::uint64_t>();
        return nNumber < PROGRAM_SIZE ? PROGRAM_START + nNumber : nNumber;
    }

    // A program whose debug information is in another file, copied to the folder of this process.
    class Split_c
    {
    public:
        Split_c(std::string const & sProgram, std::string const & sOther)
            : m_sProgram(MakeFuzzFolder() + '/' + sProgram)
            , m_sOther(MakeFuzzFolder() + '/' + sOther)
        {
            namespace fs = std::filesystem;
            fs::copy_file(ZQCORE_FUZZ_SPLIT + sProgram, m_sProgram, fs::copy_options::overwrite_existing);
            std::ifstream Whole(ZQCORE_FUZZ_SPLIT + sOther + ".bytes", std::ios::binary);
            m_sWhole.assign(std::istreambuf_iterator<char>(Whole), {});
            Require(!m_sWhole.empty());
        }

        // Writes the other file with the damage of the input, and returns the program's path. A byte has the number of
        // changes in three bits and whether the file is cut in the fourth. Each change has an offset of 14 bits, the
        // logarithm of its bytes, and the bytes. The length after the cut has two bytes.
        std::string const & Damage(Input_c & Input) const
        {
            std::string sBytes = m_sWhole;
            unsigned char const cDamage = Input.Get();
            for (int i = cDamage & 7; i > 0; --i)
            {
                std::uint16_t const nPlace = Input.Get<std::uint16_t>();
                std::string const sChange = Input.Extract(std::size_t{ 1 } << (nPlace >> 14));
                sBytes.replace((nPlace & 0x3FFF) % sBytes.size(), sChange.size(), sChange);
            }
            sBytes.resize(cDamage & 8 ? Input.Get<std::uint16_t>() % sBytes.size() : sBytes.size());
            std::ofstream(m_sOther, std::ios::binary) << sBytes;
            return m_sProgram;
        }

    private:
        std::string m_sProgram, m_sOther, m_sWhole;
    };

    std::string MakeProgram(int iProgram, Input_c & Input)
    {
        static std::array const s_dSplit = { Split_c("split4", "split4.dwp"), Split_c("split5", "split5.dwp"),
            Split_c("split5_file", "split5_sink.dwo") };
        return iProgram == 0 ? ZQCORE_FUZZ_PROGRAM : s_dSplit[static_cast<std::size_t>(iProgram) - 1].Damage(Input);
    }
}

// Receives a record that the library would send, instead of the socket's data, and returns the size of the record. If
// the input has ended, returns 0 instead of the size of a request.
extern "C" ssize_t __wrap_recv(int, void * pRecord, std::size_t nRecord, int)
{
    if (nRecord == sizeof(plat::SymbolMemory_t))
    {
        auto & Memory = *static_cast<plat::SymbolMemory_t *>(pRecord);
        Memory.bReadable = g_bMemory;
        for (std::size_t i = 0; i < sizeof Memory.dBytes; i += sizeof g_dMemory)
        {
            std::memcpy(Memory.dBytes + i, g_dMemory, sizeof g_dMemory);
        }
    }
    else if (nRecord == sizeof(plat::SymbolStart_t))
    {
        auto & Start = *static_cast<plat::SymbolStart_t *>(pRecord);
        Start.dwMagic = plat::SYMBOL_MAGIC;
        unsigned char const cStart = g_pInput->Get();
        Start.nWord = 8u ^ (cStart & 15);
        Start.nPrinters = cStart >> 4 & 3;
        Start.iThread = 0;
        Start.nLockMark = 0;
        std::ranges::generate(Start.dRegisters, GetAddress);
        std::ranges::fill(Start.dVectors, 1);
        Start.nVectors = plat::SYMBOL_VECTORS;
    }
    else if (nRecord == sizeof(plat::SymbolPrinter_t))
    {
        auto & Printer = *static_cast<plat::SymbolPrinter_t *>(pRecord);
        Printer = {};
        g_pInput->Extract(g_pInput->Get() & 63).copy(Printer.szType, sizeof Printer.szType);
        g_pInput->Extract(g_pInput->Get()).copy(Printer.szTemplate, sizeof Printer.szTemplate);
    }
    else
    {
        bool const bEnd = g_pInput->IsEmpty();
        auto & Request = *static_cast<plat::SymbolRequest_t *>(pRecord);
        Request.eAsk = static_cast<plat::SymbolAsk_e>(g_pInput->Get() & 15);
        Request.iIndex = g_pInput->Get<std::uint32_t>();
        Request.nValue = Request.eAsk == plat::ASK_FUNCTION || Request.eAsk == plat::ASK_LINE
                             ? GetAddress()
                             : g_pInput->Get<std::uint64_t>();
        return bEnd ? 0 : sizeof Request;
    }
    return static_cast<ssize_t>(nRecord);
}

// Checks an answer to the library and returns its size.
extern "C" ssize_t __wrap_send(int, void const * pRecord, std::size_t nRecord, int)
{
    auto const & Answer = *static_cast<plat::SymbolAnswer_t const *>(pRecord);
    std::size_t const nText = nRecord - plat::SYMBOL_ANSWER_HEAD;
    Require(Answer.eAnswer <= plat::ANSWER_NEEDS_MEMORY);
    Require(nText <= plat::SYMBOL_TEXT);
    Require(nText == 0 || Answer.nText == nText);
    Require(nText == 0 || std::strlen(Answer.szText) == nText - 1);
    return static_cast<ssize_t>(nRecord);
}

// Leaves the threads of the parent process alone. Returns -1 with the error EPERM.
extern "C" long __wrap_ptrace(int, ...)
{
    errno = EPERM;
    return -1;
}

// Opens a memory map that holds the program alone, and returns its stream.
extern "C" std::FILE * __wrap_fdopen(int, char const *)
{
    static std::string s_sMaps;
    char szRange[40];
    std::snprintf(szRange, sizeof szRange, "%08" PRIx64 "-%08" PRIx64, PROGRAM_START, PROGRAM_START + PROGRAM_SIZE);
    s_sMaps = szRange + (" r-xp 00000000 00:00 1 " + g_sProgram + '\n');
    return fmemopen(s_sMaps.data(), s_sMaps.size(), "r");
}

namespace
{
    void ReadIndex(std::string_view sFile)
    {
        using namespace zqsymbols;
        IndexKey_t const Key = { "0123", 0x1000000, 1, 1 };
        std::optional<IndexParts_t> const Whole = ParseIndex(sFile, Key);
        Require(!Whole || FormatIndex(Key, *Whole) == sFile);
        IndexParts_t Parts;
        for (; sFile.size() >= sizeof(IndexRange_t); sFile.remove_prefix(sizeof(IndexRange_t)))
        {
            IndexRange_t Range;
            std::memcpy(&Range, sFile.data(), sizeof Range);
            std::vector<IndexRange_t> & dRanges = Range.nValue & 1 ? Parts.dUnits : Parts.dSymbols;
            dRanges.push_back(Range);
        }
        std::optional<IndexParts_t> const Read = ParseIndex(FormatIndex(Key, Parts), Key);
        if (Read)
        {
            RangeIndex_c const Index(Read->dUnits);
            for (IndexRange_t const & Range : Read->dUnits)
            {
                bool bFound = Range.nBytes == 0;
                Index.FindAt(Range.nStart, [&](std::uint64_t nValue) { return bFound |= nValue == Range.nValue; });
                Require(bFound);
            }
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    g_pInput = &Input;
    unsigned char const cMode = Input.Get();
    g_bMemory = cMode & 1;
    if (cMode & 2)
    {
        ReadIndex({ reinterpret_cast<char const *>(pData) + 1, nSize - 1 });
        return 0;
    }
    g_sProgram = MakeProgram(cMode >> 2 & 3, Input);
    std::ranges::generate(g_dMemory, GetAddress);
    zqsymbols::Process_c Process;
    Require(!Process.Start() || zqsymbols::Serve(Process));
    return 0;
}
