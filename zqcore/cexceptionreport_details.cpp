// The file of details beside a report: sections of lines that a person reads and a program parses.
// docs/formats.md describes it.
#include "zqcore/cexceptionreport_internal.h"
#include "zqcore/cfaultnames_internal.h"

#include "platform/clock.h"
#include "platform/modulelist.h"
#include "platform/text.h"
#include "platform/threads.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace
{
    using namespace exceptionreport;

    // Milliseconds that a section may take.
    constexpr unsigned SHORT_LIMIT = 5000;
    constexpr unsigned HELPER_LIMIT = plat::SYMBOL_LIMIT + SHORT_LIMIT;

    // Writes the path of the details to the PATH_SIZE bytes of szPath: the stem of the report's path, "_details",
    // szMore and ".txt". Writes an empty text if the path does not fit, or if the report's path has no stem.
    void MakeDetailsPath(char * szPath, char const * szReport, char const * szMore)
    {
        constexpr std::size_t REPORT_ENDING = sizeof CRASH_REPORT_END - 1;
        std::size_t const nReport = std::strlen(szReport);
        std::size_t const nStem = nReport > REPORT_ENDING ? nReport - REPORT_ENDING : 0;
        int const nPath = std::snprintf(szPath, PATH_SIZE, "%.*s%s%s%s", static_cast<int>(nStem), szReport,
            CRASH_DETAILS_NAME, szMore, CRASH_DETAILS_END);
        if (nStem == 0 || static_cast<std::size_t>(nPath) >= PATH_SIZE)
        {
            szPath[0] = '\0';
        }
    }

    char const * KindOf(plat::FaultRecord_t const & Record)
    {
        if (char const * const szKind = FaultKindOf(Record.nCode))
        {
            return szKind;
        }
        switch (Record.eAccess)
        {
        case plat::FaultAccess_e::Read:
            return "read";
        case plat::FaultAccess_e::Write:
            return "write";
        case plat::FaultAccess_e::Execute:
            return "execute";
        default:
            return "unknown";
        }
    }

    void WriteThread(Details_c & Details, std::uint32_t iThread)
    {
        char szName[plat::THREAD_NAME_SIZE];
        plat::ThreadName(szName);
        Details.GetLine().Add("thread: %" PRIu32 " \"", iThread);
        Details.GetLine().AddShown(szName);
        Details.GetLine().Add("\"");
        Details.EndLine();
    }

    void WriteFault(Details_c & Details, plat::FaultPointers_t const & Fault)
    {
        plat::FaultRecord_t const & Record = *Fault.pRecord;
        bool const bStack = Record.nCode == plat::FAULT_STACK_OVERFLOW;
        Text_c & Line = Details.GetLine();
        Line.Add("code: %08X ", Record.nCode);
        Line.AddShown(FaultName(Record.nCode));
        Details.EndLine();
        Line.Add("kind: %s", KindOf(Record));
        Details.EndLine();
        if (bStack || Record.eAccess > plat::FaultAccess_e::Unknown)
        {
            bool const bKnown = Record.dParameters[1] != UINTPTR_MAX;
            Line.Add(bKnown ? "data: %08" PRIXPTR : "data: unknown", Record.dParameters[1]);
            Details.EndLine();
        }
        Line.Add("instruction: %08" PRIXPTR, Record.Address);
        Details.EndLine();
        WriteThread(Details, Fault.pContext->iThread);
        constexpr std::size_t PREFIX = sizeof plat::FAULT_UNCAUGHT_TEXT - 1;   // characters before a blank and the type
        char const * const szText = FaultName(Record.nCode);
        if (Record.nCode == plat::FAULT_UNCAUGHT_EXCEPTION
            && std::strncmp(szText, plat::FAULT_UNCAUGHT_TEXT, PREFIX) == 0 && szText[PREFIX] == ' ')
        {
            Line.Add("exception: ");
            Line.AddShown(szText + PREFIX + 1);
            Details.EndLine();
        }
        plat::FaultStack_t Stack;
        if (bStack && plat::FaultFindStack(*Fault.pContext, &Stack))
        {
            Line.Add("depth: %zu of %zu bytes", Stack.nUsed, Stack.nSize);
            Details.EndLine();
        }
    }

    // An address whose module is wanted, and the line that names it.
    struct Place_t
    {
        std::uintptr_t Address;
        Text_c & Line;
        bool bFound;
    };

    // Adds the module's file name, each blank as `\x20`, and the offset in the module, if it holds the address.
    void AddIfInModule(plat::Module_t const & Module, void * pPlace)
    {
        auto & Place = *static_cast<Place_t *>(pPlace);
        if (Place.bFound || Place.Address - Module.Base >= Module.nBytes)
        {
            return;
        }
        for (char const * pPart = plat::ModuleFileName(Module.szPath); *pPart != '\0';)
        {
            std::size_t const nPart = std::strcspn(pPart, " ");
            Place.Line.AddShown(pPart, nPart);
            Place.Line.Add("%s", pPart[nPart] == ' ' ? CRASH_BLANK : "");
            pPart += nPart + (pPart[nPart] == ' ' ? 1 : 0);
        }
        Place.Line.Add("+%" PRIXPTR, Place.Address - Module.Base);
        Place.bFound = true;
    }

    // Writes the frames without a helper: addresses and modules.
    void WritePlainFrames(Details_c & Details, plat::Symbols_c & Symbols)
    {
        Text_c & Line = Details.GetLine();
        plat::SymbolFrame_t Frame;
        Symbols.Rewind();
        std::size_t iFrame = 0;
        for (; iFrame < STACK_FRAMES && Symbols.NextFrame(&Frame); ++iFrame)
        {
            Line.Add("#%zu %08" PRIXPTR " ", iFrame, Frame.Address);
            Place_t Place = { Frame.Address, Line, false };
            plat::ModulesVisit(AddIfInModule, &Place);
            Line.Add(Place.bFound ? " ?" : "? ?");
            Details.EndLine();
        }
        std::size_t nMore = 0;
        while (Symbols.NextFrame(&Frame))
        {
            ++nMore;
        }
        if (nMore != 0)
        {
            bool const bLimit = iFrame + nMore == plat::SYMBOL_FRAMES;
            Line.Add("... %zu %sframes left out ...", nMore, bLimit ? "or more " : "");
            Details.EndLine();
        }
    }

    // Writes why the helper did not complete a section. Writes nothing if the helper still runs.
    void WriteHelperEnd(Details_c & Details, plat::Symbols_c const & Symbols)
    {
        if (Symbols.IsRunning())
        {
            return;
        }
        Text_c & Line = Details.GetLine();
        switch (Symbols.GetEnd())
        {
        case plat::HELPER_LATE:
            Line.Add("%sthe symbol helper did not answer within %u s)", CRASH_CUT,
                plat::SYMBOL_LIMIT / plat::MILLISECONDS_OF_SECOND);
            break;
        case plat::HELPER_FAILED:
            Line.Add("%sthe symbol helper failed)", CRASH_CUT);
            break;
        default:
            Line.Add("%sthere is no symbol helper)", CRASH_CUT);
            break;
        }
        Details.EndLine();
    }

    // Writes the helper's lines of a section. Returns whether there are any.
    bool WriteHelperLines(Details_c & Details, plat::Symbols_c & Symbols, plat::SymbolSection_e eSection)
    {
        char szLines[LINE_SIZE];
        bool bAny = false;
        while (Symbols.NextDetail(eSection, szLines, sizeof szLines))
        {
            Details.AddLines(szLines);
            bAny = true;
        }
        return bAny;
    }

    void WriteFrames(Details_c & Details, plat::Symbols_c & Symbols)
    {
        if (!WriteHelperLines(Details, Symbols, plat::SECTION_FRAMES))
        {
            WritePlainFrames(Details, Symbols);
        }
        WriteHelperEnd(Details, Symbols);
    }

    void WriteThreads(Details_c & Details, plat::Symbols_c & Symbols)
    {
        WriteHelperLines(Details, Symbols, plat::SECTION_THREADS);
        WriteHelperEnd(Details, Symbols);
    }

    void WriteModule(plat::Module_t const & Module, void * pDetails)
    {
        constexpr std::size_t ID_SIZE = 64;
        auto & Details = *static_cast<Details_c *>(pDetails);
        Text_c & Line = Details.GetLine();
        std::uint8_t dId[ID_SIZE];
        std::size_t const nId = plat::ModuleBuildId(Module, dId, sizeof dId);
        Line.Add("%08" PRIXPTR "-%08" PRIXPTR " %s", Module.Base, Module.Base + Module.nBytes, nId == 0 ? "-" : "");
        for (std::size_t i = 0; i < nId; ++i)
        {
            Line.Add("%02x", dId[i]);
        }
        Line.Add(" ");
        Line.AddShown(Module.szPath);
        Details.EndLine();
    }
}

