#include "tools/zqtool/crashfiles.h"

#include "platform/text.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/parse.h"
#include "zqcore/ccrashdetails_internal.h"
#include "zqcore/cfile_internal.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>

namespace
{
    namespace fs = std::filesystem;

    constexpr std::string_view REPORT_START = CRASH_REPORT_START;
    std::string const DETAILS_END = std::string(CRASH_DETAILS_NAME) + CRASH_DETAILS_END;
    constexpr std::size_t MAX_MEBIBYTES = 16;   // of a file
    constexpr std::size_t MAX_FILE = MAX_MEBIBYTES << 20;

    // Returns a name without an ending, or nothing if it has another ending.
    std::optional<std::string> StemOf(std::string const & sName, std::string_view sEnd)
    {
        return sName.ends_with(sEnd) ? std::optional(sName.substr(0, sName.size() - sEnd.size())) : std::nullopt;
    }

    // Returns the stem of "STEM_details_0123abcd.txt", the name of details if something else has the usual one. Returns
    // nothing for any other name.
    std::optional<std::string> StemOfMore(std::string const & sName)
    {
        std::string const sStart = std::string(CRASH_DETAILS_NAME) + '_', sEnd = CRASH_DETAILS_END;
        constexpr std::size_t DIGITS = 8;
        std::size_t const nEnding = sStart.size() + DIGITS + sEnd.size();
        std::size_t const iEnd = sName.size() < nEnding ? std::string::npos : sName.size() - nEnding;
        bool const bForm =
            iEnd != std::string::npos && sName.ends_with(sEnd) && sName.compare(iEnd, sStart.size(), sStart) == 0
            && sName.find_first_not_of(plat::ALL_HEX_DIGITS, iEnd + sStart.size()) == sName.size() - sEnd.size();
        return bForm ? std::optional(sName.substr(0, iEnd)) : std::nullopt;
    }

    // Returns the stem of a name of details in either form, or nothing for any other name.
    std::optional<std::string> StemOfDetails(std::string const & sName)
    {
        std::optional<std::string> const Stem = StemOf(sName, DETAILS_END);
        return Stem ? Stem : StemOfMore(sName);
    }

    // Finder of the files that arguments name.
    class Finder_c
    {
    public:
        explicit Finder_c(CrashFileComplain_t const & fnComplain)
            : m_fnComplain(fnComplain)
        {}

        void Add(std::string const & sName)
        {
            std::error_code Ignored;
            if (fs::is_directory(sName, Ignored))
            {
                AddFolder(sName);
                return;
            }
            std::optional<std::string> const DetailsStem = StemOfDetails(sName),
                                             ReportStem = StemOf(sName, CRASH_REPORT_END);
            CrashFiles_t Files;
            if (DetailsStem || ReportStem)
            {
                Files = FilesOf(DetailsStem ? *DetailsStem : *ReportStem);
            }
            if (!DetailsStem)
            {
                Files.sReport = sName;
            }
            else if (std::find(Files.dDetails.begin(), Files.dDetails.end(), sName) == Files.dDetails.end())
            {
                Files.dDetails.push_back(sName);
            }
            bool const bStem = DetailsStem || ReportStem;
            AddFiles(bStem ? NormalOfStem(DetailsStem ? *DetailsStem : *ReportStem) : NormalOf(sName) + '\0',
                Files);   // no stem holds a zero
        }

        std::vector<CrashFiles_t> Extract() { return std::move(m_dFound); }

    private:
        using MoreDetails_t = std::multimap<std::string, std::string>;   // names by stem

