#include "tools/zqsymbols/details.h"

#include "tools/zqsymbols/dies.h"
#include "tools/zqsymbols/inlined.h"
#include "tools/zqsymbols/typenames.h"

#include <chrono>
#include <cstdio>
#include <cstring>

namespace zqsymbols
{
    namespace
    {
        constexpr std::size_t SOURCE_FRAMES = 8;        // frames that show the lines around
        constexpr unsigned LINES_AROUND = 3;            // on each side
        constexpr std::size_t SOURCE_SIZE = 500;        // bytes of a source line
        constexpr std::size_t VARIABLES = 128;          // variables of a frame that are shown
        constexpr std::chrono::seconds FAR_LIMIT(10);   // for the walk to the far end of a stack

        // Returns a text as printf formats it. Requires that it has less than 128 bytes.
        template <typename... T>
        std::string Formatted(char const * szFormat, T... Values)
        {
            char szText[128];
            int const nText = std::snprintf(szText, sizeof(szText), szFormat, Values...);
            return std::string(szText, static_cast<std::size_t>(nText));
        }

        std::string Address(std::uint64_t nAddress)
        {
            return Formatted("%08llX", static_cast<unsigned long long>(nAddress));
        }

        std::string PlaceLine(Line_t const & Line)
        {
            return "    at " + Escaped(Line.sFile) + ":" + std::to_string(Line.nLine) + "\n";
        }

        using Bytes_t = std::vector<std::uint8_t>;

        Bytes_t BytesOf(std::uint64_t nValue)
        {
            Bytes_t dBytes(sizeof(nValue));
            std::memcpy(dBytes.data(), &nValue, sizeof(nValue));
            return dBytes;
        }

        // Returns the constant that the debug information has instead of a location, or nothing if it has none.
        std::optional<Bytes_t> ConstantOf(Dwarf_Die Die)
        {
            Dwarf_Attribute Attribute;
            Dwarf_Word nValue = 0;
            Dwarf_Block Block;
            if (dwarf_attr_integrate(&Die, DW_AT_const_value, &Attribute) == nullptr)
            {
                return std::nullopt;
            }
            if (dwarf_formblock(&Attribute, &Block) == 0)
            {
                return Bytes_t(Block.data, Block.data + Block.length);
            }
            return dwarf_formudata(&Attribute, &nValue) == 0 ? std::optional(BytesOf(nValue)) : std::nullopt;
        }
    }

    std::string ModulePlace(Process_c & Process, std::uint64_t nAddress)
    {
        Dwfl_Module * const pModule = Process.ModuleAt(nAddress);
        Dwarf_Addr nStart = 0;
        char const * const szPath = pModule == nullptr ? nullptr
                                                       : dwfl_module_info(pModule, nullptr, &nStart, nullptr, nullptr,
                                                           nullptr, nullptr, nullptr);
        if (szPath == nullptr || szPath[0] != '/')
        {
            return "?";
        }
        std::string sName = Escaped(std::strrchr(szPath, '/') + 1);
        for (std::size_t i = sName.find(' '); i != std::string::npos; i = sName.find(' ', i))
        {
            sName.replace(i, 1, CRASH_BLANK);
        }
        return sName + Formatted("+%llX", static_cast<unsigned long long>(nAddress - nStart));
    }

    // Returns the line's place, its text and, with bAround, the texts of its neighbours.
    std::string FrameLines_c::Source(Line_t const & Line, bool bAround)
    {
        unsigned const nAround = bAround ? LINES_AROUND : 0;
        std::string sText = PlaceLine(Line);
        unsigned const nFirst = Line.nLine > nAround ? Line.nLine - nAround : 1;
        for (unsigned i = nFirst; i <= Line.nLine + nAround; ++i)
        {
            std::string const * const pLine = m_Sources.GetLine(Line.sFile, i);
            if (pLine != nullptr)
            {
                sText += Formatted("    %c %u | ", i == Line.nLine ? '>' : ' ', i);
                sText += Escaped(Shortened(*pLine, SOURCE_SIZE)) + "\n";
            }
        }
        return sText;
    }

    std::optional<Value_t> FrameLines_c::ValueOf(Variable_t const & Variable)
    {
        std::optional<Bytes_t> dBytes;
        switch (Variable.Place.ePlace)
        {
        case PLACE_ADDRESS:
            return Value_t{ Variable.iType, Variable.Place.nValue };
        case PLACE_VALUE:
            dBytes = BytesOf(Variable.Place.nValue);
            break;
        case PLACE_REGISTER:
            if (Variable.nRegister && m_Types.GetSize(Variable.iType) <= sizeof(*Variable.nRegister))
            {
                dBytes = BytesOf(*Variable.nRegister);
            }
            break;
        case PLACE_BYTES:
            dBytes = Variable.Place.dBytes;
            break;
        default:
            dBytes = ConstantOf(Variable.Die);
            break;
        }
        return dBytes ? std::optional(Value_t{ Variable.iType, 0, std::make_shared<Bytes_t>(std::move(*dBytes)) })
                      : std::nullopt;
    }

