#include "tests/archive_support.h"
#include "tests/test_support.h"
#include "zqcore/cbitmap.h"
#include "zqcore/cmemory_internal.h"
#include "zqcore/cserialize.h"

#include <bit>
#include <climits>
#include <numeric>
#include <random>
#include <set>

namespace
{
    using Cell_t = std::tuple<int, int, int>;   // z, y, x

    // A field as the plain set of its set cells, with its size.
    struct Model_s
    {
        int iX = 0, iY = 0, iZ = 0;
        std::set<Cell_t> dSet;

        bool Has(Cell_t const & Cell) const { return dSet.count(Cell) != 0; }
        void Grow(int iSizeX, int iSizeY, int iSizeZ)
        {
            if (iSizeX > 0 && iSizeY > 0 && iSizeZ > 0)
            {
                iX = std::max(iX, (iSizeX + 7) / 8 * 8);
                iY = std::max(iY, iSizeY);
                iZ = std::max(iZ, iSizeZ);
            }
        }
    };

    // One face for the three classes, so that one model serves all.
    struct VecFace_s
    {
        BitVec_c Field;
        static constexpr int MAX_Y = 1, MAX_Z = 1;
        static BitVec_c New(int iX, int, int) { return BitVec_c(iX); }
        bool Bit(int iX, int iY, int iZ) const { return iY == 0 && iZ == 0 && Field.Bit(iX); }
        void Bis(int iX, int, int) { Field.Bis(iX); }
        Cell_t Size() const { return { Field.iDim > 0, Field.iDim > 0, Field.iDim }; }
    };

    struct MapFace_s
    {
        BitMap_c Field;
        static constexpr int MAX_Y = 6, MAX_Z = 1;
        static BitMap_c New(int iX, int iY, int) { return BitMap_c(iX, iY); }
        bool Bit(int iX, int iY, int iZ) const { return iZ == 0 && Field.Bit(iX, iY); }
        void Bis(int iX, int iY, int) { Field.Bis(iX, iY); }
        Cell_t Size() const { return { Field.iDimY > 0, Field.iDimY, Field.iDimX }; }
    };

    struct SpaceFace_s
    {
        BitMap3D_c Field;
        static constexpr int MAX_Y = 5, MAX_Z = 4;
        static BitMap3D_c New(int iX, int iY, int iZ) { return BitMap3D_c(iX, iY, iZ); }
        bool Bit(int iX, int iY, int iZ) const { return Field.Bit(iX, iY, iZ); }
        void Bis(int iX, int iY, int iZ) { Field.Bis(iX, iY, iZ); }
        Cell_t Size() const { return { Field.iDimZ, Field.iDimY, Field.iDimX }; }
    };

    template <typename FACE>
    class BitField : public testing::Test
    {
    protected:
        int Random(int iBelow) { return static_cast<int>(m_Random() % static_cast<unsigned>(iBelow)); }

        // A field of random size and density, and its model.
        std::pair<FACE, Model_s> Make()
        {
            int const iX = Random(4) == 0 ? 570 + Random(4) * 64 : Random(2) == 0 ? Random(1100) : Random(40);
            int const iY = Random(FACE::MAX_Y) + 1, iZ = Random(FACE::MAX_Z) + 1;
            FACE Face{ FACE::New(iX, iY, iZ) };
            Model_s Model;
            Model.Grow(iX, iY, iZ);
            for (int nSet = Random(3) == 0 ? 0 : Random(60); iX > 0 && nSet > 0; --nSet)
            {
                Cell_t const Cell(Random(iZ), Random(iY), Random(iX));
                Model.dSet.insert(Cell);
                Face.Bis(std::get<2>(Cell), std::get<1>(Cell), std::get<0>(Cell));
            }
            return { Face, Model };
        }

        // Calls fnCell for each cell of the model, and of a margin around it.
        static void ForCells(Model_s const & Model, int iMargin, std::function<void(Cell_t const &)> const & fnCell)
        {
            int const iX = Model.iX + 2 * iMargin, iY = Model.iY + 2 * iMargin, iZ = Model.iZ + 2 * iMargin;
            for (int i = 0; i < iX * iY * iZ; ++i)
            {
                fnCell({ i / iX / iY - iMargin, i / iX % iY - iMargin, i % iX - iMargin });
            }
        }

