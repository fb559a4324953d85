// Reads reports, and joins them with details. Each part begins with a fixed line, so the others are read if one is
// missing or damaged.
#include "tools/zqtool/crashreport.h"

#include "platform/faults.h"
#include "tools/zqtool/crashcause.h"
#include "tools/zqtool/crashlines.h"
#include "tools/zqtool/parse.h"

#include <algorithm>
#include <unordered_map>

namespace
{
    // Parts of a crash, in their order.
    enum class Part_e
    {
        Head,
        Stack,
        Code,
        Variables
    };

    class ReportReader_c
    {
    public:
        ReportReader_c(std::string_view sText, CrashComplain_t const & fnComplain, CrashExtent_e eExtent)
            : m_Lines(sText, fnComplain)
            , m_bAll(eExtent == CrashExtent_e::All)
        {}

        std::vector<Crash_t> Read();

    private:
        bool ReadMark(std::string_view sLine);
        void Begin(Part_e ePart, std::string_view sLine);
        void ReadHead(std::string_view sLine);
        void ReadStack(std::string_view sLine);
        void ReadVariables(std::string_view sLine);
        void AddVariable(std::string_view sLine);
        void CheckEnd();

        CrashLines_c m_Lines;
        bool m_bAll;   // whether more is read than the cause
        std::vector<Crash_t> m_dCrashes;
        Part_e m_ePart = Part_e::Head;
        std::size_t m_nFrames = 0;   // of the second call stack so far; more than the first one has if the two differ
        std::size_t m_nEmpty = 0;    // empty lines since the last line that is not empty
        bool m_bStack = false;       // whether the current crash has a call stack
        bool m_bFull = false;        // whether a list of variables is cut
    };

    // Reads "SECTION:OFFSET MODULE". Returns false, and leaves the line unchanged, if it begins otherwise.
    bool ReadPlace(std::string_view & sLine, CrashFrame_t & Frame)
    {
        std::string_view sRest = sLine;
        std::optional<std::uint64_t> const Section = TakeNumber(sRest, 16);
        bool const bSection = Section && TakeStart(sRest, ":");
        std::optional<std::uint64_t> const Offset = bSection ? TakeNumber(sRest, 16) : std::nullopt;
        if (!Offset || !TakeStart(sRest, " "))
        {
            return false;
        }
        Frame.iSection = static_cast<unsigned>(*Section);
        Frame.nOffset = *Offset;
        Frame.sModulePath = TakeUpTo(sRest, "  ");
        Frame.sModule = FileNameOf(Frame.sModulePath);
        sLine = sRest;
        return true;
    }

    // Reads "FUNCTION+DISPLACEMENT  ". Leaves the line and the frame unchanged if the line has no displacement.
    void ReadFunction(std::string_view & sLine, CrashFrame_t & Frame)
    {
        for (std::size_t iPlus = sLine.find('+'); iPlus != std::string_view::npos; iPlus = sLine.find('+', iPlus + 1))
        {
            std::string_view sRest = sLine.substr(iPlus + 1);
            std::optional<std::uint64_t> const Displacement = TakeNumber(sRest, 16);
            if (Displacement && TakeStart(sRest, "  "))
            {
                Frame.sFunction = sLine.substr(0, iPlus);
                Frame.nDisplacement = *Displacement;
                sLine = sRest;
                return;
            }
        }
    }

    // Reads "FILE(LINE): TEXT", the text only if there is one. Leaves the frame unchanged if the line has no number.
    void ReadSource(std::string_view sLine, CrashFrame_t & Frame)
    {
        for (std::size_t iOpen = sLine.find('('); iOpen != std::string_view::npos; iOpen = sLine.find('(', iOpen + 1))
        {
            std::string_view sRest = sLine.substr(iOpen + 1);
            std::optional<std::uint64_t> const Line = TakeNumber(sRest, 10);
            if (Line && *Line <= UINT32_MAX && TakeStart(sRest, "):"))
            {
                Frame.sFile = sLine.substr(0, iOpen);
                Frame.iLine = static_cast<unsigned>(*Line);
                if (TakeStart(sRest, " ") && !sRest.empty())
                {
                    Frame.dSource.push_back("> " + std::to_string(Frame.iLine) + " | " + std::string(sRest));
                }
                return;
            }
        }
    }

