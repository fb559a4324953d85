// archivescan_fuzz.cpp: archives of any bytes, as zqtool shows them.
//
// The parts cover all after the version word without a gap. The text or the payload of a part lies in the archive.
#include "fuzz/fuzz_support.h"
#include "tools/zqtool/archivescan.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static ArchiveNames_c const & s_Names = []() -> ArchiveNames_c const &
    {
        auto & Names = *ZQ_NEW ArchiveNames_c;
        for (char const * szName : { "Looks", "Empty", "Unit", "A" })
        {
            Names.Add(szName);
        }
        return Names;
    }();
    std::string const sArchive(pData, pData + nSize);
    if (nSize < ARCHIVE_WORD)
    {
        return 0;
    }
    ArchiveScan_t const Scan = ScanArchive(sArchive, s_Names);
    std::size_t nAt = ARCHIVE_WORD;
    for (ArchivePart_t const & Part : Scan.dParts)
    {
        Require(Part.nAt == nAt);
        Require(Part.nBytes > 0);
        Require(Part.nBytes <= nSize - nAt);
        Require(Part.nDepth >= 0);
        nAt += Part.nBytes;
        if (Part.eKind == ArchivePart_e::Text)
        {
            Require(sArchive.substr(Part.nAt + ARCHIVE_WORD, Part.sName.size()) == Part.sName);
        }
        if (Part.eKind == ArchivePart_e::Chunk)
        {
            Require(Part.iValue >= 0);
            Require(static_cast<std::size_t>(Part.iValue) <= nSize - nAt);
        }
    }
    Require(nAt == nSize);
    for (ArchiveProblem_t const & Problem : Scan.dProblems)
    {
        Require(Problem.nAt <= nSize);
        Require(!Problem.sText.empty());
    }
    return 0;
}