exceptionreport::Details_c::Details_c(char const * szReport)
{
    char szPath[PATH_SIZE];
    if (szReport[0] != '\0')
    {
        m_hFile = MakeUnderFreeName(szPath, [&](char const * szMore) { MakeDetailsPath(szPath, szReport, szMore); });
    }
    m_Line.Add("%s%s", CRASH_DETAILS_TITLE, CRASH_DETAILS_VERSION);
    EndLine();
}

void exceptionreport::Details_c::EndLine()
{
    // A fault or a limit may end this at any step, so the buffer counts a line only after the whole line is in it.
    bool const bCut = m_Line.IsCut() || m_Line.IsFull();   // a full line has no room for its end
    if (bCut)
    {
        MakeRoomForCut();
    }
    m_Line.AddEnd(bCut ? CUT : "\n");
    AddLines(m_Line.Get());
    m_Line.CutAt(0);
}

void exceptionreport::Details_c::MakeRoomForCut()
{
    std::size_t nWhole = std::min(m_Line.GetLength(), sizeof m_szLine - sizeof CUT);
    while (nWhole > 1 && plat::ContinuesUtf8(m_szLine[nWhole]))
    {
        --nWhole;
    }
    m_Line.CutAt(nWhole);
}

void exceptionreport::Details_c::AddLines(char const * szLines)
{
    if (m_bFlushing)
    {
        Flush();
    }
    while (*szLines != '\0')
    {
        char const * szNext = szLines;
        std::size_t const nAdded =
            plat::TextEscape(m_szBuffer + m_nWhole, sizeof m_szBuffer - m_nWhole, szNext, plat::Controls_e::Layout);
        if (*szNext != '\0' && m_nWhole != 0)
        {
            Flush();
            continue;
        }
        m_nWhole = m_nWhole + nAdded;
        szLines = szNext;
    }
}