    // Returns the frame of a line of the call stack: "ADDRESS  FRAME  FUNCTION+DISPLACEMENT   FILE(LINE): TEXT", with
    // "SECTION:OFFSET MODULE" instead of the function, or with neither. Returns nothing for any other line.
    std::optional<CrashFrame_t> ReadFrame(std::string_view sLine)
    {
        std::optional<std::uint64_t> const Address = TakeNumber(sLine, 16);
        bool const bFirst = Address && TakeStart(sLine, "  ");
        if (!bFirst || !TakeNumber(sLine, 16) || !TakeStart(sLine, "  "))
        {
            return std::nullopt;
        }
        CrashFrame_t Frame;
        Frame.nAddress = *Address;
        if (!ReadPlace(sLine, Frame) && !TakeStart(sLine, "  "))
        {
            ReadFunction(sLine, Frame);
        }
        TakeStart(sLine, " ");
        ReadSource(sLine, Frame);
        return Frame;
    }

    std::vector<Crash_t> ReportReader_c::Read()
    {
        std::string_view sLine;
        while (m_Lines.Next(sLine) && m_dCrashes.size() <= CRASH_MAX_CRASHES)
        {
            m_nEmpty = sLine.empty() ? m_nEmpty + 1 : 0;
            if (sLine.empty() || ReadMark(sLine))
            {
                continue;
            }
            if (m_dCrashes.empty())
            {
                m_Lines.Complain("not a crash report: " + CrashLines_c::StartOf(sLine));
                return {};
            }
            switch (m_ePart)
            {
            case Part_e::Head:
                ReadHead(sLine);
                break;
            case Part_e::Stack:
                ReadStack(sLine);
                break;
            case Part_e::Variables:
                ReadVariables(sLine);
                break;
            case Part_e::Code:
                break;
            }
        }
        CheckEnd();
        return std::move(m_dCrashes);
    }

    // Begins the crash or the part that the line names, if it names one. Returns whether the line is one of the fixed
    // ones. Before the first crash, only the line that begins one counts. A call stack among the variables begins no
    // part. Requires a line that is not empty.
    bool ReportReader_c::ReadMark(std::string_view sLine)
    {
        if (std::string_view("PCLA=").find(sLine[0]) == std::string_view::npos)
        {
            return false;   // almost all lines
        }
        if (sLine == "PROGRAM IS CRASHED!!!")
        {
            Crash_t & Crash = m_dCrashes.emplace_back();
            Crash.bReport = true;
            m_ePart = Part_e::Head;
            m_bStack = false;
            return true;
        }
        if (m_dCrashes.empty())
        {
            return false;
        }
        if (sLine == "Call stack:")
        {
            m_nFrames = 0;
            if (m_ePart != Part_e::Variables)
            {
                Begin(Part_e::Stack, sLine);
                m_bStack = true;
            }
            return true;
        }
        if (sLine == "Crash code disassembly:")
        {
            Begin(Part_e::Code, sLine);
            return true;
        }
        if (sLine == "Local Variables And Parameters")
        {
            Begin(Part_e::Variables, sLine);
            return true;
        }
        return sLine.starts_with("Address   Frame") || sLine.starts_with("====");
    }

    void ReportReader_c::Begin(Part_e ePart, std::string_view sLine)
    {
        if (m_ePart >= ePart)
        {
            m_Lines.ComplainOf("out of order", sLine);
        }
        m_ePart = ePart;
    }

    void ReportReader_c::ReadHead(std::string_view sLine)
    {
        Crash_t & Crash = m_dCrashes.back();
        if (TakeStart(sLine, "Exception code: "))
        {
            if (!TakeCode(sLine, Crash))
            {
                m_Lines.ComplainOf("not an exception code", sLine);
                return;
            }
            Crash.sKind = CrashKindOf(Crash.nCode);
            std::string_view sException = sLine;
            if (TakeStart(sException, plat::FAULT_UNCAUGHT_TEXT) && TakeStart(sException, " "))
            {
                Crash.sException = sException;
            }
        }
        else if (TakeStart(sLine, "Fault address:  "))
        {
            Crash.Instruction = TakeNumber(sLine, 16);
            if (!Crash.Instruction)
            {
                m_Lines.ComplainOf("not an address", sLine);
            }
            TakeStart(sLine, " ");
            TakeUpTo(sLine, " ");
            Crash.sFaultModule = sLine;
        }
    }

