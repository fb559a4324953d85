// The details beside a report. The reader skips lines of an unknown form, as the format requires.
#include "tools/zqtool/crashcause.h"
#include "tools/zqtool/crashlines.h"
#include "tools/zqtool/crashreport.h"
#include "tools/zqtool/parse.h"
#include "zqcore/ccrashdetails_internal.h"

#include <algorithm>
#include <utility>

namespace
{
    constexpr std::string_view INDENT = "    ";   // of a level

    // Reader of one text of details, which may hold several crashes.
    class DetailsReader_c
    {
    public:
        DetailsReader_c(std::string_view sText, CrashComplain_t const & fnComplain, CrashExtent_e eExtent)
            : m_Lines(sText, fnComplain)
            , m_bAll(eExtent == CrashExtent_e::All)
        {}

        std::vector<Crash_t> Read();

    private:
        bool ReadFirstLine(std::string_view sLine);
        bool ReadSectionName(std::string_view sLine);
        void ReadLine(std::string_view sLine);
        void ReadFault(std::string_view sLine);
        void ReadFrames(std::string_view sLine, CrashThread_t & Thread);
        void ReadThreads(std::string_view sLine);
        void ReadModule(std::string_view sLine);
        void ReadProcess(std::string_view sLine);
        void End();

        Crash_t & Last() { return m_dCrashes.back(); }

        CrashLines_c m_Lines;
        bool m_bAll;   // whether more is read than the cause
        std::vector<Crash_t> m_dCrashes;
        CrashSection_e m_eSection = CrashSection_e::None;
        bool m_bEmpty = true;           // whether the previous line is empty
        bool m_bFull = false;           // whether a list of the crash is cut
        std::uint64_t m_nLeftOut = 0;   // frames left out before the next one
        std::string m_sGroup;           // of the process: the key whose lines follow
    };

    // Returns the file name that the details write with \x20 for each blank.
    std::string Unescaped(std::string_view sName)
    {
        constexpr std::string_view BLANK = CRASH_BLANK;
        std::string sOut(sName);
        for (std::size_t iBlank = 0; (iBlank = sOut.find(BLANK, iBlank)) != std::string::npos; ++iBlank)
        {
            sOut.replace(iBlank, BLANK.size(), " ");
        }
        return sOut;
    }

    // Removes "+HEX" from the end of a text and returns the number. Returns nothing, and leaves the text unchanged, if
    // the text does not end so.
    std::optional<std::uint64_t> TakeDistance(std::string_view & sText)
    {
        std::size_t const iPlus = sText.rfind('+');
        if (iPlus == std::string_view::npos)
        {
            return std::nullopt;
        }
        std::optional<std::uint64_t> const Distance = WholeNumber(sText.substr(iPlus + 1), 16);
        sText = Distance ? sText.substr(0, iPlus) : sText;
        return Distance;
    }

    // Reads "#N ADDRESS MODULE+OFFSET FUNCTION+DISPLACEMENT" and returns the frame. Returns nothing if the line does
    // not begin with a number and an address.
    std::optional<CrashFrame_t> ReadFrame(std::string_view sLine)
    {
        TakeStart(sLine, "#");
        std::optional<std::uint64_t> const Number = TakeNumber(sLine, 10);
        bool const bNumber = Number && TakeStart(sLine, " ");
        std::optional<std::uint64_t> const Address = bNumber ? TakeNumber(sLine, 16) : std::nullopt;
        if (!Address || !TakeStart(sLine, " "))
        {
            return std::nullopt;
        }
        constexpr std::string_view INLINED = CRASH_INLINED;
        CrashFrame_t Frame;
        Frame.iNumber = *Number;
        Frame.nAddress = *Address;
        std::string_view sModule = TakeUpTo(sLine, " ");
        if (sModule != "?")
        {
            Frame.nOffset = TakeDistance(sModule).value_or(0);
            Frame.sModule = Unescaped(sModule);
        }
        if (sLine.ends_with(INLINED))
        {
            sLine.remove_suffix(INLINED.size());
            Frame.bInlined = true;
        }
        else
        {
            Frame.nDisplacement = TakeDistance(sLine).value_or(0);
        }
        Frame.sFunction = sLine == "?" ? "" : sLine;
        return Frame;
    }

    // Reads "NAME: TYPE = VALUE", which follows the word or the dot of a variable, and returns the variable.
    CrashVariable_t ReadVariable(std::string_view sWord, std::string_view sLine, int nLevel)
    {
        CrashVariable_t Variable;
        Variable.nLevel = nLevel;
        Variable.sWord = sWord;
        Variable.sName = TakeUpTo(sLine, ": ");
        Variable.sType = TakeUpTo(sLine, " = ");
        Variable.sValue = sLine;
        return Variable;
    }

