#include "tests/archive_support.h"
#include "tests/test_support.h"
#include "zqcore/cbitmap.h"
#include "zqcore/cmemory.h"

#include <bit>
#include <climits>
#include <numeric>
#include <random>
#include <set>

namespace
{
    using Cell_t = std::tuple<int, int, int>;   // z, y, x

    // Returns the bits in hexadecimal.
    std::string Text(BitVec_c const & Vec)
    {
        std::string sHex(static_cast<std::size_t>(Vec.iDim / 4), '?');
        Vec.Hex(sHex.data(), Vec.iDim / 4);
        return sHex;
    }

    // Returns the rows in hexadecimal, joined by blanks.
    std::string Text(BitMap_c const & Map)
    {
        std::string sRows;
        for (int iY = 0; iY < Map.iDimY; ++iY)
        {
            BitVec_c Row(Map.iDimX);
            sRows += (iY == 0 ? "" : " ") + Text(Map.Get(iY, Row));
        }
        return sRows;
    }

    // One interface for the three classes, so that one model serves all.
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

        // Makes a field of random size and density, checks its bits and returns it.
        FACE Make()
        {
            int const iX = Random(4) == 0 ? 570 + Random(4) * 64 : Random(2) == 0 ? Random(1100) : Random(40);
            int const iY = Random(FACE::MAX_Y) + 1, iZ = Random(FACE::MAX_Z) + 1;
            FACE Face{ FACE::New(iX, iY, iZ) };
            std::set<Cell_t> dSet;
            for (int nSet = Random(3) == 0 ? 0 : Random(60); iX > 0 && nSet > 0; --nSet)
            {
                auto const [z, y, x] = *dSet.emplace(Random(iZ), Random(iY), Random(iX)).first;
                Face.Bis(x, y, z);
            }
            auto const IsSet = [&](int x, int y, int z) { return dSet.contains({ z, y, x }); };
            EXPECT_EQ(Differences(Face, iX > 0 ? Cell_t(iZ, iY, (iX + 7) / 8 * 8) : Cell_t(), IsSet), "");
            return Face;
        }

        // Returns the cells whose bit differs from fnIsSet's or, in the layer of cells around Size, is set. "size"
        // precedes them if Face has another size.
        static std::string Differences(FACE const & Face, Cell_t const & Size, auto const & fnIsSet)
        {
            std::string sDifferent = Face.Size() == Size ? "" : "size ";
            auto const [iZ, iY, iX] = Size;
            for (int i = 0; i < (iX + 2) * (iY + 2) * (iZ + 2); ++i)
            {
                int const x = i % (iX + 2) - 1, y = i / (iX + 2) % (iY + 2) - 1, z = i / (iX + 2) / (iY + 2) - 1;
                bool const bInside = std::min({ x, y, z }) >= 0 && x < iX && y < iY && z < iZ;
                bool const bSame = Face.Bit(x, y, z) == (bInside && fnIsSet(x, y, z));
                sDifferent += bSame ? "" : testing::PrintToString(Cell_t(z, y, x)) + " ";
            }
            return sDifferent;
        }

        std::mt19937 m_Random{ 20 };
    };
    using Faces_t = testing::Types<VecFace_s, MapFace_s, SpaceFace_s>;
    TYPED_TEST_SUITE(BitField, Faces_t);
}

