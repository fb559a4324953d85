// crash_fuzz.cpp: reports and details of any bytes.
//
// A line of dashes separates the report from the details. The printed text controls no terminal, and the JSON parses.
#include "fuzz/fuzz_support.h"
#include "tools/zqtool/crashjson.h"
#include "tools/zqtool/crashprint.h"

#include <nlohmann/json.hpp>

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::string_view const sAll(reinterpret_cast<char const *>(pData), nSize);
    constexpr std::string_view MARK = "\n----\n";
    std::size_t const nMark = sAll.find(MARK);
    std::string const sReport(sAll.substr(0, nMark));
    std::string const sDetails(nMark == sAll.npos ? std::string_view() : sAll.substr(nMark + MARK.size()));
    std::size_t const nLines = static_cast<std::size_t>(std::count(sAll.begin(), sAll.end(), '\n')) + 1;
    CrashComplain_t const fnComplain = [nLines](std::size_t iLine, std::string const & sText)
    {
        Require(iLine <= nLines);
        Require(!sText.empty());
    };

    std::vector<Crash_t> dReports = ReadCrashReport(sReport, fnComplain);
    std::vector<Crash_t> dDetails = ReadCrashDetails(sDetails, fnComplain);
    Require(ReadCrashReport(sReport, fnComplain, CrashExtent_e::Cause).size() == dReports.size());
    Require(ReadCrashDetails(sDetails, fnComplain, CrashExtent_e::Cause).size() == dDetails.size());
    std::size_t const nReports = dReports.size(), nDetails = dDetails.size();
    std::vector<Crash_t> dCrashes = JoinCrashes(std::move(dReports), std::move(dDetails));
    Require(dCrashes.size() <= nReports + nDetails);
    Require(dCrashes.size() >= std::max(nReports, nDetails));
    CrashFold_c Fold;
    for (Crash_t & Crash : dCrashes)
    {
        std::string const sShown = CrashText(Crash, false);
        Require(sShown.find_first_of("\x1B\x7F\r\t") == sShown.npos);
        auto const Parsed = nlohmann::json::parse(CrashJson(Crash));
        Require(Parsed["thread"]["frames"].size() == Crash.Thread.dFrames.size());
        Fold.Add(std::move(Crash));
    }
    std::size_t nFolded = 0;
    for (CrashGroup_t const & Group : Fold.Extract())
    {
        nFolded += Group.nCount;
        Require(nlohmann::json::accept(CrashGroupJson(Group)));
    }
    Require(nFolded == dCrashes.size());
    return 0;
}
