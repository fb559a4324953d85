#include "world.h"

#include "zqcore/cfilemedia.h"
#include "zqcore/clogf.h"

#include <algorithm>

namespace
{
    constexpr int HOURS = 24;                // in a day
    constexpr int GALE = 30;                 // knots of wind from which a ship goes no faster
    constexpr float OTHER_APPETITE = 1.0f;   // crates a day of a good that a harbour neither makes nor wants
    constexpr char const * LOG = "harbour.log";

    ModuleWorld_c g_ModuleWorld;
}

ModuleWorld_c * ModuleWorld_c::Get()
{
    return &g_ModuleWorld;
}

Module_c ** ModuleWorld_c::GetPrerequisites() const
{
    static Module_c * s_dPrerequisites[] = { ModuleFile_c::Get(), nullptr };
    return s_dPrerequisites;
}

bool ModuleWorld_c::Initialize()
{
    MemCategoryScope_c const Scope(mem::GameWorld);
    ReadTables();
    StockQuays();
    m_iPurse = m_iFirstPurse;
    return Module_c::Initialize();
}

void ModuleWorld_c::Shutdown()
{
    Clear();
    Module_c::Shutdown();
}

void ModuleWorld_c::Clear()
{
    m_dGoods.Reset();
    m_dHarbours.Reset();
    m_dRoutes.Reset();
    m_dWinds.Reset();
    m_dTypes.Reset();
    m_dShips.Reset();
}

void ModuleWorld_c::StockQuays()
{
    for (Harbour_s & Harbour : m_dHarbours)
    {
        auto const fQuay = static_cast<float>(Harbour.nQuay);
        std::fill_n(Harbour.dStock, m_dGoods.GetLength(), fQuay / 8.0f);
        Harbour.dStock[Harbour.iMakes] = fQuay / 2.0f;
    }
}

// An hour.
void ModuleWorld_c::HeartbeatFrame(double)
{
    if (IsEmpty())
    {
        return;
    }
    int const iKnots = Knots();
    for (Harbour_s & Harbour : m_dHarbours)
    {
        MakeAndEat(Harbour);
    }
    for (Ship_s & Ship : m_dShips)
    {
        Ship.fMilesLeft > 0.0f ? Sail(Ship, iKnots) : WaitInPort(Ship);
        if (m_nHours % HOURS == 0)
        {
            PayCrew(Ship);
        }
    }
    ++m_nHours;
}

// The wind of this hour: the winds follow each other, round and round, and each rises to noon and falls to midnight.
int ModuleWorld_c::Knots() const
{
    int nRound = 0;
    for (Wind_s const & Wind : m_dWinds)
    {
        nRound += Wind.nDays;
    }
    int iDay = m_nHours / HOURS % nRound;
    Wind_s const * pWind = m_dWinds.begin();
    for (; iDay >= pWind->nDays; ++pWind)
    {
        iDay -= pWind->nDays;
    }
    int const iFromMidnight = HOURS / 2 - std::abs(m_nHours % HOURS - HOURS / 2);
    return pWind->iLowest + (pWind->iHighest - pWind->iLowest) * iFromMidnight / (HOURS / 2);
}

void ModuleWorld_c::MakeAndEat(Harbour_s & Harbour)
{
    for (int iGood = 0; iGood < m_dGoods.GetLength(); ++iGood)
    {
        float const fDay = iGood == Harbour.iMakes   ? static_cast<float>(Harbour.nOutput)
                           : iGood == Harbour.iWants ? static_cast<float>(-Harbour.nAppetite)
                                                     : -OTHER_APPETITE;
        float & fStock = Harbour.dStock[iGood];
        fStock = std::clamp(fStock + fDay / HOURS, 0.0f, static_cast<float>(Harbour.nQuay));
    }
}

// The fuller the quay, the lower the price.
int ModuleWorld_c::Price(Harbour_s const & Harbour, int iGood) const
{
    Good_s const & Good = m_dGoods[iGood];
    float const fFill = Harbour.dStock[iGood] / static_cast<float>(Harbour.nQuay);
    return Good.iHighest - static_cast<int>(fFill * static_cast<float>(Good.iHighest - Good.iLowest));
}

