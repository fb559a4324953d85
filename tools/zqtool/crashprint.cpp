#include "tools/zqtool/crashprint.h"

#include "tools/zqtool/crashcause.h"
#include "tools/zqtool/text.h"
#include "zqcore/ccrashdetails_internal.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace
{
    // Text in parts, each of which may have a colour. Whatever a part holds, only the colours control the terminal.
    class Text_c
    {
    public:
        explicit Text_c(bool bColours)
            : m_bColours(bColours)
        {}

        Text_c & Add(std::string_view sPart)
        {
            m_sText += PrintableLine(sPart);
            return *this;
        }

        Text_c & Add(Colour_e eColour, std::string_view sPart)
        {
            m_sText += m_bColours ? Coloured(PrintableLine(sPart), eColour) : PrintableLine(sPart);
            return *this;
        }

        Text_c & End()
        {
            m_sText += '\n';
            return *this;
        }

        std::string Extract() { return std::move(m_sText); }

    private:
        std::string m_sText;
        bool m_bColours;
    };

    void AddHead(Text_c & Text, std::string_view sHead)
    {
        Text.End().Add(Colour_e::Head, sHead).End();
    }

    void AddFrame(Text_c & Text, CrashFrame_t const & Frame, bool bLikely)
    {
        char szPart[64];
        std::snprintf(szPart, sizeof szPart, "  %s #%-3llu ", bLikely ? ">" : " ",
            static_cast<unsigned long long>(Frame.iNumber));
        Text.Add(szPart);
        std::string sName = CrashFrameName(Frame);
        if (!Frame.sFunction.empty() && !Frame.bInlined)
        {
            std::snprintf(szPart, sizeof szPart, "+%llX", static_cast<unsigned long long>(Frame.nDisplacement));
            sName += szPart;
        }
        if (bLikely)
        {
            Text.Add(Colour_e::Mark, sName);
        }
        else
        {
            Text.Add(sName);
        }
        Text.Add(Frame.bInlined ? CRASH_INLINED : "");
        if (!Frame.sFile.empty())
        {
            Text.Add("  " + Frame.sFile + (Frame.iLine > 0 ? ":" + std::to_string(Frame.iLine) : ""));
        }
        else if (!Frame.sModule.empty() && !Frame.sFunction.empty())
        {
            Text.Add(Colour_e::Quiet, "  " + Frame.sModule);
        }
        Text.End();
    }

    void AddLikely(Text_c & Text, Crash_t const & Crash, CrashFrame_t const & Frame)
    {
        AddHead(Text, IsOwnFrame(Frame)         ? "Likely frame"
                      : Frame.sFunction.empty() ? "Innermost frame; no frame has a name"
                                                : "Innermost named frame; none is the host's own");
        AddFrame(Text, Frame, true);
        for (std::string const & sLine : Frame.dSource)
        {
            bool const bMarked = sLine.starts_with('>');
            Text.Add("      ").Add(bMarked ? Colour_e::Title : Colour_e::Quiet, sLine).End();
        }
        CrashModule_t const * const pModule = CrashModules_c(Crash).Find(Frame);
        if (Frame.sFunction.empty() && pModule != nullptr && !pModule->sBuildId.empty())
        {
            Text.Add(
                "      no name in this file; --symbols FOLDER reads it from one with build-id " + pModule->sBuildId);
            Text.End();
        }
    }

    bool IsSameCall(CrashFrame_t const & Inner, CrashFrame_t const & Outer)
    {
        return Outer.nLeftOut == 0
               && std::tie(Inner.nAddress, Inner.sFunction, Inner.sFile, Inner.iLine, Inner.bInlined)
                      == std::tie(Outer.nAddress, Outer.sFunction, Outer.sFile, Outer.iLine, Outer.bInlined);
    }

    // Frames of a recursion: a cycle, and how often it directly repeats.
    struct Cycle_t
    {
        std::size_t nFrames = 1, nAgain = 0;
    };

    // Returns the shortest cycle at iFirst that repeats often enough to be left out. Returns one frame, with nAgain 0,
    // if there is none.
    Cycle_t FindCycle(std::vector<CrashFrame_t> const & dFrames, std::size_t iFirst)
    {
        constexpr std::size_t MAX_FRAMES = 16, MIN_AGAIN = 3;
        for (Cycle_t Cycle; Cycle.nFrames <= MAX_FRAMES; ++Cycle.nFrames)
        {
            std::size_t iEnd = iFirst + Cycle.nFrames;
            while (iEnd < dFrames.size() && IsSameCall(dFrames[iEnd - Cycle.nFrames], dFrames[iEnd]))
            {
                ++iEnd;
            }
            Cycle.nAgain = (iEnd - iFirst) / Cycle.nFrames - 1;
            if (Cycle.nAgain >= MIN_AGAIN)
            {
                return Cycle;
            }
        }
        return {};
    }

    void AddFrames(Text_c & Text, std::vector<CrashFrame_t> const & dFrames, CrashFrame_t const * pLikely)
    {
        for (std::size_t i = 0; i < dFrames.size();)
        {
            Cycle_t const Cycle = FindCycle(dFrames, i);
            std::size_t const iEnd = i + Cycle.nFrames;
            for (; i < iEnd; ++i)
            {
                if (dFrames[i].nLeftOut > 0)
                {
                    Text.Add("    ... " + Counted(dFrames[i].nLeftOut, "frame") + " left out ...").End();
                }
                AddFrame(Text, dFrames[i], &dFrames[i] == pLikely);
            }
            if (Cycle.nAgain > 0)
            {
                i += Cycle.nFrames * Cycle.nAgain;
                std::string const sFrames =
                    Cycle.nFrames == 1 ? "this frame" : "these " + std::to_string(Cycle.nFrames) + " frames";
                Text.Add("    ... " + sFrames + " " + Counted(Cycle.nAgain, "more time") + ", to #"
                         + std::to_string(dFrames[i - 1].iNumber) + " ...");
                Text.End();
            }
        }
    }

    void AddStack(Text_c & Text, Crash_t const & Crash, CrashFrame_t const * pLikely)
    {
        AddHead(Text, "Stack");
        AddFrames(Text, Crash.Thread.dFrames, pLikely);
        if (Crash.Thread.bFarther)
        {
            Text.Add("    ... farther frames are left out ...").End();
        }
    }

    void AddVariables(Text_c & Text, CrashFrame_t const & Frame)
    {
        constexpr int MAX_LEVEL = 40;   // deeper members are not indented farther
        AddHead(Text, "Variables of frame " + std::to_string(Frame.iNumber));
        for (CrashVariable_t const & Variable : Frame.dVariables)
        {
            Text.Add(std::string(4 + 2 * static_cast<std::size_t>(std::clamp(Variable.nLevel, 0, MAX_LEVEL)), ' '));
            Text.Add(Colour_e::Quiet, Variable.sWord.empty() ? "." : Variable.sWord + " ");
            Text.Add(Variable.sName);
            Text.Add(Colour_e::Quiet, Variable.sType.empty() ? "" : ": " + Variable.sType);
            Text.Add(Variable.sValue.empty() ? "" : " = " + Variable.sValue).End();
        }
    }

    void AddThreads(Text_c & Text, Crash_t const & Crash)
    {
        AddHead(Text, "Other threads");
        for (CrashThread_t const & Thread : Crash.dThreads)
        {
            std::string const sPlace = CrashPlace(Thread.dFrames);
            Text.Add("    " + Thread.sNumber + (Thread.sName.empty() ? "" : " \"" + Thread.sName + "\""));
            Text.Add(Colour_e::Mark, Thread.sLock.empty() ? "" : ", " + Thread.sLock);
            Text.Add(sPlace.empty() ? "" : ": " + sPlace).End();
        }
        if (!Crash.sThreadsNote.empty())
        {
            Text.Add("    " + Crash.sThreadsNote).End();
        }
    }

    void AddLines(Text_c & Text, char const * szHead, std::vector<std::string> const & dLines)
    {
        if (!dLines.empty())
        {
            AddHead(Text, szHead);
            for (std::string const & sLine : dLines)
            {
                Text.Add("    " + sLine).End();
            }
        }
    }

    void AddFacts(Text_c & Text, Crash_t const & Crash)
    {
        if (Crash.dFacts.empty() && Crash.dModules.empty())
        {
            return;
        }
        AddHead(Text, "Process");
        for (CrashFact_t const & Fact : Crash.dFacts)
        {
            Text.Add("    ").Add(Colour_e::Quiet, Fact.sKey + ": ").Add(Fact.sValue).End();
        }
        Text.Add("    ").Add(Colour_e::Quiet, "modules: ").Add(std::to_string(Crash.dModules.size())).End();
    }

    std::string VersionsText(CrashGroup_t const & Group)
    {
        std::string sText;
        for (auto const & [sVersion, nCount] : Group.dVersions)
        {
            sText += (sText.empty() ? "" : ", ") + sVersion;
            sText += nCount < Group.nCount ? " (" + std::to_string(nCount) + ")" : "";
        }
        return sText;
    }
}