        // Returns the regular files of a stem that exist.
        CrashFiles_t FilesOf(std::string const & sStem)
        {
            std::string const sReport = sStem + CRASH_REPORT_END, sDetails = sStem + DETAILS_END;
            CrashFiles_t Files = { CheckInput(sReport).empty() ? sReport : "", {} };
            if (CheckInput(sDetails).empty())
            {
                Files.dDetails.push_back(sDetails);
            }
            std::string const sFolder = sStem.substr(0, sStem.size() - FileNameOf(sStem).size());
            auto [itMore, itEnd] = MoreDetailsIn(sFolder).equal_range(sStem);
            for (; itMore != itEnd; ++itMore)
            {
                Files.dDetails.push_back(itMore->second);
            }
            std::sort(Files.dDetails.begin(), Files.dDetails.end());
            return Files;
        }

        // Returns the details in a folder whose names StemOfMore knows. Lists each folder once. Requires that sFolder
        // is empty or ends in a separator.
        MoreDetails_t const & MoreDetailsIn(std::string const & sFolder)
        {
            auto const [itList, bNew] = m_dMore.try_emplace(sFolder);
            std::error_code Error;
            fs::directory_iterator itEntry;
            if (bNew)
            {
                itEntry = fs::directory_iterator(sFolder.empty() ? "." : sFolder, Error);
            }
            for (; !Error && itEntry != fs::end(itEntry); itEntry.increment(Error))
            {
                std::string const sName = sFolder + itEntry->path().filename().string();
                std::optional<std::string> const Stem = StemOfMore(sName);
                if (Stem && CheckInput(sName).empty())
                {
                    itList->second.emplace(*Stem, sName);
                }
            }
            return itList->second;
        }

        void AddFolder(std::string const & sFolder)
        {
            std::map<std::string, CrashFiles_t> dFiles;
            std::error_code Error;
            fs::recursive_directory_iterator itEntry(sFolder, Error);
            for (; !Error && itEntry != fs::end(itEntry); itEntry.increment(Error))
            {
                std::string const sName = itEntry->path().string();
                std::error_code Ignored;
                if (std::optional<std::string> const ReportStem = StemOf(sName, CRASH_REPORT_END);
                    ReportStem && itEntry->is_regular_file(Ignored))
                {
                    dFiles[*ReportStem].sReport = sName;
                }
                else if (std::optional<std::string> const DetailsStem = StemOfDetails(sName);
                         DetailsStem && FileNameOf(sName).starts_with(REPORT_START)
                         && itEntry->is_regular_file(Ignored))
                {
                    dFiles[*DetailsStem].dDetails.push_back(sName);
                }
            }
            if (Error)
            {
                m_fnComplain(sFolder + ": can't read the whole folder: " + Error.message());
            }
            else if (dFiles.empty())
            {
                m_fnComplain(sFolder + ": no crash report in this folder");
            }
            for (auto & [sStem, Files] : dFiles)
            {
                std::sort(Files.dDetails.begin(), Files.dDetails.end());
                AddFiles(NormalOfStem(sStem), Files);
            }
        }

        // Returns one spelling of the paths of a file, also of one that does not exist. On failure returns sName.
        static std::string NormalOf(std::string const & sName)
        {
            std::error_code Error;
            fs::path const Resolved = fs::weakly_canonical(fs::absolute(sName, Error), Error);
            return Error ? sName : Resolved.string();
        }

        // Returns one spelling of a stem. A file or a folder of its name is another thing.
        static std::string NormalOfStem(std::string const & sStem)
        {
            std::size_t const nFolder = sStem.size() - FileNameOf(sStem).size();
            return (fs::path(NormalOf(nFolder == 0 ? "." : sStem.substr(0, nFolder))) / sStem.substr(nFolder)).string();
        }

        // Adds the files of a stem in its normal form. If an earlier argument had files of that stem, adds to them
        // those that they lack.
        void AddFiles(std::string const & sStem, CrashFiles_t const & Files)
        {
            auto const [itStem, bNew] = m_dStems.try_emplace(sStem, m_dFound.size());
            if (bNew)
            {
                m_dFound.push_back(Files);
                return;
            }
            CrashFiles_t & Found = m_dFound[itStem->second];
            Found.sReport = Found.sReport.empty() ? Files.sReport : Found.sReport;
            for (std::string const & sDetails : Files.dDetails)
            {
                auto const IsSame = [sNormal = NormalOf(sDetails)](std::string const & sOther)
                { return NormalOf(sOther) == sNormal; };
                if (std::none_of(Found.dDetails.begin(), Found.dDetails.end(), IsSame))
                {
                    Found.dDetails.push_back(sDetails);
                }
            }
            std::sort(Found.dDetails.begin(), Found.dDetails.end());
        }

