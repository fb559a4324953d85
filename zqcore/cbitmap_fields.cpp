// The plane and the space. Both are a space to the code here; a plane is one deep.
#include "zqcore/cbitmap.h"
#include "zqcore/cbitrows_internal.h"
#include "zqcore/cmemory.h"

#include "platform/debugheap.h"

#include <climits>

namespace
{
    struct Extent_s
    {
        int iX, iY, iZ;
    };

    // Bytes of a field; 0 if they are more than an object can have.
    std::size_t BytesOf(Extent_s const & Extent)
    {
        constexpr std::uint64_t LIMIT = PTRDIFF_MAX;
        std::uint64_t const nRow = static_cast<unsigned>(Extent.iX >> 3);
        std::uint64_t const nPlane = nRow * static_cast<unsigned>(Extent.iY);   // below 2^59
        std::uint64_t const nPlanes = static_cast<unsigned>(Extent.iZ);
        return nPlane != 0 && nPlanes > LIMIT / nPlane ? 0 : static_cast<std::size_t>(nPlane * nPlanes);
    }

    // A view of a field's storage.
    struct Field_s
    {
        Extent_s Extent;
        unsigned char * pBytes;

        std::size_t GetRowBytes() const { return static_cast<std::size_t>(Extent.iX >> 3); }
        std::size_t GetBytes() const { return BytesOf(Extent); }
        unsigned char * Row(int iY, int iZ) const
        {
            return pBytes
                   + GetRowBytes()
                         * (static_cast<std::size_t>(iY)
                             + static_cast<std::size_t>(Extent.iY) * static_cast<std::size_t>(iZ));
        }
    };

    Field_s FieldOf(BitMap_c const & Map)
    {
        return { { Map.iDimX, Map.iDimY, 1 }, Map.pMap };
    }

    Field_s FieldOf(BitMap3D_c const & Map)
    {
        return { { Map.iDimX, Map.iDimY, Map.iDimZ }, Map.pMap };
    }

    // The size that a field needs to hold the wanted one; false if nothing is to grow.
    bool GrownExtent(Extent_s const & Old, Extent_s const & Wanted, Extent_s & New)
    {
        if (Wanted.iX < 1 || Wanted.iY < 1 || Wanted.iZ < 1)
        {
            return false;
        }
        if (Wanted.iX <= Old.iX && Wanted.iY <= Old.iY && Wanted.iZ <= Old.iZ)
        {
            return false;
        }
        ZQ_ASSERT(Wanted.iX <= BitVec_c::MAX_BITS);
        if (Wanted.iX > BitVec_c::MAX_BITS)
        {
            return false;
        }
        New = { (std::max(Old.iX, Wanted.iX) + 7) & ~7, std::max(Old.iY, Wanted.iY), std::max(Old.iZ, Wanted.iZ) };
        ZQ_ASSERT(BytesOf(New) != 0);
        return BytesOf(New) != 0;
    }

    // Places the rows of a field in larger, zeroed storage.
    void CopyRows(Field_s const & From, Field_s const & To)
    {
        for (int iZ = 0; From.pBytes && To.pBytes && iZ < From.Extent.iZ; ++iZ)
        {
            for (int iY = 0; iY < From.Extent.iY; ++iY)
            {
                std::copy_n(From.Row(iY, iZ), From.GetRowBytes(), To.Row(iY, iZ));
            }
        }
    }

    void ClearField(Field_s const & Field)
    {
        std::fill_n(Field.pBytes, Field.pBytes ? Field.GetBytes() : 0, static_cast<unsigned char>(0));
    }

