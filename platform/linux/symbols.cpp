#include "platform/symbols.h"

#include "platform/clock.h"
#include "platform/compiler.h"
#include "platform/faults.h"
#include "platform/fork.h"
#include "platform/linux/lockmark.h"
#include "platform/linux/reserve.h"
#include "platform/linux/symbolprotocol.h"
#include "platform/memory.h"
#include "platform/process.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <iterator>
#include <link.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

// Starts a process. This is the C library's other name of clone, which no header declares. The thread checker replaces
// clone by a function that expects a fork, and ends the process if the child shares the memory.
extern "C" int __clone(int (*fnRun)(void *), void * pStack, int iFlags, void * pArgument, ...) noexcept;

#ifdef ZQCORE_GDB_SCRIPT
// gdb runs the script that this section names (1: a file of Python).
asm(".pushsection .debug_gdb_scripts, \"MS\", @progbits, 1\n.byte 1\n.asciz \"" ZQCORE_GDB_SCRIPT "\"\n.popsection");
#endif

namespace plat
{
    namespace
    {
        constexpr int END_LIMIT = 1000;   // milliseconds for the helper's end

        char g_szHelper[PATH_MAX];
        constinit SymbolPrinter_t g_dPrinters[SYMBOL_PRINTERS] = {};
        std::uint32_t g_nPrinters = 0;

        // Finds the helper before other construction, except that of ZQ_FIRST_GLOBAL. A crash needs its path.
        __attribute__((constructor(ZQ_FIRST_PRIORITY))) void FindHelper()
        {
            Dl_info Info;
            link_map * pMap = nullptr;
            char szPath[PATH_MAX + 64];   // with room for the helper's name
            bool const bFound = dladdr1(g_szHelper, &Info, reinterpret_cast<void **>(&pMap), RTLD_DL_LINKMAP) != 0;
            char const * const szObject = bFound && pMap->l_name[0] != '\0' ? pMap->l_name : "/proc/self/exe";
            if (::realpath(szObject, szPath) == nullptr)
            {
                return;
            }
            char * const szName = std::strrchr(szPath, '/') + 1;
            for (char const * szPlace : { "zqsymbols", ZQCORE_SYMBOLS_INSTALLED })
            {
                std::strcpy(szName, szPlace);
                if (::access(szPath, X_OK) == 0)
                {
                    return SymbolsSetHelper(szPath);
                }
            }
            if (::access(ZQCORE_SYMBOLS_FULL, X_OK) == 0)   // a program that has the library in itself
            {
                SymbolsSetHelper(ZQCORE_SYMBOLS_FULL);
            }
        }

        // Scope that keeps errno, because the interrupted code may be about to read it.
        struct ErrnoScope_c
        {
            int const m_iSaved = errno;
            ErrnoScope_c() = default;
            ~ErrnoScope_c() { errno = m_iSaved; }
            ErrnoScope_c(ErrnoScope_c const &) = delete;
            ErrnoScope_c & operator=(ErrnoScope_c const &) = delete;
        };

        // Returns the time of the good clock, whose ticks are nanoseconds, in milliseconds.
        std::int64_t Milliseconds()
        {
            return GoodClockTicks() / NANOSECONDS_OF_MILLISECOND;
        }

        // Descriptors that BecomeHelper passes to the helper.
        struct Launch_t
        {
            int hSocket;   // for SYMBOL_SOCKET
            int hMaps;     // for SYMBOL_MAPS
        };

        // Closes all descriptors but two and the standard ones.
        __attribute__((no_sanitize_address, no_sanitize_thread)) void CloseAllBut(int hOne, int hOther)
        {
            constexpr int FIRST = 3;
            int const hLow = hOne < hOther ? hOne : hOther;
            int const hHigh = hOne < hOther ? hOther : hOne;
            int const dRanges[][2] = { { FIRST, hLow - 1 }, { hLow < FIRST ? FIRST : hLow + 1, hHigh - 1 },
                { hHigh < FIRST ? FIRST : hHigh + 1, INT_MAX } };
            for (auto const & [hFrom, hTo] : dRanges)
            {
                if (hFrom <= hTo)
                {
                    ::syscall(SYS_close_range, hFrom, hTo, 0);
                }
            }
        }

