// cbitmap.h: fields of bits: a row, a plane and a space that grow, and a plane of 28 bits in one word.
//
// BitVec_c, BitMap_c and BitMap3D_c share one layout. A row is a whole number of bytes: widths are rounded up to a
// multiple of 8, and the additional bits are ordinary bits. Bit iX of a row is in byte iX >> 3 with the mask 0x80 >>
// (iX & 7), so bit 0 is the highest bit of the first byte. Texts, Scan0, Scan1 and a BitVec_c in an archive use that
// order. X runs fastest, then Y, then Z. New storage is zeroed. Growing keeps every bit at its coordinates.
//
// Ownership: each object owns its storage.
// Threads: no lock; one thread at a time for each object.
// Cost: growing allocates and copies, and makes room for as much again, at most 16 MiB, if the rows stay in place.
// Operators work on whole words.
// Failure: these fail an assertion and do nothing:
// - setting a bit at a negative coordinate, and clearing one in a plane or a space.
// - setting or clearing a bit at INT_MAX in Y or Z.
// - growing above MAX_BITS in X, or to more bytes than an object can have.
// - growing a plane or a space without memory.
// A row without memory does not grow. Only Bis asserts then. |= and ^= leave the row as it is, and a copy is empty.
// If a plane or a space can't grow to another field or to a vector, it still combines the part that it has. An
// exhausted heap ends in Abort (cmemory.h), so an object is without memory only before MemoryInit and after MemoryDone.
//
//     BitVec_c Visited(64);
//     Visited.Bis(3);
//     Visited.Bis(100);                       // grows to 104 bits
//     for (int iBit = Visited.Scan1(); iBit >= 0; iBit = Visited.NextSet(iBit + 1))
//     {
//         Log("%i", iBit);                    // 3, then 100
//     }
//     char szHex[27];
//     Visited.Hex(szHex, sizeof szHex);       // "10000000000000000000000008"
#pragma once

#include "zqcore/cdebug.h"

#include "platform/words.h"

#include <concepts>
#include <utility>

class Serializeable_c;

/// A growable row of bits.
class ZQ_API BitVec_c
{
public:
    static constexpr int MAX_BITS = 0x7FFFFFF8;   // the longest row

    /// Makes a row of nBits zero bits, rounded up. The row is empty if nBits is below 1.
    explicit BitVec_c(int nBits = 0);

    /// Makes a copy of the bits and the size.
    BitVec_c(BitVec_c const & Other);
    BitVec_c(BitVec_c && Other) noexcept { Swap(Other); }   // leaves the other one empty
    ~BitVec_c() { Reset(); }

    /// Exchanges the storage and the sizes of the two rows.
    void Swap(BitVec_c & Other) noexcept;

    /// Grows to at least nBits bits and returns the row. Never shrinks.
    BitVec_c & Grow(int nBits);

    /// Empties the row and frees its storage.
    void Reset();

    /// Zeroes all bits and keeps the size.
    void Clear();

    /// Returns the bit, or false outside the row.
    bool Bit(int iX) const { return IsInside(iX) && (pVec[iX >> 3] & MaskOf(iX)) != 0; }

    /// Sets the bit. Grows to it if it is outside.
    void Bis(int iX);

    /// Clears the bit. Does nothing outside the row.
    void Bic(int iX);

    /// Sets or clears the bit as Bis and Bic do.
    void Set(int iX, bool bSet)
    {
        if (bSet)
        {
            Bis(iX);
        }
        else
        {
            Bic(iX);
        }
    }

    /// Return the index of the first clear bit, and of the first set bit, or -1 if there is none.
    int Scan0() const;
    int Scan1() const;

    /// Returns the index of the first set bit at or after iFrom, or -1 if there is none. Requires iFrom >= 0.
    int NextSet(int iFrom) const;

    /// Return the number of set bits, whether there is one, and whether there is none.
    std::size_t Count() const;
    bool AnySet() const { return Scan1() >= 0; }
    bool NoneSet() const { return !AnySet(); }

    /// Returns whether the same bits are set. Bits beyond the end of a row count as clear.
    bool operator==(BitVec_c const & Other) const;

    /// Combine this row with the other one: |= by or, ^= by exclusive or. Grow to the size of the other row.
    BitVec_c & operator|=(BitVec_c const & Other);
    BitVec_c & operator^=(BitVec_c const & Other);

    /// Clear bits of this row: &= those that are clear in the other row, -= those that are set in it. The size stays.
    BitVec_c & operator&=(BitVec_c const & Other);
    BitVec_c & operator-=(BitVec_c const & Other);

