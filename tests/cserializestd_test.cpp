#include "zqcore/cserializestd.h"

#include "tests/archive_support.h"
#include "tests/memory_support.h"
#include "tests/test_support.h"

#include <deque>
#include <list>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace game
{
    enum class Rank_e : std::int8_t
    {
        None,
        King = -2
    };

    struct Item_s
    {
        std::string sName;
        bool bWorn = false;
        void Serialize(Serializeable_c & Archive) { Archive.Serialize(sName).Serialize(bWorn); }
        auto operator<=>(Item_s const &) const = default;
    };

    struct Place_s
    {
        std::int16_t dCell[2][2] = {};
        bool operator==(Place_s const &) const = default;
    };
    void Serialize(Serializeable_c & Archive, Place_s & Place)
    {
        Archive.Serialize(Place.dCell);
    }
}

namespace
{
    // The values that docs/formats.md dumps.
    struct Types_s
    {
        bool bAlive = false;
        std::uint8_t nLevel = 0;
        std::int16_t iDebt = 0;
        game::Rank_e eRank = game::Rank_e::None;
        std::string sName;
        std::vector<std::int16_t> dScores;
        std::vector<bool> dSeen;
        std::optional<char> cMark, cNoMark = 'n';
        game::Place_s Place;
        std::unordered_map<std::string, std::vector<game::Item_s>> dItems;
        std::set<std::pair<char, std::int64_t>> dPairs;

        void Serialize(Serializeable_c & Archive)
        {
            Archive.Serialize(bAlive).Serialize(nLevel).Serialize(iDebt).Serialize(eRank).Serialize(sName);
            Archive.Serialize(dScores).Serialize(dSeen).Serialize(cMark).Serialize(cNoMark).Serialize(Place);
            Archive.Serialize(dItems).Serialize(dPairs);
        }
        bool operator==(Types_s const &) const = default;
    };

    Types_s Example()
    {
        return { true, 200, -2, game::Rank_e::King, "Ogre", { 1, -1 }, { true, false }, 'x', {},
            { { { 1, 2 }, { 3, 4 } } }, { { "sack", { { "ham", true } } }, { "belt", {} } }, { { 'a', -1 } } };
    }

    template <typename T>
    std::string Saved(T & Value)
    {
        return Stored(1, [&](Serializeable_c & Archive) { Archive.Serialize(Value); });
    }

    template <typename T>
    bool LoadsInto(T & Value, std::string_view sBytes)
    {
        return LoadArchive(sBytes, 1, [&](Serializeable_c & Archive) { Archive.Serialize(Value); });
    }
}

TEST(SerializeStd, WritesAndReadsTheExampleOfTheFormatsPage)
{
    Types_s Types = Example(), Read;
    std::string const sBytes = Saved(Types);
    EXPECT_EQ(Hex(sBytes), DumpOfPage(FORMATS_PAGE, "types"));
    EXPECT_TRUE(LoadsInto(Read, sBytes));
    EXPECT_EQ(Read, Types);
}

TEST(SerializeStd, ContainersOfOneKindLoadWhatAnotherHasStored)
{
    std::deque<bool> dBits{ true, false, true };
    std::vector<bool> dLoadedBits(9);
    EXPECT_TRUE(LoadsInto(dLoadedBits, Saved(dBits)));
    EXPECT_EQ(dLoadedBits, std::vector<bool>({ true, false, true }));

    std::unordered_multimap<int, game::Item_s> dMany{ { 7, { "a" } }, { -7, { "b" } }, { 7, { "c" } } };
    std::list<std::tuple<int, game::Item_s>> dList;
    EXPECT_TRUE(LoadsInto(dList, Saved(dMany)));
    EXPECT_EQ(std::get<0>(dList.front()), -7) << "in the order of keys";
    EXPECT_EQ(dList.size(), 3u);

    std::array<std::string, 2> dNames{ std::string("a\0b", 3), std::string(5000, 'x') };
    std::pair<String_T<8>, std::string> Names;
    EXPECT_TRUE(LoadsInto(Names, Saved(dNames)));
    EXPECT_EQ(std::pair(std::string(Names.first), Names.second), std::pair(std::string("a"), dNames[1]));

    std::vector<std::uint64_t> dBig(1000, 7), dLoadedBig;
    EXPECT_TRUE(LoadsInto(dLoadedBig, Saved(dBig)));
    EXPECT_EQ(dLoadedBig, dBig);
}

