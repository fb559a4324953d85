#include "zqcore/cbitmap.h"

#include "zqcore/cbitrows_internal.h"
#include "zqcore/cmemory.h"
#include "zqcore/cserialize.h"

#include "platform/text.h"

#include <algorithm>

namespace
{
    // Allocates zeroed storage and returns it. Returns null if there is no memory.
    unsigned char * AllocateBytes(std::size_t nBytes)
    {
        void * const pBytes = CoreMemory::operator_new_array(nBytes, MEMORY_CLIENT_BLOCK, __FILE__, __LINE__);
        return pBytes ? static_cast<unsigned char *>(std::memset(pBytes, 0, nBytes)) : nullptr;
    }
}

BitVec_c::BitVec_c(int nBits)
{
    Grow(nBits);
}

BitVec_c::BitVec_c(BitVec_c const & Other)
{
    *this = Other;
}

BitVec_c & BitVec_c::Grow(int nBits)
{
    if (nBits <= iDim)
    {
        return *this;
    }
    ZQ_ASSERT(nBits <= MAX_BITS);
    if (nBits <= MAX_BITS)
    {
        int const iNewDim = bits::RoundUp(nBits);
        auto const nBytes = static_cast<std::size_t>(iNewDim >> 3), nHeld = static_cast<std::size_t>(m_nRoom);
        std::size_t const nRoom = std::min<std::size_t>(bits::RoomFor(nHeld, nBytes), MAX_BITS >> 3);
        if (pVec && nBytes <= nHeld)
        {
            std::fill(pVec + GetBytes(), pVec + nBytes, static_cast<unsigned char>(0));
            iDim = iNewDim;
        }
        else if (unsigned char * const pNew = AllocateBytes(nRoom))
        {
            m_nRoom = static_cast<int>(nRoom);
            std::copy_n(pVec, GetBytes(), pNew);
            CoreMemory::operator_delete_array(pVec);
            pVec = pNew;
            iDim = iNewDim;
        }
    }
    return *this;
}

void BitVec_c::Reset()
{
    CoreMemory::operator_delete_array(pVec);
    pVec = nullptr;
    iDim = 0;
    m_nRoom = 0;
}

void BitVec_c::Clear()
{
    std::fill_n(pVec, GetBytes(), static_cast<unsigned char>(0));
}

int BitVec_c::Scan0() const
{
    std::size_t const iByte = bits::FindOther(pVec, GetBytes(), 0xFF);
    return iByte < GetBytes() ? static_cast<int>(8 * iByte) + std::countl_one(pVec[iByte]) : -1;
}

int BitVec_c::Scan1() const
{
    std::size_t const iByte = bits::FindOther(pVec, GetBytes(), 0);
    return iByte < GetBytes() ? static_cast<int>(8 * iByte) + std::countl_zero(pVec[iByte]) : -1;
}

int BitVec_c::NextSet(int iFrom) const
{
    if (iFrom >= iDim)
    {
        return -1;
    }
    auto const iByte = static_cast<std::size_t>(iFrom >> 3);
    auto const cFirst = static_cast<unsigned char>(pVec[iByte] << (iFrom & 7));
    if (cFirst != 0)
    {
        return iFrom + std::countl_zero(cFirst);
    }
    std::size_t const iFound = iByte + 1 + bits::FindOther(pVec + iByte + 1, GetBytes() - iByte - 1, 0);
    return iFound < GetBytes() ? static_cast<int>(8 * iFound) + std::countl_zero(pVec[iFound]) : -1;
}

std::size_t BitVec_c::Count() const
{
    return bits::Count(pVec, GetBytes());
}

bool BitVec_c::operator==(BitVec_c const & Other) const
{
    return bits::Equal(pVec, GetBytes(), Other.pVec, Other.GetBytes());
}

template <void (*COMBINE)(unsigned char *, unsigned char const *, std::size_t)>
inline BitVec_c & BitVec_c::CombineAny(BitVec_c const & Other)
{
    Grow(Other.iDim);
    if (Other.iDim > iDim)
    {
        return *this;   // no memory: nothing changes
    }
    COMBINE(pVec, Other.pVec, Other.GetBytes());
    return *this;
}

BitVec_c & BitVec_c::OrAny(BitVec_c const & Other)
{
    return CombineAny<bits::Or>(Other);
}

BitVec_c & BitVec_c::XorAny(BitVec_c const & Other)
{
    return CombineAny<bits::Xor>(Other);
}

