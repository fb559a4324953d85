// save_fuzz.cpp: saves of any bytes, compared with a model of their seal. Only a whole save has an archive.
//
// Bit 0 of the first byte corrects the length in the seal, bit 1 the CRC-32. The rest is the save.
#include "fuzz/fuzz_support.h"
#include "tests/archive_support.h"
#include "zqcore/cfilesave_internal.h"

#include <fstream>

namespace
{
    constexpr std::uint32_t OLDEST = 0x10000, PRESENT = 0x10003;   // versions of archives that load

    // Returns the state of a save with nArchive bytes before the seal. dwCrc covers all but the last four bytes.
    FileSave_c::State_e StateOf(std::string const & sSave, std::size_t nArchive, std::uint32_t dwCrc)
    {
        if (sSave.size() < 8 || Input_c(std::string_view(sSave).substr(sSave.size() - 4)).Get<std::uint32_t>() != dwCrc)
        {
            return FileSave_c::DAMAGED;
        }
        std::string const sSeal = sSave.size() < SAVE_SEAL_SIZE ? "none" : sSave.substr(nArchive);
        char const cVersion = sSeal[SAVE_SEAL_VERSION_AT];
        if (!sSeal.starts_with("ZQS") || cVersion < '1' || cVersion > '9')
        {
            return FileSave_c::OLDER;   // a save without a seal ends in the CRC-32 alone
        }
        auto const dwVersion = Input_c(sSave).Get<std::uint32_t>();
        bool const bLength =
            Input_c(std::string_view(sSeal).substr(4)).Get<std::uint64_t>() == nArchive && nArchive >= 4;
        return cVersion > '1'                                ? FileSave_c::NEWER
               : !bLength                                    ? FileSave_c::DAMAGED
               : dwVersion >= OLDEST && dwVersion <= PRESENT ? FileSave_c::WHOLE
               : dwVersion > PRESENT                         ? FileSave_c::NEWER
                                                             : FileSave_c::OLDER;
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static std::string const & s_sFile = *new std::string(MakeFuzzFolder() + "/fuzz.sav");
    static FileSave_c & s_Save = *new FileSave_c(s_sFile.c_str());
    Input_c Input(pData, nSize);
    unsigned char const cCorrect = Input.Get();
    std::string sSave = Input.Extract();
    std::size_t const nArchive = std::max(sSave.size(), SAVE_SEAL_SIZE) - SAVE_SEAL_SIZE;
    if (cCorrect & 1 && sSave.size() >= SAVE_SEAL_SIZE)
    {
        std::uint64_t const nLength = nArchive;
        std::memcpy(&sSave[nArchive + 4], &nLength, sizeof nLength);
    }
    std::size_t const nBefore = std::max<std::size_t>(sSave.size(), 4) - 4;
    std::uint32_t const dwCrc = PlainCrc32(std::string_view(sSave).substr(0, nBefore));
    if (cCorrect & 2 && sSave.size() >= 4)
    {
        std::memcpy(&sSave[nBefore], &dwCrc, 4);
    }
    std::ofstream(s_sFile, std::ios::binary) << sSave;

    FileSave_c::State_e const eState = s_Save.Load(PRESENT);
    Require(eState == StateOf(sSave, nArchive, dwCrc));
    File_c * const pFile = s_Save.OpenFile();
    Require((pFile != nullptr) == (eState == FileSave_c::WHOLE));
    Require((s_Save.GetWhyNot()[0] == '\0') == (pFile != nullptr));
    Require(!pFile
            || sSave.substr(0, nArchive) == std::string_view(reinterpret_cast<char const *>(pFile->pData), nArchive));
    FileClose(pFile);
    return 0;
}
