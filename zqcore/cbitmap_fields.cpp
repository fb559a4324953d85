// The plane and the space. The code handles a plane as a space of depth 1.
#include "zqcore/cbitmap.h"
#include "zqcore/cbitrows_internal.h"
#include "zqcore/cmemory_internal.h"

#include <climits>

namespace
{
    // Size of a field: bits of a row, rows of a plane, planes.
    struct Extent_s
    {
        int iX = 0, iY = 0, iZ = 1;   // a plane is one deep
    };

    // Returns the number of bytes of a row of iDimX bits.
    std::size_t RowBytes(int iDimX)
    {
        return static_cast<std::size_t>(iDimX >> 3);
    }

    // Returns the number of bytes of a field, or 0 if they are more than an object can have.
    std::size_t BytesOf(Extent_s const & Extent)
    {
        constexpr std::uint64_t LIMIT = PTRDIFF_MAX;
        std::uint64_t const nRow = RowBytes(Extent.iX);
        std::uint64_t const nPlane = nRow * static_cast<unsigned>(Extent.iY);   // below 2^59
        std::uint64_t const nPlanes = static_cast<unsigned>(Extent.iZ);
        return nPlane != 0 && nPlanes > LIMIT / nPlane ? 0 : static_cast<std::size_t>(nPlane * nPlanes);
    }

    // A view of the storage of a field.
    struct Field_s
    {
        Extent_s Extent;
        unsigned char * pBytes = nullptr;

        std::size_t GetRowBytes() const { return RowBytes(Extent.iX); }
        std::size_t GetBytes() const { return BytesOf(Extent); }
        unsigned char * Row(int iY, int iZ) const
        {
            return pBytes
                   + GetRowBytes()
                         * (static_cast<std::size_t>(iY)
                             + static_cast<std::size_t>(Extent.iY) * static_cast<std::size_t>(iZ));
        }
    };

    // Differences of the two kinds of field: the third size, and the source of the storage.
    template <typename FIELD>
    struct Kind_T;

    template <>
    struct Kind_T<BitMap_c>
    {
        static int Depth(BitMap_c const &) { return 1; }
        static void SetDepth(BitMap_c &, int) {}
        static void * Alloc(std::size_t nBytes) { return MemoryAllocNormal(nBytes, __FILE__, __LINE__); }
        static void Free(void * pBytes) { MemoryFreeNormal(pBytes); }
    };

    template <>
    struct Kind_T<BitMap3D_c>
    {
        static int Depth(BitMap3D_c const & Map) { return Map.iDimZ; }
        static void SetDepth(BitMap3D_c & Map, int iDepth) { Map.iDimZ = iDepth; }
        static void * Alloc(std::size_t nBytes)
        {
            return CoreMemory::operator_new_array(nBytes, MEMORY_CLIENT_BLOCK, __FILE__, __LINE__);
        }
        static void Free(void * pBytes) { CoreMemory::operator_delete_array(pBytes); }
    };

    template <typename FIELD>
    Field_s FieldOf(FIELD const & Map)
    {
        return { { Map.iDimX, Map.iDimY, Kind_T<FIELD>::Depth(Map) }, Map.pMap };
    }

    template <typename FIELD>
    void SetField(FIELD & Map, Field_s const & Field)
    {
        Map.iDimX = Field.Extent.iX;
        Map.iDimY = Field.Extent.iY;
        Kind_T<FIELD>::SetDepth(Map, Field.Extent.iZ);
        Map.pMap = Field.pBytes;
    }