        // The cells that differ from the model.
        static std::string Differences(FACE const & Face, Model_s const & Model)
        {
            std::string sDifferent = Face.Size() == Cell_t(Model.iZ, Model.iY, Model.iX) ? "" : "size ";
            auto const fnCompare = [&](Cell_t const & Cell)
            {
                auto const [iZ, iY, iX] = Cell;
                bool const bSame = Face.Bit(iX, iY, iZ) == Model.Has(Cell);
                sDifferent += bSame ? "" : "(" + std::to_string(iX) + "," + std::to_string(iY) + ") ";
            };
            ForCells(Model, 1, fnCompare);
            return sDifferent;
        }

        std::mt19937 m_Random{ 20 };
    };
    using Faces_t = testing::Types<VecFace_s, MapFace_s, SpaceFace_s>;
    TYPED_TEST_SUITE(BitField, Faces_t);
}

TYPED_TEST(BitField, OperatorsMatchAPlainModelOverAllExtents)
{
    for (int iRound = 0; iRound < 300; ++iRound)
    {
        auto const First = this->Make(), Second = this->Make();
        TypeParam const &A = First.first, &B = Second.first;
        Model_s const &ModelA = First.second, &ModelB = Second.second;
        for (int iOperator = 0; iOperator < 5; ++iOperator)
        {
            TypeParam Face = A;
            Model_s Model = ModelA;
            iOperator <= 1 ? Model.Grow(ModelB.iX, ModelB.iY, ModelB.iZ) : void();
            Model.dSet.clear();
            auto const fnCombine = [&](Cell_t const & Cell)
            {
                bool const bA = ModelA.Has(Cell), bB = ModelB.Has(Cell);
                bool const dResults[] = { bA || bB, bA != bB, bA && bB, bA && !bB, !bA };
                dResults[iOperator] ? void(Model.dSet.insert(Cell)) : void();
            };
            this->ForCells(Model, 0, fnCombine);
            void (*const dOperators[])(
                decltype(Face.Field) &, decltype(Face.Field) const &) = { [](auto & X, auto const & Y) { X |= Y; },
                [](auto & X, auto const & Y) { X ^= Y; }, [](auto & X, auto const & Y) { X &= Y; },
                [](auto & X, auto const & Y) { X -= Y; }, [](auto & X, auto const &) { EXPECT_EQ(&~X, &X); } };
            dOperators[iOperator](Face.Field, B.Field);
            ASSERT_EQ(this->Differences(Face, Model), "") << "operator " << iOperator << " in round " << iRound;
        }
        EXPECT_EQ(A.Field == B.Field, ModelA.dSet == ModelB.dSet);
        TypeParam Larger = A;
        Larger.Field |= TypeParam::New(900, 7, 7);
        EXPECT_TRUE(Larger.Field == A.Field && A.Field == Larger.Field) << "zeros outside make no difference";
        Larger.Bis(899, TypeParam::MAX_Y - 1, TypeParam::MAX_Z - 1);
        EXPECT_EQ(Larger.Field == A.Field, ModelA.Has({ TypeParam::MAX_Z - 1, TypeParam::MAX_Y - 1, 899 }));
    }
}

TYPED_TEST(BitField, CopiesGrowsClearsAndComplains)
{
    auto const [A, ModelA] = this->Make();
    TypeParam Copy = A, Empty{ TypeParam::New(-3, 2, 2) };
    Copy.Field = A.Field;
    Copy.Field.operator=(Copy.Field);
    EXPECT_EQ(this->Differences(Copy, ModelA), "");
    Copy.Field.Clear();
    EXPECT_TRUE(Copy.Size() == A.Size() && Copy.Field == Empty.Field);
    Copy.Field = Empty.Field;
    EXPECT_EQ(Copy.Size(), Cell_t(0, 0, 0)) << "a size below 1 makes an empty field";
    (Copy.Field &= A.Field) -= ~Copy.Field;
    EXPECT_TRUE(Copy.Field == Empty.Field);
    auto const fnBadIndices = [&] { Copy.Bis(-1, 0, 0), Copy.Bis(INT_MIN, 0, 0), Copy.Bis(INT_MAX, 0, 0); };
    std::string const sRange = "0 <= iX && iX < iDim", sFailed = FailedConditions(fnBadIndices);
    EXPECT_EQ(sFailed.find(sRange + " & " + sRange), 0u) << sFailed;
    EXPECT_NE(sFailed.find("MAX_BITS & " + sRange), std::string::npos) << sFailed;
    EXPECT_EQ(Copy.Size(), Cell_t(0, 0, 0));
}