// A load ends whole or failed, whichever byte after the version is changed and wherever the archive is cut.
TEST(SerializeStd, DamageEndsEveryLoadAndAllocatesLittle)
{
    Types_s Types = Example(), Read;
    std::string const sWhole = Saved(Types);
    MemCategoryScope_c const Category(mem::DataBase);
    std::string sEnds;   // of the worst change of each byte: w for whole, f for failed
    for (std::size_t i = 4; i < sWhole.size(); ++i)
    {
        EXPECT_FALSE(LoadsInto(Read, sWhole.substr(0, i))) << "cut at " << i;
        bool bWhole = true;
        for (int const iFlip : { 0x01, 0x80, 0xFF, 0x02, 0x7F })
        {
            std::string sDamaged = sWhole;
            sDamaged[i] = static_cast<char>(sDamaged[i] ^ iFlip);
            bWhole = LoadsInto(Read, sDamaged) && bWhole;
            StreamArchive_c Stream(sDamaged.substr(4));
            Stream.Serialize(Read);
        }
        sEnds += bWhole ? 'w' : 'f';
    }
    EXPECT_EQ(sEnds, "fwwwwffffwwwww"           // numbers, text
                     "ffffwwwwffffff"           // vectors
                     "fwf"                      // optionals
                     "wwwwwwww"                 // array
                     "ffff"                     // map: count
                     "ffffwwwwwffff"            // belt
                     "ffffwwwwwffffffffwwwwf"   // sack
                     "ffffwwwwwwwww");          // set
    EXPECT_LT(InfoOf(mem::DataBase).iMaxBytes, 30000);
}

// The compiler reports one error for each type of the rows.
TEST(SerializeStd, RefusedTypesNameTheRemedy)
{
    TempFolder_c const Folder;
    std::string sSource = "#include \"zqcore/cserializestd.h\"\n#include <string_view>\n#include <unordered_set>\n"
                          "struct Plain_s { int i; }; union Union_u { int i; float f; }; enum Wide_e : wchar_t {};\n"
                          "struct Key_s { void Serialize(Serializeable_c &); bool operator==(Key_s const &) const; };\n"
                          "struct Hash_s { std::size_t operator()(Key_s const &) const; };\n";
    std::vector<testing::Matcher<std::string>> dExpected;
    for (auto const & [szType, szRemedy] : Rows_t<char const *, char const *>{
             { "Plain_s *", "see Serializer_T" },
             { "std::vector<char const *>", "see Serializer_T" },
             { "std::optional<int Plain_s::*>", "see Serializer_T" },
             { "wchar_t", "another type of one width" },
             { "long double[2]", "another type of one width" },
             { "Wide_e", "another type of one width" },
             { "Union_u", "which member is in use" },
             { "char[8]", "Use a String_T" },
             { "int const", "Remove const" },
             { "Plain_s", "Give it a public member" },
             { "std::string_view", "Give it a public member" },
             { "std::pair<int &, int>", "Store the objects." },
             { "std::unordered_set<Key_s, Hash_s>", "an operator <." },
         })
    {
        dExpected.push_back(testing::HasSubstr(szRemedy));
        std::string const sName = "T" + std::to_string(dExpected.size());
        sSource += "using " + sName + " = " + szType + ";\nvoid Row(Serializeable_c & Archive, " + sName
                   + " & t) { Archive.Serialize(t); }\n";
    }
    std::string const sOutput =
        RunShell(TEST_COMPILER " -fsyntax-only '" + Folder.Write("a.cpp", sSource) + "' 2>&1").sOutput;
    std::vector<std::string> dErrors;
    std::istringstream Lines(sOutput);
    for (std::string sLine; std::getline(Lines, sLine);)
    {
        bool const bError = sLine.find(" error: ") != std::string::npos;
        dErrors.insert(dErrors.end(), std::size_t{ bError }, sLine);
    }
    EXPECT_THAT(dErrors, testing::UnorderedElementsAreArray(dExpected)) << sOutput;
}