    // Calls fnRun with the common bytes of both fields, row by row or, where rows and planes follow each other alike in
    // both, in longer runs; ends as soon as it gives true, and tells whether it did.
    template <typename RUN>
    bool AnyCommonRun(Field_s const & A, Field_s const & B, RUN fnRun)
    {
        std::size_t nRun = std::min(A.GetRowBytes(), B.GetRowBytes());
        int nRows = std::min(A.Extent.iY, B.Extent.iY);
        int nPlanes = std::min(A.Extent.iZ, B.Extent.iZ);
        if (nRun == 0)
        {
            return false;
        }
        if (A.Extent.iX == B.Extent.iX)
        {
            nRun *= static_cast<std::size_t>(nRows);
            nRows = 1;
            if (A.Extent.iY == B.Extent.iY)
            {
                nRun *= static_cast<std::size_t>(nPlanes);
                nPlanes = 1;
            }
        }
        bool bFound = false;
        for (int iZ = 0; !bFound && iZ < nPlanes; ++iZ)
        {
            for (int iY = 0; !bFound && iY < nRows; ++iY)
            {
                bFound = fnRun(A.Row(iY, iZ), B.Row(iY, iZ), nRun);
            }
        }
        return bFound;
    }

    using Combine_t = void (*)(unsigned char *, unsigned char const *, std::size_t);

    void CombineFields(Field_s const & A, Field_s const & B, Combine_t fnCombine)
    {
        AnyCommonRun(A, B,
            [=](unsigned char * pA, unsigned char const * pB, std::size_t nBytes)
            {
                fnCombine(pA, pB, nBytes);
                return false;
            });
    }

    // Calls fnRow with each row of A and, where it has one, B's, until it gives false; whether it never did.
    template <typename ROW>
    bool AllRows(Field_s const & A, Field_s const & B, ROW fnRow)
    {
        bool bAll = true;
        for (int iZ = 0; A.pBytes && bAll && iZ < A.Extent.iZ; ++iZ)
        {
            for (int iY = 0; bAll && iY < A.Extent.iY; ++iY)
            {
                bool const bBoth = B.pBytes && iY < B.Extent.iY && iZ < B.Extent.iZ;
                bAll = fnRow(A.Row(iY, iZ), bBoth ? B.Row(iY, iZ) : nullptr, bBoth ? B.GetRowBytes() : 0);
            }
        }
        return bAll;
    }

    void AndFields(Field_s const & A, Field_s const & B)
    {
        AllRows(A, B,
            [&](unsigned char * pA, unsigned char const * pB, std::size_t nB)
            {
                bits::AndAndClear(pA, A.GetRowBytes(), pB, nB);
                return true;
            });
    }

    // Whether each row of A equals B's, or is zero where B has none.
    bool RowsEqual(Field_s const & A, Field_s const & B)
    {
        return AllRows(A, B,
            [&](unsigned char const * pA, unsigned char const * pB, std::size_t nB)
            { return bits::Equal(pA, A.GetRowBytes(), pB, nB); });
    }

    std::size_t BytesOf(BitVec_c const & Vec)
    {
        return static_cast<std::size_t>(Vec.iDim >> 3);
    }

    // What a row operation does to a row, which is null where the field has none.
    void SetRow(unsigned char * pRow, int iDimX, BitVec_c const & Vec)
    {
        if (pRow)
        {
            bits::CopyAndClear(pRow, static_cast<std::size_t>(iDimX >> 3), Vec.pVec, BytesOf(Vec));
        }
    }

    void AndRow(unsigned char * pRow, int iDimX, BitVec_c const & Vec)
    {
        if (pRow)
        {
            bits::AndAndClear(pRow, static_cast<std::size_t>(iDimX >> 3), Vec.pVec, BytesOf(Vec));
        }
    }

    void CombineRow(unsigned char * pRow, int iDimX, BitVec_c const & Vec, Combine_t fnCombine)
    {
        if (pRow)
        {
            fnCombine(pRow, Vec.pVec, std::min(static_cast<std::size_t>(iDimX >> 3), BytesOf(Vec)));
        }
    }

    bool RowEquals(unsigned char const * pRow, int iDimX, BitVec_c const & Vec)
    {
        return bits::Equal(pRow, pRow ? static_cast<std::size_t>(iDimX >> 3) : 0, Vec.pVec, BytesOf(Vec));
    }

    BitVec_c & GetRow(unsigned char const * pRow, int iDimX, BitVec_c & Vec)
    {
        if (!pRow)
        {
            Vec.Clear();
            return Vec;
        }
        Vec.Grow(iDimX);
        bits::CopyAndClear(Vec.pVec, BytesOf(Vec), pRow, static_cast<std::size_t>(iDimX >> 3));
        return Vec;
    }