    // Reads a line that belongs to a frame, without its first INDENT. Returns false if the frame has no room for it.
    bool ReadFrameLine(std::string_view sLine, CrashFrame_t & Frame)
    {
        std::size_t const nBlanks = std::min(sLine.find_first_not_of(' '), sLine.size());
        auto const nLevel = static_cast<int>(nBlanks / INDENT.size());   // of a variable
        std::string_view sText = sLine.substr(nBlanks);
        std::string_view sSource = sText.substr(sText.starts_with('>') ? 1 : 0);
        sSource.remove_prefix(std::min(sSource.find_first_not_of(' '), sSource.size()));
        if (nBlanks == 0 && TakeStart(sText, "at "))
        {
            std::size_t const iColon = sText.rfind(':');
            std::string_view const sNumber = sText.substr(iColon == std::string_view::npos ? sText.size() : iColon + 1);
            std::optional<std::uint64_t> const Line = WholeNumber(sNumber, 10);
            Frame.sFile = sText.substr(0, Line ? iColon : sText.size());
            Frame.iLine = Line && *Line <= UINT32_MAX ? static_cast<unsigned>(*Line) : 0;
            return true;
        }
        if (TakeNumber(sSource, 10) && sSource.starts_with(" |"))
        {
            return AppendMember(Frame.dSource, std::string(sLine));
        }
        if (TakeStart(sText, "... "))
        {
            return AppendMember(Frame.dVariables, ReadVariable("...", sText, nLevel));
        }
        if (TakeStart(sText, "."))
        {
            return AppendMember(Frame.dVariables, ReadVariable("", sText, nLevel));
        }
        if (nBlanks == 0)
        {
            char const * const szWord = TakeStart(sText, "parameter ") ? "parameter"
                                        : TakeStart(sText, "local ")   ? "local"
                                                                       : nullptr;
            if (szWord != nullptr)
            {
                return AppendMember(Frame.dVariables, ReadVariable(szWord, sText, 0));
            }
        }
        return true;
    }

    // Reads '4711 "render"', and ", holds LOCK" or ", waits for LOCK" after it. Returns the thread. The program chooses
    // the name, so it may hold any text.
    CrashThread_t ReadThread(std::string_view sLine)
    {
        CrashThread_t Thread;
        std::size_t const iNumberEnd = std::min(sLine.find_first_of(" ,"), sLine.size());
        Thread.sNumber = sLine.substr(0, iNumberEnd);
        sLine.remove_prefix(iNumberEnd);
        std::size_t const iNameEnd = sLine.rfind('"') + 1;   // 0 without a name
        std::size_t const iLock = std::min(sLine.find(", holds ", iNameEnd), sLine.find(", waits for ", iNameEnd));
        if (iLock != std::string_view::npos)
        {
            std::string_view sLock = sLine.substr(iLock);
            TakeStart(sLock, ", ");
            Thread.sLock = sLock;
            sLine = sLine.substr(0, iLock);
        }
        if (TakeStart(sLine, " \""))
        {
            sLine.remove_suffix(sLine.ends_with('"') ? 1 : 0);
            Thread.sName = sLine;
        }
        return Thread;
    }

    // Sets the module's path in each frame whose module is listed.
    void SetPaths(std::vector<CrashFrame_t> & dFrames, CrashModules_c const & Modules)
    {
        for (CrashFrame_t & Frame : dFrames)
        {
            CrashModule_t const * const pModule = Modules.Find(Frame);
            if (pModule != nullptr)
            {
                Frame.sModulePath = pModule->sPath;
            }
        }
    }

    // Sets the paths of the modules in all frames, because the details list the frames before the modules. Sets the
    // module of the fault.
    void SetPaths(Crash_t & Crash)
    {
        CrashModules_c const Modules(Crash);
        SetPaths(Crash.Thread.dFrames, Modules);
        for (CrashThread_t & Thread : Crash.dThreads)
        {
            SetPaths(Thread.dFrames, Modules);
        }
        if (!Crash.Thread.dFrames.empty())
        {
            CrashFrame_t const & First = Crash.Thread.dFrames[0];
            Crash.sFaultModule = First.sModulePath.empty() ? First.sModule : First.sModulePath;
        }
    }

    std::vector<Crash_t> DetailsReader_c::Read()
    {
        std::string_view sLine;
        while (m_Lines.Next(sLine))
        {
            if (sLine.starts_with(CRASH_DETAILS_TITLE))
            {
                if (!ReadFirstLine(sLine))
                {
                    return std::move(m_dCrashes);
                }
            }
            else if (m_dCrashes.empty())
            {
                m_Lines.Complain("not the details of a crash: " + CrashLines_c::StartOf(sLine));
                return {};
            }
            else if (!m_bEmpty || !ReadSectionName(sLine))
            {
                ReadLine(sLine);
            }
            m_bEmpty = sLine.empty();
        }
        if (m_dCrashes.empty())
        {
            m_Lines.Complain("the details are empty");
            return {};
        }
        End();
        return std::move(m_dCrashes);
    }

