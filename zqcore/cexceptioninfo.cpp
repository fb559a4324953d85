#include "zqcore/cexceptioninfo_internal.h"

#include "zqcore/ccomplaint_internal.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfaultnames_internal.h"

#include "platform/debugger.h"
#include "platform/dialog.h"
#include "platform/fork.h"
#include "platform/process.h"

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <thread>

using namespace exceptioninfo;

namespace
{
    constexpr std::uint32_t CHECK_INTERVAL = 500;   // milliseconds between two checks of the stop flag
    constexpr int EXCEPTION_FRAMES = 32;
    constexpr std::uintptr_t DUMP_BELOW = 512;   // bytes of a dump below the address in the register
    constexpr int DUMP_WORDS = 256;
    constexpr char REMOTE_DEBUGGER[] = "RemoteDebug\\rdebug.cmd";

    constinit plat::Lock_c g_HandOver;   // held while a fault is shown, and by Start; entered before g_Lock
    constinit plat::Event_c g_ExceptionEvent;
    constinit plat::Event_c g_ExceptionHandled;
    constinit plat::FaultPointers_t const * g_pPending = nullptr;
    constinit plat::Thread_c g_Thread;
    constinit std::atomic<std::uint32_t> g_iThread = 0;   // number of the support thread; 0 without one
    constinit std::atomic<bool> g_bRunning = false;
    constinit std::atomic<bool> g_bStop = false;
    char g_szExceptionTrace[EXCEPTION_TRACE_SIZE];