    void ReportReader_c::ReadStack(std::string_view sLine)
    {
        Crash_t & Crash = m_dCrashes.back();
        if (sLine.starts_with("("))   // "(farther frames are left out)"
        {
            Crash.Thread.bFarther = true;
            return;
        }
        std::optional<CrashFrame_t> Frame = ReadFrame(sLine);
        if (!Frame)
        {
            m_Lines.ComplainOf("not a frame", sLine);
            return;
        }
        Frame->iNumber = Crash.Thread.dFrames.size();
        Frame->bReturn = Frame->iNumber > 0;
        if (!AppendMember(Crash.Thread.dFrames, std::move(*Frame)))
        {
            Crash.Thread.bFarther = true;
        }
    }

    void ReportReader_c::ReadVariables(std::string_view sLine)
    {
        if (!m_bAll)
        {
            return;
        }
        if (sLine.starts_with('\t'))
        {
            AddVariable(sLine);
            return;
        }
        std::optional<CrashFrame_t> const Frame = ReadFrame(sLine);
        std::vector<CrashFrame_t> const & dFrames = m_dCrashes.back().Thread.dFrames;
        if (Frame && m_nFrames < dFrames.size() && dFrames[m_nFrames].nAddress == Frame->nAddress)
        {
            ++m_nFrames;
        }
        else if (Frame)
        {
            m_nFrames = dFrames.size() + 1;   // another stack than the first one: its variables have no frame
        }
    }

    // Reads "\tParameter 'NAME' TYPE = VALUE", or the same with "Local", or of a member "\t\t NAME = VALUE", with a
    // further tab for each level.
    void ReportReader_c::AddVariable(std::string_view sLine)
    {
        std::vector<CrashFrame_t> & dFrames = m_dCrashes.back().Thread.dFrames;
        if (m_nFrames == 0 || m_nFrames > dFrames.size())
        {
            return;
        }
        std::size_t const nTabs = std::min(sLine.find_first_not_of('\t'), sLine.size());
        sLine.remove_prefix(nTabs);
        TakeStart(sLine, " ");
        CrashVariable_t Variable;
        Variable.nLevel = static_cast<int>(nTabs) - 1;
        Variable.sWord = TakeStart(sLine, "Parameter ") ? "parameter" : TakeStart(sLine, "Local ") ? "local" : "";
        std::string_view sHead = TakeUpTo(sLine, " = ");
        Variable.sValue = sLine;
        if (TakeStart(sHead, "'"))
        {
            Variable.sName = TakeUpTo(sHead, "'");
            TakeStart(sHead, " ");
            Variable.sType = sHead;
        }
        else
        {
            Variable.sName = sHead;
        }
        if (!Variable.sName.empty() || !Variable.sValue.empty())
        {
            m_bFull = !AppendMember(dFrames[m_nFrames - 1].dVariables, std::move(Variable)) || m_bFull;
        }
    }

    // Reports that the file has no crash, or what its last one lacks. The others need not be whole: a report may fault,
    // and another one then continues it. Reports a list that was cut if the crash lacks nothing. If there are more
    // crashes than the limit, removes the last one, and reports nothing but that there are more.
    void ReportReader_c::CheckEnd()
    {
        if (m_dCrashes.empty())
        {
            m_Lines.Complain("the report is empty");
        }
        else if (m_dCrashes.size() > CRASH_MAX_CRASHES)
        {
            m_Lines.ComplainOfMoreCrashes();
            m_dCrashes.pop_back();
        }
        else if (!m_bStack)
        {
            m_Lines.Complain("the report breaks off before its call stack");
        }
        else if (m_ePart == Part_e::Code)
        {
            m_Lines.Complain("the report breaks off in the listing of the code");
        }
        else if (m_ePart == Part_e::Variables && m_nEmpty < 2)
        {
            m_Lines.Complain("the report breaks off in the variables");
        }
        else if (m_bFull)
        {
            m_Lines.Complain("a list of more than " + std::to_string(CRASH_MAX_MEMBERS) + " variables is cut");
        }
    }

    bool IsSameCrash(Crash_t const & Report, Crash_t const & Details)
    {
        return Report.nCode == Details.nCode && Report.Instruction == Details.Instruction;
    }

