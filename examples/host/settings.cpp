#include "settings.h"

#include "heldfile.h"

#include "zqcore/cfilemedia.h"
#include "zqcore/clog.h"
#include "zqcore/cpropertylist.h"

#include <charconv>
#include <system_error>

namespace
{
    constexpr char const * LIST = "settings.prp";
    constexpr char const * PARTS = "report";   // the only setting of which every line counts

    using Text_t = ModuleSettings_c::Text_t;

    // A setting: a number in a range, or a text. The pointer of the other kind is null.
    struct Setting_s
    {
        char const * szName;
        int ModuleSettings_c::*pNumber;
        int iLeast, iMost;
        Text_t ModuleSettings_c::*pText;
    };

    constexpr Setting_s SETTINGS[] = {
        { "rate", &ModuleSettings_c::m_nRate, 1, 10000, nullptr },
        { "stream", &ModuleSettings_c::m_nStream, 0, 1000, nullptr },
        { "level", nullptr, 0, 0, &ModuleSettings_c::m_sLevel },
        { "balance", nullptr, 0, 0, &ModuleSettings_c::m_sBalance },
        { "mission", nullptr, 0, 0, &ModuleSettings_c::m_sMission },
    };

    ModuleSettings_c g_ModuleSettings;

    // Returns the setting of a name in any case of letters, or null.
    Setting_s const * FindSetting(char const * szName)
    {
        for (Setting_s const & Setting : SETTINGS)
        {
            if (StrCompareNoCase(Setting.szName, szName) == 0)
            {
                return &Setting;
            }
        }
        return nullptr;
    }

    // Reads a number from iLeast to iMost. Returns false, and leaves iNumber unchanged, if the text is no such number.
    bool ReadNumber(Text_t const & sValue, int iLeast, int iMost, int & iNumber)
    {
        char const * const szText = sValue;
        int iRead = 0;
        auto const [pEnd, eError] = std::from_chars(szText, szText + sValue.Length(), iRead);
        bool const bGood = eError == std::errc() && !*pEnd && iRead >= iLeast && iRead <= iMost;
        iNumber = bGood ? iRead : iNumber;
        return bGood;
    }

    // Sets a setting to a value of the list. Logs a value that is no number in the setting's range.
    void Set(ModuleSettings_c & Settings, Setting_s const & Setting, Text_t const & sValue)
    {
        if (Setting.pText)
        {
            Settings.*Setting.pText = sValue;
        }
        else if (!ReadNumber(sValue, Setting.iLeast, Setting.iMost, Settings.*Setting.pNumber))
        {
            LogEscaped("%s: %s takes a number from %i to %i, not \"%s\"", LIST, Setting.szName, Setting.iLeast,
                Setting.iMost, static_cast<char const *>(sValue));
        }
    }
}

ModuleSettings_c * ModuleSettings_c::Get()
{
    return &g_ModuleSettings;
}

Module_c ** ModuleSettings_c::GetPrerequisites() const
{
    static Module_c * s_dPrerequisites[] = { ModuleFile_c::Get(), nullptr };
    return s_dPrerequisites;
}

bool ModuleSettings_c::Initialize()
{
    HeldFile_c const File(LIST);
    if (File.GetWhyNot().bFault)
    {
        Log("%s", static_cast<char const *>(File.GetWhyNot().sWhy));
        return false;
    }
    if (!File.GetWhyNot().sWhy.IsEmpty())   // the media have no such list
    {
        return Module_c::Initialize();
    }
    PropertyList_c List;
    if (!List.Open(LIST))
    {
        return false;   // not of the expected kind, which Open logs
    }
    String_T<256> sName, sValue;
    for (List.StartProp(); List.NextProp(sName);)
    {
        for (List.StartVal(sName); List.NextVal(sValue);)
        {
            SetByName(sName, static_cast<char const *>(sValue));
        }
    }
    return Module_c::Initialize();
}

void ModuleSettings_c::SetByName(char const * szName, Text_t const & sValue)
{
    if (StrCompareNoCase(szName, PARTS) == 0)
    {
        m_dParts.Add(sValue);
    }
    else if (Setting_s const * const pSetting = FindSetting(szName))
    {
        Set(*this, *pSetting, sValue);
    }
    else
    {
        LogEscaped("%s: there is no setting \"%s\"", LIST, szName);
    }
}

void ModuleSettings_c::Shutdown()
{
    m_dParts.Reset();
    Module_c::Shutdown();
}

bool ModuleSettings_c::HasPart(char const * szPart) const
{
    for (Text_t const & sPart : m_dParts)
    {
        if (sPart == szPart)
        {
            return true;
        }
    }
    return m_dParts.IsEmpty();
}
