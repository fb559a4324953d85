// cbitmap.h: fields of bits: a row, a plane and a space that grow, and a plane of 28 bits in one word.
//
// BitVec_c, BitMap_c and BitMap3D_c share one layout. A row is a whole number of bytes: widths are rounded up to a
// multiple of 8, and the rounding bits are bits like all others. Bit iX of a row lies in byte iX >> 3 under the mask
// 0x80 >> (iX & 7), so bit 0 is the first byte's highest; text, archive and Scan0, Scan1 follow that order. X runs
// fastest, then Y, then Z. New storage is zeroed; growing keeps every bit at its coordinates.
//
// Each object owns its storage and belongs to one thread at a time. Growing costs an allocation and a copy; operators
// work by whole words. Negative coordinates of operations that set or clear a bit fail an assertion and do nothing; a
// size above MAX_BITS in X, or of more bytes than an address can count, does too.
#pragma once

#include "zqcore/cdebug.h"

#include "platform/words.h"

class Serializeable_c;

/// A growable row of bits.
class ZQ_API BitVec_c
{
public:
    static constexpr int MAX_BITS = 0x7FFFFFF8;   // the longest row

    /// iBits zero bits, rounded up; empty below 1.
    explicit BitVec_c(int iBits = 0);
    BitVec_c(BitVec_c const & Other);
    ~BitVec_c() { Reset(); }

    /// Makes room for iBits bits. Never shrinks.
    BitVec_c & Grow(int iBits);

    /// Frees the storage; empty afterwards.
    void Reset();

    /// Zeroes all bits; the size stays.
    void Clear();

    /// The bit; false outside.
    bool Bit(int iX) const { return IsInside(iX) && (pVec[iX >> 3] & MaskOf(iX)) != 0; }

    /// Sets the bit, growing to it.
    void Bis(int iX);

    /// Clears the bit; outside there is nothing to clear, and nothing grows.
    void Bic(int iX);

    void Set(int iX, bool bSet) { bSet ? Bis(iX) : Bic(iX); }

    /// Index of the first bit that is clear, or set; -1 if there is none.
    int Scan0() const;
    int Scan1() const;

    /// Whether the same bits are set: what one has beyond the other must be clear.
    bool operator==(BitVec_c const & Other) const;

    /// Or and exclusive or, growing to the other's size.
    BitVec_c & operator|=(BitVec_c const & Other);
    BitVec_c & operator^=(BitVec_c const & Other);

    /// Keeps what is set in both; clears what is set in the other. The size stays.
    BitVec_c & operator&=(BitVec_c const & Other);
    BitVec_c & operator-=(BitVec_c const & Other);

    /// Inverts every bit in place, the rounding bits too, and returns this object: no copy.
    BitVec_c & operator~();

    /// Takes the other's bits. A longer vector keeps its length, with zeros behind; an empty source empties it.
    BitVec_c & operator=(BitVec_c const & Other);

    /// Fills all bytes from hexadecimal digits, two a byte, the high half first. Other characters are passed over; a
    /// short text goes on in zeros. szData must not be null; the size stays.
    BitVec_c & operator=(char const * szData);

    /// Writes upper-case digits, as many as fit into nLen bytes, and a terminator if there is room left: a buffer of
    /// exactly two characters a byte gets none. szData.
    char * Hex(char * szData, int nLen) const;

    /// Saves or loads: the size in bits, then the bytes. Loading grows to the size and clears the rest. A size that the
    /// file can't hold fails the archive and changes nothing; an archive of the host's need not know its length
    /// (GetPosition -1 or GetLength 0), and is read in steps then. False if the archive has failed.
    bool Serialize(Serializeable_c & Archive);

    int iDim = 0;                     // bits, a multiple of 8
    unsigned char * pVec = nullptr;   // the bytes, null while empty

protected:
    friend class BitMap_c;

    /// The low four bits as a digit, 0 to 9 or A to F.
    static char IntoDigit(int iValue);