    /// Inverts every bit in place, those from rounding up too. Returns this object, not a copy.
    BitVec_c & operator~();

    /// Copies the bits of the other row. If this row is longer, it keeps its size and clears its further bits. An empty
    /// source empties this row. A lack of memory for a longer source empties it too.
    BitVec_c & operator=(BitVec_c const & Other);

    /// Does what the copy assignment does, and leaves the other row empty. Copies nothing unless this row is longer.
    BitVec_c & operator=(BitVec_c && Other) noexcept
    {
        if (Other.iDim > 0 && Other.iDim < iDim)
        {
            *this = std::as_const(Other);
            Other.Reset();
            return *this;
        }
        BitVec_c Row(std::move(Other));
        Swap(Row);
        return *this;
    }

    /// Sets all bytes from hexadecimal digits, two a byte, the high half first. Skips other characters. Fills with
    /// zeros after a short text. The size stays. Asserts that szData is not null, and changes nothing otherwise.
    BitVec_c & operator=(char const * szData);

    /// Writes the row as upper-case hexadecimal digits, two a byte but at most nLen, and a terminator if nLen has room
    /// for it after them. Returns szData.
    char * Hex(char * szData, int nLen) const;

    /// Saves or loads: the size in bits, then the bytes. Loading grows to the size and clears the rest. An archive of
    /// unknown length (GetPosition -1 or GetLength 0) is read in steps. A size that the archive can't hold, or for
    /// which there is no memory, fails the archive and changes nothing. Returns false if the archive has failed.
    bool Serialize(Serializeable_c & Archive);

    int iDim = 0;                     // bits, a multiple of 8
    unsigned char * pVec = nullptr;   // the bytes, null while empty
    int m_nRoom = 0;                  // bytes of the storage

protected:
    friend class BitMap_c;
    template <typename FIELD, typename... INDEX>
    friend class BitField_T;

    /// Returns the low four bits as a digit, 0 to 9 or A to F.
    static char IntoDigit(int iValue);

    /// Moves szText after the next hexadecimal digit and returns its value. Returns 0 at the terminator and stays
    /// there.
    static int FromDigit(char const *& szText);

private:
    static unsigned char MaskOf(int iX) { return static_cast<unsigned char>(0x80 >> (iX & 7)); }
    bool IsInside(int iX) const { return static_cast<unsigned>(iX) < static_cast<unsigned>(iDim); }
    std::size_t GetBytes() const { return static_cast<std::size_t>(iDim >> 3); }
    bool Load(Serializeable_c & Archive, int nBits);
    static void FillFromDigits(unsigned char * pBytes, std::size_t nBytes, char const * szText);
    template <typename COMBINE>
    bool CombineShort(BitVec_c const & Other, COMBINE fnCombine);
    template <void (*COMBINE)(unsigned char *, unsigned char const *, std::size_t)>
    BitVec_c & CombineAny(BitVec_c const & Other);
    BitVec_c & OrAny(BitVec_c const & Other);
    BitVec_c & XorAny(BitVec_c const & Other);
};

/// Combines two short rows of the same number of whole words and returns true. Makes no call, which would take longer
/// than the work. Returns false and changes nothing for other rows.
template <typename COMBINE>
bool BitVec_c::CombineShort(BitVec_c const & Other, COMBINE fnCombine)
{
    constexpr int SHORT_BITS = 512;
    if (Other.iDim != iDim || iDim > SHORT_BITS || iDim % 64 != 0)
    {
        return false;
    }
    // The pointers are copied because, for the compiler, a store to the bits might change this object.
    unsigned char * const pTo = pVec;
    unsigned char const * const pFrom = Other.pVec;
    std::size_t const nBytes = GetBytes();
    std::size_t i = 0;
    for (; i + sizeof(plat::Words_t) <= nBytes; i += sizeof(plat::Words_t))
    {
        plat::WordsStore(pTo + i, fnCombine(plat::WordsLoad(pTo + i), plat::WordsLoad(pFrom + i)));
    }
    if (i < nBytes)
    {
        std::uint64_t Word, From;
        std::memcpy(&Word, pTo + i, sizeof(Word));
        std::memcpy(&From, pFrom + i, sizeof(From));
        Word = fnCombine(Word, From);
        std::memcpy(pTo + i, &Word, sizeof(Word));
    }
    return true;
}