TYPED_TEST(BitField, OperatorsCombineEachCellOverBothExtents)
{
    using Field_t = decltype(TypeParam::Field);
    struct Operator_s
    {
        char const * szName;
        void (*fnApply)(Field_t &, Field_t const &);
        bool (*fnBit)(bool, bool);
    };
    for (int iRound = 0; iRound < 300; ++iRound)
    {
        SCOPED_TRACE(iRound);
        TypeParam const A = this->Make(), B = this->Make();
        auto const [iZ, iY, iX] = A.Size();
        auto const [iOtherZ, iOtherY, iOtherX] = B.Size();
        Cell_t const Both(std::max(iZ, iOtherZ), std::max(iY, iOtherY), std::max(iX, iOtherX));
        for (auto const & [szName, fnApply, fnBit] :
            {
                Operator_s{ "|", [](auto &X, auto const &Y) { X |= Y; }, [](bool a, bool b) { return a || b; } },
                { "^", [](auto &X, auto const &Y) { X ^= Y; }, [](bool a, bool b) { return a != b; } },
                { "&", [](auto &X, auto const &Y) { X &= Y; }, [](bool a, bool b) { return a && b; } },
                { "-", [](auto &X, auto const &Y) { X -= Y; }, [](bool a, bool b) { return a && !b; } },
                { "~", [](auto &X, auto const &) { EXPECT_EQ(&~X, &X); }, [](bool a, bool) { return !a; } },
            })
        {
            TypeParam Face = A;
            fnApply(Face.Field, B.Field);
            bool const bGrows = fnBit(false, true) && !fnBit(false, false);
            auto const IsSet = [&, fn = fnBit](int x, int y, int z) { return fn(A.Bit(x, y, z), B.Bit(x, y, z)); };
            ASSERT_EQ(this->Differences(Face, bGrows ? Both : A.Size(), IsSet), "") << szName;
        }
        auto const IsInB = [&](int x, int y, int z) { return B.Bit(x, y, z); };
        TypeParam Larger = A, Whole = A;
        Whole.Field |= TypeParam::New(iOtherX, iOtherY, iOtherZ);
        EXPECT_EQ(A.Field == B.Field, this->Differences(Whole, Both, IsInB) == "");
        Larger.Field |= TypeParam::New(900, 7, 7);
        EXPECT_EACH(Larger.Field == A.Field, A.Field == Larger.Field) << "zeros outside make no difference";
        bool const bHadLast = A.Bit(899, TypeParam::MAX_Y - 1, TypeParam::MAX_Z - 1);
        Larger.Bis(899, TypeParam::MAX_Y - 1, TypeParam::MAX_Z - 1);
        EXPECT_EQ(Larger.Field == A.Field, bHadLast);
    }
}

TYPED_TEST(BitField, CopiesClearsAndComplainsOfBadIndices)
{
    TypeParam const A = this->Make(), Empty{ TypeParam::New(-3, 2, 2) };
    TypeParam Copy = A;
    Copy.Field = A.Field;
    Copy.Field.operator=(Copy.Field);
    EXPECT_EQ(this->Differences(Copy, A.Size(), [&A](int x, int y, int z) { return A.Bit(x, y, z); }), "");
    Copy.Field.Clear();
    EXPECT_EQ(Copy.Size(), A.Size());
    EXPECT_TRUE(Copy.Field == Empty.Field);
    Copy.Field = Empty.Field;
    EXPECT_EQ(Copy.Size(), Cell_t(0, 0, 0)) << "a size below 1 makes an empty field";
    (Copy.Field &= A.Field) -= ~Copy.Field;
    EXPECT_TRUE(Copy.Field == Empty.Field);
    auto const fnBadIndices = [&]
    {
        Copy.Bis(-1, 0, 0);
        Copy.Bis(INT_MIN, 0, 0);
        Copy.Bis(INT_MAX, 0, 0);
        Copy.Bis(BitVec_c::MAX_BITS, 0, 0);
    };
    std::string const sRange = "0 <= iX && iX < iDim", sFailed = FailedConditions(fnBadIndices);
    EXPECT_EQ(sFailed.find(sRange + " & " + sRange), 0u) << sFailed;
    EXPECT_NE(sFailed.find("MAX_BITS & " + sRange), std::string::npos) << sFailed;
    EXPECT_EQ(Copy.Size(), Cell_t(0, 0, 0));
}

TYPED_TEST(BitField, MovesCountsAndCombinesToNewFields)
{
    for (int i = 0; i < 40; ++i)
    {
        SCOPED_TRACE(i);
        TypeParam A = this->Make(), B = this->Make();
        auto Field = A.Field;
        Field |= B.Field;
        EXPECT_TRUE((A.Field | B.Field) == Field);
        EXPECT_TRUE((A.Field ^ B.Field) == ((A.Field - B.Field) | (B.Field - A.Field)));
        EXPECT_EQ((A.Field & B.Field).Count() + Field.Count(), A.Field.Count() + B.Field.Count());
        EXPECT_EACH(Field.AnySet() == (Field.Count() != 0), (A.Field - A.Field).NoneSet());
        auto const Copy = B.Field;
        Cell_t const SizeOfB = B.Size();
        auto Moved = std::move(A.Field);
        swap(Moved, B.Field);
        A.Field = std::move(Moved);
        B.Field = decltype(Copy)();
        EXPECT_EACH(
            A.Field == Copy, A.Size() == SizeOfB, B.Size() == Cell_t(), Moved.NoneSet());   // NOLINT(*use-after-move)
    }
}

