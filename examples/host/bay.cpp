// The events in the bay, hour by hour.
#include "bay.h"

#include "zqcore/clogf.h"
#include "zqcore/ctexterror.h"

#include <algorithm>

namespace
{
    constexpr int GALE = 30;                 // knots of wind above which a ship goes no faster
    constexpr float OTHER_APPETITE = 1.0f;   // crates a day of a good that a harbour neither makes nor wants

    // Adds an hour of what the harbour makes to its stock, and removes an hour of what it uses up. The stock of each
    // good stays between 0 and nQuay.
    void MakeAndEat(Bay_s const & Bay, Harbour_s & Harbour)
    {
        for (Good_s const & Good : Bay.dGoods)
        {
            float const fPerDay = &Good == Harbour.pMakes   ? static_cast<float>(Harbour.nOutput)
                                  : &Good == Harbour.pWants ? static_cast<float>(-Harbour.nAppetite)
                                                            : -OTHER_APPETITE;
            float & fStock = Harbour.dStock[Good.iNumber];
            fStock = std::clamp(fStock + fPerDay / HOURS, 0.0f, static_cast<float>(Harbour.nQuay));
        }
    }

    // Returns the wind's speed in knots. The winds follow each other in a circle. Each rises until noon and falls until
    // midnight. Requires a wind.
    int Knots(Bay_s const & Bay)
    {
        int nRound = 0;
        for (Wind_s const & Wind : Bay.dWinds)
        {
            nRound += Wind.nDays;
        }
        int iDay = Bay.nHours / HOURS % nRound;
        Wind_s const * pWind = Bay.dWinds.begin();
        for (; iDay >= pWind->nDays; ++pWind)
        {
            iDay -= pWind->nDays;
        }
        int const nFromMidnight = HOURS / 2 - std::abs(Bay.nHours % HOURS - HOURS / 2);
        return pWind->iLowest + (pWind->iHighest - pWind->iLowest) * nFromMidnight / (HOURS / 2);
    }

    // Returns the price of a crate in marks. It falls as the quay fills.
    int Price(Harbour_s const & Harbour, Good_s const & Good)
    {
        float const fFill = Harbour.dStock[Good.iNumber] / static_cast<float>(Harbour.nQuay);
        return Good.iHighest - static_cast<int>(fFill * static_cast<float>(Good.iHighest - Good.iLowest));
    }

    // Adds a number up to the largest one that a save may have. Requires that nMore is at most MAX_NUMBER.
    void Count(int & nCount, int nMore)
    {
        nCount = std::min(nCount + nMore, MAX_COUNT);
    }

    // Adds marks to the ship's profit and to its house's purse.
    void Earn(Ship_s & Ship, long long iMarks)
    {
        AddMarks(Ship.iProfit, iMarks);
        AddMarks(Ship.pHouse->iPurse, iMarks);
    }

    // Pays the harbour's dues and sells the cargo.
    void Land(Bay_s & Bay, Ship_s & Ship, Harbour_s & Harbour)
    {
        Earn(Ship, -Bay.nDues);
        int const nCrates = static_cast<int>(Ship.fCrates);
        Ship.fCrates = 0.0f;   // the rest of a crate has spoiled
        if (nCrates == 0)
        {
            return;
        }
        int const nPrice = Price(Harbour, *Ship.pCargo);
        float & fStock = Harbour.dStock[Ship.pCargo->iNumber];
        fStock = std::min(fStock + static_cast<float>(nCrates), static_cast<float>(Harbour.nQuay));
        Count(Ship.pCargo->nTraded, nCrates);
        Count(Ship.nLanded, nCrates);
        Earn(Ship, static_cast<long long>(nCrates) * nPrice);
        Logf(HARBOUR_LOG, "day %3i, %02i:00  %s lands %i crates of %s at %s for %i marks each", Bay.nHours / HOURS,
            Bay.nHours % HOURS, TextForLog(Ship.sIdent), nCrates, TextForLog(Ship.pCargo->sName),
            TextForLog(Harbour.sName), nPrice);
    }