    // Begins a crash and returns true. Returns false, with a complaint, if the rest is not read.
    bool DetailsReader_c::ReadFirstLine(std::string_view sLine)
    {
        End();
        if (sLine.substr(std::string_view(CRASH_DETAILS_TITLE).size()) != CRASH_DETAILS_VERSION)
        {
            m_Lines.ComplainOf("details of another version", sLine);
            return false;
        }
        if (m_dCrashes.size() == CRASH_MAX_CRASHES)
        {
            m_Lines.ComplainOfMoreCrashes();
            return false;
        }
        m_dCrashes.emplace_back().bDetails = true;
        m_eSection = CrashSection_e::None;
        m_bFull = false;
        return true;
    }

    // Sets the paths in the last crash, if there is one. Reports that its details break off, if they have no section or
    // the last one is a known one before [Process]. Reports that a list of the crash is cut.
    void DetailsReader_c::End()
    {
        if (m_dCrashes.empty())
        {
            return;
        }
        if (m_eSection < CrashSection_e::Process)
        {
            m_Lines.Complain(
                m_eSection == CrashSection_e::None
                    ? std::string("the details break off before their first section")
                    : std::string("the details break off in ") + CRASH_SECTIONS[static_cast<unsigned>(m_eSection)]);
        }
        SetPaths(Last());
        if (m_bFull)
        {
            m_Lines.Complain(
                "a list of more than " + std::to_string(CRASH_MAX_MEMBERS) + " entries is cut, in this crash");
        }
    }

    // Begins a section and returns true. Returns false if the line is not the name of one.
    bool DetailsReader_c::ReadSectionName(std::string_view sLine)
    {
        if (!sLine.starts_with('[') || !sLine.ends_with(']'))
        {
            return false;
        }
        auto const * const pName = std::find(std::begin(CRASH_SECTIONS), std::end(CRASH_SECTIONS), sLine);
        auto const eSection = static_cast<CrashSection_e>(pName - std::begin(CRASH_SECTIONS));   // Unknown if none
        if (eSection <= m_eSection && m_eSection != CrashSection_e::Unknown)
        {
            m_Lines.ComplainOf("out of order", sLine);
        }
        m_eSection = eSection;
        m_sGroup.clear();
        m_nLeftOut = 0;
        return true;
    }

    // Reads a line that begins neither a crash nor a section.
    void DetailsReader_c::ReadLine(std::string_view sLine)
    {
        std::string_view sCut = sLine;
        if (TakeStart(sCut, CRASH_CUT) && sCut.ends_with(')') && m_eSection != CrashSection_e::Unknown)
        {
            std::string sReason(CRASH_SECTIONS[static_cast<unsigned>(m_eSection)]);
            sReason += sReason.empty() ? "" : ": ";
            sReason += sCut.substr(0, sCut.size() - 1);
            m_bFull = !AppendMember(Last().dCuts, std::move(sReason)) || m_bFull;
            return;
        }
        switch (sLine.empty() ? CrashSection_e::None : m_eSection)
        {
        case CrashSection_e::Fault:
            ReadFault(sLine);
            break;
        case CrashSection_e::Frames:
            ReadFrames(sLine, Last().Thread);
            break;
        case CrashSection_e::Threads:
            if (m_bAll)
            {
                ReadThreads(sLine);
            }
            break;
        case CrashSection_e::Modules:
            ReadModule(sLine);
            break;
        case CrashSection_e::Process:
            ReadProcess(sLine);
            break;
        case CrashSection_e::None:
        case CrashSection_e::Unknown:
            break;
        }
    }

    void DetailsReader_c::ReadFault(std::string_view sLine)
    {
        Crash_t & Crash = Last();
        std::string_view sValue = sLine;
        std::string_view const sKey = TakeUpTo(sValue, ": ");
        if (sKey == "code")
        {
            if (!TakeCode(sValue, Crash))
            {
                m_Lines.ComplainOf("not an exception code", sLine);
            }
        }
        else if (sKey == "kind")
        {
            Crash.sKind = sValue;
        }
        else if (sKey == "data" || sKey == "instruction")
        {
            std::optional<std::uint64_t> & Address = sKey == "data" ? Crash.Data : Crash.Instruction;
            TakeStart(sValue, "0x");
            Address = WholeNumber(sValue, 16);
            if (!Address && sValue != "unknown")
            {
                m_Lines.ComplainOf("not an address", sLine);
            }
        }
        else if (sKey == "thread")
        {
            CrashThread_t Thread = ReadThread(sValue);
            Thread.dFrames = std::move(Crash.Thread.dFrames);
            Crash.Thread = std::move(Thread);
        }
        else if (sKey == "exception")
        {
            Crash.sException = sValue;
        }
        else if (sKey == "depth")
        {
            Crash.sDepth = sValue;
        }
    }