    /// The next hexadecimal digit's value, stepping past it; 0 at the terminator, which is never passed.
    static int FromDigit(char const *& szText);

private:
    static unsigned char MaskOf(int iX) { return static_cast<unsigned char>(0x80 >> (iX & 7)); }
    bool IsInside(int iX) const { return static_cast<unsigned>(iX) < static_cast<unsigned>(iDim); }
    std::size_t GetBytes() const { return static_cast<std::size_t>(iDim >> 3); }
    bool Load(Serializeable_c & Archive, int iBits);
    static void FillFromDigits(unsigned char * pBytes, std::size_t nBytes, char const * szText);
    template <typename COMBINE>
    bool CombineShort(BitVec_c const & Other, COMBINE fnCombine);
    BitVec_c & OrAny(BitVec_c const & Other);
    BitVec_c & XorAny(BitVec_c const & Other);
};

/// Combines the bits if both are short, whole words and as many; false, and nothing has happened, if not. A call would
/// take longer than the work.
template <typename COMBINE>
bool BitVec_c::CombineShort(BitVec_c const & Other, COMBINE fnCombine)
{
    constexpr int SHORT_BITS = 512;
    if (Other.iDim != iDim || iDim > SHORT_BITS || iDim % 64 != 0)
    {
        return false;
    }
    // Copies: the compiler takes the bits for bytes of this object too.
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

/// What BitMap_c and BitMap3D_c, its FIELD, have in common. INDEX is an int for each coordinate that picks a row: iY in
/// a plane, iY and iZ in a space.
template <typename FIELD, typename... INDEX>
class ZQ_API BitField_T
{
public:
    /// Grows to at least these sizes, each by itself; nothing if one is below 1.
    FIELD & Grow(int iSizeX, INDEX... iSizes);

    /// Frees the storage; empty afterwards.
    void Reset();

    /// Zeroes all bits; the size stays.
    void Clear();

    /// The bit; false outside.
    bool Bit(int iX, INDEX... iRow) const;

    /// Set or clear the bit, growing to it in either case.
    void Bis(int iX, INDEX... iRow);
    void Bic(int iX, INDEX... iRow);
    void Set(int iX, INDEX... iRow, bool bSet) { bSet ? Bis(iX, iRow...) : Bic(iX, iRow...); }

    /// Operations on a row. Set copies the vector and clears the rest of the row; Bis and Xor combine over the vector's
    /// length: all three grow to the vector and the row, and do nothing at a negative coordinate.
    void Set(INDEX... iRow, BitVec_c const & Vec);
    void Bis(INDEX... iRow, BitVec_c const & Vec);
    void Xor(INDEX... iRow, BitVec_c const & Vec);

    /// And keeps what is set in both; Bic clears what is set in the vector. Nothing grows.
    void And(INDEX... iRow, BitVec_c const & Vec);
    void Bic(INDEX... iRow, BitVec_c const & Vec);

    /// Whether the same bits are set in the row as in the vector; a row outside has none.
    bool Equ(INDEX... iRow, BitVec_c const & Vec) const;

    /// Copies the row into the vector, which grows to it, with zeros behind. A row outside clears the vector.
    BitVec_c & Get(INDEX... iRow, BitVec_c & Vec) const;

    /// As those of BitVec_c, over the coordinates.
    FIELD & operator|=(FIELD const & Other);
    FIELD & operator^=(FIELD const & Other);
    FIELD & operator&=(FIELD const & Other);
    FIELD & operator-=(FIELD const & Other);
    FIELD & operator~();
    friend bool operator==(FIELD const & A, FIELD const & B) { return A.IsEqual(B); }

protected:
    BitField_T() = default;

    /// Copies the other, its size too.
    FIELD & Assign(FIELD const & Other);

private:
    FIELD & Self() { return static_cast<FIELD &>(*this); }
    FIELD const & Self() const { return static_cast<FIELD const &>(*this); }
    bool IsEqual(FIELD const & Other) const;
    FIELD & GrowToField(FIELD const & Other);
    unsigned char * GrowToRow(int iBits, INDEX... iRow);
    unsigned char * GrowToByte(int iX, INDEX... iRow);
};

class ZQ_API BitMap_c;
class ZQ_API BitMap3D_c;
using BitPlane_t = BitField_T<BitMap_c, int>;
using BitSpace_t = BitField_T<BitMap3D_c, int, int>;

/// A growable plane of bits.
class ZQ_API BitMap_c : public BitPlane_t
{
public:
    /// Zero bits; empty if a size is below 1.
    explicit BitMap_c(int iSizeX = 0, int iSizeY = 0) { Grow(iSizeX, iSizeY); }
    BitMap_c(BitMap_c const & Other)
        : BitMap_c()
    {
        Assign(Other);
    }
    ~BitMap_c() { Reset(); }

    BitMap_c & operator=(BitMap_c const & Other) { return Assign(Other); }

    /// Fills the rows from an array of texts that ends in null, each as BitVec_c does; the rows behind are cleared.
    /// sData must not be null; the size stays.
    BitMap_c & operator=(char const * const * sData);

    int iDimX = 0;   // bits in a row, a multiple of 8
    int iDimY = 0;
    unsigned char * pMap = nullptr;   // the bytes, null while empty

private:
    friend BitPlane_t;
    unsigned char * Row(int iY) const;
};

/// A growable space of bits.
class ZQ_API BitMap3D_c : public BitSpace_t
{
public:
    /// Zero bits; empty if a size is below 1.
    explicit BitMap3D_c(int iSizeX = 0, int iSizeY = 0, int iSizeZ = 0) { Grow(iSizeX, iSizeY, iSizeZ); }
    BitMap3D_c(BitMap3D_c const & Other)
        : BitMap3D_c()
    {
        Assign(Other);
    }
    ~BitMap3D_c() { Reset(); }

    BitMap3D_c & operator=(BitMap3D_c const & Other) { return Assign(Other); }

    /// Whether some bit is set in both.
    bool Intersects(BitMap3D_c const & Other) const;

    int iDimX = 0;   // bits in a row, a multiple of 8
    int iDimY = 0;
    int iDimZ = 0;
    unsigned char * pMap = nullptr;   // the bytes, null while empty

private:
    friend BitSpace_t;
    unsigned char * Row(int iY, int iZ) const;
};

extern template class BitField_T<BitMap_c, int>;
extern template class BitField_T<BitMap3D_c, int, int>;

/// A plane of at most 28 bits in one word: the width in bits 0 to 3, the field from bit 4 on. Cell (iX, iY) is bit
/// width * iY + iX of the field, from its lowest; width 0 folds every row onto column iX. Cells beyond bit 27 are
/// false, and setting them does nothing.
class TinyBitmap_c
{
public:
    /// 0 to 15; the field stays as it is.
    void SetWidth(int dx) { m_dwBits = (m_dwBits & ~WIDTH_MASK) | (static_cast<std::uint32_t>(dx) & WIDTH_MASK); }
    int GetWidth() const { return static_cast<int>(m_dwBits & WIDTH_MASK); }

    /// Zeroes the field; the width stays.
    void Clear() { m_dwBits &= WIDTH_MASK; }

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

    /// Sets everything at once: the low four bits of dwWidth, and the field.
    void SetValues(std::uint32_t dwWidth, std::uint32_t dwField) { m_dwBits = dwField << 4 | (dwWidth & WIDTH_MASK); }

private:
    static constexpr std::uint32_t WIDTH_MASK = 15;
    static constexpr std::uint32_t FIRST_CELL = 16;

    std::int64_t CellOf(int iX, int iY) const { return std::int64_t{ GetWidth() } * iY + iX; }
    static bool IsCell(std::int64_t iCell) { return iCell >= 0 && iCell < 28; }

    std::uint32_t m_dwBits = 0;
};

inline void BitVec_c::Bis(int iX)
{
    if (!IsInside(iX))
    {
        Grow(iX < MAX_BITS ? iX + 1 : iX);
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
           && (pRow[iX >> 3] & 0x80 >> (iX & 7)) != 0;
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
