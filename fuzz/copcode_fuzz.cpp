// copcode_fuzz.cpp: code of any bytes in both modes, and compact tables of any bytes.
//
// The bytes after an instruction do not change its text.
#include "fuzz/fuzz_support.h"
#include "zqcore/copcode.h"
#include "zqcore/copcode_internal.h"

#include <vector>

namespace
{
    constexpr std::uint64_t ADDRESS = 0x1000;   // of the code's first byte

    // Counter of the lines of a listing. An address has a symbol or none, depending on its value.
    class CountingSink_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override
        {
            Require(std::strlen(szLine) > std::strlen("00001000: "));
            ++m_nLines;
        }
        std::int64_t GetSymbol(std::uint64_t Address, char * szName, unsigned nSize) override
        {
            std::memset(szName, 's', nSize - 1);
            szName[nSize - 1] = '\0';
            return static_cast<std::int64_t>(Address % 3) - 1;
        }

        std::size_t m_nLines = 0;
    };

    // Decodes the first instruction of nBytes and returns its text, padded with zeros. Sets nBytes to its length.
    std::string DecodeFirst(OpcodeDecoder_c & Decoder, unsigned char const * pCode, std::size_t & nBytes)
    {
        std::string sText(256, '\0');
        Decoder.SetAddressBias(ADDRESS - reinterpret_cast<std::uintptr_t>(pCode));
        nBytes = Decoder.Decode(pCode, nBytes, sText.data(), sText.size());
        return sText;
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::vector<unsigned char> const dCode(pData, pData + nSize);   // a block of exactly its size
    for (OpcodeMode_e const eMode : { OPCODE_32_BIT, OPCODE_64_BIT })
    {
        CodeListing_c Listing(dCode.data(), dCode.size(), ADDRESS, eMode);
        std::size_t const nInstructions = Listing.Decode();
        Require(Listing.GetDecodedBytes() <= dCode.size());
        CountingSink_c Sink;
        Listing.Write(Sink);
        Require(Sink.m_nLines == nInstructions);
        OpcodeDecoder_c Decoder(eMode);
        std::size_t nFirst = dCode.size();
        std::string const sFirst = DecodeFirst(Decoder, dCode.data(), nFirst);
        std::size_t nAlone = nFirst;
        std::vector<unsigned char> const dFirst(pData, pData + nFirst);
        Require(DecodeFirst(Decoder, dFirst.data(), nAlone) == sFirst);
        Require(nAlone == nFirst);
    }
    std::vector<unsigned char> dTable(16384);
    Require(OpcodeExpand(dCode.data(), dCode.size(), dTable.data(), dTable.size()) <= dTable.size());
    return 0;
}
