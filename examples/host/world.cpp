#include "world.h"

#include "mission.h"
#include "settings.h"

#include "zqcore/ccryptrnd.h"
#include "zqcore/cmemory.h"
#include "zqcore/cserializer.h"

#include <algorithm>

namespace
{
    ModuleWorld_c g_ModuleWorld;

    // Fills half of a quay's room for the good that its harbour makes, and an eighth of the room for each other good.
    void StockQuays(Bay_s & Bay)
    {
        for (Harbour_s & Harbour : Bay.dHarbours)
        {
            auto const fQuay = static_cast<float>(Harbour.nQuay);
            std::fill_n(Harbour.dStock, Bay.dGoods.GetLength(), fQuay / 8.0f);
            Harbour.dStock[Harbour.pMakes->iNumber] = fQuay / 2.0f;
        }
    }
}

ModuleWorld_c * ModuleWorld_c::Get()
{
    return &g_ModuleWorld;
}

Module_c ** ModuleWorld_c::GetPrerequisites() const
{
    static Module_c * s_dPrerequisites[] = { ModuleCryptRandom_c::Get(), ModuleSerialize_c::Get(),
        ModuleSettings_c::Get(), nullptr };
    return s_dPrerequisites;
}

bool ModuleWorld_c::Initialize()
{
    BayRegisterStatics();
    Begin();
    return Module_c::Initialize();
}

void ModuleWorld_c::Begin()
{
    MemCategoryScope_c const Scope(mem::GameWorld);
    ModuleSettings_c const & Settings = *ModuleSettings_c::Get();
    BayReset(m_Bay);
    HeldFile_c const Balance(Settings.m_sBalance), Mission(Settings.m_sMission);
    m_Why = BayReadTables(m_Bay);
    for (HeldFile_c const * const pFile : { &Balance, &Mission })
    {
        bool const bFault = m_Why.sWhy.IsEmpty() && pFile->GetWhyNot().bFault;
        m_Why = bFault ? pFile->GetWhyNot() : m_Why;
    }
    if (!m_Why.sWhy.IsEmpty())
    {
        return BayReset(m_Bay);
    }
    m_Balance = BalanceRead(Settings.m_sBalance, Settings.m_sLevel);
    BalanceApply(m_Balance, m_Bay);
    MissionRead(Settings.m_sMission, m_Bay);
    StockQuays(m_Bay);
}

void ModuleWorld_c::RereadTables()
{
    if (IsEmpty())
    {
        return;
    }
    MemCategoryScope_c const Scope(mem::GameWorld);
    House_s const House = g_House;   // reading the rules overwrites its purse
    Bay_s Fresh;
    bool const bGood = BayReadTables(Fresh).sWhy.IsEmpty();
    if (bGood)
    {
        BalanceApply(m_Balance, Fresh);
        BayCopyNumbers(Fresh, m_Bay);
    }
    BayReset(Fresh);
    g_House = House;
}

void ModuleWorld_c::Shutdown()
{
    BayReset(m_Bay);
    Module_c::Shutdown();
}

void ModuleWorld_c::HeartbeatFrame(double)
{
    if (IsEmpty())
    {
        return;
    }
    BayRunHour(m_Bay);
    if (m_Bay.nHours == HOURS)   // each hour of a new game has added to the entropy pool
    {
        GetRandomBytes(reinterpret_cast<unsigned char *>(&m_Bay.dwGame), sizeof m_Bay.dwGame);
    }
}