std::string CrashText(Crash_t const & Crash, bool bColours)
{
    Text_c Text(bColours);
    Text.Add(Colour_e::Title, CrashHeadline(Crash)).End();
    Text.Add(Colour_e::Quiet, Crash.sFile + (Crash.sTime.empty() ? "" : ", " + Crash.sTime) + ", "
                                  + HexWord(Crash.nCode) + " " + Crash.sCodeText
                                  + (Crash.bDetails ? "" : ", without details"));
    Text.End();
    CrashFrame_t const * const pLikely = LikelyFrame(Crash.Thread.dFrames);
    if (pLikely != nullptr)
    {
        AddLikely(Text, Crash, *pLikely);
        AddStack(Text, Crash, pLikely);
        if (!pLikely->dVariables.empty())
        {
            AddVariables(Text, *pLikely);
        }
    }
    if (!Crash.dThreads.empty() || !Crash.sThreadsNote.empty())
    {
        AddThreads(Text, Crash);
    }
    AddFacts(Text, Crash);
    AddLines(Text, "Memory, largest categories in bytes", Crash.dMemory);
    AddLines(Text, "Open timers", Crash.dTimers);
    AddLines(Text, "Last lines of the log", Crash.dLog);
    AddLines(Text, "Incomplete", Crash.dCuts);
    return Text.Extract();
}

std::string CrashGroupsText(std::vector<CrashGroup_t> const & dGroups, bool bColours)
{
    Text_c Text(bColours);
    Text.Add(Colour_e::Title, CrashCountText(dGroups) + " in " + Counted(dGroups.size(), "group")).End();
    for (CrashGroup_t const & Group : dGroups)
    {
        char szCount[32];
        std::snprintf(szCount, sizeof szCount, "%7zu  ", Group.nCount);
        Text.End().Add(Colour_e::Mark, szCount).Add(Colour_e::Title, Group.sSignature).End();
        std::string sFacts = CrashDays(Group, " to ");
        sFacts += sFacts.empty() || Group.dVersions.empty() ? "" : ", ";
        sFacts += Group.dVersions.empty() ? "" : "version " + VersionsText(Group);
        if (!sFacts.empty())
        {
            Text.Add("         " + sFacts).End();
        }
        Text.Add(Colour_e::Quiet, "         " + Group.Sample.sFile).End();
    }
    return Text.Extract();
}