    // Forgets the support thread and the pending fault. A forked child has neither that thread nor one that awaits it.
    void ForgetSupportThread()
    {
        g_HandOver.RenewUnlessMine();
        g_Thread.Forget();
        g_iThread = 0;
        g_bRunning = false;
        g_bStop = false;
        g_pPending = nullptr;
        g_ExceptionEvent.Reset();
        g_ExceptionHandled.Reset();
    }
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, ForgetSupportThread });

    char const * ExceptionName(std::uint32_t nCode)
    {
        constexpr std::uint32_t CONTROL_C = 0xC000013A;   // STATUS_CONTROL_C_EXIT (ntstatus.h); never raised
        char const * const szName = FaultNameOf(nCode);
        return szName != nullptr ? szName : nCode == CONTROL_C ? "CONTROL_C_EXIT" : "unknown";
    }

    // Line that says what an access violation tried to access. It is empty for other faults.
    class AccessLine_c
    {
    public:
        explicit AccessLine_c(plat::FaultRecord_t const & Record)
        {
            if (Record.nCode == plat::FAULT_ACCESS)
            {
                std::snprintf(m_szLine, sizeof m_szLine, "attempt to %s ptr 0x%08" PRIXPTR "\r\n",
                    Record.dParameters[0] != 0 ? "write" : "read", Record.dParameters[1]);
            }
        }
        char const * Get() const { return m_szLine; }

    private:
        char m_szLine[64] = "";
    };

    void TraceRegisters(plat::FaultContext_t const & Context)
    {
        constexpr auto fnTrace = ExceptionInfo_c::TraceLine;
        TraceText("Registers:");
        fnTrace("EAX = 0x%08" PRIXPTR "  CS = 0x%04X  EIP = 0x%08" PRIXPTR "  EFLGS = 0x%08" PRIXPTR, Context.nAx,
            Context.nCs, Context.nIp, Context.nFlags);
        fnTrace("EBX = 0x%08" PRIXPTR "  SS = 0x%04X  ESP = 0x%08" PRIXPTR "  EBP = 0x%08" PRIXPTR, Context.nBx,
            Context.nSs, Context.nSp, Context.nBp);
        fnTrace("ECX = 0x%08" PRIXPTR "  DS = 0x%04X  ESI = 0x%08" PRIXPTR "  FS = 0x%04X", Context.nCx, Context.nDs,
            Context.nSi, Context.nFs);
        fnTrace("EDX = 0x%08" PRIXPTR "  ES = 0x%04X  EDI = 0x%08" PRIXPTR "  GS = 0x%04X", Context.nDx, Context.nEs,
            Context.nDi, Context.nGs);
    }

    void TraceModule(std::uintptr_t Address)
    {
        ModuleInfo_s const * const pModule = ModuleOf(Address);
        if (pModule == nullptr)
        {
            TraceText("Exception in unknown address space");
            return;
        }
        ExceptionInfo_c::TraceLine("Exception in address space of module : %s", pModule->szName);
        ExceptionInfo_c::TraceLine("Module loaded from : %s", pModule->szPath);
    }

    void TraceException(plat::FaultRecord_t const & Record, plat::FaultContext_t const & Context)
    {
        TraceText("//////////////////////  Exeption information //////////////////////");
        ExceptionInfo_c::TraceLine("Exception 0x%08" PRIX32 " at Addres: 0x%08" PRIXPTR, Record.nCode, Record.Address);
        AccessLine_c const Access(Record);
        if (Access.Get()[0] != 0)
        {
            TraceText(Access.Get());
        }
        TraceRegisters(Context);
        ExceptionInfo_c::TraceLine("Exception name : %s", ExceptionName(Record.nCode));
        TraceModule(Record.Address);
    }

    void LaunchRemoteDebugger()
    {
        if (plat::ProcessStart(REMOTE_DEBUGGER))
        {
            MessageBoxPlain(nullptr, "Please attach by remote debugger and press ok", "Wait For ...", MESSAGE_TOPMOST);
            return;
        }
        DebugMessages_c & Messages = DebugMessages_c::Get();
        (Messages.*Messages.SetLocation(__FILE__, __LINE__))("%s", LastError());
    }

    plat::DialogAnswer_e Ask(plat::FaultRecord_t const & Record)
    {
        if (g_silentMode)
        {
            return plat::DialogAnswer_e::No;
        }
        std::snprintf(g_szDialog, DIALOG_SIZE,
            "Unhandled Exception %s (0x%08" PRIX32 ") at 0x%08" PRIXPTR "\r\n%sStack Trace\r\n\r\n%s\r\n\r\nPress:\r\n"
            "Yes - to launch remote debug\r\nNo - to ignore exception\r\nCancel - to terminate application",
            ExceptionName(Record.nCode), Record.nCode, Record.Address, AccessLine_c(Record).Get(), g_szExceptionTrace);
        return static_cast<plat::DialogAnswer_e>(MessageBoxPlain(
            nullptr, g_szDialog, "Exception", MESSAGE_YES_NO_CANCEL | MESSAGE_ICON_ERROR | MESSAGE_TOPMOST));
    }

    void HandlePending(plat::FaultPointers_t const & Pending)
    {
        FiringNoWait_c const NoWait;   // the thread whose fault this is may be firing
        ExceptionInfo_c & Info = ExceptionInfo_c::Get();
        plat::FaultContext_t const & Context = *Pending.pContext;
        SetUpSymbols(Context);
        LoadModules();
        TraceException(*Pending.pRecord, Context);
        Info.DumpMemory("ESP", Context.nSp, Context.nSp - DUMP_BELOW, DUMP_WORDS);
        Info.DumpMemory("EBP", Context.nBp, Context.nBp - DUMP_BELOW, DUMP_WORDS);
        Info.StackTrace(g_szExceptionTrace, EXCEPTION_TRACE_SIZE, EXCEPTION_FRAMES, 0, &Pending);
        TraceText("StackTrace");
        TraceText(g_szExceptionTrace);
        switch (Ask(*Pending.pRecord))
        {
        case plat::DialogAnswer_e::Cancel:
            ExitByComplaint(static_cast<int>(Pending.pRecord->nCode));
        case plat::DialogAnswer_e::Yes:
            LaunchRemoteDebugger();
            break;
        default:
            break;
        }
    }

    // Handles the pending fault in a guarded call. After a fault in that call, releases what the call held. Without the
    // guard, such a fault, for example in the host's dialog, would deadlock. This thread would wait until the first
    // fault is handled. The thread of the first fault waits for this one.
    void HandleGuarded()
    {
        auto const fnHandle = [](void *) { HandlePending(*g_pPending); };
        int const nDepth = g_Lock.GetDepth();
        ComplaintMark_c const Mark;
        if (!plat::FaultCallGuarded(fnHandle, nullptr, 0))
        {
            EndIfExiting();
            EndTrace();
            Mark.EndLater();
            g_Lock.LeaveDownTo(nDepth);
        }
    }

    void Handle()
    {
        g_ExceptionEvent.Reset();
        TraceText("Handling Exception...");
        if (g_pPending != nullptr)
        {
            HandleGuarded();
        }
        TraceText("Handling Exception...done");
        g_pPending = nullptr;
        g_ExceptionHandled.Set();
    }

    void Run(void *)
    {
        g_iThread = plat::ThreadId();
        {
            Scope_c const Started;   // waits until Start has reset the events
        }
        while (!g_bStop)
        {
            if (g_ExceptionEvent.WaitFor(CHECK_INTERVAL))
            {
                Scope_c const Scope;
                Handle();
            }
            std::this_thread::yield();
        }
    }

    // Returns whether the caller would wait for itself if it waited for the support thread.
    bool IsMine()
    {
        return g_Lock.IsMine() || g_iThread == plat::ThreadId();
    }

    // Passes a fault to the support thread. Returns false if none runs or Stop ends it.
    bool Post(plat::FaultPointers_t const * pPointers)
    {
        Scope_c const Scope;
        if (!g_bRunning || g_bStop)
        {
            return false;
        }
        g_pPending = pPointers;
        g_ExceptionEvent.Set();
        return true;
    }

    // Passes a fault to the support thread and waits until it is handled, or until Stop. Does nothing if none runs.
    void HandOver(plat::FaultPointers_t const * pPointers)
    {
        plat::LockScope_c const Turn(g_HandOver);
        if (Post(pPointers))
        {
            g_ExceptionHandled.Wait();
            g_ExceptionHandled.Reset();
        }
    }
}

ExceptionInfo_c & ExceptionInfo_c::Get()
{
    static constinit ExceptionInfo_c s_Instance;
    return s_Instance;
}

bool ExceptionInfo_c::Start()
{
    if (g_bRunning)
    {
        return true;
    }
    plat::LockScope_c const Turn(g_HandOver);   // waits until a thread that Stop released has seen its event
    Scope_c const Scope;
    TraceText("Initializing debug SP");
    g_bStop = false;
    g_bRunning = g_Thread.Start(Run, nullptr);
    g_ExceptionEvent.Reset();
    g_ExceptionHandled.Reset();
    TraceText("Initializing debug SP, done");
    return g_bRunning;
}

void ExceptionInfo_c::Stop()
{
    if (!g_bRunning || IsMine())
    {
        return;
    }
    TraceText("Releasing debug SP");
    {
        Scope_c const Scope;
        g_bStop = true;
    }
    g_Thread.Join();
    Scope_c const Scope;
    g_bRunning = false;
    g_iThread = 0;
    if (g_pPending != nullptr)
    {
        g_pPending = nullptr;
        g_ExceptionHandled.Set();
    }
    TraceText("Releasing debug SP, done");
}

long ExceptionInfo_c::OnUnhandledException(plat::FaultPointers_t const * pPointers)
{
    if (!plat::DebuggerIsPresent() && g_bRunning && !IsMine())
    {
        HandOver(pPointers);
    }
    return 0;
}
