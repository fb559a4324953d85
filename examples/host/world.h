// world.h: the host's game, a bay where ships carry goods between harbours.
//
// The world is read from warehouse tables when the module comes up, and moves on by one hour a frame. The same tables
// and the same number of frames give the same voyages. Over media of another game the tables are missing: the world
// stays empty, which is no failure.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cmodule.h"
#include "zqcore/cstring.h"

class Warehouse_c;

using Name_t = String_T<64>;

inline constexpr int MAX_GOODS = 32;

struct Good_s
{
    Name_t sIdent, sName;
    int iLowest = 0, iHighest = 0;   // marks a crate
    int nSpoils = 0;                 // crates of a thousand that a day at sea costs
    int nTraded = 0;                 // crates landed so far
};

struct Harbour_s
{
    Name_t sIdent, sName;
    int iMakes = 0, iWants = 0;       // goods
    int nOutput = 0, nAppetite = 0;   // crates a day
    int nQuay = 0;                    // crates of one good that find room
    float dStock[MAX_GOODS] = {};     // crates on the quay
};

struct Route_s
{
    Name_t sIdent;
    int iFrom = 0, iTo = 0;   // harbours
    int nMiles = 0;
};

struct Wind_s
{
    Name_t sIdent, sName;
    int iLowest = 0, iHighest = 0;   // knots
    int nDays = 0;
};

struct ShipType_s
{
    Name_t sIdent, sName;
    int nHold = 0;                    // crates
    int iSlowest = 0, iFastest = 0;   // knots in a calm and in a gale
    int nCrew = 0;
    int iUpkeep = 0;   // marks a day
};

struct Ship_s
{
    Name_t sIdent, sCaptain;
    int iType = 0, iRoute = 0;
    bool bOutward = true;      // on the way from the route's first harbour
    float fMilesLeft = 0.0f;   // 0: in port
    int nPortHours = 0;        // until it sails
    int iCargo = 0;            // a good
    float fCrates = 0.0f;
    int nVoyages = 0, nLanded = 0;
    long long iProfit = 0;   // marks
};

class ModuleWorld_c : public Module_c
{
public:
    using Goods_t = Array_T<Good_s, 16, 0>;
    using Ships_t = Array_T<Ship_s, 16, 0>;

    ModuleWorld_c()
        : Module_c("ModuleWorld_c")
    {}

    /// The instance.
    static ModuleWorld_c * Get();

    /// Whether the media have no world, and why.
    bool IsEmpty() const { return m_dShips.IsEmpty(); }
    char const * GetWhyEmpty() const { return m_sWhyEmpty; }

    int GetHours() const { return m_nHours; }
    long long GetFirstPurse() const { return m_iFirstPurse; }
    long long GetPurse() const { return m_iPurse; }
    int GetHarbourCount() const { return m_dHarbours.GetLength(); }
    Goods_t const & GetGoods() const { return m_dGoods; }
    Ships_t const & GetShips() const { return m_dShips; }
    char const * GetTypeName(Ship_s const & Ship) const { return m_dTypes[Ship.iType].sName; }

    /// The harbour that the ship lies in or last left.
    char const * GetHarbourName(Ship_s const & Ship) const { return From(Ship).sName; }

protected:
    bool Initialize() override;
    void Shutdown() override;
    void HeartbeatFrame(double dt) override;
    Module_c ** GetPrerequisites() const override;

private:
    // worldtables.cpp. For each table there is an operation that reads its work line; false if it makes no sense.
    using ReadRow_t = bool (ModuleWorld_c::*)(Warehouse_c const & Table);
    void ReadTables();
    bool ReadTable(char const * szFile, ReadRow_t fnReadRow);
    bool ReadGood(Warehouse_c const & Table);
    bool ReadHarbour(Warehouse_c const & Table);
    bool ReadRoute(Warehouse_c const & Table);
    bool ReadWind(Warehouse_c const & Table);
    bool ReadShipType(Warehouse_c const & Table);
    bool ReadShip(Warehouse_c const & Table);
    bool ReadRule(Warehouse_c const & Table);

    void Clear();
    void StockQuays();
    int Knots() const;
    int Price(Harbour_s const & Harbour, int iGood) const;
    Harbour_s const & From(Ship_s const & Ship) const;
    Harbour_s const & To(Ship_s const & Ship) const;

    // What happens in an hour.
    void MakeAndEat(Harbour_s & Harbour);
    void Sail(Ship_s & Ship, int iKnots);
    void WaitInPort(Ship_s & Ship);
    void Land(Ship_s & Ship, Harbour_s & Harbour);
    void Load(Ship_s & Ship, Harbour_s & Harbour);
    void PayCrew(Ship_s & Ship);
    void Earn(Ship_s & Ship, long long iMarks);

    Goods_t m_dGoods;
    Array_T<Harbour_s, 16, 0> m_dHarbours;
    Array_T<Route_s, 16, 0> m_dRoutes;
    Array_T<Wind_s, 16, 0> m_dWinds;
    Array_T<ShipType_s, 16, 0> m_dTypes;
    Ships_t m_dShips;
    int m_nDues = 0, m_nPortHours = 1;   // rules: marks for each call, hours in port
    long long m_iFirstPurse = 0, m_iPurse = 0;
    int m_nHours = 0;
    String_T<64> m_sWhyEmpty;
};