TEST(BitVec, RoundsUpGrowsByNeedAndScans)
{
    BitVec_c Vec(5);
    EXPECT_EQ(Vec.iDim, 8);
    EXPECT_FALSE(Vec.Bit(7));
    Vec.Bic(100);
    Vec.Set(100, false);
    EXPECT_EQ(Vec.iDim, 8);
    Vec.Set(8, true);
    EXPECT_EQ(Vec.iDim, 16);
    Vec.Bic(8);
    EXPECT_EQ(Vec.Scan1(), -1);
    EXPECT_EQ((~Vec).Scan0(), -1) << "the rounding bits are inverted too";
    EXPECT_EQ(BitVec_c().Scan0() + BitVec_c().Scan1(), -2);
    for (int iBit : { 0, 7, 63, 64, 511, 512, 700, 1999 })
    {
        BitVec_c One(2000);
        One.Bis(iBit);
        One.Bis(1999);
        EXPECT_EQ(One.Scan1(), iBit);
        EXPECT_EQ((~One).Scan0(), iBit);
    }
    BitVec_c Long(64);
    Long.Bis(40);
    Long = Vec;
    EXPECT_EQ(Long.iDim, 64) << "assignment keeps the longer storage";
    EXPECT_TRUE(Long == Vec);
    Long = BitVec_c();
    EXPECT_EQ(Long.iDim, 0);
}

TEST(BitVec, ReadsAndWritesHexadecimalText)
{
    for (auto const & [szText, szExpected] : { std::pair("80", "800000"), std::pair("", "000000"),
             std::pair("a-B c\nDxeF01", "ABCDEF"), std::pair("1", "100000") })
    {
        BitVec_c Vec(24);
        ~Vec = szText;
        char szHex[8] = "???????";
        EXPECT_STREQ(Vec.Hex(szHex, 8), szExpected);
    }
    BitVec_c Last(8);
    Last.Bis(7);
    char szHex[4] = { '?', '?', '?', '?' };
    EXPECT_EQ(std::string(Last.Hex(szHex, 2), 4), "01??") << "no room for a terminator";
    EXPECT_EQ(std::string(Last.Hex(szHex, 1), 4), "01??");
    EXPECT_EQ(std::string(Last.Hex(szHex, 0), 4), "01??");
    char const * const sRows[] = { "01FF", "8", nullptr };
    BitMap_c Map(16, 3);
    ~Map = sRows;
    EXPECT_TRUE(Map.Bit(7, 0) && Map.Bit(15, 0) && Map.Bit(0, 1) && !Map.Bit(1, 1) && !Map.Bit(6, 0));
    BitVec_c Row;
    EXPECT_EQ(Map.Get(2, Row).Scan1(), -1) << "rows behind the last text are cleared";
    EXPECT_EQ(FailedConditions([&] { Last = static_cast<char const *>(nullptr); }), "szData != nullptr");
    EXPECT_EQ(FailedConditions([&] { Map = static_cast<char const * const *>(nullptr); }), "sData != nullptr");
}