    // Appends the frames of the report that follow the last one of the details. Sets the flag for farther frames to
    // that of the report, or to true if the list has no room for all. Changes nothing if the report lacks that last
    // frame, or if the details leave out frames before it.
    void AddFarther(CrashThread_t & Thread, CrashThread_t & Reported)
    {
        std::vector<CrashFrame_t> & dFrames = Thread.dFrames;
        std::vector<CrashFrame_t> & dReported = Reported.dFrames;
        bool const bGap =
            std::any_of(dFrames.begin(), dFrames.end(), [](CrashFrame_t const & Frame) { return Frame.nLeftOut > 0; });
        auto const itLast = dFrames.empty() ? dReported.end()
                                            : std::find_if(dReported.begin(), dReported.end(),
                                                [&dFrames](CrashFrame_t const & Frame)
                                                { return Frame.nAddress == dFrames.back().nAddress; });
        if (itLast == dReported.end() || bGap)
        {
            return;
        }
        std::uint64_t iNumber = dFrames.back().iNumber;
        for (auto itFrame = itLast + 1; itFrame != dReported.end(); ++itFrame)
        {
            itFrame->iNumber = ++iNumber;
            if (!AppendMember(dFrames, std::move(*itFrame)))
            {
                Thread.bFarther = true;
                return;
            }
        }
        Thread.bFarther = Reported.bFarther;
    }

    // Copies functions, source lines and variables from the report to the details' frames of the same address that have
    // no function.
    void AddNames(std::vector<CrashFrame_t> & dFrames, std::vector<CrashFrame_t> const & dReported)
    {
        std::unordered_map<std::uint64_t, CrashFrame_t const *> dNamed;
        for (CrashFrame_t const & Reported : dReported)
        {
            if (!Reported.sFunction.empty())
            {
                dNamed.emplace(Reported.nAddress, &Reported);
            }
        }
        for (CrashFrame_t & Frame : dFrames)
        {
            auto const itNamed = dNamed.find(Frame.nAddress);
            if (Frame.sFunction.empty() && itNamed != dNamed.end())
            {
                CrashFrame_t const & Reported = *itNamed->second;
                Frame.sFunction = Reported.sFunction;
                Frame.nDisplacement = Reported.nDisplacement;
                Frame.bHidesInlined = true;   // a report has no inlined calls
                Frame.sFile = Reported.sFile;
                Frame.iLine = Reported.iLine;
                Frame.dSource = Reported.dSource;
                Frame.dVariables = Reported.dVariables;
            }
        }
    }

    // Returns the details with the file and the fault's module of the report, and with what the report alone has.
    Crash_t Joined(Crash_t Report, Crash_t Details)
    {
        Details.bReport = true;
        Details.sFile = std::move(Report.sFile);
        if (!Report.sFaultModule.empty())
        {
            Details.sFaultModule = Report.sFaultModule;
        }
        if (Details.sException.empty())
        {
            Details.sException = Report.sException;
        }
        if (Details.sKind == "unknown")
        {
            Details.sKind = Report.sKind;
        }
        if (Details.Thread.dFrames.empty())
        {
            Details.Thread.dFrames = std::move(Report.Thread.dFrames);
            Details.Thread.bFarther = Report.Thread.bFarther;
        }
        else
        {
            AddNames(Details.Thread.dFrames, Report.Thread.dFrames);
            AddFarther(Details.Thread, Report.Thread);
        }
        return Details;
    }
}

std::string_view Crash_t::GetFact(std::string_view sKey) const
{
    auto const itFact =
        std::find_if(dFacts.begin(), dFacts.end(), [sKey](CrashFact_t const & Fact) { return Fact.sKey == sKey; });
    return itFact == dFacts.end() ? std::string_view() : std::string_view(itFact->sValue);
}

std::vector<Crash_t> ReadCrashReport(std::string_view sText, CrashComplain_t const & fnComplain, CrashExtent_e eExtent)
{
    return ReportReader_c(sText, fnComplain, eExtent).Read();
}

std::vector<Crash_t> JoinCrashes(std::vector<Crash_t> dReports, std::vector<Crash_t> dDetails)
{
    std::vector<Crash_t> dCrashes, dAlone;
    auto itNext = dReports.begin();
    for (Crash_t & Details : dDetails)
    {
        auto const itSame = std::find_if(
            itNext, dReports.end(), [&Details](Crash_t const & Report) { return IsSameCrash(Report, Details); });
        if (itSame == dReports.end())
        {
            dAlone.push_back(std::move(Details));
            continue;
        }
        std::move(itNext, itSame, std::back_inserter(dCrashes));
        dCrashes.push_back(Joined(std::move(*itSame), std::move(Details)));
        itNext = itSame + 1;
    }
    std::move(itNext, dReports.end(), std::back_inserter(dCrashes));
    std::move(dAlone.begin(), dAlone.end(), std::back_inserter(dCrashes));
    return dCrashes;
}
