// listing_marks.cpp: measures the code listing of a crash report over the output of "objdump -d -w -M intel".
// listing_marks.sh runs both over libraries.
//
// The program places a fault on each instruction. The listing starts SPAN_BEFORE bytes before the fault's piece of
// SPAN_PIECE bytes, in general inside an instruction. The fault is lost if no listed instruction starts at its address.
// Instructions with a VEX or EVEX prefix (Intel SDM, volume 2, chapter 2) or an XOP prefix (AMD64 manual, volume 6) are
// vector instructions, which it counts apart. It compares their names and all lengths with those of objdump.
#include "zqcore/cexceptionreport_internal.h"
#include "zqcore/copcode.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace
{
    using exceptionreport::SPAN_BEFORE;
    using exceptionreport::SPAN_PIECE;

    struct Instruction_t
    {
        std::size_t nOffset;   // in the code of its section
        std::size_t nBytes;
        std::string sText;
    };

    struct Section_t
    {
        std::uint64_t Address = 0;
        std::vector<unsigned char> dCode;
        std::vector<Instruction_t> dInstructions;
    };

    struct Count_t
    {
        unsigned nAll = 0, nLost = 0, nOtherLength = 0, nOtherName = 0;
    };

    // Reads a line "  ADDRESS:\tBYTES \tTEXT". Returns false if it has another form.
    bool ReadLine(
        std::string const & sLine, std::uint64_t & Address, std::vector<unsigned char> & dBytes, std::string & sText)
    {
        char * pEnd;
        Address = std::strtoull(sLine.c_str(), &pEnd, 16);
        if (pEnd == sLine.c_str() || pEnd[0] != ':' || pEnd[1] != '\t')
        {
            return false;
        }
        dBytes.clear();
        char const * p = pEnd + 2;
        while (std::isxdigit(static_cast<unsigned char>(p[0])) && std::isxdigit(static_cast<unsigned char>(p[1])))
        {
            dBytes.push_back(static_cast<unsigned char>(std::stoi(std::string(p, 2), nullptr, 16)));
            for (p += 2; *p == ' '; ++p)
            {}
        }
        sText = *p == '\t' ? p + 1 : "";
        return !dBytes.empty();
    }

    // Returns whether the code has a VEX, EVEX or XOP prefix, alone or after segment and address size prefixes.
    bool IsVector(Section_t const & Section, Instruction_t const & Instruction, bool b64Bit)
    {
        static constexpr std::string_view PREFIXES = "\x26\x2E\x36\x3E\x64\x65\x67";
        unsigned char const * p = Section.dCode.data() + Instruction.nOffset;
        unsigned char const * const pEnd = p + Instruction.nBytes;
        while (p != pEnd && PREFIXES.find(static_cast<char>(*p)) != PREFIXES.npos)
        {
            ++p;
        }
        if (pEnd - p < 3)
        {
            return false;
        }
        return p[0] == 0x8F ? (p[1] & 0x1F) >= 8
                            : (p[0] == 0xC4 || p[0] == 0xC5 || p[0] == 0x62) && (b64Bit || p[1] >= 0xC0);
    }

    // Returns the first word that is neither "addr32" nor begins with a brace, as "{evex}" does.
    std::string Mnemonic(std::string const & sText)
    {
        std::istringstream Words(sText);
        std::string sWord;
        while (Words >> sWord && (sWord[0] == '{' || sWord == "addr32"))
        {}
        return sWord;
    }

    // Returns whether the names are equal or begin with the same stem. In names with STEMS, objdump expresses the
    // immediate byte.
    bool IsSameName(std::string const & sTheirs, std::string const & sOurs)
    {
        static constexpr char const * STEMS[] = { "vcmp", "vpcmp", "vpcom", "vpclmul" };
        return sTheirs == sOurs
               || std::any_of(std::begin(STEMS), std::end(STEMS),
                   [&](char const * szStem) { return sTheirs.starts_with(szStem) && sOurs.starts_with(szStem); });
    }

    class Measure_c
    {
    public:
        Measure_c(bool b64Bit, bool bDetails)
            : m_b64Bit(b64Bit)
            , m_bDetails(bDetails)
            , m_Decoder(b64Bit ? OPCODE_64_BIT : OPCODE_32_BIT)
        {}

        void Add(Section_t const & Section)
        {
            m_dLengths.assign(Section.dCode.size(), 0);
            for (Instruction_t const & Instruction : Section.dInstructions)
            {
                bool const bVector = IsVector(Section, Instruction, m_b64Bit);
                ++m_dCounts[bVector].nAll;
                m_dCounts[bVector].nLost += !IsMarked(Section, Instruction.nOffset);
                Compare(Section, Instruction, bVector);
            }
        }

        void Print() const
        {
            for (bool const bVector : { true, false })
            {
                Count_t const & Count = m_dCounts[bVector];
                std::printf("%-6s %7u, lost %u (%.2f %%), other length %u, other name %u\n",
                    bVector ? "vector" : "other", Count.nAll, Count.nLost,
                    Count.nAll != 0 ? 100.0 * Count.nLost / Count.nAll : 0.0, Count.nOtherLength, Count.nOtherName);
            }
            for (auto const & [sWhat, nTimes] : m_dDetails)
            {
                std::printf("    %6u  %s\n", nTimes, sWhat.c_str());
            }
        }

    private:
        // Returns the length of the instruction at an offset, or 1 if there is none.
        std::size_t LengthAt(Section_t const & Section, std::size_t nOffset)
        {
            if (m_dLengths[nOffset] == 0)
            {
                char szText[2];
                std::size_t const nBytes = m_Decoder.Decode(
                    Section.dCode.data() + nOffset, Section.dCode.size() - nOffset, szText, sizeof szText);
                m_dLengths[nOffset] = static_cast<unsigned char>(std::max<std::size_t>(nBytes, 1));
            }
            return m_dLengths[nOffset];
        }

        // Returns whether the listing that a fault at this offset would have has an instruction there.
        bool IsMarked(Section_t const & Section, std::size_t nFault)
        {
            std::size_t const nInPiece = (Section.Address + nFault) % SPAN_PIECE;
            std::size_t nOffset = nFault > nInPiece + SPAN_BEFORE ? nFault - nInPiece - SPAN_BEFORE : 0;
            while (nOffset < nFault)
            {
                nOffset += LengthAt(Section, nOffset);
            }
            return nOffset == nFault;
        }

        // Counts an instruction whose length or name differs from objdump's.
        void Compare(Section_t const & Section, Instruction_t const & Instruction, bool bVector)
        {
            std::string const sTheirs = Mnemonic(Instruction.sText);
            if (sTheirs.empty() || sTheirs == ".byte" || sTheirs.starts_with("rex")
                || Instruction.sText.find("(bad)") != std::string::npos)
            {
                return;
            }
            Count_t & Count = m_dCounts[bVector];
            char szText[256];
            std::size_t const nBytes = m_Decoder.Decode(Section.dCode.data() + Instruction.nOffset,
                Section.dCode.size() - Instruction.nOffset, szText, sizeof szText);
            std::string const sOurs = szText;
            bool const bApart = sOurs == "lock   " || sOurs == "wait   ";   // an instruction of its own in our listing
            bool const bLength = nBytes != Instruction.nBytes && !bApart;
            bool const bName = bVector && !IsSameName(sTheirs, Mnemonic(sOurs));
            Count.nOtherLength += bLength;
            Count.nOtherName += bName;
            if (m_bDetails && (bLength || bName))
            {
                ++m_dDetails[Instruction.sText + " is " + sOurs];
            }
        }

        bool m_b64Bit;
        bool m_bDetails;
        OpcodeDecoder_c m_Decoder;
        std::vector<unsigned char> m_dLengths;   // at each offset of the section, 0 if not known yet
        Count_t m_dCounts[2];
        std::map<std::string, unsigned> m_dDetails;
    };
}

// Measures the listing over the output of objdump on standard input and prints the counts. With -v also lists what
// differs.
int main(int nArguments, char ** dArguments)
{
    bool const bDetails = nArguments > 1 && std::string(dArguments[1]) == "-v";
    std::vector<Section_t> dSections;
    bool b64Bit = true;
    std::string sLine, sText;
    std::vector<unsigned char> dBytes;
    std::uint64_t Address = 0;
    while (std::getline(std::cin, sLine))
    {
        if (sLine.find("file format elf32") != std::string::npos)
        {
            b64Bit = false;
        }
        if (!ReadLine(sLine, Address, dBytes, sText))
        {
            continue;
        }
        if (dSections.empty() || dSections.back().Address + dSections.back().dCode.size() != Address)
        {
            dSections.emplace_back().Address = Address;
        }
        Section_t & Section = dSections.back();
        Section.dInstructions.push_back({ Section.dCode.size(), dBytes.size(), sText });
        Section.dCode.insert(Section.dCode.end(), dBytes.begin(), dBytes.end());
    }
    Measure_c Measure(b64Bit, bDetails);
    for (Section_t const & Section : dSections)
    {
        Measure.Add(Section);
    }
    Measure.Print();
    return 0;
}
