// The game as a graph of objects in an archive.
//
// A ship is stored whole. A definition from the media is stored as its ident, by which a load finds it, and the values
// that the game has changed.
#include "bay.h"
#include "graph.h"
#include "mission.h"

#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"

namespace
{
    Bay_s * g_pBay = nullptr;     // the bay of the present pass
    String_T<256> g_sWhyFailed;   // the first error in the data

    // Stores the reason and fails the archive, unless it has failed before.
    void Refuse(Serializeable_c & Archive, char const * szWhy)
    {
        if (!Archive.IsFailed())
        {
            g_sWhyFailed = szWhy;
            Archive.Fail();
        }
    }

    // Refuses a loaded number below -Most or above Most, and one that is not a number.
    template <typename T>
    void Limit(Serializeable_c & Archive, T Number, T Most)
    {
        if (Archive.IsReading() && !(Number >= -Most && Number <= Most))
        {
            Refuse(Archive, "a number is out of range");
        }
    }

    // Serializer of definitions, which a load finds by their ident.
    template <typename T>
    class Definitions_T : public Graph_T<T>
    {
    public:
        Definitions_T(char const * szClass, Items_T<T> Bay_s::*pItems)
            : Graph_T<T>(szClass)
            , m_pItems(pItems)
        {}

    protected:
        T * Obtain(Serializeable_c & Archive, char const * szIdent) override
        {
            T * const pItem = FindByIdent(g_pBay->*m_pItems, szIdent);
            if (!pItem)
            {
                Refuse(
                    Archive, Va("the media have no %s \"%s\"", static_cast<char const *>(this->m_sClassName), szIdent));
            }
            return pItem;
        }

        void SerializeFields(Serializeable_c & Archive, T & Item) override;

    private:
        Items_T<T> Bay_s::*m_pItems;
    };

    // Serializer of ships, which a load creates.
    class Ships_c : public Graph_T<Ship_s>
    {
    public:
        Ships_c()
            : Graph_T<Ship_s>("Ship")
        {}

    protected:
        Ship_s * Obtain(Serializeable_c &, char const * szIdent) override
        {
            Ship_s * const pShip = ZQ_NEW Ship_s;
            pShip->sIdent = szIdent;
            g_pBay->dShips.Add(pShip);
            return pShip;
        }

        void SerializeFields(Serializeable_c & Archive, Ship_s & Ship) override;
    };

    // Serializer of the house, which is static: only its two purses are stored.
    class Houses_c : public Serializer_c
    {
    public:
        Houses_c()
            : Serializer_c("House")
        {}

        static void Register() { RegisterSerializedStaticPointer(&g_House, "House"); }

        // Serializes a pointer to a static object.
        template <typename T>
        static void SerializeStatic(Serializeable_c & Archive, T *& pStatic)
        {
            void const * pObject = pStatic;
            FixupVoidPointer(Archive, pObject);
            pStatic = static_cast<T *>(const_cast<void *>(pObject));
        }

    protected:
        void SerializeObject(Serializeable_c & Archive, void *& pObject) override
        {
            House_s & House = *static_cast<House_s *>(pObject);
            Archive.Serialize(House.iFirstPurse).Serialize(House.iPurse);
            Limit(Archive, House.iFirstPurse, MAX_MARKS);
            Limit(Archive, House.iPurse, MAX_MARKS);
        }
    };

    template <typename T>
    void Definitions_T<T>::SerializeFields(Serializeable_c &, T &)
    {}   // nothing of a route or a type changes

    // Goods and harbours change. The bodies of these functions follow the objects that they use.
    template <>
    void Definitions_T<Good_s>::SerializeFields(Serializeable_c & Archive, Good_s & Good);
    template <>
    void Definitions_T<Harbour_s>::SerializeFields(Serializeable_c & Archive, Harbour_s & Harbour);

    Definitions_T<Good_s> g_Goods("Good", &Bay_s::dGoods);
    Definitions_T<Harbour_s> g_Harbours("Harbour", &Bay_s::dHarbours);
    Definitions_T<Route_s> g_Routes("Route", &Bay_s::dRoutes);
    Definitions_T<ShipType_s> g_Types("ShipType", &Bay_s::dTypes);
    Ships_c g_Ships;
    Houses_c g_Houses;

    // Serializes a count, and that many items by fnOne with their index.
    template <typename ONE>
    void SerializeMany(Serializeable_c & Archive, int nItems, ONE fnOne)
    {
        Archive.Serialize(nItems);
        for (int i = 0; i < nItems && !Archive.IsFailed(); ++i)
        {
            fnOne(i);
        }
    }

    template <typename T>
    void SerializeDefinitions(Serializeable_c & Archive, Graph_T<T> & Graph, Items_T<T> & dItems)
    {
        SerializeMany(Archive, dItems.GetLength(),
            [&](int i)
            {
                T * pItem = Archive.IsReading() ? nullptr : &dItems[i];
                Graph.Serialize(Archive, pItem);
            });
    }

    void SerializeFlag(Serializeable_c & Archive, bool & bFlag)
    {
        int iFlag = bFlag;
        Archive.Serialize(iFlag);
        bFlag = iFlag != 0;
    }

