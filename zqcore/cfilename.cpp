#include "zqcore/cfilename.h"

#include <algorithm>
#include <cstring>

char const * PathFileName(char const * szPath)
{
    char const * const pSlash = std::strrchr(szPath, '/');
    char const * const pBackslash = std::strrchr(szPath, '\\');
    char const * const pBehindDrive = szPath[0] && szPath[1] == ':' ? szPath + 2 : szPath;
    return std::max({ pSlash ? pSlash + 1 : szPath, pBackslash ? pBackslash + 1 : szPath, pBehindDrive });
}

String_T<256> FileName_c::Piece(char const * pFrom, char const * pTo) const
{
    String_T<256> sPiece;
    auto const nLength = static_cast<std::size_t>(pTo - pFrom);
    std::memcpy(sPiece.GetBuffer(), pFrom, nLength);
    sPiece.GetBuffer()[nLength] = '\0';
    return sPiece;
}

char const * FileName_c::AfterDrive() const
{
    char const * const szPath = *this;
    return szPath[0] && szPath[1] == ':' ? szPath + 2 : szPath;
}

String_T<256> FileName_c::GetDrive() const
{
    return Piece(*this, AfterDrive());
}

String_T<256> FileName_c::GetDir() const
{
    return Piece(AfterDrive(), PathFileName(*this));
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
