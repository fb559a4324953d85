#include "zqcore/cexceptionreport.h"
#include "zqcore/cexceptionreport_internal.h"
#include "zqcore/copcode.h"

#include "platform/memory.h"
#include "platform/modules.h"
#include "platform/text.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace
{
    using namespace exceptionreport;

    constexpr std::size_t SPAN_SIZE = 272;   // bytes; those after SPAN_READ stay zero
    constexpr std::size_t SPAN_READ = 256;   // bytes of code in which instructions begin

    class ReportSink_c final : public CodeListingSink_c
    {
    public:
        void WriteLine(char const * szLine) override
        {
            char szCopy[LINE_SIZE];
            Text_c Line(szCopy, sizeof szCopy);
            Line.Add("%s", szLine);
            Line.AddEnd("\n");
            WriteText(Line);
        }

        unsigned WriteSource(std::uint64_t Address, unsigned iLastLine) override
        {
            return g_ExceptionReport.LogSourceString(static_cast<std::uintptr_t>(Address), iLastLine);
        }

        std::int64_t GetSymbol(std::uint64_t Address, char * szName, unsigned nSize) override
        {
            return static_cast<std::int64_t>(
                g_ExceptionReport.GetSymbol(static_cast<std::uintptr_t>(Address), szName, nSize));
        }
    };

    // Removes white space from both ends of a text.
    void Trim(char const *& pText, std::size_t & nText)
    {
        auto const fnIsSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
        for (; nText != 0 && fnIsSpace(*pText); --nText)
        {
            ++pText;
        }
        while (nText != 0 && fnIsSpace(pText[nText - 1]))
        {
            --nText;
        }
    }

    // Appends a frame's function with the displacement in it, or else the frame's place in a module, and two blanks.
    // Appends only the blanks if both are unknown.
    void AddFunction(plat::Symbols_c & Symbols, plat::SymbolFrame_t const & Frame, Text_c & Line)
    {
        char szName[NAME_SIZE];
        std::uint64_t nDisplacement;
        if (Symbols.FunctionAt(Frame.PlaceInSource(), szName, sizeof szName, &nDisplacement))
        {
            Line.AddShown(szName);
            Line.Add("+%" PRIX64 "  ", nDisplacement + (Frame.Address - Frame.PlaceInSource()));
            return;
        }
        plat::ModulePlace_t Module;
        if (plat::ModuleFind(Frame.Address, &Module))
        {
            Line.Add("%04X:%08" PRIXPTR " ", Module.iSection, Module.nOffset);
            Line.AddShown(Module.szPath);
            Line.Add("  ");
            return;
        }
        Line.Add("  ");
    }

    // Appends the place of a frame in the source, and the line there. Appends nothing if the place is unknown.
    void AddSource(plat::Symbols_c & Symbols, plat::SymbolFrame_t const & Frame, Text_c & Line)
    {
        char szFile[NAME_SIZE];
        unsigned iLine;
        if (!Symbols.LineAt(Frame.PlaceInSource(), szFile, sizeof szFile, &iLine))
        {
            return;
        }
        Line.Add(" ");
        Line.AddShown(szFile);
        Line.Add("(%u): ", iLine);
        char szText[LINE_SIZE];
        if (SourceFile_c(szFile).GetLine(iLine, szText, sizeof szText))
        {
            char const * pText = szText;
            std::size_t nText = std::strlen(szText);
            Trim(pText, nText);
            Line.AddShown(pText, nText);
        }
    }

    // Appends a line to the dialog's text. Returns false and leaves the line out if the text would then be full.
    bool AddToDialog(char const * szLine, Text_c & DialogText)
    {
        std::size_t const nBefore = DialogText.GetLength();
        DialogText.Add("%s\n", szLine);
        if (DialogText.IsFull())
        {
            DialogText.CutAt(nBefore);
            return false;
        }
        return true;
    }

    // Reads SPAN_READ bytes of code piece by piece. A piece that can't be read becomes zeros.
    void ReadPieces(std::uintptr_t Start, unsigned char * dSpan)
    {
        for (std::size_t nPiece = 0; nPiece < SPAN_READ; nPiece += SPAN_PIECE)
        {
            if (plat::MemoryRead(Start + nPiece, dSpan + nPiece, SPAN_PIECE) != SPAN_PIECE)
            {
                std::memset(dSpan + nPiece, 0, SPAN_PIECE);
            }
        }
    }
}