Harbour_s const & ModuleWorld_c::From(Ship_s const & Ship) const
{
    Route_s const & Route = m_dRoutes[Ship.iRoute];
    return m_dHarbours[Ship.bOutward ? Route.iFrom : Route.iTo];
}

Harbour_s const & ModuleWorld_c::To(Ship_s const & Ship) const
{
    Route_s const & Route = m_dRoutes[Ship.iRoute];
    return m_dHarbours[Ship.bOutward ? Route.iTo : Route.iFrom];
}

void ModuleWorld_c::Sail(Ship_s & Ship, int iKnots)
{
    ShipType_s const & Type = m_dTypes[Ship.iType];
    int const iSpeed = Type.iSlowest + (Type.iFastest - Type.iSlowest) * std::min(iKnots, GALE) / GALE;
    Ship.fMilesLeft -= static_cast<float>(iSpeed);
    Ship.fCrates -= Ship.fCrates * static_cast<float>(m_dGoods[Ship.iCargo].nSpoils) / (1000.0f * HOURS);
    if (Ship.fMilesLeft <= 0.0f)
    {
        Ship.fMilesLeft = 0.0f;
        Ship.nPortHours = m_nPortHours;
        Ship.bOutward = !Ship.bOutward;
        ++Ship.nVoyages;
        Route_s const & Route = m_dRoutes[Ship.iRoute];
        Land(Ship, m_dHarbours[Ship.bOutward ? Route.iFrom : Route.iTo]);
    }
}

void ModuleWorld_c::WaitInPort(Ship_s & Ship)
{
    if (--Ship.nPortHours > 0)
    {
        return;
    }
    Route_s const & Route = m_dRoutes[Ship.iRoute];
    Load(Ship, m_dHarbours[Ship.bOutward ? Route.iFrom : Route.iTo]);
    Ship.fMilesLeft = static_cast<float>(Route.nMiles);
}

void ModuleWorld_c::Land(Ship_s & Ship, Harbour_s & Harbour)
{
    Earn(Ship, -m_nDues);
    int const nCrates = static_cast<int>(Ship.fCrates);
    if (nCrates == 0)
    {
        return;
    }
    int const iPrice = Price(Harbour, Ship.iCargo);
    Good_s & Good = m_dGoods[Ship.iCargo];
    float & fStock = Harbour.dStock[Ship.iCargo];
    fStock = std::min(fStock + static_cast<float>(nCrates), static_cast<float>(Harbour.nQuay));
    Good.nTraded += nCrates;
    Ship.nLanded += nCrates;
    Ship.fCrates = 0.0f;
    Earn(Ship, static_cast<long long>(nCrates) * iPrice);
    Logf(LOG, "day %3i, %02i:00  %s lands %i crates of %s at %s for %i marks each", m_nHours / HOURS, m_nHours % HOURS,
        static_cast<char const *>(Ship.sIdent), nCrates, static_cast<char const *>(Good.sName),
        static_cast<char const *>(Harbour.sName), iPrice);
}

// Buys what the harbour makes, if it is worth more where the ship goes.
void ModuleWorld_c::Load(Ship_s & Ship, Harbour_s & Harbour)
{
    Ship.iCargo = Harbour.iMakes;
    int const iPrice = Price(Harbour, Ship.iCargo);
    if (Price(To(Ship), Ship.iCargo) <= iPrice || m_iPurse < iPrice)
    {
        return;
    }
    long long const nAffordable = m_iPurse / std::max(iPrice, 1);
    int const nOnQuay = static_cast<int>(Harbour.dStock[Ship.iCargo]);
    auto const nCrates =
        static_cast<int>(std::min<long long>(nAffordable, std::min(m_dTypes[Ship.iType].nHold, nOnQuay)));
    Harbour.dStock[Ship.iCargo] -= static_cast<float>(nCrates);
    Ship.fCrates = static_cast<float>(nCrates);
    Earn(Ship, -static_cast<long long>(nCrates) * iPrice);
}

void ModuleWorld_c::PayCrew(Ship_s & Ship)
{
    ShipType_s const & Type = m_dTypes[Ship.iType];
    Earn(Ship, -static_cast<long long>(Type.iUpkeep + Type.nCrew));   // a mark a hand
}

void ModuleWorld_c::Earn(Ship_s & Ship, long long iMarks)
{
    Ship.iProfit += iMarks;
    m_iPurse += iMarks;
}
