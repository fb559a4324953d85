#include "tools/zqtool/crashpage.h"

#include "tools/zqtool/crashcause.h"
#include "tools/zqtool/page.h"
#include "tools/zqtool/text.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

// Script of the page, which the build makes from crash_page.js.
extern char const CRASH_PAGE_JS[];

namespace
{
    constexpr std::size_t MAX_SAMPLES = 500;     // groups with their sample
    constexpr std::size_t MAX_COMPLAINTS = 50;   // shown
    constexpr int MAX_LEVEL = 20;                // of indentation
    constexpr char TO[] = " \xE2\x80\x93 ";      // between two days

    // Returns a text from a report for the page.
    std::string Shown(std::string_view sText)
    {
        return HtmlEscaped(PrintableLine(sText));
    }

    std::string VersionsShort(CrashGroup_t const & Group)
    {
        std::size_t const nVersions = Group.dVersions.size();
        return nVersions == 0   ? ""
               : nVersions == 1 ? Group.dVersions.begin()->first
                                : std::to_string(nVersions) + " versions";
    }

    std::string VersionsHtml(CrashGroup_t const & Group)
    {
        std::string sText;
        for (auto const & [sVersion, nCount] : Group.dVersions)
        {
            sText += (sText.empty() ? "" : ", ") + sVersion + " (" + std::to_string(nCount) + ")";
        }
        return sText.empty() ? "" : "<p class=\"quiet\">Crashes by version: " + Shown(sText) + "</p>\n";
    }

    // Returns a signature with its functions in bold.
    std::string CauseHtml(std::string const & sSignature)
    {
        constexpr std::string_view SEPARATOR = ": ";
        std::size_t const nColon = sSignature.find(SEPARATOR);
        if (nColon == std::string::npos)
        {
            return Shown(sSignature);
        }
        std::size_t const nFunctions = nColon + SEPARATOR.size();
        return Shown(sSignature.substr(0, nFunctions)) + "<b>" + Shown(sSignature.substr(nFunctions)) + "</b>";
    }

    std::string FrameHtml(CrashFrame_t const & Frame, bool bLikely)
    {
        std::string sHtml = bLikely ? "<li class=\"likely\">" : IsOwnFrame(Frame) ? "<li>" : "<li class=\"foreign\">";
        sHtml += "<span>" + std::to_string(Frame.iNumber) + "</span>";
        std::string const sName = Shown(CrashFrameName(Frame));
        sHtml += bLikely ? "<b>" + sName + "</b>" : sName;
        sHtml += Frame.bInlined ? " <small>inlined</small>" : "";
        if (!Frame.sFile.empty())
        {
            sHtml += " <small>" + Shown(Frame.sFile);
            sHtml += Frame.iLine > 0 ? ":" + std::to_string(Frame.iLine) + "</small>" : "</small>";
        }
        else if (!Frame.sModule.empty() && !Frame.sFunction.empty())
        {
            sHtml += " <small>" + Shown(Frame.sModule) + "</small>";
        }
        return sHtml + "</li>\n";
    }

    std::string SourceHtml(CrashFrame_t const & Frame)
    {
        std::string sHtml;
        for (std::string const & sLine : Frame.dSource)
        {
            bool const bMarked = sLine.starts_with('>');
            sHtml += (bMarked ? "<mark>" : "") + Shown(sLine) + (bMarked ? "</mark>\n" : "\n");
        }
        return sHtml.empty()
                   ? ""
                   : "<h3>Source of frame " + std::to_string(Frame.iNumber) + "</h3>\n<pre>" + sHtml + "</pre>\n";
    }

    std::string VariablesHtml(CrashFrame_t const & Frame)
    {
        std::string sHtml;
        for (CrashVariable_t const & Variable : Frame.dVariables)
        {
            sHtml += std::string(2 * static_cast<std::size_t>(std::clamp(Variable.nLevel, 0, MAX_LEVEL)), ' ');
            sHtml += Variable.sWord.empty() ? "." : Variable.sWord + " ";
            sHtml += Shown(Variable.sName + (Variable.sType.empty() ? "" : ": " + Variable.sType)
                           + (Variable.sValue.empty() ? "" : " = " + Variable.sValue))
                     + "\n";
        }
        return sHtml.empty()
                   ? ""
                   : "<h3>Variables of frame " + std::to_string(Frame.iNumber) + "</h3>\n<pre>" + sHtml + "</pre>\n";
    }

    std::string LinesHtml(char const * szHead, std::vector<std::string> const & dLines)
    {
        std::string sHtml;
        for (std::string const & sLine : dLines)
        {
            sHtml += Shown(sLine) + "\n";
        }
        return sHtml.empty() ? "" : std::string("<h3>") + szHead + "</h3>\n<pre>" + sHtml + "</pre>\n";
    }