TEST(BitMap, RowsTakeAndGiveVectors)
{
    BitVec_c Vec(16), Empty, Got(32);
    Vec.Bis(3);
    Vec.Bis(12);
    BitMap_c Map(8, 1);
    Map.Bis(7, 0);
    Map.Set(-1, Vec);
    Map.Set(5, Empty);
    EXPECT_EQ(Map.iDimX + Map.iDimY, 9) << "neither a negative row nor an empty vector grows the field";
    Map.Bis(0, Vec);
    EXPECT_EQ(Map.iDimX, 16);
    Map.Xor(2, Vec);
    EXPECT_EQ(Map.iDimY, 3);
    EXPECT_TRUE(
        Map.Equ(2, Vec) && !Map.Equ(0, Vec) && Map.Equ(9, Empty) && !Map.Equ(9, Vec) && Map.Equ(1, BitVec_c(64)));
    Map.And(0, Vec);
    EXPECT_TRUE(Map.Equ(0, Vec));
    Got.Bis(31);
    EXPECT_TRUE(Map.Get(0, Got) == Vec && Got.iDim == 32);
    Map.Bic(0, Vec);
    Map.Xor(2, Vec);
    EXPECT_TRUE(Map == BitMap_c());
    Got.Bis(31);
    EXPECT_TRUE(Map.Get(77, Got) == Empty && Got.iDim == 32) << "a row outside clears the vector";
    ~Map;
    BitVec_c const Byte(8);
    Map.And(0, Byte);
    Map.Set(1, Byte);
    EXPECT_TRUE(Map.Equ(0, Empty) && Map.Equ(1, Empty));
    Map.And(50, Byte);
    Map.Bic(50, Byte);
    Map.Bic(100, 0);
    EXPECT_TRUE(Map.iDimX == 104 && Map.iDimY == 3) << "clearing a bit outside grows a plane";
    EXPECT_TRUE(Map.Bit(15, 2) && !Map.Bit(16, 2));

    BitMap3D_c Space(8, 2, 2);
    Space.Set(1, 3, Vec);
    EXPECT_EQ(Space.iDimX * Space.iDimY * Space.iDimZ, 16 * 2 * 4);
    EXPECT_TRUE(Space.Bit(12, 1, 3) && Space.Equ(1, 3, Vec) && Space.Equ(0, 3, Empty));
    Space.Set(0, -1, Vec);
    Space.Set(8, 0, 5, false);
    EXPECT_EQ(Space.iDimZ, 6);
    BitMap3D_c Other(16, 9, 4);
    Other.Bis(11, 1, 3);
    EXPECT_FALSE(Space.Intersects(Other) || Space.Intersects(BitMap3D_c()));
    Other.Bis(1, 3, Vec);
    EXPECT_TRUE(Space.Intersects(Other) && Other.Intersects(Space));
    auto const fnTooLarge = [] { BitMap3D_c(BitVec_c::MAX_BITS, INT_MAX, INT_MAX); };
    EXPECT_EQ(FailedConditions(fnTooLarge), "BytesOf(New) != 0");
}

TEST(BitMap, StorageCountsWhereItsOwnerSays)
{
    MemCategoryScope_c const Scope(mem::Collision);
    auto const & dCount = g_MemoryCounters.dCount;
    std::ptrdiff_t const nOwners = dCount[mem::Collision], nNormal = dCount[mem::NORMAL_BLOCK];
    BitVec_c const Vec(80);
    BitMap_c const Map(80, 2);
    BitMap3D_c const Space(80, 2, 2);
    EXPECT_TRUE(dCount[mem::Collision] == nOwners + 2 && dCount[mem::NORMAL_BLOCK] == nNormal + 1);
}

TEST(TinyBitmap, PacksCellsIntoAWord)
{
    static_assert(sizeof(TinyBitmap_c) == 4);
    TinyBitmap_c Tiny;
    auto const fnWord = [&] { return std::bit_cast<std::uint32_t>(Tiny); };
    Tiny.SetWidth(4);
    Tiny.Set(1, 2);
    EXPECT_EQ(fnWord(), 4u | 1u << 13);
    EXPECT_TRUE(Tiny.Get(1, 2) && !Tiny.Get(2, 2) && Tiny.GetWidth() == 4);
    Tiny.Set(0, 7);
    Tiny.Set(-1, 0);
    EXPECT_EQ(fnWord(), 4u | 1u << 13) << "cells beyond the field change nothing";
    EXPECT_FALSE(Tiny.Get(3, 1000000000));
    Tiny.SetWidth(16);
    EXPECT_TRUE(Tiny.GetWidth() == 0 && Tiny.Get(9, 3)) << "width 0 folds the rows";
    Tiny.SetValues(3 + 16, 5);
    EXPECT_EQ(fnWord(), 0x53u);
    Tiny.Clear();
    EXPECT_EQ(fnWord(), 3u);
}