void exceptionreport::Details_c::Begin(CrashSection_e eSection)
{
    m_tBegin = plat::CoarseClockMilliseconds();
    m_Line.CutAt(0);
    m_Line.Add("\n%s", CRASH_SECTIONS[static_cast<int>(eSection)]);
    EndLine();
}

void exceptionreport::Details_c::Cut(unsigned nLimit)
{
    m_Line.CutAt(0);
    bool const bLate = plat::CoarseClockMilliseconds() - m_tBegin >= nLimit;
    m_Line.Add(bLate ? "%sthe limit of %u s)" : "%sa fault)", CRASH_CUT, nLimit / plat::MILLISECONDS_OF_SECOND);
    EndLine();
}

// Writes the buffer to the file. A limit may end this too. The next call then writes what the file does not have yet.
void exceptionreport::Details_c::Flush()
{
    if (!m_bFlushing)
    {
        m_nBefore = plat::RawSize(m_hFile);
        m_bFlushing = true;
    }
    std::size_t const nAll = m_nWhole;
    auto const nWritten = static_cast<std::size_t>(std::min<std::uint64_t>(plat::RawSize(m_hFile) - m_nBefore, nAll));
    m_bLost = !plat::RawWrite(m_hFile, m_szBuffer + nWritten, nAll - nWritten) || m_bLost;
    m_nWhole = 0;
    m_bFlushing = false;
}

bool exceptionreport::WriteDetails(
    plat::Symbols_c & Symbols, plat::FaultPointers_t const & Fault, char const * szReport)
{
    Details_c Details(szReport);
    if (!Details.IsOpen())
    {
        return false;
    }
    Details.WriteSection(CrashSection_e::Fault, SHORT_LIMIT, [&](Details_c & To) { WriteFault(To, Fault); });
    Symbols.Renew();
    Details.WriteSection(CrashSection_e::Frames, HELPER_LIMIT, [&](Details_c & To) { WriteFrames(To, Symbols); });
    Details.WriteSection(CrashSection_e::Threads, HELPER_LIMIT, [&](Details_c & To) { WriteThreads(To, Symbols); });
    Details.WriteSection(
        CrashSection_e::Modules, SHORT_LIMIT, [](Details_c & To) { plat::ModulesVisit(WriteModule, &To); });
    Details.WriteSection(CrashSection_e::Process, SHORT_LIMIT, WriteProcess);
    return !Details.HasLost();
}
