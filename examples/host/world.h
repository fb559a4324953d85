// world.h: the module that keeps the bay and moves it on by one hour a frame.
//
// Over media of another game the tables are missing: the world stays empty, which is no failure.
#pragma once

#include "balance.h"
#include "bay.h"

#include "zqcore/cmodule.h"

class ModuleWorld_c : public Module_c
{
public:
    ModuleWorld_c()
        : Module_c("ModuleWorld_c")
    {}

    /// The instance.
    static ModuleWorld_c * Get();

    /// Begins anew from the media; whatever was there goes.
    void Begin();

    /// Takes the numbers of the media's tables anew while the game goes on. Rows that are new or gone, and what rows
    /// point at, wait for the next beginning. Tables that make no sense, or a world that is empty, change nothing.
    void TakeTables();

    /// Whether the media have no world, and why.
    bool IsEmpty() const { return m_Bay.dShips.IsEmpty(); }
    char const * GetWhyEmpty() const { return m_Why.sWhy; }

    /// Whether a file of the world is there and can't be read.
    bool IsFaulty() const { return m_Why.bFault; }

    Bay_s & GetBay() { return m_Bay; }
    Bay_s const & GetBay() const { return m_Bay; }

    /// What the tables were multiplied with.
    Balance_s const & GetBalance() const { return m_Balance; }

protected:
    bool Initialize() override;
    void Shutdown() override;
    void HeartbeatFrame(double dt) override;
    Module_c ** GetPrerequisites() const override;

private:
    Bay_s m_Bay;
    Balance_s m_Balance;
    NoFile_s m_Why;   // there is no world
};
