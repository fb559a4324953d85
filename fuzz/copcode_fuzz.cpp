// copcode_fuzz.cpp: code of any bytes in both modes, and compact tables of any bytes.
#include "fuzz/fuzz_support.h"
#include "zqcore/copcode.h"
#include "zqcore/copcode_internal.h"

#include <vector>

namespace
{
    class CountingSink_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override
        {
            Require(std::strlen(szLine) > 10);
            ++nLines;
        }
        std::int64_t GetSymbol(std::uint64_t Address, char * szName, unsigned nSize) override
        {
            std::memset(szName, 's', nSize - 1);
            szName[nSize - 1] = '\0';
            return static_cast<std::int64_t>(Address % 3) - 1;
        }

        std::size_t nLines = 0;
    };
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::vector<unsigned char> const dCode(pData, pData + nSize);   // a block of exactly its size
    for (OpcodeMode_e const eMode : { OPCODE_32_BIT, OPCODE_64_BIT })
    {
        CodeListing_c Listing(dCode.data(), dCode.size(), 0x1000, eMode);
        std::size_t const nInstructions = Listing.Decode();
        Require(Listing.GetDecodedBytes() <= dCode.size());
        CountingSink_c Sink;
        Listing.Write(Sink);
        Require(Sink.nLines == nInstructions);
    }
    std::vector<unsigned char> dTable(16384);
    Require(OpcodeExpand(dCode.data(), dCode.size(), dTable.data(), dTable.size()) <= dTable.size());
    return 0;
}
