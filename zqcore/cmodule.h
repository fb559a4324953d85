// cmodule.h: services that come up and go down in dependency order.
//
// A module is a subclass of Module_c with one static instance. The application registers the modules that it wants,
// which brings in what they need; one call initialises all of them, two drive them from the main loop, and one shuts
// them down in the reverse order. The registry only points at modules. It has no lock: all calls belong to the main
// thread.
//
// An override of Initialize ends by calling Module_c::Initialize and returns its result.
#pragma once

#include "zqcore/carray.h"

class ZQ_API Module_c
{
public:
    /// szName is kept as a pointer and must outlive the module.
    constexpr explicit Module_c(char const * szName)
        : m_szName(szName)
    {}

    /// Logs a complaint if the module is still initialised.
    virtual ~Module_c();
    Module_c(Module_c const &) = delete;
    Module_c & operator=(Module_c const &) = delete;

    /// For the module's own use: the registry never calls it.
    virtual void Reset();

    bool IsInitialized() const { return m_bIsInitialized; }
    char const * GetName() const { return m_szName; }

    /// How many modules were initialised before this one; -1 until it is.
    int GetInitOrder() const { return m_iInitOrder; }

    /// Adds a module and all that it needs. A module that is there already stays once.
    static void Register(Module_c * pModule);

    /// Initialises every registered module that is not yet, prerequisites first; then runs Initialize2 on each, in the
    /// order of initialisation. False as soon as a module fails, with those before it left initialised, and false if a
    /// module's prerequisites never come up. A module that takes over 0.1 s raises a Warning.
    static bool InitializeAllModules();

    /// Shuts every registered module down, last initialised first, and empties the registry.
    static void ShutdownAllModules();

    /// Once a frame, with the frame's time in seconds; and when the application idles. Last initialised beats first.
    static void HeartbeatAllModulesFrame(double dt);
    static void HeartbeatAllModulesIdle();

    /// a's order minus b's, for Sort.
    static int ModuleCmp_fn(Module_c * a, Module_c * b);

protected:
    /// Comes up; false if it can't. Must not be initialised already.
    virtual bool Initialize();

    /// Second phase: all modules are initialised.
    virtual void Initialize2();

    /// Goes down; also called on a module that never came up.
    virtual void Shutdown();

    virtual void HeartbeatFrame(double dt);
    virtual void HeartbeatIdle();

    /// A null-terminated list of the modules that must be up before this one, or null for none. The list is the
    /// module's own and never changes.
    virtual Module_c ** GetPrerequisites() const;

    /// Whether all prerequisites are initialised.
    bool CanInitialize() const;

private:
    static bool InitializeOne(Module_c & Module, int iOrder);
    static bool ComplainOfUninitialized();
    void Heartbeat(char const * szKind, bool bFrame, double dt);

    char const * m_szName;
    bool m_bIsInitialized = false;
    int m_iInitOrder = -1;

    static Array_T<Module_c *, 64, 0> m_dModules;
};