inline BitVec_c & BitVec_c::operator|=(BitVec_c const & Other)
{
    return CombineShort(Other, [](auto A, auto B) { return A | B; }) ? *this : OrAny(Other);
}

inline BitVec_c & BitVec_c::operator^=(BitVec_c const & Other)
{
    return CombineShort(Other, [](auto A, auto B) { return A ^ B; }) ? *this : XorAny(Other);
}

/// Common part of BitMap_c and BitMap3D_c. FIELD is the derived class. INDEX is one int for each coordinate that
/// selects a row: iY in a plane, iY and iZ in a space.
template <typename FIELD, typename... INDEX>
class ZQ_API BitField_T
{
public:
    /// Grows to at least these sizes and returns the field. Does nothing if one of them is below 1. Never shrinks.
    FIELD & Grow(int iSizeX, INDEX... iSizes);

    /// Empties the field and frees its storage.
    void Reset();

    /// Zeroes all bits and keeps the size.
    void Clear();

    /// Returns the bit, or false outside the field.
    bool Bit(int iX, INDEX... iRow) const;

    /// Set the bit, clear it, and do either by bSet. All grow to a bit outside the field, Bic too.
    void Bis(int iX, INDEX... iRow);
    void Bic(int iX, INDEX... iRow);
    void Set(int iX, INDEX... iRow, bool bSet)
    {
        if (bSet)
        {
            Bis(iX, iRow...);
        }
        else
        {
            Bic(iX, iRow...);
        }
    }

    /// Combine a row with a vector. Set copies the vector and clears the rest of the row. Bis and Xor combine over the
    /// length of the vector. All grow to the vector and the row, unless the vector is empty. They do nothing at a
    /// negative coordinate or at INT_MAX.
    void Set(INDEX... iRow, BitVec_c const & Vec);
    void Bis(INDEX... iRow, BitVec_c const & Vec);
    void Xor(INDEX... iRow, BitVec_c const & Vec);

    /// Clear bits of the row: And those that are clear in the vector, Bic those that are set in it. Nothing grows.
    void And(INDEX... iRow, BitVec_c const & Vec);
    void Bic(INDEX... iRow, BitVec_c const & Vec);

    /// Returns whether the same bits are set in the row as in the vector. A row outside the field has none.
    bool Equ(INDEX... iRow, BitVec_c const & Vec) const;

    /// Copies the row into the vector, which grows to it, and clears the rest of the vector. A row outside the field
    /// clears the vector. Returns the vector.
    BitVec_c & Get(INDEX... iRow, BitVec_c & Vec) const;

    /// Combine the fields by coordinates and return this one, as the operators of BitVec_c do. Fields are equal if the
    /// same bits are set. Bits outside a field count as clear.
    FIELD & operator|=(FIELD const & Other);
    FIELD & operator^=(FIELD const & Other);
    FIELD & operator&=(FIELD const & Other);
    FIELD & operator-=(FIELD const & Other);
    friend bool operator==(FIELD const & a, FIELD const & b) { return a.IsEqual(b); }

    /// Inverts every bit of the field in place, those from rounding up too. Returns this object, not a copy.
    FIELD & operator~();

    /// Return the number of set bits, whether there is one, and whether there is none.
    std::size_t Count() const;
    bool AnySet() const;
    bool NoneSet() const { return !AnySet(); }

protected:
    BitField_T() = default;

    /// Copies the other field with its size and returns this one.
    FIELD & Assign(FIELD const & Other);

private:
    FIELD & Self() { return static_cast<FIELD &>(*this); }
    FIELD const & Self() const { return static_cast<FIELD const &>(*this); }
    bool IsEqual(FIELD const & Other) const;
    FIELD & GrowToField(FIELD const & Other);
    unsigned char * GrowToRow(int nBits, INDEX... iRow);
    unsigned char * GrowToByte(int iX, INDEX... iRow);
};

class ZQ_API BitMap_c;
class ZQ_API BitMap3D_c;

/// Bases of a plane and of a space.
using BitPlane_t = BitField_T<BitMap_c, int>;
using BitSpace_t = BitField_T<BitMap3D_c, int, int>;

/// A growable plane of bits.
class ZQ_API BitMap_c : public BitPlane_t
{
public:
    /// Makes a field of zero bits. The field is empty if a size is below 1.
    explicit BitMap_c(int iSizeX = 0, int iSizeY = 0) { Grow(iSizeX, iSizeY); }

    /// Makes a copy of the bits and the sizes.
    BitMap_c(BitMap_c const & Other)
        : BitMap_c()
    {
        Assign(Other);
    }
    ~BitMap_c() { Reset(); }

