#include "zqcore/cbitmap.h"

#include "zqcore/cbitrows_internal.h"
#include "zqcore/chexdigit_internal.h"
#include "zqcore/cmemory.h"
#include "zqcore/cserialize.h"

#include <algorithm>

namespace
{
    // Zeroed storage.
    unsigned char * TakeBytes(std::size_t nBytes)
    {
        void * const pBytes = CoreMemory::operator_new(nBytes, MEMORY_CLIENT_BLOCK, __FILE__, __LINE__);
        return pBytes ? static_cast<unsigned char *>(std::memset(pBytes, 0, nBytes)) : nullptr;
    }
}

BitVec_c::BitVec_c(int iBits)
{
    Grow(iBits);
}

BitVec_c::BitVec_c(BitVec_c const & Other)
{
    *this = Other;
}

BitVec_c & BitVec_c::Grow(int iBits)
{
    if (iBits <= iDim)
    {
        return *this;
    }
    ZQ_ASSERT(iBits <= MAX_BITS);
    if (iBits <= MAX_BITS)
    {
        int const iNewDim = (iBits + 7) & ~7;
        if (unsigned char * const pNew = TakeBytes(static_cast<std::size_t>(iNewDim >> 3)))
        {
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

bool BitVec_c::operator==(BitVec_c const & Other) const
{
    return bits::Equal(pVec, GetBytes(), Other.pVec, Other.GetBytes());
}

BitVec_c & BitVec_c::OrAny(BitVec_c const & Other)
{
    Grow(Other.iDim);
    if (Other.iDim > iDim)
    {
        return *this;   // no memory; nothing has happened
    }
    bits::Or(pVec, Other.pVec, Other.GetBytes());
    return *this;
}

BitVec_c & BitVec_c::XorAny(BitVec_c const & Other)
{
    Grow(Other.iDim);
    if (Other.iDim > iDim)
    {
        return *this;   // no memory; nothing has happened
    }
    bits::Xor(pVec, Other.pVec, Other.GetBytes());
    return *this;
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
    int iBits = iDim;
    Archive.Serialize(iBits);
    if (Archive.IsFailed())
    {
        return false;
    }
    std::int64_t const nBytes = (std::int64_t{ iBits } + 7) / 8;
    if (Archive.IsReading())
    {
        bool const bSound = iBits >= 0 && iBits <= MAX_BITS;
        if (!bSound || nBytes > std::int64_t{ Archive.GetLength() } - Archive.GetPosition())
        {
            Archive.Fail();
            return false;
        }
        Grow(iBits);
        Clear();
    }
    if (nBytes > 0)
    {
        Archive.Serialize(pVec, static_cast<int>(nBytes));
    }
    return !Archive.IsFailed();
}

char BitVec_c::IntoDigit(int iValue)
{
    return "0123456789ABCDEF"[iValue & 15];
}

int BitVec_c::FromDigit(char const *& szText)
{
    while (*szText != '\0')
    {
        int const iValue = HexDigitValue(*szText++);
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
