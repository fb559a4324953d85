#include "tools/zqsymbols/threads.h"

#include "platform/linux/lockmark.h"
#include "tools/zqsymbols/names.h"
#include "tools/zqsymbols/values.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace zqsymbols
{
    namespace
    {
        using Clock_t = std::chrono::steady_clock;

        constexpr std::chrono::seconds ALL_LIMIT(5);           // for the stops and walks of all threads
        constexpr std::chrono::milliseconds STOP_LIMIT(200);   // for one thread to stop
        constexpr std::chrono::microseconds STOP_SLEEP(100);   // between two checks
        constexpr std::size_t WALKED = 256, SHOWN = 64;        // frames of a thread at most

        // A 32-bit thread's registers, as the kernel has them for a 64-bit tracer.
        struct Registers32_t
        {
            std::uint32_t nBx, nCx, nDx, nSi, nDi, nBp, nAx, nDs, nEs, nFs, nGs, nCall, nIp, nCs, nFlags, nSp, nSs;
        };

        // A 32-bit thread's segment, as the kernel has it.
        struct Segment32_t
        {
            std::uint32_t iEntry, nBase, nLimit, nFlags;
        };

        // State of a stopped thread.
        struct Stopped_t
        {
            Registers_t Registers;
            std::uint64_t nThreadPointer = 0;
        };

        // Waits until a traced thread has stopped, at most STOP_LIMIT. Returns the signal that it was about to receive,
        // 0 for none, or -1 if it did not stop.
        int AwaitStop(int iThread)
        {
            auto const tEnd = Clock_t::now() + STOP_LIMIT;
            int iStatus = 0;
            pid_t iStopped = 0;
            while ((iStopped = waitpid(iThread, &iStatus, __WALL | WNOHANG)) == 0 && Clock_t::now() < tEnd)
            {
                std::this_thread::sleep_for(STOP_SLEEP);
            }
            bool const bStopped = iStopped == iThread && WIFSTOPPED(iStatus);
            bool const bByTracer = iStatus >> 16 == PTRACE_EVENT_STOP;
            return !bStopped ? -1 : bByTracer ? 0 : WSTOPSIG(iStatus);
        }

        // Copy the registers, in the order of DWARF's numbers, and the thread pointer. Take32 leaves the thread pointer
        // as it is if the system does not report the thread's segment.
        void Take64(user_regs_struct const & Kernel, Stopped_t & Stopped)
        {
            unsigned long long const dValues[] = { Kernel.rax, Kernel.rdx, Kernel.rcx, Kernel.rbx, Kernel.rsi,
                Kernel.rdi, Kernel.rbp, Kernel.rsp, Kernel.r8, Kernel.r9, Kernel.r10, Kernel.r11, Kernel.r12,
                Kernel.r13, Kernel.r14, Kernel.r15, Kernel.rip };
            for (unsigned i = 0; i < std::size(dValues); ++i)
            {
                Stopped.Registers.Set(i, dValues[i]);
            }
            Stopped.nThreadPointer = Kernel.fs_base;
        }

        void Take32(int iThread, Registers32_t const & Kernel, Stopped_t & Stopped)
        {
            std::uint32_t const dValues[] = { Kernel.nAx, Kernel.nCx, Kernel.nDx, Kernel.nBx, Kernel.nSp, Kernel.nBp,
                Kernel.nSi, Kernel.nDi, Kernel.nIp };
            for (unsigned i = 0; i < std::size(dValues); ++i)
            {
                Stopped.Registers.Set(i, dValues[i]);
            }
            Segment32_t Segment = {};
            std::uintptr_t const iEntry = Kernel.nGs >> 3;   // without the bits of table and privilege
            if (ptrace(PTRACE_GET_THREAD_AREA, iThread, iEntry, &Segment) == 0)
            {
                Stopped.nThreadPointer = Segment.nBase;
            }
        }

        // Reads a stopped thread's registers. Returns false if that fails or they are not those of this word size.
        bool TakeRegisters(int iThread, std::uint64_t nWord, Stopped_t & Stopped)
        {
            union
            {
                user_regs_struct Wide;
                Registers32_t Narrow;
            } Kernel;
            iovec Record = { &Kernel, sizeof(Kernel) };
            if (ptrace(PTRACE_GETREGSET, iThread, NT_PRSTATUS, &Record) != 0
                || Record.iov_len != (nWord == 8 ? sizeof(Kernel.Wide) : sizeof(Kernel.Narrow)))
            {
                return false;
            }
            if (nWord == 8)
            {
                Take64(Kernel.Wide, Stopped);
            }
            else
            {
                Take32(iThread, Kernel.Narrow, Stopped);
            }
            return true;
        }

        // Returns the folder of the parent's threads. The parent is the process that the helper describes.
        std::string TaskFolder()
        {
            return "/proc/" + std::to_string(getppid()) + "/task/";
        }

        // State and flags of a thread, as the system reports them. Both are 0 if it does not.
        struct Status_s
        {
            char cState = '\0';
            unsigned nFlags = 0;
        };

        // Returns the third and the ninth value of proc_pid_stat(5). The second one ends in the last ')'.
        Status_s StatusOf(int iThread)
        {
            std::string sStat;
            std::getline(std::ifstream(TaskFolder() + std::to_string(iThread) + "/stat"), sStat, '\0');
            std::size_t const iName = sStat.rfind(')');
            Status_s Status;
            if (iName != std::string::npos)
            {
                std::sscanf(sStat.c_str() + iName, ") %c %*d %*d %*d %*d %*d %u", &Status.cState, &Status.nFlags);
            }
            return Status;
        }

        // Returns whether a thread is the kernel's, for asynchronous requests. Such a thread has no stack to walk.
        bool IsKernelWorker(int iThread)
        {
            constexpr unsigned IO_WORKER = 0x10;   // PF_IO_WORKER of Linux, include/linux/sched.h
            return (StatusOf(iThread).nFlags & IO_WORKER) != 0;
        }

        // Returns the identifiers of the parent's threads, without those of the kernel, in ascending order. Sets Error
        // if some may be missing.
        std::vector<int> ThreadsOfParent(std::error_code & Error)
        {
            std::vector<int> dThreads;
            std::filesystem::directory_iterator itTask(TaskFolder(), Error);
            for (; !Error && itTask != std::filesystem::directory_iterator(); itTask.increment(Error))
            {
                dThreads.push_back(std::atoi(itTask->path().filename().c_str()));
            }
            std::erase_if(dThreads, IsKernelWorker);
            std::sort(dThreads.begin(), dThreads.end());
            return dThreads;
        }
    }

    // Returns the name of the lock's variable, or its place in a module, or its address.
    std::string ThreadLines_c::LockName(Lock_t const & Lock)
    {
        Dwfl_Module * const pModule = m_Process.ModuleAt(Lock.nAddress);
        GElf_Off nOffset = 0;
        GElf_Sym Symbol;
        char const * const szName = pModule == nullptr ? nullptr
                                                       : dwfl_module_addrinfo(pModule, Lock.nAddress, &nOffset, &Symbol,
                                                           nullptr, nullptr, nullptr);
        if (szName != nullptr)
        {
            return Escaped(PlainName(szName));
        }
        std::string const sPlace = ModulePlace(m_Process, Lock.nAddress);
        std::ostringstream Address;
        Address << "0x" << std::hex << std::uppercase << Lock.nAddress;
        return sPlace != "?" ? sPlace : Address.str();
    }

    // Reads the lock that a thread waits for. Adds a lock that the library did not report, such as an open file's.
    void ThreadLines_c::ReadMark(Thread_t & Thread)
    {
        std::uint64_t const nWord = m_Process.GetWord();
        auto const Read = [&](std::uint64_t nAddress) { return m_Process.ReadNumber(nAddress, nWord).value_or(0); };
        Thread.nAwaited = Read(Thread.nMark + offsetof(plat::LockMark_s, pAwaited) / sizeof(void *) * nWord);
        bool const bKnown = std::any_of(
            m_dLocks.begin(), m_dLocks.end(), [&](Lock_t const & Lock) { return Lock.nAddress == Thread.nAwaited; });
        if (Thread.nAwaited != 0 && !bKnown)
        {
            std::uint64_t const nOwner = offsetof(plat::LockMark_s, pOwner) / sizeof(void *) * nWord;
            m_dLocks.push_back({ Thread.nAwaited, Read(Read(Thread.nMark + nOwner)) });
        }
    }

    // Describes the locks that a thread holds or waits for, and sets its rank.
    void ThreadLines_c::DescribeLocks(Thread_t & Thread)
    {
        constexpr int RANK_HOLDS = -2, RANK_WAITS = -1;
        for (Lock_t const & Lock : m_dLocks)
        {
            if (Lock.nOwner != 0 && Lock.nOwner == Thread.nMark)
            {
                Thread.sLocks += ", holds " + LockName(Lock);
                Thread.iRank = RANK_HOLDS;
            }
            else if (Lock.nAddress == Thread.nAwaited)
            {
                Thread.sLocks += ", waits for " + LockName(Lock);
                Thread.iRank = std::min(Thread.iRank, RANK_WAITS);
            }
        }
    }

    void ThreadLines_c::Walk(Thread_t & Thread)
    {
        Stopped_t Stopped;
        if (!TakeRegisters(Thread.iThread, m_Process.GetWord(), Stopped))
        {
            Thread.sProblem = CutMark("no registers");
            return;
        }
        m_Process.ForgetMemory();
        Frames_c Frames(m_Process, Stopped.Registers);
        Frame_t const * pFrame = Frames.Get(0);
        for (std::size_t i = 1; pFrame != nullptr && i <= WALKED; ++i)
        {
            Thread.dFrames.push_back(*pFrame);
            Thread.dFrames.back().pCaller = nullptr;   // the caller's frame ends with the walk
            pFrame = Frames.Get(i);
        }
        Thread.bMore = pFrame != nullptr;
        Thread.nMark = m_Process.Cut(Stopped.nThreadPointer + m_Process.GetLockMark());
        ReadMark(Thread);
    }

    // Stops a thread, walks its stack and lets it run on. Returns false if the system forbids that.
    bool ThreadLines_c::Trace(Thread_t & Thread)
    {
        std::string const sEnded = CutMark("it has ended");
        if (ptrace(PTRACE_SEIZE, Thread.iThread, nullptr, nullptr) != 0)
        {
            int const iError = errno;
            bool const bEnded = iError == ESRCH || StatusOf(Thread.iThread).cState == 'Z';   // as an ended main thread
            Thread.sProblem = bEnded ? sEnded : std::strerror(iError);
            return bEnded;
        }
        bool const bAsked = ptrace(PTRACE_INTERRUPT, Thread.iThread, nullptr, nullptr) == 0;
        int const iStopped = bAsked ? AwaitStop(Thread.iThread) : -1;
        if (iStopped >= 0)
        {
            Walk(Thread);
        }
        else
        {
            Thread.sProblem = bAsked ? CutMark("it did not stop") : sEnded;
        }
        ptrace(PTRACE_DETACH, Thread.iThread, nullptr, static_cast<std::uintptr_t>(std::max(iStopped, 0)));
        return true;
    }

    // Traces a thread from a new thread. Only a stopped thread can be detached. The end of the tracing thread sets any
    // other one free. Returns false if the system forbids the trace or allows no further thread.
    bool ThreadLines_c::TraceApart(Thread_t & Thread)
    {
        bool bAllowed = false;
        try
        {
            std::thread([&] { bAllowed = Trace(Thread); }).join();
        }
        catch (std::system_error const & Error)   // the system allows no further thread
        {
            Thread.sProblem = Error.code().message();
        }
        return bAllowed;
    }

    void ThreadLines_c::Collect()
    {
        auto const tEnd = Clock_t::now() + ALL_LIMIT;
        std::error_code Error;
        std::vector<int> dAll = ThreadsOfParent(Error);
        m_sEnd = Error ? CutMark("the list of threads: " + Error.message()) + "\n" : "";
        std::erase(dAll, static_cast<int>(m_Process.GetThread()));
        std::size_t nLeft = dAll.size();
        for (int const iThread : dAll)
        {
            if (Clock_t::now() >= tEnd)
            {
                m_sEnd = CutMark("the limit of " + std::to_string(ALL_LIMIT.count()) + " s, " + std::to_string(nLeft)
                                 + (nLeft == 1 ? " thread" : " threads") + " left out")
                         + "\n";
                break;
            }
            --nLeft;
            Thread_t Thread;
            Thread.iThread = iThread;
            if (!TraceApart(Thread))
            {
                m_sEnd = CutMark("the system does not let the helper trace this process: " + Thread.sProblem) + "\n";
                break;
            }
            m_dThreads.push_back(std::move(Thread));
        }
        for (Thread_t & Thread : m_dThreads)
        {
            DescribeLocks(Thread);
        }
        std::stable_sort(m_dThreads.begin(), m_dThreads.end(),
            [](Thread_t const & Left, Thread_t const & Right) { return Left.iRank < Right.iRank; });
    }

    std::string ThreadLines_c::TextOf(Thread_t const & Thread)
    {
        std::string sName;
        std::getline(std::ifstream(TaskFolder() + std::to_string(Thread.iThread) + "/comm"), sName);
        std::string sText =
            "thread " + std::to_string(Thread.iThread) + " \"" + Escaped(sName) + "\"" + Thread.sLocks + "\n";
        std::size_t nNumber = 0;
        std::size_t const nShown = std::min(Thread.dFrames.size(), SHOWN);
        for (std::size_t i = 0; i < nShown; ++i)
        {
            sText += m_Lines.FormatFrame(Thread.dFrames[i], nNumber, false);
        }
        if (nShown < Thread.dFrames.size())
        {
            sText += "... " + std::to_string(Thread.dFrames.size() - nShown)
                     + (Thread.bMore ? " or more frames left out ...\n" : " frames left out ...\n");
        }
        return sText + (Thread.sProblem.empty() ? "" : Thread.sProblem + "\n") + "\n";
    }

    std::string ThreadLines_c::Next()
    {
        if (!m_bCollected)
        {
            m_bCollected = true;
            Collect();
        }
        if (m_iThread < m_dThreads.size())
        {
            return TextOf(m_dThreads[m_iThread++]);
        }
        return std::exchange(m_sEnd, "");
    }
}