        // Replaces the new process by the helper. Makes system calls only, because the process still uses the memory of
        // its parent. Requires that all signals are blocked. On failure ends the process.
        __attribute__((no_sanitize_address, no_sanitize_thread)) int BecomeHelper(void * pArgument)
        {
            constexpr int ABOVE_ALL = SYMBOL_MAPS + 1;
            auto const & Launch = *static_cast<Launch_t const *>(pArgument);
            CloseAllBut(Launch.hSocket, Launch.hMaps);   // the host may have used up all descriptors
            long const hSocket = ::syscall(SYS_fcntl, Launch.hSocket, F_DUPFD, ABOVE_ALL);
            long const hMaps = ::syscall(SYS_fcntl, Launch.hMaps, F_DUPFD, ABOVE_ALL);
            ::syscall(SYS_dup3, hSocket, SYMBOL_SOCKET, 0);
            ::syscall(SYS_dup3, hMaps, SYMBOL_MAPS, 0);
            ::syscall(SYS_close_range, ABOVE_ALL, ~0u, 0);
            char const * const dArguments[] = { g_szHelper, nullptr };
            ::syscall(SYS_execve, g_szHelper, dArguments, dArguments + 1);
            ::syscall(SYS_exit_group, 127);
            return 0;
        }

        // Waits until the socket has data or its other end is closed. Returns false if that fails or tEnd, a time of
        // Milliseconds, has passed.
        bool WaitReadable(int hSocket, std::int64_t tEnd)
        {
            pollfd Poll = { hSocket, POLLIN, 0 };
            for (;;)
            {
                std::int64_t const tLeft = tEnd - Milliseconds();
                int const nReady = tLeft <= 0 ? 0 : ::poll(&Poll, 1, static_cast<int>(tLeft));
                if (nReady >= 0 || errno != EINTR)
                {
                    return nReady > 0;
                }
            }
        }

        // Sends one record. Returns false if that fails.
        template <typename RECORD>
        bool Send(int hSocket, RECORD const & Record)
        {
            return ::send(hSocket, &Record, sizeof(Record), MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof(Record);
        }

        // Receives one record of the helper and terminates its text. Returns false if there is none with a whole head.
        bool Receive(int hSocket, SymbolAnswer_t * pAnswer)
        {
            ssize_t const nRead = ::recv(hSocket, pAnswer, sizeof(*pAnswer), MSG_DONTWAIT);
            if (nRead < static_cast<ssize_t>(SYMBOL_ANSWER_HEAD))
            {
                return false;
            }
            std::size_t const nText = static_cast<std::size_t>(nRead) - SYMBOL_ANSWER_HEAD;
            pAnswer->szText[std::min<std::size_t>(nText, SYMBOL_TEXT - 1)] = '\0';
            return true;
        }

        // Sends the page at an address, or zeros if it is not readable. Returns false if the sending fails.
        ZQ_COLD bool ServeMemory(int hSocket, std::uint64_t nAddress)
        {
            SymbolMemory_t Memory;
            auto const Address = static_cast<std::uintptr_t>(nAddress);
            Memory.bReadable = Address == nAddress && MemoryReadObject(Address, Memory.dBytes);
            if (Memory.bReadable == 0)
            {
                std::memset(Memory.dBytes, 0, sizeof(Memory.dBytes));
            }
            return Send(hSocket, Memory);
        }

        // Sends a request and receives the helper's answer. Serves the helper's requests for memory meanwhile: bServing
        // is true while the helper waits for memory. Skips late answers to other requests. Returns false if the helper
        // has failed or tEnd, a time of Milliseconds, has passed.
        bool Converse(
            int hSocket, SymbolRequest_t const & Request, std::int64_t tEnd, SymbolAnswer_t * pAnswer, bool & bServing)
        {
            bool bGoesOn = Send(hSocket, Request);
            while (bGoesOn && WaitReadable(hSocket, tEnd) && Receive(hSocket, pAnswer))
            {
                if (pAnswer->eAnswer != ANSWER_NEEDS_MEMORY)
                {
                    if (pAnswer->iRequest == Request.iRequest)
                    {
                        return true;
                    }
                    continue;
                }
                bServing = true;
                bGoesOn = ServeMemory(hSocket, pAnswer->dValues[0]);
                bServing = false;
            }
            return false;
        }

        SymbolStart_t StartRecord(FaultContext_t const & Context)
        {
            SymbolStart_t Start{};
            Start.dwMagic = SYMBOL_MAGIC;
            Start.nWord = sizeof(void *);
            Start.iThread = Context.iThread;
            Start.nPrinters = g_nPrinters;
            Start.nLockMark = static_cast<std::uint64_t>(LockMarkOffset());
            std::uintptr_t const dNamed[] = { Context.nIp, Context.nSp, Context.nBp, Context.nAx, Context.nBx,
                Context.nCx, Context.nDx, Context.nSi, Context.nDi };
            std::copy(std::begin(dNamed), std::end(dNamed), Start.dRegisters);
            std::copy(std::begin(Context.dExtended), std::end(Context.dExtended), Start.dRegisters + std::size(dNamed));
            Start.nVectors = std::min(Context.nVectors, SYMBOL_VECTORS);
            std::copy_n(Context.dVectors, Start.nVectors, Start.dVectors);
            return Start;
        }

        bool IsReadable(std::uintptr_t Address)
        {
            std::uint8_t cByte;
            return MemoryReadObject(Address, cByte);
        }

        // Copies a text, cut at nSize - 1 bytes. Writes nothing if nSize is 0.
        void CopyText(char const * szFrom, char * szText, std::size_t nSize)
        {
            if (nSize == 0)
            {
                return;
            }
            std::size_t const nLength = std::min(std::strlen(szFrom), nSize - 1);
            std::memcpy(szText, szFrom, nLength);
            szText[nLength] = '\0';
        }
    }

