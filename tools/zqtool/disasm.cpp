// zqtool disasm: lists raw bytes of x86 code, one instruction a line, like a crash report.
#include "tools/zqtool/command.h"
#include "zqcore/copcode.h"

#include <charconv>
#include <cstdio>
#include <fstream>

namespace
{
    struct Options_t
    {
        OpcodeMode_e eMode = OPCODE_64_BIT;
        std::uint64_t Base = 0;
        std::string sFile;
    };

    class PrintSink_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override { std::puts(szLine); }
    };

    // Reads a hexadecimal number, with or without 0x.
    bool ReadAddress(std::string const & sText, std::uint64_t & Address)
    {
        char const * const pFirst = sText.c_str() + (sText.compare(0, 2, "0x") == 0 ? 2 : 0);
        char const * const pEnd = sText.c_str() + sText.size();
        auto const [pRest, eError] = std::from_chars(pFirst, pEnd, Address, 16);
        return eError == std::errc() && pRest == pEnd;
    }

    bool ReadOptions(Arguments_t const & dArguments, Options_t & Options)
    {
        std::size_t i = 0;
        for (; i + 2 < dArguments.size(); i += 2)
        {
            std::string const & sValue = dArguments[i + 1];
            if (dArguments[i] == "--bits" && (sValue == "32" || sValue == "64"))
            {
                Options.eMode = sValue == "32" ? OPCODE_32_BIT : OPCODE_64_BIT;
            }
            else if (dArguments[i] != "--base" || !ReadAddress(sValue, Options.Base))
            {
                return false;
            }
        }
        if (i + 1 != dArguments.size() || dArguments[i].compare(0, 2, "--") == 0)
        {
            return false;
        }
        Options.sFile = dArguments[i];
        return true;
    }

    bool ReadCode(std::string const & sFile, std::string & sCode)
    {
        std::ifstream Stream(sFile, std::ios::binary);
        char dChunk[65536];
        while (Stream.read(dChunk, sizeof dChunk) || Stream.gcount() != 0)
        {
            sCode.append(dChunk, static_cast<std::size_t>(Stream.gcount()));
        }
        return Stream.eof();
    }
}

int RunDisasm(Arguments_t const & dArguments)
{
    Options_t Options;
    if (!ReadOptions(dArguments, Options))
    {
        return EXIT_USAGE;
    }
    std::string sCode;
    if (!ReadCode(Options.sFile, sCode))
    {
        std::fprintf(stderr, "zqtool: can't read %s\n", Options.sFile.c_str());
        return 1;
    }
    auto const * const pCode = reinterpret_cast<unsigned char const *>(sCode.data());
    for (std::size_t nDone = 0; nDone != sCode.size();)
    {
        CodeListing_c Listing(pCode + nDone, sCode.size() - nDone, Options.Base + nDone, Options.eMode);
        if (Listing.Decode() == 0)
        {
            break;   // only prefixes are left
        }
        PrintSink_c Sink;
        Listing.Write(Sink);
        nDone += Listing.GetDecodedBytes();
    }
    return 0;
}