    // Reads a line of a thread's frames: a frame, a line that belongs to it, or the number of frames left out.
    void DetailsReader_c::ReadFrames(std::string_view sLine, CrashThread_t & Thread)
    {
        std::vector<CrashFrame_t> & dFrames = Thread.dFrames;
        std::string_view sRest = sLine;
        if (TakeStart(sRest, "... "))
        {
            m_nLeftOut = TakeNumber(sRest, 10).value_or(0);
            Thread.bFarther = true;   // unless further ones follow
        }
        else if (TakeStart(sRest, INDENT) && !dFrames.empty())
        {
            if (m_bAll || sRest.starts_with("at "))
            {
                m_bFull = !ReadFrameLine(sRest, dFrames.back()) || m_bFull;
            }
        }
        else if (sLine.starts_with('#'))
        {
            std::optional<CrashFrame_t> Frame = ReadFrame(sLine);
            if (!Frame)
            {
                m_Lines.ComplainOf("not a frame", sLine);
                return;
            }
            Frame->nLeftOut = std::exchange(m_nLeftOut, 0);
            Thread.bFarther = false;
            // Inlined calls share the address of the function that they are part of.
            Frame->bReturn = !dFrames.empty() && (dFrames.back().bReturn || !dFrames.back().bInlined);
            m_bFull = !AppendMember(dFrames, std::move(*Frame)) || m_bFull;
        }
    }

    void DetailsReader_c::ReadThreads(std::string_view sLine)
    {
        std::vector<CrashThread_t> & dThreads = Last().dThreads;
        std::string_view sRest = sLine;
        if (TakeStart(sRest, "thread "))
        {
            m_bFull = !AppendMember(dThreads, ReadThread(sRest)) || m_bFull;
            m_nLeftOut = 0;
        }
        else if (!dThreads.empty())
        {
            ReadFrames(sLine, dThreads.back());
        }
        else if (Last().sThreadsNote.empty())
        {
            Last().sThreadsNote = sLine;
        }
    }

    // Reads "START-END BUILDID PATH".
    void DetailsReader_c::ReadModule(std::string_view sLine)
    {
        std::string_view sRest = sLine;
        CrashModule_t Module;
        std::optional<std::uint64_t> const Start = TakeNumber(sRest, 16);
        bool const bStart = Start && TakeStart(sRest, "-");
        std::optional<std::uint64_t> const End = bStart ? TakeNumber(sRest, 16) : std::nullopt;
        if (!End || *End < *Start || !TakeStart(sRest, " "))
        {
            m_Lines.ComplainOf("not a module", sLine);
            return;
        }
        Module.nStart = *Start;
        Module.nEnd = *End;
        std::string_view const sBuildId = TakeUpTo(sRest, " ");
        Module.sBuildId = sBuildId == "-" ? "" : Lower(sBuildId);
        Module.sPath = sRest;
        m_bFull = !AppendMember(Last().dModules, std::move(Module)) || m_bFull;
    }

    void DetailsReader_c::ReadProcess(std::string_view sLine)
    {
        Crash_t & Crash = Last();
        if (TakeStart(sLine, INDENT))
        {
            TakeStart(sLine, "| ");
            std::vector<std::string> * const pLines = !m_bAll                ? nullptr
                                                      : m_sGroup == "memory" ? &Crash.dMemory
                                                      : m_sGroup == "log"    ? &Crash.dLog
                                                      : m_sGroup == "timers" ? &Crash.dTimers
                                                                             : nullptr;
            m_bFull = (pLines != nullptr && !AppendMember(*pLines, std::string(sLine))) || m_bFull;
        }
        else if (sLine.ends_with(':'))
        {
            m_sGroup = sLine.substr(0, sLine.size() - 1);
        }
        else if (sLine.find(": ") != std::string_view::npos)
        {
            std::string_view const sKey = TakeUpTo(sLine, ": ");
            m_bFull = !AppendMember(Crash.dFacts, { std::string(sKey), std::string(sLine) }) || m_bFull;
        }
    }
}

std::vector<Crash_t> ReadCrashDetails(std::string_view sText, CrashComplain_t const & fnComplain, CrashExtent_e eExtent)
{
    return DetailsReader_c(sText, fnComplain, eExtent).Read();
}