    void SymbolsSetHelper(char const * szPath)
    {
        CopyText(szPath, g_szHelper, sizeof(g_szHelper));
    }

    bool SymbolsAddPrinter(char const * szType, char const * szTemplate)
    {
        bool const bFits =
            std::strlen(szType) < SYMBOL_PRINTER_TYPE && std::strlen(szTemplate) < SYMBOL_PRINTER_TEMPLATE;
        if (!bFits || g_nPrinters == SYMBOL_PRINTERS)
        {
            return false;
        }
        CopyText(szType, g_dPrinters[g_nPrinters].szType, SYMBOL_PRINTER_TYPE);
        CopyText(szTemplate, g_dPrinters[g_nPrinters].szTemplate, SYMBOL_PRINTER_TEMPLATE);
        ++g_nPrinters;
        return true;
    }

    bool Symbols_c::Start(FaultContext_t const * pContext)
    {
        Stop();
        m_pContext = pContext;
        m_eEnd = HELPER_MISSING;
        m_nWaited = 0;
        m_bServing = false;
        m_bTraced = false;
        Rewind();
        ErrnoScope_c const Scope;
        return g_szHelper[0] != '\0' && !ProcessIsSecure() && Launch() && Greet();
    }

    // Does not fork: a child with its own copy of a large process's page tables would cost more than the whole walk.
    bool Symbols_c::Launch()
    {
        int dSockets[2];
        auto const fnConnect = [&dSockets]
        { return ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, dSockets); };
        if (OpenWithReserve(fnConnect) != 0)
        {
            return false;
        }
        alignas(16) char dStack[4096];
        Launch_t Arguments = { dSockets[1], OpenToReadWithReserve("/proc/self/maps") };
        sigset_t All;
        sigset_t Previous;
        sigfillset(&All);
        ::pthread_sigmask(SIG_SETMASK, &All, &Previous);
        int hProcess = -1;
        constexpr int FLAGS = CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD;
        auto const fnClone = [&]
        { return ::__clone(BecomeHelper, dStack + sizeof(dStack), FLAGS, &Arguments, &hProcess); };
        int const iProcess = Arguments.hMaps < 0 ? -1 : OpenWithReserve(fnClone);
        ::pthread_sigmask(SIG_SETMASK, &Previous, nullptr);
        ::close(dSockets[1]);
        ::close(Arguments.hMaps);
        m_hHelper = dSockets[0];
        m_hProcess = hProcess;
        m_iProcess = iProcess;
        if (iProcess < 0)
        {
            End(HELPER_MISSING);
        }
        return iProcess >= 0;
    }

    bool Symbols_c::Greet()
    {
        auto const hSocket = static_cast<int>(m_hHelper);
        bool bSent = Send(hSocket, StartRecord(*m_pContext));
        for (std::uint32_t i = 0; i < g_nPrinters; ++i)
        {
            bSent = bSent && Send(hSocket, g_dPrinters[i]);
        }
        SymbolFrame_t Frame;
        bool const bStarted = bSent && NextFrame(&Frame) && IsRunning();
        Rewind();
        if (!bStarted)
        {
            End(HELPER_FAILED);
        }
        return bStarted;
    }