        CrashFileComplain_t const & m_fnComplain;
        std::map<std::string, MoreDetails_t> m_dMore;   // by folder
        std::map<std::string, std::size_t> m_dStems;    // index in m_dFound by stem
        std::vector<CrashFiles_t> m_dFound;
    };

    // Faults of a file: the text of the first one, and their number.
    class Faults_c
    {
    public:
        void Add(std::size_t iLine, std::string const & sText)
        {
            if (m_nFaults++ == 0)
            {
                m_sFirst = (iLine > 0 ? "(" + std::to_string(iLine) + ")" : "") + ": " + sText;
            }
        }

        bool IsEmpty() const { return m_nFaults == 0; }

        std::string Text() const
        {
            return m_sFirst + (m_nFaults > 1 ? " (and " + std::to_string(m_nFaults - 1) + " more)" : "");
        }

    private:
        std::string m_sFirst;
        std::size_t m_nFaults = 0;
    };

    // Reads a file and returns at most its first MAX_FILE bytes. They are valid until the next call. sFault says why
    // they are not the whole file, and is empty if they are.
    std::string_view ReadWhole(std::string const & sFile, std::string & sFault)
    {
        static std::string s_sBuffer(64 << 10, '\0');
        if (sFault = CheckInput(sFile); !sFault.empty())
        {
            return "";
        }
        std::FILE * const pFile = std::fopen(sFile.c_str(), "rb");
        if (pFile == nullptr)
        {
            sFault = FILE_UNREADABLE;
            return "";
        }
        std::setvbuf(pFile, nullptr, _IONBF, 0);
        std::size_t nText = 0, nRead = 1;
        while (nRead > 0 && nText <= MAX_FILE)
        {
            s_sBuffer.resize(nText == s_sBuffer.size() ? 2 * nText : s_sBuffer.size());
            nRead = std::fread(s_sBuffer.data() + nText, 1, s_sBuffer.size() - nText, pFile);
            nText += nRead;
        }
        sFault = std::ferror(pFile) != 0 ? FILE_UNREADABLE
                 : nText > MAX_FILE      ? "more than " + std::to_string(MAX_MEBIBYTES) + " MiB; the rest is not read"
                                         : "";
        std::fclose(pFile);
        return std::string_view(s_sBuffer).substr(0, std::min(nText, MAX_FILE));
    }

    // Reads a file and returns its crashes, none for an empty name. Reports at most one complaint.
    std::vector<Crash_t> LoadOne(std::string const & sFile, CrashFileComplain_t const & fnComplain,
        CrashExtent_e eExtent, std::vector<Crash_t> (*fnRead)(std::string_view, CrashComplain_t const &, CrashExtent_e))
    {
        std::vector<Crash_t> dCrashes;
        if (sFile.empty())
        {
            return dCrashes;
        }
        std::string sFault;
        Faults_c Faults;
        std::string_view const sText = ReadWhole(sFile, sFault);
        if (sFault.empty() || !sText.empty())
        {
            dCrashes = fnRead(
                sText, [&Faults](std::size_t iLine, std::string const & sWhat) { Faults.Add(iLine, sWhat); }, eExtent);
        }
        if (!sFault.empty())
        {
            fnComplain(sFile + ": " + sFault);
        }
        else if (!Faults.IsEmpty())
        {
            fnComplain(sFile + Faults.Text());
        }
        for (Crash_t & Crash : dCrashes)
        {
            Crash.sFile = sFile;
        }
        return dCrashes;
    }

