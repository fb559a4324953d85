#include "zqcore/cserializer.h"

#include "tests/archive_support.h"
#include "tests/test_support.h"

#include "zqcore/cserializecheck.h"
#include "zqcore/cserializestd.h"

#include <algorithm>
#include <memory>

namespace
{
    // A hierarchy in which a pointer to a base may differ from the object's address, and Owner_s, which has no virtual
    // functions.
    class Shape_c
    {
    public:
        virtual ~Shape_c() = default;
        virtual void Serialize(Serializeable_c & Archive) = 0;
        virtual Serializer_c & GetSerializer() const = 0;
    };

    struct Owner_s
    {
        std::string sName;
        std::vector<Shape_c *> dShapes;
        Owner_s * pNext = nullptr;
        void Serialize(Serializeable_c & Archive) { Archive.Serialize(sName).Serialize(dShapes).Serialize(pNext); }
    };

    class Lit_c
    {
    public:
        virtual ~Lit_c() = default;
        virtual Serializer_c & GetSerializer() const = 0;
        int m_iLight = 0;
    };

    class Ball_c : public Shape_c
    {
    public:
        void Serialize(Serializeable_c & Archive) override { Archive.Serialize(m_iRadius).Serialize(m_pOwner); }
        Serializer_c & GetSerializer() const override;
        int m_iRadius = 0;
        Owner_s const * m_pOwner = nullptr;
    };

    class Lamp_c final : public Lit_c, public Ball_c
    {
    public:
        void Serialize(Serializeable_c & Archive) override
        {
            Ball_c::Serialize(Archive);
            Archive.Serialize(m_iLight).Serialize(m_pTwin);
        }
        Serializer_c & GetSerializer() const override;
        Lit_c * m_pTwin = nullptr;
    };

    // Serializer that keeps what loads make.
    template <typename T, typename... BASES>
    class Kept_T : public Serializer_T<T, BASES...>
    {
    public:
        using Serializer_T<T, BASES...>::Serializer_T;
        std::vector<std::unique_ptr<T>> m_dMade;

    protected:
        T * Make() override { return m_dMade.emplace_back(std::make_unique<T>()).get(); }
    };

    // One serializer for each class that has objects, while a test runs.
    struct Classes_s
    {
        Kept_T<Owner_s> Owners{ "Owner" };
        Kept_T<Ball_c, Shape_c> Balls{ "Ball" };
        Kept_T<Lamp_c, Shape_c, Ball_c, Lit_c> Lamps{ "Lamp" };
        Classes_s() { s_pNow = this; }
        static inline Classes_s * s_pNow = nullptr;
    };
    Serializer_c & Ball_c::GetSerializer() const
    {
        return Classes_s::s_pNow->Balls;
    }
    Serializer_c & Lamp_c::GetSerializer() const
    {
        return Classes_s::s_pNow->Lamps;
    }

    template <typename T>
    std::string SavedGraph(T * pRoot)
    {
        return Stored(1,
            [&](Serializeable_c & Archive)
            {
                Serializer_c::StartSerialize(Archive, false);
                Archive.Serialize(pRoot);
            });
    }

    template <typename T>
    ArchiveResult_t LoadGraph(std::string const & sBytes, T *& pRoot)
    {
        return ArchiveCheck(std::as_bytes(std::span(sBytes)), 1,
            [&](Serializeable_c & Archive)
            {
                Serializer_c::StartSerialize(Archive, false);
                Archive.Serialize(pRoot);
            });
    }

    // Returns whether a pointer leads to an object that a serializer made, or nowhere.
    bool Leads(auto const * pObject, auto const & Serializer)
    {
        return !pObject || std::ranges::any_of(Serializer.m_dMade, [&](auto const & p) { return p.get() == pObject; });
    }