// An archive as a host may write one over a stream, which knows neither length nor position.
struct StreamArchive_c : Serializeable_c
{
    explicit StreamArchive_c(std::string sBytes)
        : Serializeable_c(true, 0, false)
        , m_sBytes(std::move(sBytes))
    {}
    using Serializeable_c::Serialize;
    bool ChunkBegin(char const *) override { return false; }
    void ChunkEnd(char const *) override {}
    char const * GetFileName() const override { return ""; }
    int GetLength() const override { return 0; }
    bool Serialize(void * pData, int iLength) override
    {
        m_bFailed = m_bFailed || m_sBytes.size() < static_cast<std::size_t>(iLength);
        m_sBytes.erase(0, m_bFailed ? 0 : m_sBytes.copy(static_cast<char *>(pData), static_cast<std::size_t>(iLength)));
        return !m_bFailed;
    }
    std::string m_sBytes;
};

TEST(BitVec, LoadsFromAnArchiveThatKnowsNoLength)
{
    for (int const nBytes : { 0, 1, 4095, 4096, 4097, 30000 })
    {
        int const iBits = 8 * nBytes;
        std::string sBits(static_cast<std::size_t>(nBytes), '?');
        std::iota(sBits.begin(), sBits.end(), '\1');
        std::string const sBytes = std::string(reinterpret_cast<char const *>(&iBits), 4) + sBits;
        BitVec_c Vec(16);
        Vec.Bis(3);
        StreamArchive_c Short(sBytes.substr(0, sBytes.size() - 1)), Whole(sBytes);
        EXPECT_TRUE(!Vec.Serialize(Short) && Short.IsFailed() && Vec.iDim == 16 && Vec.Bit(3)) << nBytes;
        EXPECT_TRUE(Vec.Serialize(Whole) && Whole.m_sBytes.empty());
        EXPECT_EQ(std::string_view(reinterpret_cast<char *>(Vec.pVec), sBits.size()), sBits);
    }
    StreamArchive_c Huge("\xF8\xFF\xFF\x7F few");
    std::ptrdiff_t const nPeak = MemoryMaxTotalBytesAllocated();
    BitVec_c Vec;
    EXPECT_TRUE(!Vec.Serialize(Huge) && Vec.iDim == 0);
    EXPECT_LT(MemoryMaxTotalBytesAllocated() - nPeak, 100000) << "a damaged size takes no memory";
}

TEST(BitVec, SavesAndLoadsAndRefusesASizeThatTheFileCannotHold)
{
    constexpr std::uint32_t VERSION = 0x10000;
    TempFolder_c const Folder;
    BitVec_c Saved(24), Empty;
    Saved = "80FF01";
    BufferedWriteable_c Writer(Folder.Join("bits.bin").c_str(), VERSION);
    EXPECT_TRUE(Writer.Open() && Saved.Serialize(Writer) && Empty.Serialize(Writer) && Writer.Close());
    std::string const sFile = Folder.Read("bits.bin");
    EXPECT_EQ(sFile.substr(4), std::string("\x18\0\0\0\x80\xFF\x01\0\0\0\0", 11));
    BitVec_c Short, Long(64);
    Long.Bis(63);
    EXPECT_TRUE(
        Loaded(sFile, VERSION, [&](Serializeable_c & a) { EXPECT_TRUE(Short.Serialize(a) && Long.Serialize(a)); }));
    EXPECT_TRUE(Short.iDim == 24 && Short == Saved);
    EXPECT_TRUE(Long.iDim == 64 && Long == Empty) << "a longer vector keeps its size and is cleared";
    for (int const iBits : { 17, 0x7FFFFFF8, INT_MAX, -1, INT_MIN })
    {
        std::string sBad = sFile.substr(0, 4) + "????\1\2";
        std::memcpy(&sBad[4], &iBits, 4);
        BitVec_c Vec(8);
        Vec.Bis(1);
        EXPECT_FALSE(Loaded(sBad, VERSION, [&](Serializeable_c & a) { EXPECT_FALSE(Vec.Serialize(a)); }));
        EXPECT_TRUE(Vec.iDim == 8 && Vec.Bit(1)) << iBits;
    }
}
