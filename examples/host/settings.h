// settings.h: how the host runs, from the property list settings.prp of the media.
//
// The module comes up behind the files and in front of all that asks it. Without the list, or a name in it, a setting is
// what it is here. The list's names are those of SETTINGS in settings.cpp.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cmodule.h"
#include "zqcore/cstring.h"

class ModuleSettings_c : public Module_c
{
public:
    using Text_t = String_T<64>;

    ModuleSettings_c()
        : Module_c("ModuleSettings_c")
    {}

    /// The instance.
    static ModuleSettings_c * Get();

    /// Whether the run is to tell about that part; about all if the list names none.
    bool Tells(char const * szPart) const;

    int m_nRate = 240;                   // frames a second
    int m_nStream = 4;                   // files that a frame reads
    Text_t m_sLevel = "fair";            // a row of the balance sheet
    Text_t m_sBalance = "balance.csv";   // the sheet's file
    Text_t m_sMission = "mission.scr";   // the script's file

protected:
    bool Initialize() override;
    void Shutdown() override;
    Module_c ** GetPrerequisites() const override;

private:
    void Take(char const * szName, Text_t const & sValue);

    Array_T<Text_t, 16, 0> m_dParts;
};