    // A graph that reaches its lamp by pointers to two of the lamp's bases.
    struct Graph_s
    {
        Owner_s Owner{ "me", { &Ball, &Lamp, nullptr, &Ball }, &Owner };
        Ball_c Ball;
        Lamp_c Lamp;
        Graph_s()
        {
            Ball.m_iRadius = 3;
            Ball.m_pOwner = &Owner;
            Lamp.m_iRadius = 4;
            Lamp.m_iLight = 5;
            Lamp.m_pTwin = &Lamp;
        }
    };
}

TEST(SerializerTyped, ObjectsComeBackByTheirDynamicType)
{
    Classes_s Classes;
    Graph_s Graph;
    Owner_s * pOwner = nullptr;
    ASSERT_TRUE(LoadGraph(SavedGraph(&Graph.Owner), pOwner).IsSound());
    ASSERT_EQ(std::tuple(Classes.Owners.m_dMade.size(), Classes.Balls.m_dMade.size(), Classes.Lamps.m_dMade.size()),
        std::tuple(1u, 1u, 1u));
    Ball_c & Ball = *Classes.Balls.m_dMade[0];
    Lamp_c & Lamp = *Classes.Lamps.m_dMade[0];
    EXPECT_EACH(pOwner == Classes.Owners.m_dMade[0].get(), pOwner->pNext == pOwner, Ball.m_pOwner == pOwner);
    EXPECT_EQ(pOwner->dShapes, std::vector<Shape_c *>({ &Ball, &Lamp, nullptr, &Ball }));
    EXPECT_EQ(std::tuple(pOwner->sName, Ball.m_iRadius, Lamp.m_iRadius, Lamp.m_iLight, Lamp.m_pTwin),
        std::tuple("me", 3, 4, 5, static_cast<Lit_c *>(&Lamp)));
    Lit_c * pLit = nullptr;
    EXPECT_TRUE(LoadGraph(SavedGraph(static_cast<Lit_c *>(&Graph.Lamp)), pLit).IsSound());
    EXPECT_EQ(pLit, Classes.Lamps.m_dMade.back().get());
}

// Changes each byte after the version in three ways, and exchanges every two words. Every pointer then leads to an
// object of its type or nowhere.
TEST(SerializerTyped, DamageNeverMakesAPointerOfAnotherType)
{
    Classes_s Classes;
    Graph_s Graph;
    std::string const sWhole = SavedGraph(&Graph.Owner);
    int nSound = 0;
    auto const ExpectTypedPointers = [&](std::string const & sBytes)
    {
        Classes.Owners.m_dMade.clear();
        Classes.Balls.m_dMade.clear();
        Classes.Lamps.m_dMade.clear();
        Owner_s * pRoot = nullptr;
        EXPECT_EQ(FailedConditions([&] { nSound += LoadGraph(sBytes, pRoot).IsSound(); }), "");
        for (auto const & pBall : Classes.Balls.m_dMade)
        {
            EXPECT_TRUE(Leads(pBall->m_pOwner, Classes.Owners));
        }
        for (auto const & pLamp : Classes.Lamps.m_dMade)
        {
            EXPECT_EACH(Leads(pLamp->m_pOwner, Classes.Owners), Leads(pLamp->m_pTwin, Classes.Lamps));
        }
        for (auto const & pOwner : Classes.Owners.m_dMade)
        {
            auto const IsShape = [&](Shape_c * p) { return Leads(p, Classes.Balls) || Leads(p, Classes.Lamps); };
            EXPECT_EACH(Leads(pOwner->pNext, Classes.Owners), std::ranges::all_of(pOwner->dShapes, IsShape));
        }
    };
    for (std::size_t i = 4; i < sWhole.size(); ++i)
    {
        SCOPED_TRACE(i);
        for (int const iFlip : { 0x01, 0x80, 0x07 })
        {
            ExpectTypedPointers(std::string(sWhole).replace(i, 1, 1, static_cast<char>(sWhole[i] ^ iFlip)));
        }
        for (std::size_t j = 4; j + 4 <= sWhole.size() && i + 4 <= sWhole.size(); ++j)
        {
            ExpectTypedPointers(std::string(sWhole).replace(i, 4, sWhole, j, 4).replace(j, 4, sWhole, i, 4));
        }
    }
    EXPECT_GT(nSound, 0);
}

