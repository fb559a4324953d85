// bay.h: the host's game, a bay where ships carry goods between harbours.
//
// The media define the goods, harbours, routes, winds and types of ships. These definitions keep their addresses while
// the game lasts, so other objects point at them. The bay holds the memory of the ships. The same media and the same
// number of hours always produce the same voyages. Only one game can exist at a time, because the house of the ships is
// static.
#pragma once

#include "heldfile.h"
#include "mission.h"

#include "zqcore/carray.h"
#include "zqcore/cstring.h"

#include <algorithm>
#include <cstdint>

class Serializeable_c;
struct Bay_s;
struct Ship_s;

/// Ident or name of anything in the media.
using Name_t = String_T<64>;

/// Items of one kind, in the order of the rows that define them.
template <typename T>
using Items_T = Array_T<T, 16, 0>;

inline constexpr int MAX_GOODS = 32;              // further rows of goods are left out
inline constexpr int HOURS = 24;                  // in a day
inline constexpr int MAX_NUMBER = 1000000;        // the largest number in the media, far from the limits of an int
inline constexpr int MAX_COUNT = 1'000'000'000;   // largest count of crates and of voyages
inline constexpr long long MAX_MARKS = 1'000'000'000'000'000;   // where purse and profit stop, below zero too
inline constexpr int MAX_SPOILS = 1000;                         // of a good: all crates of a thousand
inline constexpr char const * HARBOUR_LOG = "harbour.log";      // log file of the game's events

/// A kind of cargo. Its price is iHighest at an empty quay and iLowest at a full one.
struct Good_s
{
    Name_t sIdent, sName;
    int iNumber = 0;                 // index in dGoods
    int iLowest = 0, iHighest = 0;   // marks a crate
    int nSpoils = 0;                 // crates in a thousand that a day at sea costs
    int nTraded = 0;                 // crates landed so far
};

/// A harbour, which makes one good and uses up all others.
struct Harbour_s
{
    Name_t sIdent, sName;
    Good_s * pMakes = nullptr;
    Good_s * pWants = nullptr;
    int nOutput = 0, nAppetite = 0;   // crates a day
    int nQuay = 0;                    // crates of one good that the quay has room for
    float dStock[MAX_GOODS] = {};     // crates on the quay, by the good's number
    Ship_s * pLastCaller = nullptr;   // null before the first call
};

/// A route, which ships sail in both directions.
struct Route_s
{
    Name_t sIdent;
    Harbour_s * pFrom = nullptr;
    Harbour_s * pTo = nullptr;
    int nMiles = 0;
};

/// A wind, which blows with iLowest knots at midnight and iHighest at noon.
struct Wind_s
{
    Name_t sIdent, sName;
    int iLowest = 0, iHighest = 0;   // knots
    int nDays = 0;                   // that it blows before the next wind
};

/// Properties that all ships of a type share.
struct ShipType_s
{
    Name_t sIdent, sName;
    int nHold = 0;                    // crates
    int iSlowest = 0, iFastest = 0;   // knots in a calm and in a gale
    int nCrew = 0;
    int iUpkeep = 0;   // marks a day
};

/// A house that owns ships.
struct House_s
{
    long long iFirstPurse = 0, iPurse = 0;   // marks, at the start and at present
};

/// Activity of a ship, and the function that runs an hour of it.
struct Duty_s
{
    char const * szWhere;   // text before the name of the harbour that From returns
    void (*fnHour)(Bay_s & Bay, Ship_s & Ship);
};

/// Static objects. Ships point at them in every run.
extern House_s g_House;
extern Duty_s g_AtSea, g_InPort;

/// A ship, which sails its route back and forth.
struct Ship_s
{
    Name_t sIdent, sCaptain;
    int iNumber = 0;   // in the fleet; ships act in this order each hour
    ShipType_s * pType = nullptr;
    Route_s * pRoute = nullptr;
    House_s * pHouse = &g_House;
    Duty_s const * pDuty = &g_InPort;
    Ship_s * pMet = nullptr;   // the last ship whose news it heard, or null
    Good_s * pCargo = nullptr;
    bool bOutward = true;      // whether From returns the route's first harbour
    float fMilesLeft = 0.0f;   // at sea
    int nPortHours = 0;        // in port: until it sails
    float fCrates = 0.0f;
    int nVoyages = 0, nLanded = 0;
    long long iProfit = 0;   // marks

    /// Return the harbour that the ship lies in or last left, and the one that it goes to next.
    Harbour_s & From() const { return bOutward ? *pRoute->pFrom : *pRoute->pTo; }
    Harbour_s & To() const { return bOutward ? *pRoute->pTo : *pRoute->pFrom; }
};

/// The whole game.
struct Bay_s
{
    Items_T<Good_s> dGoods;
    Items_T<Harbour_s> dHarbours;
    Items_T<Route_s> dRoutes;
    Items_T<Wind_s> dWinds;
    Items_T<ShipType_s> dTypes;
    Items_T<Ship_s *> dShips;   // owned
    Mission_s Mission;
    int nDues = 0, nPortHours = 1;   // rules: marks for each call, hours in port
    std::uint32_t dwGame = 0;        // distinguishes games, from the end of the first day on
    int nHours = 0;                  // hours that have passed
};

/// Adds marks to a purse or a profit, up to MAX_MARKS and down to -MAX_MARKS.
inline void AddMarks(long long & iMarks, long long iMore)
{
    iMarks = std::clamp(iMarks + iMore, -MAX_MARKS, MAX_MARKS);
}

/// Returns the first item with that ident, compared without regard to case, or null.
template <typename T>
T * FindByIdent(Items_T<T> & dItems, char const * szIdent)
{
    for (T & Item : dItems)
    {
        if (StrCompareNoCase(Item.sIdent, szIdent) == 0)
        {
            return &Item;
        }
    }
    return nullptr;
}

/// Fills the bay, and the purse of g_House, from the media's tables. Logs and leaves out rows that are not acceptable.
/// Requires an empty bay. Returns why there is no game in the tables, or an empty reason on success. On failure the bay
/// and the purse may hold a part.
NoFile_t BayReadTables(Bay_s & Bay);

/// Copies the rules of one bay to another, and the names and numbers of its definitions to those of the same idents.
void BayCopyNumbers(Bay_s const & From, Bay_s & To);

/// Runs one hour of the harbours and the ships, and settles goals.
void BayRunHour(Bay_s & Bay);

/// Delete the ships. BayReset also empties the rest of the bay and the purse of g_House.
void BayFreeShips(Bay_s & Bay);
void BayReset(Bay_s & Bay);

/// Registers the static objects with the graph. Requires that no save or load has begun.
void BayRegisterStatics();

/// Stores the game, or loads it over one that was just started from the media. Returns what is wrong with the data, and
/// fails the archive then. Returns an empty text otherwise, also if the archive itself fails. After a failed load the
/// bay allows no call but BayReset.
String_T<256> BaySerialize(Serializeable_c & Archive, Bay_s & Bay);