TEST(BitVec, RoundsUpAndGrowsByNeed)
{
    BitVec_c Vec(5), Long(64);
    EXPECT_EQ(Vec.iDim, 8);
    Vec.Bic(100);
    Vec.Set(100, false);
    EXPECT_EQ(Vec.iDim, 8);
    Vec.Set(8, true);
    EXPECT_EQ(Vec.iDim, 16);
    Vec.Bic(8);
    Long.Bis(40);
    Long = Vec;
    EXPECT_EQ(Long.iDim, 64) << "assignment keeps the longer storage";
    EXPECT_TRUE(Long == Vec);
    Long.Bis(40);
    BitVec_c Source(Vec);
    Long = std::move(Source);
    EXPECT_EACH(Long.iDim == 64, Long == Vec, Source.iDim == 0);   // NOLINT(*use-after-move)
    Long = BitVec_c();
    EXPECT_EQ(Long.iDim, 0);
}

TEST(BitVec, FindsAndCountsBits)
{
    BitVec_c None(5);
    EXPECT_EQ(None.Scan1(), -1);
    EXPECT_EQ((~None).Scan0(), -1) << "the rounding bits are inverted too";
    EXPECT_EQ(BitVec_c().Scan0(), -1);
    EXPECT_EQ(BitVec_c().Scan1(), -1);
    for (int const iBit : { 0, 7, 63, 64, 511, 512, 700, 1999 })
    {
        BitVec_c One(2000);
        One.Bis(iBit);
        One.Bis(1999);
        EXPECT_EQ(One.Scan1(), iBit);
        EXPECT_EQ((~One).Scan0(), iBit);
    }
    std::mt19937 Random(3);
    for (int const nBits : { 8, 72, 1000 })
    {
        BitVec_c Vec(nBits);
        std::set<int> dModel, dFound;
        for (int i = 0; i < nBits / 5; ++i)
        {
            Vec.Bis(*dModel.insert(static_cast<int>(Random() % static_cast<unsigned>(nBits))).first);
        }
        for (int iBit = Vec.NextSet(0); iBit >= 0; iBit = Vec.NextSet(iBit + 1))
        {
            dFound.insert(iBit);
        }
        EXPECT_EQ(dFound, dModel);
        EXPECT_EQ(Vec.Count(), dModel.size());
        EXPECT_EACH(Vec.AnySet(), !Vec.NoneSet(), Vec.NextSet(INT_MAX) == -1) << nBits;
    }
}

TEST(BitVec, ReadsAndWritesHexadecimalText)
{
    for (auto const & [szText, szExpected] : Rows_t<char const *, char const *>{
             { "80", "800000" }, { "", "000000" }, { "a-B c\nDxeF01", "ABCDEF" }, { "1", "100000" } })
    {
        BitVec_c Vec(24);
        ~Vec = szText;
        EXPECT_EQ(Text(Vec), szExpected);
    }
    BitVec_c Last(8);
    Last.Bis(7);
    char dHex[4] = { '?', '?', '?', '?' };
    for (int const nLength : { 2, 1, 0 })
    {
        EXPECT_EQ(std::string(Last.Hex(dHex, nLength), 4), "01??") << "no room for more, or for a terminator";
    }
    char const * const dRows[] = { "01FF", "8", nullptr };
    BitMap_c Map(16, 3);
    ~Map = dRows;
    EXPECT_EQ(Text(Map), "01FF 8000 0000") << "rows after the last text are cleared";
    EXPECT_EQ(FailedConditions([&] { Last = static_cast<char const *>(nullptr); }), "szData != nullptr");
    EXPECT_EQ(FailedConditions([&] { Map = static_cast<char const * const *>(nullptr); }), "sData != nullptr");
}