    // Sets New to the size that holds both and returns true. Asserts that the new size is allowed, and returns false
    // otherwise. Returns false if nothing has to grow, or if a wanted size is below 1.
    bool GrowExtent(Extent_s const & Old, Extent_s const & Wanted, Extent_s & New)
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
        New = { bits::RoundUp(std::max(Old.iX, Wanted.iX)), std::max(Old.iY, Wanted.iY), std::max(Old.iZ, Wanted.iZ) };
        ZQ_ASSERT(BytesOf(New) != 0);
        return BytesOf(New) != 0;
    }

    // Returns whether two fields have storage and the same size, so that all rows can be handled as one.
    bool HasSameRows(Field_s const & First, Field_s const & Second)
    {
        return First.pBytes && Second.pBytes && First.Extent.iX == Second.Extent.iX
               && First.Extent.iY == Second.Extent.iY && First.Extent.iZ == Second.Extent.iZ;
    }

    // Copies the rows of a field to zeroed storage that is not smaller. Does nothing if one of them has no storage.
    void CopyRows(Field_s const & From, Field_s const & To)
    {
        if (HasSameRows(From, To))
        {
            std::copy_n(From.pBytes, From.GetBytes(), To.pBytes);
            return;
        }
        for (int iZ = 0; From.pBytes && To.pBytes && iZ < From.Extent.iZ; ++iZ)
        {
            if (From.Extent.iX == To.Extent.iX)
            {
                std::copy_n(
                    From.Row(0, iZ), From.GetRowBytes() * static_cast<std::size_t>(From.Extent.iY), To.Row(0, iZ));
                continue;
            }
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

    // Calls fnRun with the common bytes of both fields, row by row. If the rows of both have the same length, a run has
    // the common rows of a plane. If the planes have the same size too, one run has all. Ends and returns true when
    // fnRun returns true. Otherwise returns false.
    template <typename RUN>
    bool VisitCommonRuns(Field_s const & First, Field_s const & Second, RUN fnRun)
    {
        std::size_t nRun = std::min(First.GetRowBytes(), Second.GetRowBytes());
        int nRows = std::min(First.Extent.iY, Second.Extent.iY);
        int nPlanes = std::min(First.Extent.iZ, Second.Extent.iZ);
        if (nRun == 0)
        {
            return false;
        }
        if (First.Extent.iX == Second.Extent.iX)
        {
            nRun *= static_cast<std::size_t>(nRows);
            nRows = 1;
            if (First.Extent.iY == Second.Extent.iY)
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
                bFound = fnRun(First.Row(iY, iZ), Second.Row(iY, iZ), nRun);
            }
        }
        return bFound;
    }

    using Combine_t = void (*)(unsigned char *, unsigned char const *, std::size_t);

    void CombineFields(Field_s const & To, Field_s const & From, Combine_t fnCombine)
    {
        VisitCommonRuns(To, From,
            [=](unsigned char * pTo, unsigned char const * pFrom, std::size_t nBytes)
            {
                fnCombine(pTo, pFrom, nBytes);
                return false;
            });
    }

    // Calls fnRow with each row of First and the row of Second, if there is one. Ends and returns false when fnRow
    // returns false. Otherwise returns true.
    template <typename ROW>
    bool VisitRows(Field_s const & First, Field_s const & Second, ROW fnRow)
    {
        bool bAll = true;
        for (int iZ = 0; First.pBytes && bAll && iZ < First.Extent.iZ; ++iZ)
        {
            for (int iY = 0; bAll && iY < First.Extent.iY; ++iY)
            {
                bool const bBoth = Second.pBytes && iY < Second.Extent.iY && iZ < Second.Extent.iZ;
                bAll = fnRow(First.Row(iY, iZ), bBoth ? Second.Row(iY, iZ) : nullptr, bBoth ? Second.GetRowBytes() : 0);
            }
        }
        return bAll;
    }

    void AndFields(Field_s const & To, Field_s const & From)
    {
        if (HasSameRows(To, From))
        {
            return bits::And(To.pBytes, From.pBytes, To.GetBytes());
        }
        VisitRows(To, From,
            [&](unsigned char * pTo, unsigned char const * pFrom, std::size_t nFrom)
            {
                bits::AndAndClear(pTo, To.GetRowBytes(), pFrom, nFrom);
                return true;
            });
    }

    // Returns whether each row of First equals that of Second, or is zero if Second has none.
    bool AreRowsEqual(Field_s const & First, Field_s const & Second)
    {
        if (HasSameRows(First, Second))
        {
            return std::memcmp(First.pBytes, Second.pBytes, First.GetBytes()) == 0;
        }
        return VisitRows(First, Second,
            [&](unsigned char const * pFirst, unsigned char const * pSecond, std::size_t nSecond)
            { return bits::Equal(pFirst, First.GetRowBytes(), pSecond, nSecond); });
    }

    std::size_t BytesOf(BitVec_c const & Vec)
    {
        return RowBytes(Vec.iDim);
    }

    // Copies the vector to a row and clears the rest. In this and the next functions pRow is null if the field has no
    // such row.
    void SetRow(unsigned char * pRow, int iDimX, BitVec_c const & Vec)
    {
        if (pRow)
        {
            bits::CopyAndClear(pRow, RowBytes(iDimX), Vec.pVec, BytesOf(Vec));
        }
    }

    void AndRow(unsigned char * pRow, int iDimX, BitVec_c const & Vec)
    {
        if (pRow)
        {
            bits::AndAndClear(pRow, RowBytes(iDimX), Vec.pVec, BytesOf(Vec));
        }
    }

    void CombineRow(unsigned char * pRow, int iDimX, BitVec_c const & Vec, Combine_t fnCombine)
    {
        if (pRow)
        {
            fnCombine(pRow, Vec.pVec, std::min(RowBytes(iDimX), BytesOf(Vec)));
        }
    }

    bool IsRowEqual(unsigned char const * pRow, int iDimX, BitVec_c const & Vec)
    {
        return bits::Equal(pRow, pRow ? RowBytes(iDimX) : 0, Vec.pVec, BytesOf(Vec));
    }

    BitVec_c & GetRow(unsigned char const * pRow, int iDimX, BitVec_c & Vec)
    {
        if (!pRow)
        {
            Vec.Clear();
            return Vec;
        }
        Vec.Grow(iDimX);
        bits::CopyAndClear(Vec.pVec, BytesOf(Vec), pRow, RowBytes(iDimX));
        return Vec;
    }

    // Returns the size that holds an index. Returns a size below 1, to which nothing grows, if none holds it.
    int SizeFor(int iIndex)
    {
        return iIndex < INT_MAX ? iIndex + 1 : 0;
    }

    // Returns the size that holds an index in X. Returns an index above MAX_BITS as it is, because one more may
    // overflow. A size above MAX_BITS fails an assertion of GrowExtent.
    int BitsFor(int iIndex)
    {
        return iIndex <= BitVec_c::MAX_BITS ? iIndex + 1 : iIndex;
    }

    // Returns the byte of a bit in its row, after the field was grown to hold the bit. Asserts that the row has the
    // bit, and returns null otherwise.
    unsigned char * ByteIn(unsigned char * pRow, int iX, int iDimX)
    {
        bool const bInside = pRow && 0 <= iX && iX < iDimX;
        ZQ_ASSERT_TEXT(bInside, "0 <= iX && iX < iDim");
        return bInside ? pRow + (iX >> 3) : nullptr;
    }

    void SetBit(unsigned char * pByte, unsigned char cMask)
    {
        if (pByte)
        {
            *pByte |= cMask;
        }
    }

    void ClearBit(unsigned char * pByte, unsigned char cMask)
    {
        if (pByte)
        {
            *pByte &= static_cast<unsigned char>(~cMask);
        }
    }

    // Grows a field to the size that GrowExtent sets, if it returns true. Asserts that there is memory, and keeps the
    // field otherwise.
    template <typename FIELD>
    void GrowTo(FIELD & Map, Extent_s const & Wanted)
    {
        Field_s const Old = FieldOf(Map);
        Extent_s New;
        if (!GrowExtent(Old.Extent, Wanted, New))
        {
            return;
        }
        // If the rows and planes keep their places, the field may grow into the room after it.
        bool const bAppends =
            New.iX == Old.Extent.iX && (New.iY == Old.Extent.iY || (New.iZ == 1 && Old.Extent.iZ == 1));
        if (Map.pMap && bAppends && BytesOf(New) <= Map.m_nRoom)
        {
            std::memset(Map.pMap + Old.GetBytes(), 0, BytesOf(New) - Old.GetBytes());
            return SetField(Map, { New, Map.pMap });
        }
        std::size_t const nRoom = bAppends ? bits::RoomFor(Old.GetBytes(), BytesOf(New)) : BytesOf(New);
        void * const pNew = Kind_T<FIELD>::Alloc(nRoom);
        ZQ_ASSERT(pNew != nullptr);
        if (pNew)
        {
            Map.m_nRoom = nRoom;
            Field_s const Grown = { New, static_cast<unsigned char *>(std::memset(pNew, 0, nRoom)) };
            CopyRows(Old, Grown);
            Kind_T<FIELD>::Free(Map.pMap);
            SetField(Map, Grown);
        }
    }
}