    void Symbols_c::End(SymbolEnd_e eEnd)
    {
        if (!IsRunning())
        {
            return;
        }
        ErrnoScope_c const Scope;
        m_eEnd = eEnd;
        ::close(static_cast<int>(std::exchange(m_hHelper, NO_HANDLE)));
        if (auto const hProcess = static_cast<int>(std::exchange(m_hProcess, NO_HANDLE)); hProcess >= 0)
        {
            siginfo_t Info{};
            pollfd Poll = { hProcess, POLLIN, 0 };
            ::syscall(SYS_pidfd_send_signal, hProcess, SIGKILL, nullptr, 0);
            ::poll(&Poll, 1, END_LIMIT);
            ::waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(hProcess), &Info, WEXITED | WNOHANG);
            ::close(hProcess);
        }
    }

    // A fault, or a time limit of the caller, may have ended the last call. Its answer is then still to come, and is
    // skipped. A helper that was waiting for memory is lost.
    bool Symbols_c::Ask(SymbolRequest_t Request, SymbolAnswer_t * pAnswer)
    {
        pAnswer->szText[0] = '\0';
        if (m_bServing)
        {
            End(HELPER_FAILED);
        }
        if (!IsRunning())
        {
            return false;
        }
        Request.iRequest = ++m_nAsked;
        ErrnoScope_c const Scope;
        std::int64_t const tStart = Milliseconds();
        std::int64_t const tEnd = tStart + SYMBOL_LIMIT - std::min(SYMBOL_LIMIT, m_nWaited);
        bool const bAnswered = Converse(static_cast<int>(m_hHelper), Request, tEnd, pAnswer, m_bServing);
        std::int64_t const tNow = Milliseconds();
        m_nWaited += static_cast<unsigned>(tNow - tStart);
        if (!bAnswered)
        {
            End(tNow >= tEnd ? HELPER_LATE : HELPER_FAILED);
            pAnswer->szText[0] = '\0';
        }
        return bAnswered && pAnswer->eAnswer == ANSWER_YES;
    }

    // Allows the helper to trace this process, and reports the registered locks (fork.h) to it. Some systems let a
    // process be traced by its ancestors alone. The helper is a child.
    void Symbols_c::AllowTracing()
    {
        if (m_bTraced)
        {
            return;
        }
        m_bTraced = true;
        ::prctl(PR_SET_PTRACER, static_cast<unsigned long>(m_iProcess), 0, 0, 0);
        ForkLocksVisit(
            [](LockState_t const & Lock, void * pSymbols)
            {
                SymbolAnswer_t Unused;
                static_cast<Symbols_c *>(pSymbols)->Ask({ REPORT_LOCK, 0, Lock.Address, Lock.Owner }, &Unused);
            },
            this);
    }

    bool Symbols_c::NextDetail(SymbolSection_e eSection, char * szText, std::size_t nSize)
    {
        if (eSection == SECTION_THREADS && IsRunning())
        {
            AllowTracing();
        }
        std::uint64_t nUnused;
        return AskText({ ASK_DETAIL, 0, eSection }, szText, nSize, &nUnused);
    }

    bool Symbols_c::AskText(SymbolRequest_t const & Request, char * szText, std::size_t nSize, std::uint64_t * pValue)
    {
        SymbolAnswer_t Answer;
        bool const bKnown = Ask(Request, &Answer);
        CopyText(bKnown ? Answer.szText : "", szText, nSize);
        *pValue = bKnown ? Answer.dValues[0] : 0;
        return bKnown;
    }

    void Symbols_c::Rewind()
    {
        m_iFrame = 0;
        m_iVariable = 0;
        m_bLast = false;
    }

    bool Symbols_c::NextFrame(SymbolFrame_t * pFrame)
    {
        if (m_pContext == nullptr || m_iFrame >= SYMBOL_FRAMES)
        {
            return false;
        }
        SymbolAnswer_t Answer;
        if (Ask({ ASK_FRAME, m_iFrame, 0 }, &Answer))
        {
            m_Frame = { static_cast<std::uintptr_t>(Answer.dValues[0]), static_cast<std::uintptr_t>(Answer.dValues[1]),
                Answer.dValues[2] != 0 };
        }
        else if (IsRunning() || !NextByChain())
        {
            return false;
        }
        ++m_iFrame;
        m_iVariable = 0;
        *pFrame = m_Frame;
        return true;
    }

    // A call of an address without code has only pushed its return address.
    bool Symbols_c::NextByChain()
    {
        constexpr std::uintptr_t WORD = sizeof(std::uintptr_t);
        FaultContext_t const & Context = *m_pContext;
        if (m_iFrame == 0)
        {
            m_Frame = { Context.nIp, Context.nBp != 0 ? Context.nBp : Context.nSp, false };
            return true;
        }
        std::uintptr_t dSaved[2];   // frame pointer, return address
        if (m_iFrame == 1 && !IsReadable(Context.nIp))
        {
            bool const bRead = MemoryReadObject(Context.nSp, m_Frame.Address);
            m_Frame.bCall = true;
            return bRead && IsReadable(m_Frame.Address);
        }
        if (m_bLast || !MemoryReadObject(m_Frame.Frame, dSaved) || !IsReadable(dSaved[1]))
        {
            return false;
        }
        m_bLast = dSaved[0] <= m_Frame.Frame || dSaved[0] % WORD != 0;
        m_Frame = { dSaved[1], m_bLast ? m_Frame.Frame + sizeof(dSaved) : dSaved[0], true };
        return true;
    }

    bool Symbols_c::FunctionAt(std::uintptr_t Address, char * szName, std::size_t nSize, std::uint64_t * pDisplacement)
    {
        return AskText({ ASK_FUNCTION, 0, Address }, szName, nSize, pDisplacement);
    }

    bool Symbols_c::LineAt(std::uintptr_t Address, char * szFile, std::size_t nSize, unsigned * pLine)
    {
        std::uint64_t nLine;
        bool const bKnown = AskText({ ASK_LINE, 0, Address }, szFile, nSize, &nLine);
        *pLine = static_cast<unsigned>(nLine);
        return bKnown;
    }

    bool Symbols_c::NextVariable(SymbolVariable_t * pVariable)
    {
        SymbolAnswer_t Answer;
        if (m_iFrame == 0 || !Ask({ ASK_VARIABLE, m_iVariable, m_iFrame - 1 }, &Answer))
        {
            return false;
        }
        ++m_iVariable;
        CopyText(Answer.szText, pVariable->szName, sizeof(pVariable->szName));
        pVariable->eKind = static_cast<SymbolKind_e>(Answer.dValues[0]);
        pVariable->ePlace = static_cast<SymbolPlace_e>(Answer.dValues[1]);
        pVariable->bFunction = false;
        pVariable->Address = static_cast<std::uintptr_t>(Answer.dValues[2]);
        pVariable->nSize = Answer.dValues[3];
        pVariable->iType = static_cast<SymbolType_t>(Answer.dValues[4]);
        return true;
    }

    bool Symbols_c::TypeName(SymbolType_t iType, char * szName, std::size_t nSize)
    {
        std::uint64_t nUnused;
        return AskText({ ASK_TYPE_NAME, 0, iType }, szName, nSize, &nUnused);
    }

    unsigned Symbols_c::TypeMembers(SymbolType_t iType)
    {
        SymbolAnswer_t Answer;
        bool const bKnown = Ask({ ASK_TYPE_MEMBERS, 0, iType }, &Answer);
        return bKnown ? static_cast<unsigned>(std::min<std::uint64_t>(Answer.dValues[0], SYMBOL_MEMBERS)) : 0;
    }

    bool Symbols_c::TypeMember(SymbolType_t iType, unsigned iMember, SymbolMember_t * pMember)
    {
        SymbolAnswer_t Answer;
        if (!Ask({ ASK_TYPE_MEMBER, iMember, iType }, &Answer))
        {
            return false;
        }
        *pMember = { static_cast<SymbolType_t>(Answer.dValues[0]), Answer.dValues[1], Answer.dValues[2],
            static_cast<std::uint8_t>(Answer.dValues[3]), static_cast<std::uint8_t>(Answer.dValues[4]) };
        return true;
    }

    SymbolBase_e Symbols_c::TypeBase(SymbolType_t iType)
    {
        SymbolAnswer_t Answer;
        return Ask({ ASK_TYPE_BASE, 0, iType }, &Answer) ? static_cast<SymbolBase_e>(Answer.dValues[0]) : BASE_NONE;
    }
}