    /// Copies the bits and the sizes of the other one.
    BitMap_c & operator=(BitMap_c const & Other) { return Assign(Other); }

    /// Move the storage and the sizes here, and leave the other plane empty. The assignment frees this plane's storage.
    BitMap_c(BitMap_c && Other) noexcept { Swap(Other); }
    BitMap_c & operator=(BitMap_c && Other) noexcept
    {
        BitMap_c Map(std::move(Other));
        Swap(Map);
        return *this;
    }

    /// Exchanges the storage and the sizes of the two planes.
    void Swap(BitMap_c & Other) noexcept;

    /// Sets the rows from an array of texts that ends in null, each as BitVec_c does, and clears the further rows. The
    /// size stays. Asserts that sData is not null, and changes nothing otherwise.
    BitMap_c & operator=(char const * const * sData);

    int iDimX = 0;                    // bits in a row, a multiple of 8
    int iDimY = 0;                    // rows
    unsigned char * pMap = nullptr;   // the bytes, null while empty
    std::size_t m_nRoom = 0;          // bytes of the storage

private:
    friend BitPlane_t;
    unsigned char * Row(int iY) const;
};

/// A growable space of bits.
class ZQ_API BitMap3D_c : public BitSpace_t
{
public:
    /// Makes a field of zero bits. The field is empty if a size is below 1.
    explicit BitMap3D_c(int iSizeX = 0, int iSizeY = 0, int iSizeZ = 0) { Grow(iSizeX, iSizeY, iSizeZ); }

    /// Makes a copy of the bits and the sizes.
    BitMap3D_c(BitMap3D_c const & Other)
        : BitMap3D_c()
    {
        Assign(Other);
    }
    ~BitMap3D_c() { Reset(); }

    /// Copies the bits and the sizes of the other one.
    BitMap3D_c & operator=(BitMap3D_c const & Other) { return Assign(Other); }

    /// Move the storage and the sizes here, and leave the other space empty. The assignment frees this space's storage.
    BitMap3D_c(BitMap3D_c && Other) noexcept { Swap(Other); }
    BitMap3D_c & operator=(BitMap3D_c && Other) noexcept
    {
        BitMap3D_c Map(std::move(Other));
        Swap(Map);
        return *this;
    }

    /// Exchanges the storage and the sizes of the two spaces.
    void Swap(BitMap3D_c & Other) noexcept;

    /// Returns whether some bit is set in both.
    bool Intersects(BitMap3D_c const & Other) const;

    int iDimX = 0;                    // bits in a row, a multiple of 8
    int iDimY = 0;                    // rows in a layer
    int iDimZ = 0;                    // layers
    unsigned char * pMap = nullptr;   // the bytes, null while empty
    std::size_t m_nRoom = 0;          // bytes of the storage

private:
    friend BitSpace_t;
    unsigned char * Row(int iY, int iZ) const;
};

extern template class BitField_T<BitMap_c, int>;
extern template class BitField_T<BitMap3D_c, int, int>;

/// The fields that grow.
template <typename BITS>
concept AnyBitField = std::same_as<BITS, BitVec_c> || std::same_as<BITS, BitMap_c> || std::same_as<BITS, BitMap3D_c>;

/// Return a new field: the first one, combined with the second as |=, ^=, &= and -= do.
template <AnyBitField BITS>
BITS operator|(BITS A, BITS const & B)
{
    A |= B;
    return A;
}

template <AnyBitField BITS>
BITS operator^(BITS A, BITS const & B)
{
    A ^= B;
    return A;
}

template <AnyBitField BITS>
BITS operator&(BITS A, BITS const & B)
{
    A &= B;
    return A;
}

template <AnyBitField BITS>
BITS operator-(BITS A, BITS const & B)
{
    A -= B;
    return A;
}

/// Exchanges two fields. Algorithms of the standard library call it.
template <AnyBitField BITS>
void swap(BITS & A, BITS & B) noexcept
{
    A.Swap(B);
}

/// A plane of at most 28 bits in one word: the width in bits 0 to 3, the field from bit 4 on. Cell (iX, iY) is bit
/// width * iY + iX of the field, counted from its lowest. With width 0 all rows share their cells. Cells outside bits 0
/// to 27 read as false, and setting them does nothing.
class TinyBitmap_c
{
public:
    /// Set the width to the low four bits of nWidth, and return the width. The field stays as it is.
    void SetWidth(int nWidth)
    {
        m_dwBits = (m_dwBits & ~WIDTH_MASK) | (static_cast<std::uint32_t>(nWidth) & WIDTH_MASK);
    }
    int GetWidth() const { return static_cast<int>(m_dwBits & WIDTH_MASK); }

