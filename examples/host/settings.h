// settings.h: how the host runs, from the property list settings.prp of the media.
//
// The module starts after the files and before all modules that use it. It does not start if the list has a fault
// (NoFile_t). SETTINGS in settings.cpp has the names and ranges. If a name other than `report` is on several
// lines, the last valid one counts. A setting has the default below in these cases:
// - The list is missing.
// - The list has no value for it.
// - It is a number, and no value of the list is a number in its range.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cmodule.h"
#include "zqcore/cstring.h"

/// Module that reads the list when it starts and keeps the values.
class ModuleSettings_c : public Module_c
{
public:
    using Text_t = String_T<64>;   // a value of the list, cut to fit

    ModuleSettings_c()
        : Module_c("ModuleSettings_c")
    {}

    /// Returns the instance.
    static ModuleSettings_c * Get();

    /// Returns whether the report has that part, named in lower case. The list names a part on each line `report`. The
    /// report has all parts if there is no such line.
    bool HasPart(char const * szPart) const;

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
    void SetByName(char const * szName, Text_t const & sValue);

    Array_T<Text_t, 16, 0> m_dParts;
};