    // Returns the local time in a report's name as "2026-11-26 08:18:37". The name has the day first:
    // "CrashReport_26.11.2026__8_18_37". Returns an empty text if the file name begins otherwise.
    std::string TimeOfName(std::string_view sName)
    {
        unsigned dTime[6] = {};
        std::string_view const sFile = FileNameOf(sName);
        std::string const sText(sFile.substr(sFile.starts_with(REPORT_START) ? REPORT_START.size() : sFile.size()));
        int nRead = 0;
        int const nFields = std::sscanf(sText.c_str(), "%2u.%2u.%4u__%2u_%2u_%2u%n", &dTime[0], &dTime[1], &dTime[2],
            &dTime[3], &dTime[4], &dTime[5], &nRead);
        std::string_view const sRead = std::string_view(sText).substr(0, static_cast<std::size_t>(nRead));
        if (nFields != std::ssize(dTime) || sRead.find_first_not_of("0123456789._") != sRead.npos)
        {
            return "";
        }
        char szTime[32];
        std::snprintf(szTime, sizeof szTime, "%04u-%02u-%02u %02u:%02u:%02u", dTime[2], dTime[1], dTime[0], dTime[3],
            dTime[4], dTime[5]);
        return szTime;
    }

    // Returns the start of a time of ISO 8601 as "2026-11-26 08:18:37". Any of its separators may be a blank, which
    // stays. Returns an empty text if the text begins otherwise.
    std::string LocalTime(std::string_view sTime)
    {
        constexpr std::string_view FORM = "0000-00-00T00:00:00";
        std::string sText(sTime.substr(0, FORM.size()));
        bool bGood = sText.size() == FORM.size();
        for (std::size_t i = 0; bGood && i < FORM.size(); ++i)
        {
            bGood = FORM[i] == '0' ? plat::IsDigit(sText[i]) : sText[i] == FORM[i] || sText[i] == ' ';
        }
        if (!bGood)
        {
            return "";
        }
        sText[FORM.find('T')] = ' ';
        return sText;
    }
}

std::vector<CrashFiles_t> FindCrashFiles(
    std::vector<std::string> const & dNames, CrashFileComplain_t const & fnComplain)
{
    Finder_c Finder(fnComplain);
    for (std::string const & sName : dNames)
    {
        Finder.Add(sName);
    }
    return Finder.Extract();
}

std::vector<Crash_t> LoadCrashes(
    CrashFiles_t const & Files, CrashExtent_e eExtent, CrashFileComplain_t const & fnComplain)
{
    std::vector<Crash_t> dReports = LoadOne(Files.sReport, fnComplain, eExtent, ReadCrashReport);
    std::vector<Crash_t> dDetails;
    for (std::string const & sDetails : Files.dDetails)
    {
        std::vector<Crash_t> dOfFile = LoadOne(sDetails, fnComplain, eExtent, ReadCrashDetails);
        std::move(dOfFile.begin(), dOfFile.end(), std::back_inserter(dDetails));
    }
    std::vector<Crash_t> dCrashes = JoinCrashes(std::move(dReports), std::move(dDetails));
    for (std::size_t i = 0; i < dCrashes.size(); ++i)
    {
        Crash_t & Crash = dCrashes[i];
        Crash.Files = Files;
        Crash.iInFile = i;
        Crash.sTime = LocalTime(Crash.GetFact("time"));
        Crash.sTime = Crash.sTime.empty() ? TimeOfName(Crash.sFile) : Crash.sTime;
    }
    return dCrashes;
}

void ReloadCrash(Crash_t & Crash)
{
    CrashFileComplain_t const fnIgnore = [](std::string const &) {};   // the first load reported it
    std::vector<Crash_t> dCrashes = LoadCrashes(Crash.Files, CrashExtent_e::All, fnIgnore);
    if (Crash.iInFile < dCrashes.size())
    {
        Crash = std::move(dCrashes[Crash.iInFile]);
    }
}