    template <>
    void Definitions_T<Good_s>::SerializeFields(Serializeable_c & Archive, Good_s & Good)
    {
        Archive.Serialize(Good.nTraded);
        Limit(Archive, Good.nTraded, MAX_COUNT);
    }

    template <>
    void Definitions_T<Harbour_s>::SerializeFields(Serializeable_c & Archive, Harbour_s & Harbour)
    {
        g_Ships.Serialize(Archive, Harbour.pLastCaller);
        SerializeMany(Archive, g_pBay->dGoods.GetLength(),
            [&](int i)
            {
                Good_s * pGood = Archive.IsReading() ? nullptr : &g_pBay->dGoods[i];
                g_Goods.Serialize(Archive, pGood);
                float fNothing = 0.0f;
                float & fStock = pGood ? Harbour.dStock[pGood->iNumber] : fNothing;
                Archive.Serialize(fStock);
                Limit<float>(Archive, fStock, MAX_NUMBER);
            });
    }

    void Ships_c::SerializeFields(Serializeable_c & Archive, Ship_s & Ship)
    {
        Archive.SerializeString(Ship.sCaptain);
        Archive.Serialize(Ship.iNumber).Serialize(Ship.nPortHours).Serialize(Ship.nVoyages).Serialize(Ship.nLanded);
        Archive.Serialize(Ship.fMilesLeft).Serialize(Ship.fCrates).Serialize(Ship.iProfit);
        SerializeFlag(Archive, Ship.bOutward);
        Houses_c::SerializeStatic(Archive, Ship.pHouse);
        Houses_c::SerializeStatic(Archive, Ship.pDuty);
        g_Types.Serialize(Archive, Ship.pType);
        g_Routes.Serialize(Archive, Ship.pRoute);
        g_Goods.Serialize(Archive, Ship.pCargo);
        g_Ships.Serialize(Archive, Ship.pMet);
        Limit(Archive, Ship.nPortHours, MAX_NUMBER);
        Limit(Archive, Ship.nVoyages, MAX_COUNT);
        Limit(Archive, Ship.nLanded, MAX_COUNT);
        Limit<float>(Archive, Ship.fMilesLeft, MAX_NUMBER);
        Limit<float>(Archive, Ship.fCrates, MAX_NUMBER);
        Limit(Archive, Ship.iProfit, MAX_MARKS);
        bool const bDuty = Ship.pDuty == &g_AtSea || Ship.pDuty == &g_InPort;
        if (!bDuty || Ship.pHouse != &g_House || !Ship.pType || !Ship.pRoute || !Ship.pCargo)
        {
            Refuse(Archive, "a ship has no duty, house, type, route or cargo");
        }
    }

    void SerializeMission(Serializeable_c & Archive, Mission_s & Mission)
    {
        Archive.SerializeString(Mission.sTitle);
        Items_T<Goal_s> & dGoals = Mission.dGoals;
        int const nGoals = dGoals.GetLength();
        if (Archive.IsReading())
        {
            dGoals.Reset();
        }
        SerializeMany(Archive, nGoals,
            [&](int i)
            {
                Goal_s & Goal = dGoals[Archive.IsReading() ? dGoals.Add(Goal_s()) : i];
                g_Goods.Serialize(Archive, Goal.pGood);
                Archive.Serialize(Goal.nCrates).Serialize(Goal.nDays).Serialize(Goal.iPay).Serialize(Goal.eState);
                if (!MissionGoalIsSound(Goal))
                {
                    Refuse(Archive, "a goal has no good, no state or a wrong number");
                }
            });
    }
}

void BayRegisterStatics()
{
    Houses_c::Register();
    Serializer_c::RegisterStaticPointer(&g_AtSea);
    Serializer_c::RegisterStaticPointer(&g_InPort);
}

String_T<256> BaySerialize(Serializeable_c & Archive, Bay_s & Bay)
{
    g_pBay = &Bay;
    g_sWhyFailed = "";
    int const nShips = Bay.dShips.GetLength();
    if (Archive.IsReading())
    {
        BayFreeShips(Bay);
    }
    Serializer_c::StartSerialize(Archive, true);
    Archive.Serialize(Bay.dwGame).Serialize(Bay.nHours);
    SerializeMany(Archive, nShips,
        [&](int i)
        {
            Ship_s * pShip = Archive.IsReading() ? nullptr : Bay.dShips[i];
            g_Ships.Serialize(Archive, pShip);
        });
    SerializeDefinitions(Archive, g_Harbours, Bay.dHarbours);
    SerializeDefinitions(Archive, g_Goods, Bay.dGoods);
    SerializeMission(Archive, Bay.Mission);
    // The graph creates ships as it reaches them. A positive result puts the first argument before the second.
    Bay.dShips.Sort([](Ship_s const * pA, Ship_s const * pB)
        { return (pA->iNumber < pB->iNumber) - (pA->iNumber > pB->iNumber); },
        0, -1);
    if (Bay.dShips.IsEmpty() || Bay.nHours < 0 || Bay.nHours > MAX_COUNT)
    {
        Refuse(Archive, "it holds no game");
    }
    return g_sWhyFailed;
}
