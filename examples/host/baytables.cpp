// The bay's tables: the files, the columns, and the rules for acceptable rows.
#include "bay.h"

#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"
#include "zqcore/cwarehouse.h"

namespace
{
    constexpr int DAYS_A_YEAR = 365;   // also the maximum number of winds

    // Reads a cell with a text. Returns false if there is none.
    bool ReadName(Warehouse_c const & Table, char const * szColumn, Name_t & sName)
    {
        return Table.Get(szColumn, sName) && !sName.IsEmpty();
    }

    // Reads the ident of the current row. Returns false if there is no row.
    bool ReadIdent(Warehouse_c const & Table, Name_t & sIdent)
    {
        return Table.GetWorkIdent(sIdent);
    }

    // Reads a cell with a number. Returns false if it has none from iLeast to MAX_NUMBER.
    bool ReadNumber(Warehouse_c const & Table, char const * szColumn, int iLeast, int & iNumber)
    {
        return Table.Get(szColumn, iNumber) && iNumber >= iLeast && iNumber <= MAX_NUMBER;
    }

    // Reads a cell with a range, such as 12-34. Returns false if it has no range within 0 to MAX_NUMBER.
    bool ReadRange(Warehouse_c const & Table, char const * szColumn, int & iLowest, int & iHighest)
    {
        return Table.Get(szColumn, iLowest, iHighest) && iLowest >= 0 && iLowest <= iHighest && iHighest <= MAX_NUMBER;
    }

    // Reads a cell that holds the ident of another table's item. Returns false if there is no such item.
    template <typename T>
    bool ReadReference(Warehouse_c const & Table, char const * szColumn, Items_T<T> & dItems, T *& pItem)
    {
        Name_t sIdent;
        pItem = ReadName(Table, szColumn, sIdent) ? FindByIdent(dItems, sIdent) : nullptr;
        return pItem != nullptr;
    }

    // Adds an item. Returns false if there is one with its ident, by which a save and a reload know an item.
    template <typename T>
    bool AddItem(Items_T<T> & dItems, T const & Item)
    {
        return !FindByIdent(dItems, Item.sIdent) && dItems.Add(Item) >= 0;
    }

    bool ReadGood(Bay_s & Bay, Warehouse_c const & Table)
    {
        Good_s Good;
        Good.iNumber = Bay.dGoods.GetLength();
        bool const bValid = Good.iNumber < MAX_GOODS && ReadIdent(Table, Good.sIdent)
                            && ReadName(Table, "name", Good.sName)
                            && ReadRange(Table, "price", Good.iLowest, Good.iHighest)
                            && ReadNumber(Table, "spoils", 0, Good.nSpoils) && Good.nSpoils <= MAX_SPOILS;
        return bValid && AddItem(Bay.dGoods, Good);
    }

    bool ReadHarbour(Bay_s & Bay, Warehouse_c const & Table)
    {
        Harbour_s Harbour;
        bool const bValid = ReadIdent(Table, Harbour.sIdent) && ReadName(Table, "name", Harbour.sName)
                            && ReadReference(Table, "makes", Bay.dGoods, Harbour.pMakes)
                            && ReadReference(Table, "wants", Bay.dGoods, Harbour.pWants)
                            && ReadNumber(Table, "output", 0, Harbour.nOutput)
                            && ReadNumber(Table, "appetite", 0, Harbour.nAppetite)
                            && ReadNumber(Table, "quay", 1, Harbour.nQuay);
        return bValid && AddItem(Bay.dHarbours, Harbour);
    }

    bool ReadRoute(Bay_s & Bay, Warehouse_c const & Table)
    {
        Route_s Route;
        bool const bValid = ReadIdent(Table, Route.sIdent) && ReadReference(Table, "from", Bay.dHarbours, Route.pFrom)
                            && ReadReference(Table, "to", Bay.dHarbours, Route.pTo)
                            && ReadNumber(Table, "miles", 1, Route.nMiles);
        return bValid && AddItem(Bay.dRoutes, Route);
    }

    bool ReadWind(Bay_s & Bay, Warehouse_c const & Table)
    {
        Wind_s Wind;
        bool const bValid = Bay.dWinds.GetLength() < DAYS_A_YEAR && ReadIdent(Table, Wind.sIdent)
                            && ReadName(Table, "name", Wind.sName)
                            && ReadRange(Table, "knots", Wind.iLowest, Wind.iHighest)
                            && ReadNumber(Table, "days", 1, Wind.nDays) && Wind.nDays <= DAYS_A_YEAR;
        return bValid && AddItem(Bay.dWinds, Wind);
    }

    bool ReadShipType(Bay_s & Bay, Warehouse_c const & Table)
    {
        ShipType_s Type;
        int nMostHands = 0;   // only checked: ships sail with the fewest
        bool const bValid = ReadIdent(Table, Type.sIdent) && ReadName(Table, "name", Type.sName)
                            && ReadNumber(Table, "hold", 1, Type.nHold)
                            && ReadRange(Table, "speed", Type.iSlowest, Type.iFastest) && Type.iSlowest > 0
                            && ReadRange(Table, "crew", Type.nCrew, nMostHands)
                            && ReadNumber(Table, "upkeep", 0, Type.iUpkeep);
        return bValid && AddItem(Bay.dTypes, Type);
    }