TEST(BitMap, RowsCombineWithVectors)
{
    BitVec_c Vec(16), Empty, Got(32);
    Vec.Bis(3);
    Vec.Bis(12);
    BitMap_c Map(8, 1);
    Map.Bis(7, 0);
    Map.Set(-1, Vec);
    Map.Set(5, Empty);
    EXPECT_EQ(Text(Map), "01") << "neither a negative row nor an empty vector grows the field";
    Map.Bis(0, Vec);
    EXPECT_EQ(Text(Map), "1108");
    Map.Xor(2, Vec);
    EXPECT_EQ(Text(Map), "1108 0000 1008");
    EXPECT_EQ(std::tuple(Map.Equ(0, Vec), Map.Equ(1, BitVec_c(64)), Map.Equ(2, Vec)), std::tuple(false, true, true));
    EXPECT_EQ(std::tuple(Map.Equ(9, Vec), Map.Equ(9, Empty)), std::tuple(false, true)) << "a row outside";
    Map.And(0, Vec);
    EXPECT_EQ(Text(Map), "1008 0000 1008");
    Got.Bis(31);
    EXPECT_EQ(Text(Map.Get(0, Got)), "10080000");
    Map.Bic(0, Vec);
    Map.Xor(2, Vec);
    EXPECT_EQ(Text(Map), "0000 0000 0000");
    Got.Bis(31);
    EXPECT_EQ(Text(Map.Get(77, Got)), "00000000") << "a row outside clears the vector";
    ~Map;
    BitVec_c const Byte(8);
    Map.And(0, Byte);
    Map.Set(1, Byte);
    Map.And(50, Byte);
    Map.Bic(50, Byte);
    EXPECT_EQ(Text(Map), "0000 0000 FFFF");
    Map.Bic(30, 0);
    EXPECT_EQ(Text(Map), "00000000 00000000 FFFF0000") << "clearing a bit outside grows a plane";
}

TEST(BitMap3D, RowsCombineWithVectorsAndSpacesIntersect)
{
    BitVec_c Vec(16);
    Vec.Bis(12);
    BitMap3D_c Space(8, 2, 2), Other(16, 9, 4);
    Space.Set(1, 3, Vec);
    EXPECT_EQ(std::tuple(Space.iDimX, Space.iDimY, Space.iDimZ), std::tuple(16, 2, 4));
    EXPECT_EACH(Space.Equ(1, 3, Vec), Space.Equ(0, 3, BitVec_c()));
    Space.Set(0, -1, Vec);
    Space.Set(8, 0, 5, false);
    EXPECT_EQ(Space.iDimZ, 6);
    Other.Bis(11, 1, 3);
    EXPECT_EACH(!Space.Intersects(Other), !Space.Intersects(BitMap3D_c()));
    Other.Bis(1, 3, Vec);
    EXPECT_EACH(Space.Intersects(Other), Other.Intersects(Space));
    auto const fnTooLarge = [] { BitMap3D_c(BitVec_c::MAX_BITS, INT_MAX, INT_MAX); };
    EXPECT_EQ(FailedConditions(fnTooLarge), "BytesOf(New) != 0");
}

TEST(TinyBitmap, PacksCellsIntoAWord)
{
    static_assert(sizeof(TinyBitmap_c) == 4);
    TinyBitmap_c Tiny;
    auto const fnWord = [&] { return std::bit_cast<std::uint32_t>(Tiny); };
    Tiny.SetWidth(4);
    Tiny.Set(1, 2);
    EXPECT_EQ(fnWord(), 4u | 1u << 13);
    EXPECT_EQ(std::tuple(Tiny.Get(1, 2), Tiny.Get(2, 2), Tiny.GetWidth()), std::tuple(true, false, 4));
    Tiny.Set(0, 7);
    Tiny.Set(-1, 0);
    EXPECT_EQ(fnWord(), 4u | 1u << 13) << "cells beyond the field change nothing";
    EXPECT_FALSE(Tiny.Get(3, 1000000000));
    Tiny.SetWidth(16);
    EXPECT_EQ(std::tuple(Tiny.GetWidth(), Tiny.Get(9, 3)), std::tuple(0, true)) << "width 0 folds the rows";
    Tiny.SetValues(3 + 16, 5);
    EXPECT_EQ(fnWord(), 0x53u);
    Tiny.Clear();
    EXPECT_EQ(fnWord(), 3u);
}