    // Buys what the harbour makes if it is worth more at the ship's destination, as far as hold, stock and purse allow.
    void Load(Ship_s & Ship, Harbour_s & Harbour)
    {
        Ship.pCargo = Harbour.pMakes;
        int const nPrice = Price(Harbour, *Ship.pCargo);
        if (Price(Ship.To(), *Ship.pCargo) <= nPrice || Ship.pHouse->iPurse < nPrice)
        {
            return;
        }
        float & fStock = Harbour.dStock[Ship.pCargo->iNumber];
        long long const nAffordable = nPrice > 0 ? Ship.pHouse->iPurse / nPrice : Ship.pType->nHold;
        auto const nCrates =
            static_cast<int>(std::min<long long>(nAffordable, std::min(Ship.pType->nHold, static_cast<int>(fStock))));
        fStock -= static_cast<float>(nCrates);
        Ship.fCrates = static_cast<float>(nCrates);
        Earn(Ship, -static_cast<long long>(nCrates) * nPrice);
    }

    // Exchanges news with the ship that called here before, unless it is the same one.
    void Meet(Ship_s & Ship, Harbour_s & Harbour)
    {
        if (Harbour.pLastCaller && Harbour.pLastCaller != &Ship)
        {
            Ship.pMet = Harbour.pLastCaller;
            Ship.pMet->pMet = &Ship;
        }
        Harbour.pLastCaller = &Ship;
    }

    // Runs an hour at sea. A ship that arrives is in port afterwards.
    void Sail(Bay_s & Bay, Ship_s & Ship)
    {
        ShipType_s const & Type = *Ship.pType;
        int const nSpeed = Type.iSlowest + (Type.iFastest - Type.iSlowest) * std::min(Knots(Bay), GALE) / GALE;
        Ship.fMilesLeft -= static_cast<float>(nSpeed);
        Ship.fCrates -=
            Ship.fCrates * static_cast<float>(Ship.pCargo->nSpoils) / (static_cast<float>(MAX_SPOILS) * HOURS);
        if (Ship.fMilesLeft <= 0.0f)
        {
            Ship.pDuty = &g_InPort;
            Ship.nPortHours = Bay.nPortHours;
            Ship.bOutward = !Ship.bOutward;
            Count(Ship.nVoyages, 1);
            Land(Bay, Ship, Ship.From());
            Meet(Ship, Ship.From());
        }
    }

    // Runs an hour in port. After the last one the ship loads and goes to sea.
    void WaitInPort(Bay_s &, Ship_s & Ship)
    {
        if (--Ship.nPortHours <= 0)
        {
            Load(Ship, Ship.From());
            Ship.fMilesLeft = static_cast<float>(Ship.pRoute->nMiles);
            Ship.pDuty = &g_AtSea;
        }
    }

    // Pays the ship's upkeep, and one mark to each hand.
    void PayCrew(Ship_s & Ship)
    {
        Earn(Ship, -static_cast<long long>(Ship.pType->iUpkeep + Ship.pType->nCrew));
    }
}

House_s g_House;
Duty_s g_AtSea = { "out of", Sail };
Duty_s g_InPort = { "in", WaitInPort };

void BayRunHour(Bay_s & Bay)
{
    for (Harbour_s & Harbour : Bay.dHarbours)
    {
        MakeAndEat(Bay, Harbour);
    }
    for (Ship_s * const pShip : Bay.dShips)
    {
        pShip->pDuty->fnHour(Bay, *pShip);
        if (Bay.nHours % HOURS == 0)
        {
            PayCrew(*pShip);
        }
    }
    ++Bay.nHours;
    MissionCheck(Bay);
}

void BayFreeShips(Bay_s & Bay)
{
    for (Ship_s * const pShip : Bay.dShips)
    {
        delete pShip;
    }
    Bay.dShips.Reset();
    for (Harbour_s & Harbour : Bay.dHarbours)
    {
        Harbour.pLastCaller = nullptr;
    }
}

void BayReset(Bay_s & Bay)
{
    BayFreeShips(Bay);
    Bay.dGoods.Reset();
    Bay.dHarbours.Reset();
    Bay.dRoutes.Reset();
    Bay.dWinds.Reset();
    Bay.dTypes.Reset();
    Bay.Mission.dGoals.Reset();
    Bay.Mission.sTitle = "";
    Bay.nDues = 0;
    Bay.nPortHours = 1;
    Bay.dwGame = 0;
    Bay.nHours = 0;
    g_House = House_s();
}