    bool ReadShip(Bay_s & Bay, Warehouse_c const & Table)
    {
        Ship_s Ship;
        bool const bValid = ReadIdent(Table, Ship.sIdent) && ReadName(Table, "captain", Ship.sCaptain)
                            && ReadReference(Table, "type", Bay.dTypes, Ship.pType)
                            && ReadReference(Table, "route", Bay.dRoutes, Ship.pRoute);
        if (!bValid)
        {
            return false;
        }
        Ship.iNumber = Bay.dShips.GetLength();
        Ship.pCargo = Ship.pRoute->pFrom->pMakes;
        Ship.nPortHours = Bay.nPortHours;
        Bay.dShips.Add(ZQ_NEW Ship_s(Ship));
        return true;
    }

    bool ReadRule(Bay_s & Bay, Warehouse_c const & Table)
    {
        Name_t sIdent;
        int iValue = 0;
        if (!ReadIdent(Table, sIdent) || !ReadNumber(Table, "value", 0, iValue))
        {
            return false;
        }
        if (sIdent == "purse")
        {
            g_House.iFirstPurse = g_House.iPurse = iValue;
        }
        else if (sIdent == "dues")
        {
            Bay.nDues = iValue;
        }
        else if (sIdent == "port_hours")
        {
            Bay.nPortHours = iValue;
        }
        else
        {
            return false;
        }
        return true;
    }

    // A table and the function that reads its current row. The function returns false if the row is not acceptable.
    struct TableOfBay_s
    {
        char const * szFile;
        bool (*fnReadRow)(Bay_s & Bay, Warehouse_c const & Table);
    };

    // Tables in load order. Each refers only to those above it.
    constexpr TableOfBay_s TABLES[] = {
        { "goods.csv", ReadGood },
        { "harbours.txt", ReadHarbour },
        { "routes.txt", ReadRoute },
        { "winds.csv", ReadWind },
        { "ships.csv", ReadShipType },
        { "rules.txt", ReadRule },
        { "fleet.csv", ReadShip },
    };

    // Calls fnCall(From, To) for each item of dFrom and the first item of dTo with its ident, if there is one.
    template <typename T, typename CALL>
    void VisitPairs(Items_T<T> const & dFrom, Items_T<T> & dTo, CALL fnCall)
    {
        for (T const & From : dFrom)
        {
            if (T * const pTo = FindByIdent(dTo, From.sIdent))
            {
                fnCall(From, *pTo);
            }
        }
    }

    // Reads a table, and logs and leaves out rows that are not acceptable. Returns why it can't be read, or an empty
    // reason.
    NoFile_t ReadTable(Bay_s & Bay, TableOfBay_s const & TableOfBay)
    {
        HeldFile_c const File(TableOfBay.szFile);
        if (!File.GetWhyNot().sWhy.IsEmpty())
        {
            return File.GetWhyNot();
        }
        Warehouse_c Table;
        if (!Table.Open(TableOfBay.szFile))
        {
            char const * const szReason = Table.GetLastError().sReason;
            return { NewString("%s is no table: %s", TableOfBay.szFile, szReason), true };
        }
        Table.LogColName(true);
        String_T<256> sIdent;
        for (Table.StartIdent(); Table.NextIdent(sIdent);)
        {
            if (!TableOfBay.fnReadRow(Bay, Table))
            {
                LogEscaped(
                    "%s: row \"%s\" makes no sense or repeats an ident, and is left out", TableOfBay.szFile, sIdent);
            }
        }
        return {};
    }
}

NoFile_t BayReadTables(Bay_s & Bay)
{
    for (TableOfBay_s const & TableOfBay : TABLES)
    {
        NoFile_t Why = ReadTable(Bay, TableOfBay);
        if (!Why.sWhy.IsEmpty())
        {
            return Why;
        }
    }
    return { Bay.dWinds.IsEmpty() ? "no wind blows" : Bay.dShips.IsEmpty() ? "there is no ship" : "" };
}

void BayCopyNumbers(Bay_s const & From, Bay_s & To)
{
    VisitPairs(From.dGoods, To.dGoods,
        [](Good_s const & New, Good_s & Good)
        {
            Good.sName = New.sName;
            Good.iLowest = New.iLowest;
            Good.iHighest = New.iHighest;
            Good.nSpoils = New.nSpoils;
        });
    VisitPairs(From.dHarbours, To.dHarbours,
        [](Harbour_s const & New, Harbour_s & Harbour)
        {
            Harbour.sName = New.sName;
            Harbour.nOutput = New.nOutput;
            Harbour.nAppetite = New.nAppetite;
            Harbour.nQuay = New.nQuay;
        });
    VisitPairs(From.dRoutes, To.dRoutes, [](Route_s const & New, Route_s & Route) { Route.nMiles = New.nMiles; });
    VisitPairs(From.dWinds, To.dWinds, [](Wind_s const & New, Wind_s & Wind) { Wind = New; });
    VisitPairs(From.dTypes, To.dTypes, [](ShipType_s const & New, ShipType_s & Type) { Type = New; });
    To.nDues = From.nDues;
    To.nPortHours = From.nPortHours;
}
