// zqsymbols: reports to a process that uses the library the frames, names, lines and variables of its threads.
// The variables are those of one thread. The library starts this program. Started by hand, it does nothing.
#include "tools/zqsymbols/details.h"
#include "tools/zqsymbols/names.h"
#include "tools/zqsymbols/threads.h"
#include "tools/zqsymbols/values.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zqsymbols
{
    namespace
    {
        constexpr rlim_t CPU_LIMIT = 60;            // seconds: the caller has given up long before
        constexpr timeval IDLE_LIMIT = { 60, 0 };   // seconds without a request, likewise

        // Service for one process. It keeps what it finds for later requests.
        class Server_c
        {
        public:
            explicit Server_c(Process_c & Process)
                : m_Process(Process)
                , m_Frames(Process, Process.GetRegisters())
                , m_Types(Process.GetWord())
                , m_Variables(Process)
                , m_FrameLines(Process, m_Types, m_Variables)
                , m_StackLines(m_FrameLines, m_Frames)
                , m_ThreadLines(Process, m_FrameLines)
            {}

            Values_c & GetValues() { return m_FrameLines.GetValues(); }

            // Writes the values and the text of an answer to To. Returns false if the answer is no.
            bool Answer(plat::SymbolRequest_t const & Request, plat::SymbolAnswer_t & To)
            {
                auto const iType = static_cast<plat::SymbolType_t>(Request.nValue);
                switch (Request.eAsk)
                {
                case plat::ASK_FRAME:
                    return AnswerFrame(Request.iIndex, To);
                case plat::ASK_FUNCTION:
                    return AnswerFunction(Request.nValue, To);
                case plat::ASK_LINE:
                    return AnswerLine(Request.nValue, To);
                case plat::ASK_VARIABLE:
                    return AnswerVariable(Request.nValue, Request.iIndex, To);
                case plat::ASK_TYPE_NAME:
                    return PutText(m_Types.GetName(iType), To);
                case plat::ASK_TYPE_MEMBERS:
                    To.dValues[0] = m_Types.GetMembers(iType).size();
                    return true;
                case plat::ASK_TYPE_MEMBER:
                    return AnswerMember(iType, Request.iIndex, To);
                case plat::ASK_TYPE_BASE:
                    To.dValues[0] = m_Types.GetBase(iType);
                    return true;
                case plat::ASK_DETAIL:
                    return AnswerDetail(Request.nValue, To);
                case plat::REPORT_LOCK:
                    m_ThreadLines.AddLock({ Request.nValue, Request.nMore });
                    return true;
                default:
                    return false;
                }
            }

        private:
            // Writes a text to To, cut to what an answer holds. Returns false for an empty text.
            static bool PutText(std::string_view sText, plat::SymbolAnswer_t & To)
            {
                std::size_t const nLength = std::min<std::size_t>(sText.size(), plat::SYMBOL_TEXT - 1);
                std::memcpy(To.szText, sText.data(), nLength);
                To.szText[nLength] = '\0';
                To.nText = static_cast<std::uint32_t>(nLength + 1);
                return nLength > 0;
            }

            bool AnswerFrame(std::size_t iFrame, plat::SymbolAnswer_t & To)
            {
                Frame_t const * const pFrame = m_Frames.Get(iFrame);
                To.dValues[0] = pFrame != nullptr ? pFrame->nAddress : 0;
                // A function with a frame pointer stores its caller's below the return address, which ends at the CFA.
                To.dValues[1] = pFrame != nullptr ? pFrame->nCfa - 2 * m_Process.GetWord() : 0;
                To.dValues[2] = pFrame != nullptr && pFrame->bCall ? 1 : 0;
                return pFrame != nullptr;
            }

            bool AnswerFunction(std::uint64_t nAddress, plat::SymbolAnswer_t & To)
            {
                auto const [itFound, bNew] = m_dFunctions.try_emplace(nAddress);
                if (bNew)
                {
                    itFound->second = FunctionAt(m_Process, nAddress);
                }
                std::optional<Function_t> const & Function = itFound->second;
                To.dValues[0] = Function ? Function->nDisplacement : 0;
                return Function && PutText(Function->sName, To);
            }

            bool AnswerLine(std::uint64_t nAddress, plat::SymbolAnswer_t & To)
            {
                auto const [itFound, bNew] = m_dLines.try_emplace(nAddress);
                if (bNew)
                {
                    itFound->second = LineAt(m_Process, nAddress);
                }
                std::optional<Line_t> const & Line = itFound->second;
                To.dValues[0] = Line ? Line->nLine : 0;
                return Line && PutText(Line->sFile, To);
            }

            bool AnswerVariable(std::size_t iFrame, std::size_t iVariable, plat::SymbolAnswer_t & To)
            {
                Frame_t const * const pFrame = m_Frames.Get(iFrame);
                if (pFrame != nullptr && m_iVariablesOf != iFrame)
                {
                    m_dVariables = m_Variables.ReadVariables(*pFrame, m_Types);
                    m_iVariablesOf = iFrame;
                }
                if (pFrame == nullptr || iVariable >= m_dVariables.size())
                {
                    return false;
                }
                Variable_t const & Variable = m_dVariables[iVariable];
                To.dValues[0] = Variable.eKind;
                To.dValues[1] = Variable.ePlace;
                To.dValues[2] = Variable.nAddress;
                To.dValues[3] = m_Types.GetSize(Variable.iType);
                To.dValues[4] = Variable.iType;
                return PutText(Variable.sName, To);
            }

            bool AnswerMember(plat::SymbolType_t iType, std::size_t iMember, plat::SymbolAnswer_t & To)
            {
                std::vector<plat::SymbolType_t> const & dMembers = m_Types.GetMembers(iType);
                if (iMember >= dMembers.size())
                {
                    return false;
                }
                To.dValues[0] = dMembers[iMember];
                To.dValues[1] = m_Types.GetPlace(dMembers[iMember]).nOffset;
                To.dValues[2] = m_Types.GetSize(dMembers[iMember]);
                To.dValues[3] = m_Types.GetPlace(dMembers[iMember]).nFirstBit;
                To.dValues[4] = m_Types.GetPlace(dMembers[iMember]).nBits;
                return true;
            }

            // Writes the next lines of a section, at most as many as an answer holds. Cuts a line that does not fit an
            // answer. Returns false at the end of the section.
            bool AnswerDetail(std::uint64_t nSection, plat::SymbolAnswer_t & To)
            {
                if (m_sDetail.empty())
                {
                    m_sDetail = nSection == plat::SECTION_FRAMES    ? m_StackLines.Next()
                                : nSection == plat::SECTION_THREADS ? m_ThreadLines.Next()
                                                                    : "";
                }
                constexpr std::size_t LONGEST = plat::SYMBOL_TEXT - sizeof "...\n";
                std::size_t const nFirst = std::min(m_sDetail.find('\n'), m_sDetail.size());
                m_sDetail.replace(0, nFirst, Shortened(m_sDetail.substr(0, nFirst), LONGEST));
                std::string_view sPart = std::string_view(m_sDetail).substr(0, plat::SYMBOL_TEXT - 1);
                sPart = sPart.substr(0, sPart.rfind('\n') + 1);
                bool const bMore = PutText(sPart, To);
                m_sDetail.erase(0, bMore ? sPart.size() : m_sDetail.size());
                return bMore;
            }

            Process_c & m_Process;
            Frames_c m_Frames;
            Types_c m_Types;
            Variables_c m_Variables;
            FrameLines_c m_FrameLines;
            StackLines_c m_StackLines;
            ThreadLines_c m_ThreadLines;
            std::string m_sDetail;   // what is left of a section's text
            std::map<std::uint64_t, std::optional<Function_t>> m_dFunctions;
            std::map<std::uint64_t, std::optional<Line_t>> m_dLines;
            std::vector<Variable_t> m_dVariables;
            std::size_t m_iVariablesOf = SIZE_MAX;   // frame of m_dVariables; SIZE_MAX before the first
        };

        void SetLimits()
        {
            rlimit const NoDump = { 0, 0 };
            rlimit const Seconds = { CPU_LIMIT, CPU_LIMIT };
            setrlimit(RLIMIT_CORE, &NoDump);
            setrlimit(RLIMIT_CPU, &Seconds);
            setsockopt(plat::SYMBOL_SOCKET, SOL_SOCKET, SO_RCVTIMEO, &IDLE_LIMIT, sizeof(IDLE_LIMIT));
        }

        // Receives the printers, and then answers requests until none arrives. Returns false if a printer does not
        // arrive, or if an answer can't be sent.
        bool Serve(Process_c & Process)
        {
            Server_c Server(Process);
            for (std::uint32_t i = 0; i < Process.GetPrinterCount(); ++i)
            {
                plat::SymbolPrinter_t Printer;
                if (recv(plat::SYMBOL_SOCKET, &Printer, sizeof(Printer), 0) != sizeof(Printer))
                {
                    return false;
                }
                Printer.szType[sizeof(Printer.szType) - 1] = '\0';
                Printer.szTemplate[sizeof(Printer.szTemplate) - 1] = '\0';
                Server.GetValues().AddPrinter(Printer.szType, Printer.szTemplate);
            }
            plat::SymbolRequest_t Request;
            while (recv(plat::SYMBOL_SOCKET, &Request, sizeof(Request), 0) == sizeof(Request))
            {
                plat::SymbolAnswer_t Answer;
                Answer.nText = 0;
                Answer.iRequest = Request.iRequest;
                Answer.eAnswer = Server.Answer(Request, Answer) ? plat::ANSWER_YES : plat::ANSWER_NO;
                if (send(plat::SYMBOL_SOCKET, &Answer, plat::SYMBOL_ANSWER_HEAD + Answer.nText, MSG_NOSIGNAL) < 0)
                {
                    return false;
                }
            }
            return true;
        }
    }
}

int main()
{
    zqsymbols::SetLimits();
    zqsymbols::Process_c Process;
    bool const bServed = Process.Start() && zqsymbols::Serve(Process);
    _exit(bServed ? 0 : 1);   // the end of the process frees the caches
}
