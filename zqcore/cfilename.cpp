#include "zqcore/cfilename.h"

#include "platform/bytes.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace
{
    // Returns a word with the top bit set in each byte that equals cSought (Warren, Hacker's Delight, section 6-1).
    std::uint64_t EightMatches(std::uint64_t nText, char cSought)
    {
        std::uint64_t const nDifferent = nText ^ (plat::EACH_BYTE * static_cast<unsigned char>(cSought));
        return ~(((nDifferent & ~plat::HIGH_BITS) + ~plat::HIGH_BITS) | nDifferent) & plat::HIGH_BITS;
    }

    bool IsSeparator(char c)
    {
        return c == '/' || c == '\\';
    }
}

char const * PathFileName(char const * sPath, std::size_t nLength)
{
    static_assert(std::endian::native == std::endian::little, "the last character is the highest byte");
    char const * const pFirst = sPath + (nLength >= 2 && sPath[1] == ':' ? 2 : 0);
    char const * pName = sPath + nLength;
    constexpr std::ptrdiff_t WORD = sizeof(std::uint64_t);
    while (pName - pFirst >= WORD)
    {
        std::uint64_t nText;
        std::memcpy(&nText, pName - WORD, sizeof nText);
        std::uint64_t const nSeparators = EightMatches(nText, '/') | EightMatches(nText, '\\');
        if (nSeparators != 0)
        {
            return pName - std::countl_zero(nSeparators) / 8;
        }
        pName -= WORD;
    }
    while (pName > pFirst && !IsSeparator(pName[-1]))
    {
        --pName;
    }
    return pName;
}

char const * PathFileName(char const * szPath)
{
    return PathFileName(szPath, std::strlen(szPath));
}

String_T<256> FileName_c::Piece(char const * pFrom, char const * pTo) const
{
    String_T<256> sPiece;
    auto const nLength = static_cast<std::size_t>(pTo - pFrom);
    std::memcpy(sPiece.GetBuffer(), pFrom, nLength);
    sPiece.GetBuffer()[nLength] = '\0';
    return sPiece;
}

char const * FileName_c::DriveEnd() const
{
    char const * const szPath = *this;
    return szPath[0] && szPath[1] == ':' ? szPath + 2 : szPath;
}

String_T<256> FileName_c::GetDrive() const
{
    return Piece(*this, DriveEnd());
}

String_T<256> FileName_c::GetDir() const
{
    return Piece(DriveEnd(), PathFileName(*this));
}

String_T<256> FileName_c::GetName() const
{
    char const * const pName = PathFileName(*this);
    char const * const pDot = std::strrchr(pName, '.');
    return Piece(pName, pDot ? pDot : pName + std::strlen(pName));
}

String_T<256> FileName_c::GetExt() const
{
    char const * const pDot = std::strrchr(PathFileName(*this), '.');
    return pDot ? String_T<256>(pDot) : String_T<256>();
}

String_T<256> FileName_c::GetFileName() const
{
    return String_T<256>(PathFileName(*this));
}
