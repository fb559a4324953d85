// zqtool disasm: lists raw bytes of x86 code, one instruction a line, like a crash report.
#include "tools/zqtool/command.h"
#include "tools/zqtool/text.h"
#include "zqcore/copcode.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <memory>

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

    // Returns what is wrong with a hexadecimal number, with or without 0x; empty if nothing is.
    std::string ReadAddress(std::string const & sText, std::uint64_t & Address)
    {
        char const * const pFirst = sText.c_str() + (sText.compare(0, 2, "0x") == 0 ? 2 : 0);
        char const * const pEnd = sText.c_str() + sText.size();
        auto const [pRest, eError] = std::from_chars(pFirst, pEnd, Address, 16);
        return eError == std::errc() && pRest == pEnd ? "" : sText + " is not a hexadecimal number";
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

    int Run(Options_t const & Options)
    {
        std::string sCode;
        if (!ReadCode(Options.sFile, sCode))
        {
            std::fprintf(stderr, "zqtool: can't read %s\n", Printable(Options.sFile).c_str());
            return EXIT_FOUND;
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
        return EXIT_DONE;
    }
}

CommandRun_t PrepareDisasm(CLI::App & App)
{
    auto const pOptions = std::make_shared<Options_t>();
    App.add_option_function<std::string>(
           "--bits",
           [pOptions](std::string const & sBits) { pOptions->eMode = sBits == "32" ? OPCODE_32_BIT : OPCODE_64_BIT; },
           "mode of the processor, 32 or 64 (default)")
        ->type_name("BITS")
        ->check(CLI::IsMember({ "32", "64" }));
    App.add_option("--base", "address of the first byte, hexadecimal; default 0")
        ->type_name("ADDRESS")
        ->each([pOptions](std::string const & sText) { ReadAddress(sText, pOptions->Base); })
        ->check(
            [](std::string const & sText)
            {
                std::uint64_t nIgnored = 0;
                return ReadAddress(sText, nIgnored);
            });
    App.add_option("FILE", pOptions->sFile, "raw bytes of code")->type_name("")->required();
    return [pOptions] { return Run(*pOptions); };
}
