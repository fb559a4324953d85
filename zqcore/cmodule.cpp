#include "zqcore/cmodule.h"

#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cprofile_internal.h"
#include "zqcore/cstring.h"
#include "zqcore/ctimer.h"

constinit Array_T<Module_c *, 64, 0> Module_c::m_dModules;

namespace
{
    constexpr double SLOW_START = 0.1f;   // seconds; the single-precision value

    // Returns the seconds of longTimeGet since tStart, rounded to single precision.
    double SecondsSince(double tStart)
    {
        return static_cast<double>(static_cast<float>(longTimeGet() - tStart));
    }
}

Module_c::~Module_c()
{
    if (m_bIsInitialized)
    {
        Log("%s: still initialized!", m_szName);
    }
}

void Module_c::Reset() {}

bool Module_c::Initialize()
{
    ZQ_ASSERT(!m_bIsInitialized);
    m_bIsInitialized = true;
    return true;
}

void Module_c::Initialize2() {}

void Module_c::Shutdown()
{
    Log("%s shutdown", m_szName);
    m_bIsInitialized = false;
}

void Module_c::HeartbeatFrame(double) {}

void Module_c::HeartbeatIdle() {}

Module_c ** Module_c::GetPrerequisites() const
{
    return nullptr;
}

bool Module_c::CanInitialize() const
{
    for (Module_c ** ppModule = GetPrerequisites(); ppModule && *ppModule; ++ppModule)
    {
        if (!(*ppModule)->IsInitialized())
        {
            return false;
        }
    }
    return true;
}

void Module_c::Register(Module_c * pModule)
{
    MemCategoryScope_c const Scope(mem::Core);
    if (m_dModules.Find(pModule))
    {
        return;
    }
    m_dModules.Add(pModule);   // before its prerequisites, which ends the recursion on cycles
    pModule->m_ppPrerequisites = pModule->GetPrerequisites();
    for (Module_c ** ppModule = pModule->m_ppPrerequisites; ppModule && *ppModule; ++ppModule)
    {
        Register(*ppModule);
    }
}

// Initialises a module and sets its order. Warns if that is slow. Returns false, after a Warning, if it fails.
bool Module_c::InitializeOne(Module_c & Module, int iOrder)
{
    double const tStart = longTimeGetPassed();
    if (!Module.Initialize())
    {
        Warning("Module [%s] failed to initialize", Module.m_szName);
        return false;
    }
    double const tTaken = longTimeGetPassed() - tStart;
    if (tTaken > SLOW_START)
    {
        Warning("%s initialized in %.2f sec", Module.m_szName, tTaken);
    }
    Module.m_iInitOrder = iOrder;
    return true;
}

// Raises an Achtung for each module that is not initialised. Returns whether there is one.
bool Module_c::ComplainOfUninitialized()
{
    bool bFound = false;
    for (Module_c * const pModule : m_dModules)
    {
        if (!pModule->IsInitialized())
        {
            Achtung("Module [%s] was not initialized. xrf?", pModule->m_szName);
            bFound = true;
        }
    }
    return bFound;
}

bool Module_c::InitializeAllModules()
{
    constexpr int MOST_IDLE = 4;   // passes without a module that is then up, because overrides forget the base
    int iOrder = 0, nIdle = 0;
    for (bool bProgress = true; bProgress && nIdle < MOST_IDLE;)
    {
        bProgress = false;
        bool bAnyUp = false;
        for (int i = 0; i < m_dModules.GetLength(); ++i)   // a module may register others in Initialize
        {
            Module_c & Module = *m_dModules[i];
            if (Module.IsInitialized() || !Module.CanInitialize())
            {
                continue;
            }
            if (!InitializeOne(Module, iOrder))
            {
                return false;
            }
            ++iOrder;
            bProgress = true;
            bAnyUp = bAnyUp || Module.IsInitialized();
        }
        nIdle = bAnyUp ? 0 : nIdle + 1;
    }
    if ((iOrder != m_dModules.GetLength() || nIdle == MOST_IDLE) && ComplainOfUninitialized())
    {
        return false;
    }
    m_dModules.Sort(ModuleCmp_fn, 0, -1);
    for (int i = m_dModules.GetLength() - 1; i >= 0; --i)
    {
        m_dModules[i]->Initialize2();
    }
    return true;
}

void Module_c::ShutdownAllModules()
{
    double const tBegin = longTimeGet();
    for (int i = 0; i < m_dModules.GetLength(); ++i)
    {
        Module_c & Module = *m_dModules[i];
        double const tStart = longTimeGet();
        Module.Shutdown();
        Log("%s has been shutdown in %2.2f sec", Module.m_szName, SecondsSince(tStart));
    }
    m_dModules.Reset();
    Log("All modules have been shutdown in %2.2f sec", SecondsSince(tBegin));
}

// Runs one of the two heartbeats inside a timer of the profiler.
void Module_c::RunHeartbeat(char const * szKind, bool bFrame, double dt)
{
    String_T<256> sLabel(szKind);
    sLabel += NewString("%-20s", m_szName);
    ProfilerHostScope_c const Timer(sLabel);
    if (bFrame)
    {
        HeartbeatFrame(dt);
    }
    else
    {
        HeartbeatIdle();
    }
}

void Module_c::HeartbeatAllModulesFrame(double dt)
{
    for (int i = 0; i < m_dModules.GetLength(); ++i)
    {
        if (m_dModules[i])
        {
            m_dModules[i]->RunHeartbeat("Frame ", true, dt);
        }
    }
}

void Module_c::HeartbeatAllModulesIdle()
{
    for (int i = 0; i < m_dModules.GetLength(); ++i)
    {
        if (m_dModules[i])
        {
            m_dModules[i]->RunHeartbeat("Idle ", false, 0.0);
        }
    }
}

int Module_c::ModuleCmp_fn(Module_c * a, Module_c * b)
{
    return a->m_iInitOrder - b->m_iInitOrder;
}
