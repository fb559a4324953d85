// cmodule.h: services that start and stop in dependency order.
//
// A module is a subclass of Module_c with one static instance. The application registers the modules that it wants.
// Their prerequisites are registered with them. One call initialises all modules, two calls drive them from the main
// loop, and one call shuts them down in the reverse order.
//
// Ownership: the registry only points at modules. Requires that a module outlives ShutdownAllModules.
// Threads: the main thread. Nothing is locked.
// Cost: Register allocates the list of modules. A heartbeat formats the name of a timer of the profiler, and makes a
// virtual call inside that timer.
// Failure: InitializeAllModules returns false. Modules that were initialised before the failure stay so, until the
// caller calls ShutdownAllModules.
//
//     struct Weather_c : Module_c
//     {
//         Weather_c() : Module_c("Weather_c") {}
//         void HeartbeatFrame(double dt) override { Log("%.3f s of rain", dt); }
//     };
//     static Weather_c s_Weather;
//     Module_c::Register(&s_Weather);
//     bool const bUp = Module_c::InitializeAllModules();
//     Module_c::HeartbeatAllModulesFrame(1.0 / 60.0);
//     Module_c::ShutdownAllModules();
#pragma once

#include "zqcore/carray.h"

/// Base of a service. By default Initialize and Shutdown record the state, GetPrerequisites returns null, and the other
/// virtual functions do nothing.
class ZQ_API Module_c
{
public:
    /// Makes a module. Keeps the name as a pointer. Requires that the name outlives the module.
    constexpr explicit Module_c(char const * szName)
        : m_szName(szName)
    {}

    /// Logs a line if the module is still initialised.
    virtual ~Module_c();
    Module_c(Module_c const &) = delete;
    Module_c & operator=(Module_c const &) = delete;

    /// Resets the module, for the module's own use: the registry never calls it.
    virtual void Reset();

    /// Returns whether Module_c::Initialize has run and Module_c::Shutdown was not called after it.
    bool IsInitialized() const { return m_bIsInitialized; }

    /// Returns the name that was passed to the constructor.
    char const * GetName() const { return m_szName; }

    /// Returns the number of modules that the same InitializeAllModules initialised before this one, or -1 before
    /// its first initialisation.
    int GetInitOrder() const { return m_iInitOrder; }

    /// Adds a module and its prerequisites. A module that is already registered is not added again.
    static void Register(Module_c * pModule);

    /// Initialises every registered module that is not yet initialised, prerequisites first. Then runs Initialize2 on
    /// every registered module, in ascending GetInitOrder, also on those of an earlier call. A module whose
    /// Initialize lasts longer than 0.1 s raises a Warning. Returns false in two cases, and then calls no Initialize2:
    /// - a module fails. The call raises a Warning and ends at once.
    /// - a module's prerequisites can't be initialised, or its Initialize returns true without Module_c::Initialize.
    ///   The call tries the latter a few times, and then raises an Achtung for each such module.
    static bool InitializeAllModules();

    /// Shuts down every registered module, in descending GetInitOrder, and empties the registry. Those registered after
    /// the last InitializeAllModules that succeeded come last, in the order of registration. Each InitializeAllModules
    /// counts from 0, so after two of them a module of the first may be shut down before one of the second that needs
    /// it.
    static void ShutdownAllModules();

    /// Call HeartbeatFrame and HeartbeatIdle of each module, in the order of ShutdownAllModules. The application calls
    /// them once a frame, with the frame's time in seconds, and whenever it idles.
    static void HeartbeatAllModulesFrame(double dt);
    static void HeartbeatAllModulesIdle();

    /// Returns a's GetInitOrder minus b's, for Array_T::Sort.
    static int ModuleCmp_fn(Module_c * a, Module_c * b);

protected:
    /// Starts the service and returns true, or returns false. Requires that an override calls Module_c::Initialize at
    /// its end and returns its result. Asserts that the module is not initialised.
    virtual bool Initialize();

    /// Does the second phase of the start, when all modules are initialised.
    virtual void Initialize2();

    /// Stops the service and logs a line. ShutdownAllModules also calls it on a module that was never initialised.
    /// Requires that an override calls Module_c::Shutdown.
    virtual void Shutdown();

    /// Run the service's work of a frame and of idle time. HeartbeatAllModulesFrame and HeartbeatAllModulesIdle also
    /// call them on modules that are not initialised.
    virtual void HeartbeatFrame(double dt);
    virtual void HeartbeatIdle();

    /// Returns a null-terminated list of the modules that must be initialised before this one, or null for none. The
    /// list belongs to the module and never changes.
    virtual Module_c ** GetPrerequisites() const;

    /// Returns whether all prerequisites are initialised.
    bool CanInitialize() const;

private:
    static bool InitializeOne(Module_c & Module, int iOrder);
    static bool ComplainOfUninitialized();
    void RunHeartbeat(char const * szKind, bool bFrame, double dt);

    char const * m_szName;
    bool m_bIsInitialized = false;
    int m_iInitOrder = -1;
    Module_c ** m_ppPrerequisites = nullptr;   // at Register, for debuggers: a core dump can't run GetPrerequisites

    static Array_T<Module_c *, 64, 0> m_dModules;
};
