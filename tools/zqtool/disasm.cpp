// zqtool disasm: lists raw bytes of x86 code, one instruction a line, like a crash report.
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/json.h"
#include "zqcore/copcode.h"

#include <charconv>
#include <cstdio>
#include <memory>

namespace
{
    constexpr char BITS_32[] = "32";

    struct Options_s
    {
        OpcodeMode_e eMode = OPCODE_64_BIT;
        std::uint64_t nBase = 0;
        std::string sFile;
        bool bJson = false;
    };

    class PrintSink_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override { std::puts(szLine); }
    };

    // Collector of lines "address: text" as an array of objects.
    class JsonSink_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override
        {
            constexpr std::string_view SEPARATOR = ": ";
            std::string const sLine = szLine;
            std::size_t const nColon = sLine.find(SEPARATOR), nText = nColon + SEPARATOR.size();
            std::size_t const nEnd = sLine.find_last_not_of(' ') + 1;
            m_Lines.push_back(
                { { "address", "0x" + sLine.substr(0, nColon) }, { "text", sLine.substr(nText, nEnd - nText) } });
        }

        Json_t m_Lines = Json_t::array();
    };

    // Reads a hexadecimal number, with or without 0x. Returns what is wrong with the text, or an empty text.
    std::string ReadAddress(std::string const & sText, std::uint64_t & nAddress)
    {
        constexpr std::string_view PREFIX = "0x";
        char const * const pFirst = sText.c_str() + (sText.starts_with(PREFIX) ? PREFIX.size() : 0);
        char const * const pEnd = sText.c_str() + sText.size();
        auto const [pRest, eError] = std::from_chars(pFirst, pEnd, nAddress, 16);
        return eError == std::errc() && pRest == pEnd ? "" : sText + " is not a hexadecimal number of 64 bits";
    }

    int Run(Options_s const & Options)
    {
        std::string sCode;
        if (std::string const sWhyNot = ReadInput(Options.sFile, sCode); !sWhyNot.empty())
        {
            PrintProblem(Options.sFile, sWhyNot);
            return EXIT_FOUND;
        }
        auto const * const pCode = reinterpret_cast<unsigned char const *>(sCode.data());
        PrintSink_c PrintSink;
        JsonSink_c JsonSink;
        CodeListingSink_c * const pSink = Options.bJson ? static_cast<CodeListingSink_c *>(&JsonSink) : &PrintSink;
        std::size_t nDone = 0;
        while (nDone != sCode.size())
        {
            CodeListing_c Listing(pCode + nDone, sCode.size() - nDone, Options.nBase + nDone, Options.eMode);
            // Decode returns 0 in these cases:
            // - only prefixes are left.
            // - too many prefixes precede an instruction.
            // - there is no memory.
            if (Listing.Decode() == 0)
            {
                break;
            }
            Listing.Write(*pSink);
            nDone += Listing.GetDecodedBytes();
        }
        if (Options.bJson)
        {
            PrintJson({ { "file", Options.sFile }, { "bits", Options.eMode == OPCODE_32_BIT ? 32 : 64 },
                { "bytes", sCode.size() }, { "listed_bytes", nDone }, { "instructions", JsonSink.m_Lines } });
        }
        if (nDone != sCode.size())
        {
            PrintProblem(Options.sFile, "the bytes from " + std::to_string(nDone) + " on can't be listed");
            return EXIT_FOUND;
        }
        return EXIT_DONE;
    }
}

CommandRun_t PrepareDisasm(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Arguments.AddRead("--bits", "", "mode of the processor; default 64")
        .SetChoices({ BITS_32, "64" })
        .SetReader(
            [pOptions](std::string const & sBits)
            {
                pOptions->eMode = sBits == BITS_32 ? OPCODE_32_BIT : OPCODE_64_BIT;
                return std::string();
            });
    Arguments.AddRead("--base", "ADDRESS", "address of the first byte, hexadecimal; default 0")
        .SetReader([pOptions](std::string const & sText) { return ReadAddress(sText, pOptions->nBase); });
    Arguments.AddText("FILE", "", pOptions->sFile, "raw bytes of code").SetRequired();
    Arguments.AddJson(pOptions->bJson);
    Arguments.SetFooter("Example: zqtool disasm --base 401000 code.bin");
    return [pOptions] { return Run(*pOptions); };
}
