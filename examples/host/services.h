// services.h: the modules that the host runs, and how long each took to start.
#pragma once

#include "zqcore/cmodule.h"

/// A module that starts right after another one and stores the time.
class StartMark_c : public Module_c
{
public:
    StartMark_c()
        : Module_c("StartMark_c")
    {}

    /// Set and return the other module, null at first. Require that it is set before the mark is registered.
    void Watch(Module_c * pModule) { m_dPrerequisites[0] = pModule; }
    Module_c const * GetWatched() const { return m_dPrerequisites[0]; }

    /// Returns longTimeGetPassed at the mark's start, in seconds, or 0 before it.
    double GetTime() const { return m_tUp; }

protected:
    bool Initialize() override;
    Module_c ** GetPrerequisites() const override { return m_dPrerequisites; }

private:
    mutable Module_c * m_dPrerequisites[2] = { nullptr, nullptr };   // the registry takes a list that is not const
    double m_tUp = 0.0;                                              // as GetTime returns it
};

/// The host's list of modules. Requires that it outlives Module_c::ShutdownAllModules: the registry has its marks.
class Services_c
{
public:
    static constexpr int MAX_SERVICES = 16;

    /// Registers a module. Requires that its prerequisites were added before: otherwise the times of starts are wrong.
    /// Asserts that fewer than MAX_SERVICES were added, and does nothing otherwise.
    void Add(Module_c * pModule);

    /// Initialises all modules. Returns false if one did not start.
    bool Start();

    int GetCount() const { return m_nServices; }

    /// Return the name of a module, by its number in the order of adding, and the seconds that its start took. Require
    /// a number from 0 to below GetCount(). The times require a Start that succeeded. Return a time of 0 for a module
    /// that was not added.
    char const * GetName(int iService) const { return m_dMarks[iService].GetWatched()->GetName(); }
    double GetStartTime(int iService) const;
    double GetStartTime(Module_c const & Module) const;

private:
    StartMark_c m_dMarks[MAX_SERVICES];
    int m_nServices = 0;
    double m_tStart = 0.0;   // longTimeGetPassed at Start, in seconds
};
