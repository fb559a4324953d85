// world.h: the module that owns the bay and advances it by one hour a frame.
//
// With media of another game the tables are missing. The world then stays empty, which is no failure.
#pragma once

#include "balance.h"
#include "bay.h"

#include "zqcore/cmodule.h"

/// Module of the world. The bay is empty before the module starts and after it ends.
class ModuleWorld_c : public Module_c
{
public:
    ModuleWorld_c()
        : Module_c("ModuleWorld_c")
    {}

    /// Returns the instance.
    static ModuleWorld_c * Get();

    /// Deletes the world and starts a new one from the media. If the media have none, the world is empty (GetWhyEmpty).
    void Begin();

    /// Reads the rules, and the names and numbers of the definitions (bay.h), again while the game continues. Changes
    /// to the fleet, the purse or references, and new or deleted definitions, have no effect until the next Begin.
    /// Tables that make no sense change nothing. Does nothing in an empty world.
    void RereadTables();

    /// Return whether the world is empty, and why the media have none: an empty text if they have one.
    bool IsEmpty() const { return m_Bay.dShips.IsEmpty(); }
    char const * GetWhyEmpty() const { return m_Why.sWhy; }

    /// Returns whether the media have no world because of a fault (NoFile_t).
    bool IsFaulty() const { return m_Why.bFault; }

    Bay_s & GetBay() { return m_Bay; }
    Bay_s const & GetBay() const { return m_Bay; }

    /// Returns the factors that the tables were multiplied by.
    Balance_s const & GetBalance() const { return m_Balance; }

protected:
    bool Initialize() override;
    void Shutdown() override;
    void HeartbeatFrame(double dt) override;
    Module_c ** GetPrerequisites() const override;

private:
    Bay_s m_Bay;
    Balance_s m_Balance;
    NoFile_t m_Why;   // why there is no world
};