void exceptionreport::WriteCallStack(plat::Symbols_c & Symbols, bool bVariables, Text_c * pDialogText)
{
    ExceptionReport_c::CrashLog("\r\nCall stack:\r\n");
    ExceptionReport_c::CrashLog("Address   Frame     Function            SourceFile\r\n");
    if (pDialogText)
    {
        pDialogText->Add("Call stack functions:\n\n");
    }
    Symbols.Rewind();
    plat::SymbolFrame_t Frame;
    for (std::size_t iFrame = 0; Symbols.NextFrame(&Frame) && Frame.Frame != 0; ++iFrame)
    {
        if (iFrame == STACK_FRAMES)
        {
            ExceptionReport_c::CrashLog(bVariables ? "%s\r\n\r\n" : "%s\r\n", "(farther frames are left out)");
            break;
        }
        char szLine[LINE_SIZE];
        Text_c Line(szLine, sizeof szLine);
        Line.Add("%08" PRIXPTR "  %08" PRIXPTR "  ", Frame.Address, Frame.Frame);
        char const * const szFunction = szLine + Line.GetLength();
        AddFunction(Symbols, Frame, Line);
        AddSource(Symbols, Frame, Line);
        if (pDialogText && !AddToDialog(szFunction, *pDialogText))
        {
            pDialogText = nullptr;   // also skips the outer frames, so that the stack has no gaps
        }
        Line.AddEnd("\r\n");
        WriteText(Line);
        if (bVariables)
        {
            WriteVariables(Symbols);
            ExceptionReport_c::CrashLog("\r\n");
        }
    }
}

void exceptionreport::WriteCode(std::uintptr_t Address)
{
    static unsigned char s_dSpan[SPAN_SIZE];
    std::uintptr_t Start = Address - Address % SPAN_PIECE;
    Start = Start > SPAN_BEFORE ? Start - SPAN_BEFORE : 0;
    std::memset(s_dSpan, 0, sizeof s_dSpan);
    if (plat::MemoryRead(Start, s_dSpan, SPAN_READ) != SPAN_READ)
    {
        ReadPieces(Start, s_dSpan);
    }
    CodeListing_c Listing(s_dSpan, SPAN_READ, Start, OPCODE_NATIVE, SPAN_SIZE - SPAN_READ);
    Listing.SetFaultAddress(Address);
    Listing.Decode();
    ReportSink_c Sink;
    Listing.Write(Sink);
}

exceptionreport::Text_c::Text_c(char * szText, std::size_t nSize)
    : m_szText(szText)
    , m_nSize(nSize)
{
    m_szText[0] = '\0';
}

void exceptionreport::Text_c::Add(char const * szFormat, ...)
{
    std::va_list args;
    va_start(args, szFormat);
    int const nAdded = std::vsnprintf(m_szText + m_nLength, m_nSize - m_nLength, szFormat, args);
    va_end(args);
    std::size_t const nWhole = m_nLength + static_cast<std::size_t>(std::max(nAdded, 0));
    m_bCut = m_bCut || nWhole > m_nSize - 1;
    m_nLength = std::min(nWhole, m_nSize - 1);
}

void exceptionreport::Text_c::AddShown(char const * szShown, std::size_t nMost)
{
    char szCopy[LINE_SIZE];
    std::size_t const nCopy = strnlen(szShown, std::min(nMost, sizeof szCopy - 1));
    std::memcpy(szCopy, szShown, nCopy);
    szCopy[nCopy] = '\0';
    char const * szNext = szCopy;
    m_nLength += plat::TextEscape(m_szText + m_nLength, m_nSize - m_nLength, szNext, plat::Controls_e::Tabs);
    m_bCut = m_bCut || *szNext != '\0' || (nCopy < nMost && szShown[nCopy] != '\0');
}

void exceptionreport::Text_c::AddEnd(char const * szEnd)
{
    CutAt(std::min(m_nLength, m_nSize - 1 - std::strlen(szEnd)));
    Add("%s", szEnd);
}

void exceptionreport::Text_c::CutAt(std::size_t nLength)
{
    m_nLength = nLength;
    m_szText[nLength] = '\0';
    m_bCut = m_bCut && nLength != 0;
}