    // The size that holds an index: 0, which grows nothing, for one that no size holds.
    int SizeFor(int iIndex)
    {
        return iIndex < INT_MAX ? iIndex + 1 : 0;
    }

    // As SizeFor for an index in X, where the largest indices ask for more than MAX_BITS, which is complained of.
    int BitsFor(int iIndex)
    {
        return iIndex < BitVec_c::MAX_BITS ? iIndex + 1 : iIndex;
    }

    // The byte of a bit that the field was grown to, in its row; null, with a complaint, if it is not there.
    unsigned char * ByteIn(unsigned char * pRow, int iX, int iDimX)
    {
        bool const bInside = pRow && 0 <= iX && iX < iDimX;
        ZQ_ASSERT_TEXT(bInside, "0 <= iX && iX < iDim");
        return bInside ? pRow + (iX >> 3) : nullptr;
    }

    void SetBit(unsigned char * pByte, int iX)
    {
        if (pByte)
        {
            *pByte |= static_cast<unsigned char>(0x80 >> (iX & 7));
        }
    }

    void ClearBit(unsigned char * pByte, int iX)
    {
        if (pByte)
        {
            *pByte &= static_cast<unsigned char>(~(0x80 >> (iX & 7)));
        }
    }
}

BitMap_c::BitMap_c(int iSizeX, int iSizeY)
{
    Grow(iSizeX, iSizeY);
}

BitMap_c::BitMap_c(BitMap_c const & Other)
{
    *this = Other;
}

BitMap_c & BitMap_c::Grow(int iSizeX, int iSizeY)
{
    Extent_s New;
    if (GrownExtent({ iDimX, iDimY, 1 }, { iSizeX, iSizeY, 1 }, New))
    {
        std::size_t const nBytes = BytesOf(New);
        void * const pNew = plat::HeapAlloc(nBytes, MEMORY_NORMAL_BLOCK, __FILE__, __LINE__);
        ZQ_ASSERT(pNew != nullptr);
        if (pNew)
        {
            Field_s const Grown = { New, static_cast<unsigned char *>(std::memset(pNew, 0, nBytes)) };
            CopyRows(FieldOf(*this), Grown);
            plat::HeapFree(pMap);
            pMap = Grown.pBytes;
            iDimX = New.iX;
            iDimY = New.iY;
        }
    }
    return *this;
}

void BitMap_c::Reset()
{
    plat::HeapFree(pMap);
    pMap = nullptr;
    iDimX = iDimY = 0;
}

void BitMap_c::Clear()
{
    ClearField(FieldOf(*this));
}

unsigned char * BitMap_c::GrowToRow(int iY, int iBits)
{
    bool const bNegative = iY < 0;
    return bNegative ? nullptr : Grow(iBits, SizeFor(iY)).Row(iY);
}

unsigned char * BitMap_c::GrowToByte(int iX, int iY)
{
    bool const bInside = static_cast<unsigned>(iX) < static_cast<unsigned>(iDimX) && Row(iY) != nullptr;
    unsigned char * const pRow = bInside ? Row(iY) : Grow(BitsFor(iX), SizeFor(iY)).Row(iY);
    return ByteIn(pRow, iX, iDimX);
}

void BitMap_c::Bis(int iX, int iY)
{
    SetBit(GrowToByte(iX, iY), iX);
}

void BitMap_c::Bic(int iX, int iY)
{
    ClearBit(GrowToByte(iX, iY), iX);
}

void BitMap_c::Set(int iY, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(iY, Vec.iDim);
    SetRow(pRow, iDimX, Vec);
}

void BitMap_c::Bis(int iY, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(iY, Vec.iDim);
    CombineRow(pRow, iDimX, Vec, bits::Or);
}

void BitMap_c::Xor(int iY, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(iY, Vec.iDim);
    CombineRow(pRow, iDimX, Vec, bits::Xor);
}