TEST(SerializerTyped, WhatHasNoSerializerOrAnotherClassIsRefused)
{
    Graph_s Graph;
    Owner_s Loner;
    EXPECT_THAT(FailedConditions([&] { EXPECT_EQ(SavedGraph(&Loner), ""); }),
        testing::StartsWith("a Serializer_T has this class and names this base"));
    Classes_s Classes;
    struct Bare_c : Ball_c   // lacks its own GetSerializer
    {
    } Bare;
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(SavedGraph(static_cast<Shape_c *>(&Bare)), ""); }),
        "the object's class overrides GetSerializer");
    Owner_s * pOwner = nullptr;
    std::string const sBall = SavedGraph(static_cast<Shape_c *>(&Graph.Ball));
    ArchiveResult_t const Result = LoadGraph(sBall, pOwner);
    EXPECT_EQ(std::tuple(pOwner, std::string(Result.sWhyNot), Classes.Balls.m_dMade.size()),
        std::tuple(nullptr, std::string("an object of class 'Ball'"), 0u));
    Kept_T<Lamp_c> const Baseless("Lamp");   // loads lamps from now on, and names no base
    Shape_c * pShape = nullptr;
    EXPECT_STREQ(LoadGraph(sBall, pShape).sWhyNot, "an object of class 'Lamp'");
    struct Street_s   // its first owner lies at its address
    {
        Owner_s First;
        Owner_s * pFirst = &First;
        void Serialize(Serializeable_c & Archive) { Archive.Serialize(pFirst); }
    } Street;
    Kept_T<Street_s> const Streets("Street");
    EXPECT_THAT(FailedConditions([&] { SavedGraph(&Street); }),
        testing::StartsWith("dPointers[iPointer] is of class m_sClassName, 'Owner' expected for"));
}

TEST(SerializerTyped, StaticObjectsAndPartsAreKnown)
{
    Classes_s Classes;
    Owner_s House{ "house", {}, nullptr }, Root{ "root", {}, &House }, *pRoot = &Root;
    Owner_s Saved, Part, *pPart = &Saved;
    Serializer_c::ResetCache();
    Classes.Owners.RegisterStatic(House);
    auto const Pass = [&](Serializeable_c & Archive)
    {
        Serializer_c::StartSerialize(Archive, true);
        Classes.Owners.RegisterPart(Archive, Archive.IsReading() ? Part : Saved);
        Archive.Serialize(pRoot).Serialize(pPart);
    };
    std::string const sBytes = Stored(1, Pass);
    House.sName = "";
    EXPECT_EACH(
        LoadArchive(sBytes, 1, Pass), pPart == &Part, pRoot != &Root, pRoot->pNext == &House, House.sName == "house");
    EXPECT_EQ(Classes.Owners.m_dMade.size(), 1u) << "the static object and the part are not made";
    struct StaticPointers_s : Serializer_c
    {
        using Serializer_c::dRegisteredStaticPointers;
    };
    Owner_s Shed;   // of a newer program
    Classes.Owners.RegisterStatic(Shed);
    EXPECT_TRUE(LoadArchive(sBytes, 1, Pass));
    EXPECT_EQ(StaticPointers_s::dRegisteredStaticPointers.GetLength(), 1) << "cut to the file's number";
    Classes.Owners.RegisterStatic(Shed);
    EXPECT_EQ(StaticPointers_s::dRegisteredStaticPointers.GetLength(), 2);
    EXPECT_EQ(StaticPointers_s::dRegisteredStaticPointers[1].pPointer, &Shed);
    StaticPointers_s::dRegisteredStaticPointers.Reset();   // House ends here
}
