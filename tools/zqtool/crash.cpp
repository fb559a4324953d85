// zqtool crash: shows crash reports with their details, one by one or by cause.
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/crashfiles.h"
#include "tools/zqtool/crashjson.h"
#include "tools/zqtool/crashpage.h"
#include "tools/zqtool/crashprint.h"
#include "tools/zqtool/crashsymbols.h"
#include "tools/zqtool/output.h"
#include "tools/zqtool/terminal.h"
#include "tools/zqtool/text.h"

#include <cstdio>
#include <memory>
#include <optional>

namespace
{
    constexpr std::size_t DIVIDER_WIDTH = 78;   // columns of the line between two crashes

    struct Options_s
    {
        std::vector<std::string> dNames, dSymbols;
        std::string sPage;
        bool bFold = false, bJson = false;
    };

    // One run of the command.
    class CrashRun_c
    {
    public:
        explicit CrashRun_c(Options_s const & Options)
            : m_Options(Options)
            , m_bFold(Options.bFold || !Options.sPage.empty())
            , m_bColours(HasColours())
        {}

        int Run();

    private:
        void Complain(std::string const & sText);
        void Show(Crash_t const & Crash);
        bool ShowGroups(CrashSymbols_c * pSymbols);

        Options_s const & m_Options;
        bool m_bFold, m_bColours;
        std::vector<std::string> m_dComplaints;
        OutputFile_c m_Page;
        CrashFold_c m_Fold;
        std::size_t m_nShown = 0;
    };

    // Prints a complaint, and keeps it for the page and the status.
    void CrashRun_c::Complain(std::string const & sText)
    {
        std::fflush(stdout);
        std::fprintf(stderr, "%s\n", Printable(sText).c_str());
        m_dComplaints.push_back(sText);
    }

    // Prints a crash. In text, a line divides it from the previous one.
    void CrashRun_c::Show(Crash_t const & Crash)
    {
        std::string const sText = m_Options.bJson ? CrashJson(Crash) + "\n" : CrashText(Crash, m_bColours);
        bool const bDivided = m_nShown++ > 0 && !m_Options.bJson;
        std::fputs(((bDivided ? "\n" + std::string(DIVIDER_WIDTH, '-') + "\n\n" : "") + sText).c_str(), stdout);
    }

    // Reads all of each sample for a page or JSON: folding needs only the causes, so only these were read before.
    // Writes the page, then prints the groups: what reads the text may end first. Returns false if a page is wanted and
    // could not be written whole.
    bool CrashRun_c::ShowGroups(CrashSymbols_c * pSymbols)
    {
        std::vector<CrashGroup_t> dGroups = m_Fold.Extract();
        if (m_Options.bJson || m_Page.IsWanted())
        {
            for (CrashGroup_t & Group : dGroups)
            {
                ReloadCrash(Group.Sample);
                if (pSymbols != nullptr)
                {
                    pSymbols->Name(Group.Sample);
                }
            }
        }
        if (m_Page.IsWanted())
        {
            WriteCrashPage(m_Page.Get(), dGroups, m_dComplaints);
        }
        bool const bWritten = m_Page.Close();
        if (m_Options.bJson)
        {
            for (CrashGroup_t const & Group : dGroups)
            {
                std::puts(CrashGroupJson(Group).c_str());
            }
        }
        else
        {
            std::fputs(CrashGroupsText(dGroups, m_bColours).c_str(), stdout);
        }
        return bWritten;
    }

    int CrashRun_c::Run()
    {
        if (!m_Options.dSymbols.empty() && !CrashSymbols_c::CanRead())
        {
            std::fputs("zqtool: --symbols needs a build with libdw, and this one has none\n", stderr);
            return EXIT_FOUND;
        }
        CrashFileComplain_t const fnComplain = [this](std::string const & sText) { Complain(sText); };
        std::vector<CrashFiles_t> const dFiles = FindCrashFiles(m_Options.dNames, fnComplain);
        std::vector<std::string> dInputs;
        for (CrashFiles_t const & Files : dFiles)
        {
            dInputs.push_back(Files.sReport);
            dInputs.insert(dInputs.end(), Files.dDetails.begin(), Files.dDetails.end());
        }
        if (!m_Page.Open(m_Options.sPage, dInputs))
        {
            return EXIT_FOUND;
        }
        std::optional<CrashSymbols_c> Symbols;
        if (!m_Options.dSymbols.empty())
        {
            Symbols.emplace(m_Options.dSymbols, fnComplain);
        }
        for (CrashFiles_t const & Files : dFiles)
        {
            for (Crash_t & Crash : LoadCrashes(Files, m_bFold ? CrashExtent_e::Cause : CrashExtent_e::All, fnComplain))
            {
                if (Symbols)
                {
                    Symbols->Name(Crash);
                }
                if (m_bFold)
                {
                    m_Fold.Add(std::move(Crash));
                }
                else
                {
                    Show(Crash);
                }
            }
        }
        bool const bWritten = !m_bFold || ShowGroups(Symbols ? &*Symbols : nullptr);
        std::fflush(stdout);
        for (std::string const & sModule : Symbols ? Symbols->GetMissing() : std::vector<std::string>())
        {
            std::fprintf(stderr, "no symbols for %s\n", Printable(sModule).c_str());
        }
        return bWritten && m_dComplaints.empty() ? EXIT_DONE : EXIT_FOUND;
    }
}

CommandRun_t PrepareCrash(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Arguments
        .AddTexts("FILE", "", pOptions->dNames,
            "CrashReport_*.rpt or its ..._details.txt; a folder is searched for reports at any depth")
        .SetRequired();
    Arguments
        .AddTexts("--symbols", "FOLDER", pOptions->dSymbols,
            "name addresses of stripped programs from the files in FOLDER with their build-ids and debug information: "
            "unstripped programs, or what objcopy --only-keep-debug makes")
        .SetOneValue();
    Arguments.AddFlag("--fold", pOptions->bFold, "group the crashes by cause, the largest group first");
    Arguments.AddText("--html", "OUT", pOptions->sPage, "write the groups as one page; implies --fold");
    Arguments.AddFlag("--json", pOptions->bJson, "print an object of JSON a line for each crash, or for each group");
    Arguments.SetFooter(
        "Example: zqtool crash --fold --html crashes.html logs\n"
        "A file that is damaged, foreign or not readable makes the status 1. What could be read is shown.");
    return [pOptions] { return CrashRun_c(*pOptions).Run(); };
}