void BitMap_c::And(int iY, BitVec_c const & Vec)
{
    AndRow(Row(iY), iDimX, Vec);
}

void BitMap_c::Bic(int iY, BitVec_c const & Vec)
{
    CombineRow(Row(iY), iDimX, Vec, bits::AndNot);
}

bool BitMap_c::Equ(int iY, BitVec_c const & Vec) const
{
    return RowEquals(Row(iY), iDimX, Vec);
}

BitVec_c & BitMap_c::Get(int iY, BitVec_c & Vec) const
{
    return GetRow(Row(iY), iDimX, Vec);
}

bool BitMap_c::operator==(BitMap_c const & Other) const
{
    return RowsEqual(FieldOf(*this), FieldOf(Other)) && RowsEqual(FieldOf(Other), FieldOf(*this));
}

BitMap_c & BitMap_c::operator|=(BitMap_c const & Other)
{
    Grow(Other.iDimX, Other.iDimY);
    CombineFields(FieldOf(*this), FieldOf(Other), bits::Or);
    return *this;
}

BitMap_c & BitMap_c::operator^=(BitMap_c const & Other)
{
    Grow(Other.iDimX, Other.iDimY);
    CombineFields(FieldOf(*this), FieldOf(Other), bits::Xor);
    return *this;
}

BitMap_c & BitMap_c::operator&=(BitMap_c const & Other)
{
    AndFields(FieldOf(*this), FieldOf(Other));
    return *this;
}

BitMap_c & BitMap_c::operator-=(BitMap_c const & Other)
{
    CombineFields(FieldOf(*this), FieldOf(Other), bits::AndNot);
    return *this;
}

BitMap_c & BitMap_c::operator~()
{
    bits::Not(pMap, pMap ? FieldOf(*this).GetBytes() : 0);
    return *this;
}

BitMap_c & BitMap_c::operator=(BitMap_c const & Other)
{
    if (this != &Other)
    {
        Reset();
        Grow(Other.iDimX, Other.iDimY);
        CopyRows(FieldOf(Other), FieldOf(*this));
    }
    return *this;
}

BitMap_c & BitMap_c::operator=(char const * const * sData)
{
    ZQ_ASSERT(sData != nullptr);
    if (!sData)
    {
        return *this;
    }
    for (int iY = 0; iY < iDimY; ++iY)
    {
        char const * const szRow = *sData ? *sData++ : "";
        BitVec_c::FillFromDigits(Row(iY), static_cast<std::size_t>(iDimX >> 3), szRow);
    }
    return *this;
}

BitMap3D_c::BitMap3D_c(int iSizeX, int iSizeY, int iSizeZ)
{
    Grow(iSizeX, iSizeY, iSizeZ);
}

BitMap3D_c::BitMap3D_c(BitMap3D_c const & Other)
{
    *this = Other;
}

BitMap3D_c & BitMap3D_c::Grow(int iSizeX, int iSizeY, int iSizeZ)
{
    Extent_s New;
    if (GrownExtent({ iDimX, iDimY, iDimZ }, { iSizeX, iSizeY, iSizeZ }, New))
    {
        std::size_t const nBytes = BytesOf(New);
        void * const pNew = CoreMemory::operator_new(nBytes, MEMORY_CLIENT_BLOCK, __FILE__, __LINE__);
        ZQ_ASSERT(pNew != nullptr);
        if (pNew)
        {
            Field_s const Grown = { New, static_cast<unsigned char *>(std::memset(pNew, 0, nBytes)) };
            CopyRows(FieldOf(*this), Grown);
            CoreMemory::operator_delete_array(pMap);
            pMap = Grown.pBytes;
            iDimX = New.iX;
            iDimY = New.iY;
            iDimZ = New.iZ;
        }
    }
    return *this;
}

void BitMap3D_c::Reset()
{
    CoreMemory::operator_delete_array(pMap);
    pMap = nullptr;
    iDimX = iDimY = iDimZ = 0;
}

void BitMap3D_c::Clear()
{
    ClearField(FieldOf(*this));
}