BitVec_c & BitVec_c::operator&=(BitVec_c const & Other)
{
    bits::AndAndClear(pVec, GetBytes(), Other.pVec, Other.GetBytes());
    return *this;
}

BitVec_c & BitVec_c::operator-=(BitVec_c const & Other)
{
    bits::AndNot(pVec, Other.pVec, std::min(GetBytes(), Other.GetBytes()));
    return *this;
}

BitVec_c & BitVec_c::operator~()
{
    bits::Not(pVec, GetBytes());
    return *this;
}

BitVec_c & BitVec_c::operator=(BitVec_c const & Other)
{
    if (this == &Other)
    {
        return *this;
    }
    if (Other.iDim == 0 || Other.iDim > iDim)
    {
        Reset();
        Grow(Other.iDim);
    }
    bits::CopyAndClear(pVec, GetBytes(), Other.pVec, Other.GetBytes());
    return *this;
}

BitVec_c & BitVec_c::operator=(char const * szData)
{
    ZQ_ASSERT(szData != nullptr);
    if (szData)
    {
        FillFromDigits(pVec, GetBytes(), szData);
    }
    return *this;
}

char * BitVec_c::Hex(char * szData, int nLen) const
{
    int iChar = 0;
    for (; iChar < nLen && iChar / 2 < iDim / 8; ++iChar)
    {
        szData[iChar] = IntoDigit(pVec[iChar / 2] >> (iChar % 2 == 0 ? 4 : 0));
    }
    if (iChar < nLen)
    {
        szData[iChar] = '\0';
    }
    return szData;
}

bool BitVec_c::Serialize(Serializeable_c & Archive)
{
    int nBits = iDim;
    Archive.Serialize(nBits);
    if (Archive.IsReading() && !Archive.IsFailed())
    {
        bool const bSound = nBits >= 0 && nBits <= MAX_BITS;
        if (!bSound || !Load(Archive, nBits))
        {
            Archive.Fail();
        }
    }
    else if (nBits > 0 && !Archive.IsFailed())
    {
        Archive.Serialize(pVec, nBits / 8);
    }
    return !Archive.IsFailed();
}

namespace
{
    // Reads nBytes of an archive of unknown length into an empty vector. The vector grows with the bytes that arrive.
    // With a damaged size it has at most twice their number, or FIRST_STEP bytes. Returns false on failure.
    bool ReadGrowing(Serializeable_c & Archive, BitVec_c & Vec, int nBytes)
    {
        constexpr int FIRST_STEP = 4096;
        int nStep;
        for (int nRead = 0; nRead < nBytes; nRead += nStep)
        {
            nStep = std::min(nBytes - nRead, std::max(nRead, FIRST_STEP));
            int const nNeeded = 8 * (nRead + nStep);
            if (Vec.Grow(nNeeded).iDim < nNeeded || !Archive.Serialize(Vec.pVec + nRead, nStep))
            {
                return false;
            }
        }
        return true;
    }
}

bool BitVec_c::Load(Serializeable_c & Archive, int nBits)
{
    int const nBytes = static_cast<int>((std::int64_t{ nBits } + 7) / 8);
    BitVec_c Read;
    int const nLeft = Archive.GetLeft();
    bool const bKnown = nLeft >= 0;
    bool const bThere = bKnown ? nBytes <= nLeft : ReadGrowing(Archive, Read, nBytes);
    if (!bThere || Grow(nBits).iDim < nBits)
    {
        return false;
    }
    bits::CopyAndClear(pVec, GetBytes(), Read.pVec, Read.GetBytes());
    return !bKnown || nBytes == 0 || Archive.Serialize(pVec, nBytes);
}

char BitVec_c::IntoDigit(int iValue)
{
    return plat::HEX_DIGITS[iValue & 15];
}

int BitVec_c::FromDigit(char const *& szText)
{
    while (*szText != '\0')
    {
        int const iValue = plat::HexDigitValue(*szText++);
        if (iValue >= 0)
        {
            return iValue;
        }
    }
    return 0;
}

void BitVec_c::FillFromDigits(unsigned char * pBytes, std::size_t nBytes, char const * szText)
{
    for (std::size_t iByte = 0; iByte < nBytes; ++iByte)
    {
        int const iHigh = FromDigit(szText);
        pBytes[iByte] = static_cast<unsigned char>(iHigh << 4 | FromDigit(szText));
    }
}
