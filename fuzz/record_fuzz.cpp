// record_fuzz.cpp: records of the registry of any bytes, compared with a model.
//
// Bit 0 of the first byte corrects the checksum. The rest is the record. A sound record is stored as the same bytes.
//
// A record has its mark at 0, its type at 4, the lengths of name and data at 8 and 12, its checksum at 16, and name and
// data from 20 on (docs/formats.md).
#include "fuzz/fuzz_support.h"
#include "platform/common/registryrecord.h"

#include <fstream>
#include <iterator>

namespace
{
    std::uint32_t WordAt(std::string const & sRecord, std::size_t iByte)
    {
        std::uint32_t nWord;
        std::memcpy(&nWord, sRecord.data() + iByte, sizeof nWord);
        return nWord;
    }

    // Returns the FNV-1a of 32 bits (RFC 9923) over a record without its checksum.
    std::uint32_t Checksum(std::string sRecord)
    {
        std::uint32_t nSum = 0x811C9DC5;
        for (char const c : sRecord.erase(16, 4))
        {
            nSum = (nSum ^ static_cast<unsigned char>(c)) * 0x01000193;
        }
        return nSum;
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static plat::StoreHandle_t const s_hFolder = plat::StoreOpenPath(FuzzFolder().c_str());
    Input_c Input(pData, nSize);
    bool const bCorrect = Input.Get() & 1;
    std::string sRecord = Input.Extract();
    if (bCorrect && sRecord.size() >= 20)
    {
        std::uint32_t const nSum = Checksum(sRecord);
        std::memcpy(sRecord.data() + 16, &nSum, sizeof nSum);
    }
    std::ofstream(FuzzFolder() + "/given", std::ios::binary) << sRecord;
    plat::RecordBytes_t dBytes;
    plat::Record_t Record;
    bool const bSound = sRecord.size() >= 20 && sRecord.starts_with("ZQRV") && WordAt(sRecord, 16) == Checksum(sRecord)
                        && std::uint64_t{ WordAt(sRecord, 8) } + WordAt(sRecord, 12) == sRecord.size() - 20;
    Require(plat::LoadRecord(s_hFolder, "given", dBytes, Record) == bSound);
    if (bSound)
    {
        Require(static_cast<std::uint32_t>(Record.eType) == WordAt(sRecord, 4));
        Require(Record.sName == sRecord.substr(20, WordAt(sRecord, 8)));
        Require(Record.sData == sRecord.substr(20 + Record.sName.size()));
        Require(plat::StoreRecord(s_hFolder, "stored", Record, true));
        std::ifstream Stored(FuzzFolder() + "/stored", std::ios::binary);
        Require(std::string(std::istreambuf_iterator<char>(Stored), {}) == sRecord);
    }
    return 0;
}