unsigned char * BitMap3D_c::GrowToRow(int iY, int iZ, int iBits)
{
    bool const bNegative = iY < 0 || iZ < 0;
    return bNegative ? nullptr : Grow(iBits, SizeFor(iY), SizeFor(iZ)).Row(iY, iZ);
}

unsigned char * BitMap3D_c::GrowToByte(int iX, int iY, int iZ)
{
    bool const bInside = static_cast<unsigned>(iX) < static_cast<unsigned>(iDimX) && Row(iY, iZ) != nullptr;
    unsigned char * const pRow = bInside ? Row(iY, iZ) : Grow(BitsFor(iX), SizeFor(iY), SizeFor(iZ)).Row(iY, iZ);
    return ByteIn(pRow, iX, iDimX);
}

void BitMap3D_c::Bis(int iX, int iY, int iZ)
{
    SetBit(GrowToByte(iX, iY, iZ), iX);
}

void BitMap3D_c::Bic(int iX, int iY, int iZ)
{
    ClearBit(GrowToByte(iX, iY, iZ), iX);
}

void BitMap3D_c::Set(int iY, int iZ, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(iY, iZ, Vec.iDim);
    SetRow(pRow, iDimX, Vec);
}

void BitMap3D_c::Bis(int iY, int iZ, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(iY, iZ, Vec.iDim);
    CombineRow(pRow, iDimX, Vec, bits::Or);
}

void BitMap3D_c::Xor(int iY, int iZ, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(iY, iZ, Vec.iDim);
    CombineRow(pRow, iDimX, Vec, bits::Xor);
}

void BitMap3D_c::And(int iY, int iZ, BitVec_c const & Vec)
{
    AndRow(Row(iY, iZ), iDimX, Vec);
}

void BitMap3D_c::Bic(int iY, int iZ, BitVec_c const & Vec)
{
    CombineRow(Row(iY, iZ), iDimX, Vec, bits::AndNot);
}

bool BitMap3D_c::Equ(int iY, int iZ, BitVec_c const & Vec) const
{
    return RowEquals(Row(iY, iZ), iDimX, Vec);
}

BitVec_c & BitMap3D_c::Get(int iY, int iZ, BitVec_c & Vec) const
{
    return GetRow(Row(iY, iZ), iDimX, Vec);
}

bool BitMap3D_c::operator==(BitMap3D_c const & Other) const
{
    return RowsEqual(FieldOf(*this), FieldOf(Other)) && RowsEqual(FieldOf(Other), FieldOf(*this));
}

BitMap3D_c & BitMap3D_c::operator|=(BitMap3D_c const & Other)
{
    Grow(Other.iDimX, Other.iDimY, Other.iDimZ);
    CombineFields(FieldOf(*this), FieldOf(Other), bits::Or);
    return *this;
}

BitMap3D_c & BitMap3D_c::operator^=(BitMap3D_c const & Other)
{
    Grow(Other.iDimX, Other.iDimY, Other.iDimZ);
    CombineFields(FieldOf(*this), FieldOf(Other), bits::Xor);
    return *this;
}

BitMap3D_c & BitMap3D_c::operator&=(BitMap3D_c const & Other)
{
    AndFields(FieldOf(*this), FieldOf(Other));
    return *this;
}

BitMap3D_c & BitMap3D_c::operator-=(BitMap3D_c const & Other)
{
    CombineFields(FieldOf(*this), FieldOf(Other), bits::AndNot);
    return *this;
}

BitMap3D_c & BitMap3D_c::operator~()
{
    bits::Not(pMap, pMap ? FieldOf(*this).GetBytes() : 0);
    return *this;
}

BitMap3D_c & BitMap3D_c::operator=(BitMap3D_c const & Other)
{
    if (this != &Other)
    {
        Reset();
        Grow(Other.iDimX, Other.iDimY, Other.iDimZ);
        CopyRows(FieldOf(Other), FieldOf(*this));
    }
    return *this;
}

bool BitMap3D_c::Intersects(BitMap3D_c const & Other) const
{
    return AnyCommonRun(FieldOf(*this), FieldOf(Other), bits::Meet);
}
