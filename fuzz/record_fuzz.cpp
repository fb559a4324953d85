// record_fuzz.cpp: records of the registry of any bytes, compared with a model.
//
// Bit 0 of the first byte corrects the checksum. The rest is the record. A sound record is stored as the same bytes.
#include "fuzz/fuzz_support.h"
#include "platform/common/registryrecord.h"

#include <fstream>
#include <iterator>

namespace
{
    // Offsets in a record (docs/formats.md), which begins with "ZQRV". Name and data follow the header.
    constexpr std::size_t TYPE_AT = 4;
    constexpr std::size_t NAME_SIZE_AT = 8;
    constexpr std::size_t DATA_SIZE_AT = 12;
    constexpr std::size_t CHECK_AT = 16;
    constexpr std::size_t HEADER_SIZE = 20;

    std::uint32_t WordAt(std::string const & sRecord, std::size_t iByte)
    {
        std::uint32_t dwWord;
        std::memcpy(&dwWord, sRecord.data() + iByte, sizeof dwWord);
        return dwWord;
    }

    // Returns the FNV-1a of 32 bits (RFC 9923) over a record without its checksum.
    std::uint32_t Checksum(std::string sRecord)
    {
        std::uint32_t dwSum = 0x811C9DC5;
        for (char const c : sRecord.erase(CHECK_AT, sizeof dwSum))
        {
            dwSum = (dwSum ^ static_cast<unsigned char>(c)) * 0x01000193;
        }
        return dwSum;
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static plat::StoreHandle_t const s_hFolder = plat::StoreOpenPath(MakeFuzzFolder().c_str());
    Input_c Input(pData, nSize);
    bool const bCorrect = Input.Get() & 1;
    std::string sRecord = Input.Extract();
    if (bCorrect && sRecord.size() >= HEADER_SIZE)
    {
        std::uint32_t const dwSum = Checksum(sRecord);
        std::memcpy(sRecord.data() + CHECK_AT, &dwSum, sizeof dwSum);
    }
    std::ofstream(MakeFuzzFolder() + "/given", std::ios::binary) << sRecord;
    plat::RecordBytes_t dBytes;
    plat::Record_t Record;
    bool const bSound =
        sRecord.size() >= HEADER_SIZE && sRecord.starts_with("ZQRV")
        && (WordAt(sRecord, TYPE_AT) <= 1 || WordAt(sRecord, TYPE_AT) == 3 || WordAt(sRecord, TYPE_AT) == 4)
        && WordAt(sRecord, NAME_SIZE_AT) <= plat::NAME_LIMIT && WordAt(sRecord, DATA_SIZE_AT) <= plat::VALUE_LIMIT
        && WordAt(sRecord, CHECK_AT) == Checksum(sRecord)
        && std::uint64_t{ WordAt(sRecord, NAME_SIZE_AT) } + WordAt(sRecord, DATA_SIZE_AT)
               == sRecord.size() - HEADER_SIZE;
    Require(plat::LoadRecord(s_hFolder, "given", dBytes, Record) == bSound);
    if (bSound)
    {
        Require(static_cast<std::uint32_t>(Record.eType) == WordAt(sRecord, TYPE_AT));
        Require(Record.sName == sRecord.substr(HEADER_SIZE, WordAt(sRecord, NAME_SIZE_AT)));
        Require(Record.sData == sRecord.substr(HEADER_SIZE + Record.sName.size()));
        Require(plat::StoreRecord(s_hFolder, "stored", Record, true));
        std::ifstream Stored(MakeFuzzFolder() + "/stored", std::ios::binary);
        Require(std::string(std::istreambuf_iterator<char>(Stored), {}) == sRecord);
    }
    return 0;
}