template <typename FIELD, typename... INDEX>
FIELD & BitField_T<FIELD, INDEX...>::Grow(int iSizeX, INDEX... iSizes)
{
    GrowTo(Self(), Extent_s{ iSizeX, iSizes... });
    return Self();
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::Reset()
{
    Kind_T<FIELD>::Free(Self().pMap);
    SetField(Self(), { { 0, 0, 0 }, nullptr });
    Self().m_nRoom = 0;
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::Clear()
{
    ClearField(FieldOf(Self()));
}

template <typename FIELD, typename... INDEX>
unsigned char * BitField_T<FIELD, INDEX...>::GrowToRow(int nBits, INDEX... iRow)
{
    bool const bNegative = ((iRow < 0) || ...);
    return bNegative ? nullptr : Grow(nBits, SizeFor(iRow)...).Row(iRow...);
}

template <typename FIELD, typename... INDEX>
unsigned char * BitField_T<FIELD, INDEX...>::GrowToByte(int iX, INDEX... iRow)
{
    unsigned char * pRow = Self().Row(iRow...);
    if (!pRow || static_cast<unsigned>(iX) >= static_cast<unsigned>(Self().iDimX))
    {
        pRow = Grow(BitsFor(iX), SizeFor(iRow)...).Row(iRow...);
    }
    return ByteIn(pRow, iX, Self().iDimX);
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::Bis(int iX, INDEX... iRow)
{
    SetBit(GrowToByte(iX, iRow...), BitVec_c::MaskOf(iX));
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::Bic(int iX, INDEX... iRow)
{
    ClearBit(GrowToByte(iX, iRow...), BitVec_c::MaskOf(iX));
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::Set(INDEX... iRow, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(Vec.iDim, iRow...);
    SetRow(pRow, Self().iDimX, Vec);
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::Bis(INDEX... iRow, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(Vec.iDim, iRow...);
    CombineRow(pRow, Self().iDimX, Vec, bits::Or);
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::Xor(INDEX... iRow, BitVec_c const & Vec)
{
    unsigned char * const pRow = GrowToRow(Vec.iDim, iRow...);
    CombineRow(pRow, Self().iDimX, Vec, bits::Xor);
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::And(INDEX... iRow, BitVec_c const & Vec)
{
    AndRow(Self().Row(iRow...), Self().iDimX, Vec);
}

template <typename FIELD, typename... INDEX>
void BitField_T<FIELD, INDEX...>::Bic(INDEX... iRow, BitVec_c const & Vec)
{
    CombineRow(Self().Row(iRow...), Self().iDimX, Vec, bits::AndNot);
}

template <typename FIELD, typename... INDEX>
bool BitField_T<FIELD, INDEX...>::Equ(INDEX... iRow, BitVec_c const & Vec) const
{
    return IsRowEqual(Self().Row(iRow...), Self().iDimX, Vec);
}

template <typename FIELD, typename... INDEX>
BitVec_c & BitField_T<FIELD, INDEX...>::Get(INDEX... iRow, BitVec_c & Vec) const
{
    return GetRow(Self().Row(iRow...), Self().iDimX, Vec);
}

template <typename FIELD, typename... INDEX>
std::size_t BitField_T<FIELD, INDEX...>::Count() const
{
    return bits::Count(Self().pMap, Self().pMap ? FieldOf(Self()).GetBytes() : 0);
}

template <typename FIELD, typename... INDEX>
bool BitField_T<FIELD, INDEX...>::AnySet() const
{
    return Self().pMap && !bits::IsZero(Self().pMap, FieldOf(Self()).GetBytes());
}

template <typename FIELD, typename... INDEX>
bool BitField_T<FIELD, INDEX...>::IsEqual(FIELD const & Other) const
{
    return AreRowsEqual(FieldOf(Self()), FieldOf(Other)) && AreRowsEqual(FieldOf(Other), FieldOf(Self()));
}

// Grows to at least the size of the other field and returns this one. Asserts that this one is then at least as wide.
// On failure keeps the size.
template <typename FIELD, typename... INDEX>
FIELD & BitField_T<FIELD, INDEX...>::GrowToField(FIELD const & Other)
{
    GrowTo(Self(), FieldOf(Other).Extent);
    ZQ_ASSERT_TEXT(Self().iDimX >= Other.iDimX, "iDimX >= m2.iDimX");
    return Self();
}

template <typename FIELD, typename... INDEX>
FIELD & BitField_T<FIELD, INDEX...>::operator|=(FIELD const & Other)
{
    CombineFields(FieldOf(GrowToField(Other)), FieldOf(Other), bits::Or);
    return Self();
}

template <typename FIELD, typename... INDEX>
FIELD & BitField_T<FIELD, INDEX...>::operator^=(FIELD const & Other)
{
    CombineFields(FieldOf(GrowToField(Other)), FieldOf(Other), bits::Xor);
    return Self();
}

template <typename FIELD, typename... INDEX>
FIELD & BitField_T<FIELD, INDEX...>::operator&=(FIELD const & Other)
{
    AndFields(FieldOf(Self()), FieldOf(Other));
    return Self();
}

template <typename FIELD, typename... INDEX>
FIELD & BitField_T<FIELD, INDEX...>::operator-=(FIELD const & Other)
{
    CombineFields(FieldOf(Self()), FieldOf(Other), bits::AndNot);
    return Self();
}

template <typename FIELD, typename... INDEX>
FIELD & BitField_T<FIELD, INDEX...>::operator~()
{
    bits::Not(Self().pMap, Self().pMap ? FieldOf(Self()).GetBytes() : 0);
    return Self();
}

template <typename FIELD, typename... INDEX>
FIELD & BitField_T<FIELD, INDEX...>::Assign(FIELD const & Other)
{
    if (&Self() != &Other)
    {
        Reset();
        CopyRows(FieldOf(Other), FieldOf(GrowToField(Other)));
    }
    return Self();
}

template class BitField_T<BitMap_c, int>;
template class BitField_T<BitMap3D_c, int, int>;

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
        BitVec_c::FillFromDigits(Row(iY), RowBytes(iDimX), szRow);
    }
    return *this;
}

bool BitMap3D_c::Intersects(BitMap3D_c const & Other) const
{
    return VisitCommonRuns(FieldOf(*this), FieldOf(Other), bits::Meet);
}