    std::string FrameLines_c::Variable(Variable_t const & Variable)
    {
        std::string sText = Variable.eKind == plat::SYMBOL_PARAMETER ? "    parameter " : "    local ";
        sText += Escaped(Variable.sName) + ": " + Escaped(SpellTypeOf(m_Types, Variable.Die)) + " = ";
        std::optional<Value_t> const Value = ValueOf(Variable);
        bool const bRegister = Variable.Place.ePlace == PLACE_REGISTER;
        if (!Value)
        {
            return sText
                   + (bRegister ? VALUE_UNREADABLE + std::string(" [register]\n")
                                : VALUE_OPTIMIZED_OUT + std::string("\n"));
        }
        std::string const sMembers = m_Values.Members(*Value, "        ");
        Value_t const Shown = m_Values.Referred(*Value);
        return sText + m_Values.Show(Shown, sMembers.empty() || !m_Values.IsStructure(Shown.iType) ? 2 : 0)
               + (bRegister ? " [register]\n" : "\n") + sMembers;
    }

    std::string FrameLines_c::FormatFrame(Frame_t const & Frame, std::size_t & nNumber, bool bWhole)
    {
        std::uint64_t const nInside = Frame.GetInside();
        std::optional<Unit_t> Unit = m_Process.UnitAt(nInside);
        std::vector<Dwarf_Die> dScopes = Unit ? m_Process.ScopesAt(*Unit, nInside) : std::vector<Dwarf_Die>();
        std::vector<InlinedCall_t> const dCalls = Unit ? InlinedCalls(*Unit, dScopes) : std::vector<InlinedCall_t>();
        std::vector<Variable_t> const dVariables =
            bWhole ? m_Variables.ReadVariables(Frame, m_Types) : std::vector<Variable_t>();
        std::optional<Line_t> Line = LineAt(m_Process, nInside);
        std::optional<Function_t> const Function = FunctionAt(m_Process, nInside);
        std::string const sPlace = " " + Address(Frame.nAddress) + " " + ModulePlace(m_Process, Frame.nAddress) + " ";
        std::string sText;
        std::size_t nEnd = SIZE_MAX;   // where the scopes of a call end
        std::size_t nFound = 0;
        // The innermost inlined call comes first. Its line is the frame's. The line of each outer one is that of the
        // next inner call.
        for (std::size_t i = dCalls.size() + 1; i-- > 0;)
        {
            std::size_t const iScope = i == 0 ? 0 : dCalls[i - 1].iScope;
            sText += "#" + std::to_string(nNumber) + sPlace;
            unsigned long long const nDisplacement = Function ? Function->nDisplacement : 0;
            sText += i != 0     ? Escaped(dCalls[i - 1].sFunction) + CRASH_INLINED + "\n"
                     : Function ? Escaped(Function->sName) + Formatted("+%llX\n", nDisplacement + (Frame.bCall ? 1 : 0))
                                : "?\n";
            sText += !Line ? "" : bWhole ? Source(*Line, nNumber < SOURCE_FRAMES) : PlaceLine(*Line);
            for (Variable_t const & Each : dVariables)
            {
                bool const bOfCall = Each.iScope >= iScope && Each.iScope < nEnd;
                sText += bOfCall && nFound < VARIABLES ? Variable(Each) : "";
                nFound += bOfCall ? 1 : 0;
            }
            nEnd = iScope;
            Line = i != 0 ? dCalls[i - 1].Place : std::nullopt;
            ++nNumber;
        }
        if (nFound > VARIABLES)
        {
            sText += "    ... " + std::to_string(nFound - VARIABLES) + " variables left out ...\n";
        }
        return sText;
    }

    // Finds the far end. Moves m_iFrame to FAR frames before it, or after all frames if it is not reached. Adds the
    // number of frames left out to m_nNumber. Returns the lines that report what is left out. Returns an empty text,
    // and moves nothing, if every frame is shown.
    std::string StackLines_c::Skip()
    {
        auto const tEnd = std::chrono::steady_clock::now() + FAR_LIMIT;
        std::size_t nFrames = NEAR;
        while (m_Frames.Get(nFrames) != nullptr && std::chrono::steady_clock::now() < tEnd)
        {
            ++nFrames;
        }
        bool const bEnd = m_Frames.Get(nFrames) == nullptr && nFrames < Frames_c::MAX_FRAMES;
        if (nFrames <= NEAR + FAR && bEnd)
        {
            return "";
        }
        m_iFrame = bEnd ? nFrames - FAR : Frames_c::MAX_FRAMES;   // a number that no frame has
        std::size_t const nLeftOut = (bEnd ? m_iFrame : nFrames) - NEAR;
        m_nNumber += nLeftOut;
        return "... " + std::to_string(nLeftOut)
               + (bEnd ? " frames left out ...\n"
                       : " or more frames left out ...\n" + CutMark("the far end was not reached") + "\n");
    }

    std::string StackLines_c::Next()
    {
        std::string sText = m_iFrame == NEAR ? Skip() : "";
        Frame_t const * const pFrame = m_Frames.Get(m_iFrame++);
        return pFrame == nullptr ? sText : sText + m_Lines.FormatFrame(*pFrame, m_nNumber, true);
    }
}