    /// Zeroes the field and keeps the width.
    void Clear() { m_dwBits &= WIDTH_MASK; }

    /// Set a cell, and return whether it is set.
    void Set(int iX, int iY)
    {
        std::int64_t const iCell = CellOf(iX, iY);
        m_dwBits |= IsCell(iCell) ? FIRST_CELL << iCell : 0;
    }
    bool Get(int iX, int iY) const
    {
        std::int64_t const iCell = CellOf(iX, iY);
        return IsCell(iCell) && (m_dwBits & FIRST_CELL << iCell) != 0;
    }

    /// Sets the width to the low four bits of nWidth, and the field to the low 28 bits of dwField.
    void SetValues(std::uint32_t nWidth, std::uint32_t dwField)
    {
        m_dwBits = dwField << WIDTH_BITS | (nWidth & WIDTH_MASK);
    }

private:
    static constexpr int WIDTH_BITS = 4;
    static constexpr int CELLS = 28;
    static constexpr std::uint32_t FIRST_CELL = 1u << WIDTH_BITS;
    static constexpr std::uint32_t WIDTH_MASK = FIRST_CELL - 1;

    std::int64_t CellOf(int iX, int iY) const { return std::int64_t{ GetWidth() } * iY + iX; }
    static bool IsCell(std::int64_t iCell) { return iCell >= 0 && iCell < CELLS; }

    std::uint32_t m_dwBits = 0;
};

inline void BitVec_c::Swap(BitVec_c & Other) noexcept
{
    std::swap(iDim, Other.iDim);
    std::swap(pVec, Other.pVec);
    std::swap(m_nRoom, Other.m_nRoom);
}

inline void BitMap_c::Swap(BitMap_c & Other) noexcept
{
    std::swap(iDimX, Other.iDimX);
    std::swap(iDimY, Other.iDimY);
    std::swap(pMap, Other.pMap);
    std::swap(m_nRoom, Other.m_nRoom);
}

inline void BitMap3D_c::Swap(BitMap3D_c & Other) noexcept
{
    std::swap(iDimX, Other.iDimX);
    std::swap(iDimY, Other.iDimY);
    std::swap(iDimZ, Other.iDimZ);
    std::swap(pMap, Other.pMap);
    std::swap(m_nRoom, Other.m_nRoom);
}

inline void BitVec_c::Bis(int iX)
{
    if (!IsInside(iX))
    {
        Grow(iX <= MAX_BITS ? iX + 1 : iX);   // beyond MAX_BITS nothing grows
        ZQ_ASSERT_TEXT(IsInside(iX), "0 <= iX && iX < iDim");
        if (!IsInside(iX))
        {
            return;
        }
    }
    pVec[iX >> 3] |= MaskOf(iX);
}

inline void BitVec_c::Bic(int iX)
{
    if (IsInside(iX))
    {
        pVec[iX >> 3] &= static_cast<unsigned char>(~MaskOf(iX));
    }
}

template <typename FIELD, typename... INDEX>
bool BitField_T<FIELD, INDEX...>::Bit(int iX, INDEX... iRow) const
{
    unsigned char const * const pRow = Self().Row(iRow...);
    return pRow && static_cast<unsigned>(iX) < static_cast<unsigned>(Self().iDimX)
           && (pRow[iX >> 3] & BitVec_c::MaskOf(iX)) != 0;
}

inline unsigned char * BitMap_c::Row(int iY) const
{
    bool const bInside = static_cast<unsigned>(iY) < static_cast<unsigned>(iDimY);
    return bInside ? pMap + static_cast<std::size_t>(iDimX >> 3) * static_cast<std::size_t>(iY) : nullptr;
}

inline unsigned char * BitMap3D_c::Row(int iY, int iZ) const
{
    bool const bInside = static_cast<unsigned>(iY) < static_cast<unsigned>(iDimY)
                         && static_cast<unsigned>(iZ) < static_cast<unsigned>(iDimZ);
    std::size_t const nRow = static_cast<std::size_t>(iDimX >> 3);
    return bInside ? pMap
                         + nRow
                               * (static_cast<std::size_t>(iY)
                                   + static_cast<std::size_t>(iDimY) * static_cast<std::size_t>(iZ))
                   : nullptr;
}
