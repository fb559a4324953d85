// The world's tables: which files, which columns, and what makes a row acceptable.
#include "world.h"

#include "zqcore/clog.h"
#include "zqcore/cwarehouse.h"

namespace
{
    constexpr int MAX_NUMBER = 1000000;   // of any cell, so that sums stay far from their limits

    bool ReadName(Warehouse_c const & Table, char const * szColumn, Name_t & sName)
    {
        return Table.Get(szColumn, sName.GetBuffer(), Name_t::Capacity()) && !sName.IsEmpty();
    }

    bool ReadIdent(Warehouse_c const & Table, Name_t & sIdent)
    {
        return Table.GetWorkIdent(sIdent.GetBuffer(), Name_t::Capacity());
    }

    bool ReadNumber(Warehouse_c const & Table, char const * szColumn, int iLeast, int & iNumber)
    {
        return Table.Get(szColumn, iNumber) && iNumber >= iLeast && iNumber <= MAX_NUMBER;
    }

    // A cell like 12-34.
    bool ReadRange(Warehouse_c const & Table, char const * szColumn, int & iLowest, int & iHighest)
    {
        return Table.Get(szColumn, iLowest, iHighest) && iLowest >= 0 && iLowest <= iHighest && iHighest <= MAX_NUMBER;
    }

    // A cell that names an item of another table.
    template <typename ITEMS>
    bool ReadReference(Warehouse_c const & Table, char const * szColumn, ITEMS const & dItems, int & iItem)
    {
        Name_t sIdent;
        if (!ReadName(Table, szColumn, sIdent))
        {
            return false;
        }
        for (iItem = 0; iItem < dItems.GetLength(); ++iItem)
        {
            if (StrCompareNoCase(dItems[iItem].sIdent, sIdent) == 0)
            {
                return true;
            }
        }
        return false;
    }
}

void ModuleWorld_c::ReadTables()
{
    struct TableOfWorld_s
    {
        char const * szFile;
        ReadRow_t fnReadRow;
    };
    // Each table refers to those above it.
    static constexpr TableOfWorld_s TABLES[] = {
        { "goods.csv", &ModuleWorld_c::ReadGood },
        { "harbours.txt", &ModuleWorld_c::ReadHarbour },
        { "routes.txt", &ModuleWorld_c::ReadRoute },
        { "winds.csv", &ModuleWorld_c::ReadWind },
        { "ships.csv", &ModuleWorld_c::ReadShipType },
        { "rules.txt", &ModuleWorld_c::ReadRule },
        { "fleet.csv", &ModuleWorld_c::ReadShip },
    };
    for (TableOfWorld_s const & TableOfWorld : TABLES)
    {
        if (!ReadTable(TableOfWorld.szFile, TableOfWorld.fnReadRow))
        {
            m_sWhyEmpty = NewString("these media have no %s", TableOfWorld.szFile);
            Clear();
            return;
        }
    }
    if (m_dWinds.IsEmpty() || m_dShips.IsEmpty())
    {
        m_sWhyEmpty = m_dWinds.IsEmpty() ? "no wind blows" : "there is no ship";
        Clear();
    }
}

bool ModuleWorld_c::ReadTable(char const * szFile, ReadRow_t fnReadRow)
{
    Warehouse_c Table;
    if (!Table.Open(szFile))
    {
        return false;
    }
    Table.LogColName(true);
    String_T<256> sIdent;
    for (Table.StartIdent(); Table.NextIdent(sIdent);)
    {
        if (!(this->*fnReadRow)(Table))
        {
            Log("%s: row \"%s\" makes no sense and is left out", szFile, static_cast<char const *>(sIdent));
        }
    }
    return true;
}

bool ModuleWorld_c::ReadGood(Warehouse_c const & Table)
{
    Good_s Good;
    bool const bGood = m_dGoods.GetLength() < MAX_GOODS && ReadIdent(Table, Good.sIdent)
                       && ReadName(Table, "name", Good.sName) && ReadRange(Table, "price", Good.iLowest, Good.iHighest)
                       && ReadNumber(Table, "spoils", 0, Good.nSpoils) && Good.nSpoils <= 1000;
    return bGood && m_dGoods.Add(Good) >= 0;
}

bool ModuleWorld_c::ReadHarbour(Warehouse_c const & Table)
{
    Harbour_s Harbour;
    bool const bGood =
        ReadIdent(Table, Harbour.sIdent) && ReadName(Table, "name", Harbour.sName)
        && ReadReference(Table, "makes", m_dGoods, Harbour.iMakes)
        && ReadReference(Table, "wants", m_dGoods, Harbour.iWants) && ReadNumber(Table, "output", 0, Harbour.nOutput)
        && ReadNumber(Table, "appetite", 0, Harbour.nAppetite) && ReadNumber(Table, "quay", 1, Harbour.nQuay);
    return bGood && m_dHarbours.Add(Harbour) >= 0;
}

bool ModuleWorld_c::ReadRoute(Warehouse_c const & Table)
{
    Route_s Route;
    bool const bGood = ReadIdent(Table, Route.sIdent) && ReadReference(Table, "from", m_dHarbours, Route.iFrom)
                       && ReadReference(Table, "to", m_dHarbours, Route.iTo)
                       && ReadNumber(Table, "miles", 1, Route.nMiles);
    return bGood && m_dRoutes.Add(Route) >= 0;
}

bool ModuleWorld_c::ReadWind(Warehouse_c const & Table)
{
    Wind_s Wind;
    bool const bGood = m_dWinds.GetLength() < 365 && ReadIdent(Table, Wind.sIdent)
                       && ReadName(Table, "name", Wind.sName) && ReadRange(Table, "knots", Wind.iLowest, Wind.iHighest)
                       && ReadNumber(Table, "days", 1, Wind.nDays) && Wind.nDays <= 365;
    return bGood && m_dWinds.Add(Wind) >= 0;
}

bool ModuleWorld_c::ReadShipType(Warehouse_c const & Table)
{
    ShipType_s Type;
    int nMostHands = 0;
    bool const bGood =
        ReadIdent(Table, Type.sIdent) && ReadName(Table, "name", Type.sName) && ReadNumber(Table, "hold", 1, Type.nHold)
        && ReadRange(Table, "speed", Type.iSlowest, Type.iFastest) && Type.iSlowest > 0
        && ReadRange(Table, "crew", Type.nCrew, nMostHands) && ReadNumber(Table, "upkeep", 0, Type.iUpkeep);
    return bGood && m_dTypes.Add(Type) >= 0;
}

bool ModuleWorld_c::ReadShip(Warehouse_c const & Table)
{
    Ship_s Ship;
    bool const bGood = ReadIdent(Table, Ship.sIdent) && ReadName(Table, "captain", Ship.sCaptain)
                       && ReadReference(Table, "type", m_dTypes, Ship.iType)
                       && ReadReference(Table, "route", m_dRoutes, Ship.iRoute);
    Ship.nPortHours = m_nPortHours;
    return bGood && m_dShips.Add(Ship) >= 0;
}

bool ModuleWorld_c::ReadRule(Warehouse_c const & Table)
{
    Name_t sIdent;
    int iValue = 0;
    if (!ReadIdent(Table, sIdent) || !ReadNumber(Table, "value", 0, iValue))
    {
        return false;
    }
    if (sIdent == "purse")
    {
        m_iFirstPurse = iValue;
    }
    else if (sIdent == "dues")
    {
        m_nDues = iValue;
    }
    else if (sIdent == "port_hours")
    {
        m_nPortHours = iValue;
    }
    return sIdent == "purse" || sIdent == "dues" || sIdent == "port_hours";
}