TEST(BitVec, LoadsFromAnArchiveThatKnowsNoLength)
{
    for (int const nBytes : { 0, 1, 4095, 4096, 4097, 30000 })
    {
        SCOPED_TRACE(nBytes);
        int const nBits = 8 * nBytes;
        std::string sBits(static_cast<std::size_t>(nBytes), '?');
        std::iota(sBits.begin(), sBits.end(), '\1');
        std::string const sBytes = std::string(reinterpret_cast<char const *>(&nBits), 4) + sBits;
        BitVec_c Vec(16);
        Vec.Bis(3);
        StreamArchive_c Short(sBytes.substr(0, sBytes.size() - 1)), Whole(sBytes);
        EXPECT_EACH(!Vec.Serialize(Short), Short.IsFailed());
        EXPECT_EQ(Text(Vec), "1000");
        EXPECT_EACH(Vec.Serialize(Whole), Whole.m_sBytes.empty());
        EXPECT_EQ(std::string_view(reinterpret_cast<char *>(Vec.pVec), sBits.size()), sBits);
    }
    StreamArchive_c Huge("\xF8\xFF\xFF\x7F few");
    std::ptrdiff_t const nPeak = MemoryMaxTotalBytesAllocated();
    BitVec_c Vec;
    EXPECT_FALSE(Vec.Serialize(Huge));
    EXPECT_EQ(Vec.iDim, 0);
    EXPECT_LT(MemoryMaxTotalBytesAllocated() - nPeak, 100000) << "a damaged size allocates no block of that size";
}

TEST(BitVec, SavesAndLoadsAndRefusesASizeThatTheFileCannotHold)
{
    constexpr std::uint32_t VERSION = 0x10000;
    TempFolder_c const Folder;
    BitVec_c Saved(24), Empty;
    Saved = "80FF01";
    BufferedWriteable_c Writer(Folder.Join("bits.bin").c_str(), VERSION);
    EXPECT_EACH(Writer.Open(), Saved.Serialize(Writer), Empty.Serialize(Writer), Writer.Close());
    std::string const sFile = Folder.Read("bits.bin");
    EXPECT_EQ(sFile.substr(4), std::string("\x18\0\0\0\x80\xFF\x01\0\0\0\0", 11));
    BitVec_c Short, Long(64);
    Long.Bis(63);
    EXPECT_TRUE(LoadArchive(sFile, VERSION,
        [&](Serializeable_c & Archive)
        {
            Short.Serialize(Archive);
            Long.Serialize(Archive);
        }));
    EXPECT_EQ(Text(Short), "80FF01");
    EXPECT_EQ(Text(Long), "0000000000000000") << "a longer vector keeps its size and is cleared";
    for (int const nBits : { 17, 0x7FFFFFF8, INT_MAX, -1, INT_MIN })
    {
        std::string sBad = sFile.substr(0, 4) + "????\1\2";
        std::memcpy(&sBad[4], &nBits, 4);
        BitVec_c Vec(8);
        Vec.Bis(1);
        auto const LoadVec = [&Vec](Serializeable_c & Archive) { EXPECT_FALSE(Vec.Serialize(Archive)); };
        EXPECT_FALSE(LoadArchive(sBad, VERSION, LoadVec)) << nBits;
        EXPECT_EQ(Text(Vec), "40") << nBits;
    }
}

TEST(BitFields, GrowStepByStepIntoClearedRoom)
{
    BitVec_c Vec;
    BitMap_c Map(16, 1);
    BitMap3D_c Space(16, 2, 1);
    for (int i = 1; i < 300; ++i)
    {
        Vec.Bis(7 * i);
        Map.Bis(i % 16, i);
        Space.Bis(i % 16, i % 2, i);
        EXPECT_EACH(Vec.Count() == std::size_t(i), Map.Count() == std::size_t(i), Space.Count() == std::size_t(i));
        EXPECT_EACH(Vec.iDim == (7 * i / 8 + 1) * 8, Map.iDimY == i + 1, Space.iDimZ == i + 1);
    }
    BitMap_c const Copy(Map);
    EXPECT_EACH(Copy == Map, !(BitMap_c(16, 300) == Map));
    Map.Grow(17, 300);   // the rows move
    EXPECT_EACH(Copy == Map, Map.Count() == 299u);
}