    std::string SampleHtml(Crash_t const & Crash)
    {
        std::string sHtml = "<p>" + Shown(CrashHeadline(Crash)) + "</p>\n<p class=\"quiet\">" + Shown(Crash.sFile)
                            + (Crash.sTime.empty() ? "" : ", " + Shown(Crash.sTime)) + "</p>\n";
        CrashFrame_t const * const pLikely = LikelyFrame(Crash.Thread.dFrames);
        std::string const sLog = LinesHtml("Last lines of the log", Crash.dLog);
        if (pLikely == nullptr)
        {
            return sHtml + sLog;
        }
        sHtml += SourceHtml(*pLikely) + "<h3>Stack</h3>\n<ol>\n";
        for (CrashFrame_t const & Frame : Crash.Thread.dFrames)
        {
            if (Frame.nLeftOut > 0)
            {
                sHtml += "<li class=\"foreign\"><span></span>" + Counted(Frame.nLeftOut, "frame") + " left out</li>\n";
            }
            sHtml += FrameHtml(Frame, &Frame == pLikely);
        }
        return sHtml + "</ol>\n" + VariablesHtml(*pLikely) + sLog;
    }

    std::string GroupHtml(CrashGroup_t const & Group, std::size_t nLargest, bool bSample)
    {
        char szShare[32];
        std::snprintf(
            szShare, sizeof szShare, "%.4f", static_cast<double>(Group.nCount) / static_cast<double>(nLargest));
        std::string const sDays = CrashDays(Group, TO), sVersions = VersionsShort(Group);
        return "<li><details><summary style=\"--share:" + std::string(szShare) + "\"><span class=\"count\">"
               + std::to_string(Group.nCount) + "</span> <span class=\"cause\">" + CauseHtml(Group.sSignature)
               + "</span> <span class=\"when\">"
               + Shown(sDays + (sDays.empty() || sVersions.empty() ? "" : ", ") + sVersions)
               + "</span></summary>\n<div class=\"sample\">\n" + VersionsHtml(Group)
               + (bSample ? SampleHtml(Group.Sample)
                          : "<p>The sample is left out to keep the page small.</p>\n<p class=\"quiet\">"
                                + Shown(Group.Sample.sFile) + "</p>\n")
               + "</div></details></li>\n";
    }

    std::string ComplaintsHtml(std::vector<std::string> const & dComplaints)
    {
        if (dComplaints.empty())
        {
            return "";
        }
        std::string sHtml = "<section class=\"problems\" role=\"alert\">\n<h2>Problems with files</h2>\n"
                            "<p>What could be read is shown.</p>\n<ul>\n";
        for (std::size_t i = 0; i < std::min(dComplaints.size(), MAX_COMPLAINTS); ++i)
        {
            sHtml += "<li>" + Shown(dComplaints[i]) + "</li>\n";
        }
        if (dComplaints.size() > MAX_COMPLAINTS)
        {
            sHtml += "<li>and " + std::to_string(dComplaints.size() - MAX_COMPLAINTS) + " more</li>\n";
        }
        return sHtml + "</ul>\n</section>\n";
    }

    std::string FactsText(std::vector<CrashGroup_t> const & dGroups)
    {
        CrashGroup_t All;
        for (CrashGroup_t const & Group : dGroups)
        {
            All.sFirst =
                All.sFirst.empty() || (!Group.sFirst.empty() && Group.sFirst < All.sFirst) ? Group.sFirst : All.sFirst;
            All.sLast = std::max(All.sLast, Group.sLast);
        }
        std::string const sDays = CrashDays(All, TO);
        return CrashCountText(dGroups) + " \xC2\xB7 " + Counted(dGroups.size(), "group")
               + (sDays.empty() ? "" : " \xC2\xB7 " + sDays);
    }
}

void WriteCrashPage(
    std::ostream & Stream, std::vector<CrashGroup_t> const & dGroups, std::vector<std::string> const & dComplaints)
{
    Stream << PageHead("Crashes") << "<header>\n<h1>Crashes by cause</h1>\n<p>" << Shown(FactsText(dGroups))
           << "</p>\n</header>\n"
           << ComplaintsHtml(dComplaints)
           << "<main>\n<section>\n<div class=\"bar\">\n<label for=\"filter\">Filter</label>\n"
              "<input type=\"search\" id=\"filter\" placeholder=\"function, file, version\">\n"
              "<span id=\"shown\" class=\"quiet\" role=\"status\"></span>\n</div>\n"
              "<p class=\"quiet\">The largest group is first. Open one for a sample of its crashes.</p>\n</section>\n"
              "<ol id=\"groups\">\n";
    std::size_t iGroup = 0;
    for (CrashGroup_t const & Group : dGroups)
    {
        Stream << GroupHtml(Group, dGroups[0].nCount, iGroup++ < MAX_SAMPLES);
    }
    Stream << "</ol>\n</main>\n" << PageScripts({ CRASH_PAGE_JS }) << "</body>\n</html>\n";
}
