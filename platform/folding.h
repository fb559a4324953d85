// folding.h: names in lower case, and the order of the entries of a FolderListing_c.
#pragma once

#include <cstring>

namespace plat
{
    /// Returns the lower-case letter of an ASCII capital, and every other byte unchanged.
    constexpr char Folded(char cByte)
    {
        return cByte >= 'A' && cByte <= 'Z' ? static_cast<char>(cByte + ('a' - 'A')) : cByte;
    }

    /// Returns whether the terminated name holds no ASCII capital.
    inline bool IsFolded(char const * szName)
    {
        while (*szName != 0 && *szName == Folded(*szName))
        {
            ++szName;
        }
        return *szName == 0;
    }

    /// Returns the order of two terminated names by folded bytes: a number below, equal to or above 0, like strcmp.
    inline int CompareFolded(char const * szFirst, char const * szSecond)
    {
        for (;; ++szFirst, ++szSecond)
        {
            if (*szFirst != *szSecond)
            {
                int const iDifference =
                    static_cast<unsigned char>(Folded(*szFirst)) - static_cast<unsigned char>(Folded(*szSecond));
                if (iDifference != 0)
                {
                    return iDifference;
                }
            }
            else if (*szFirst == 0)
            {
                return 0;
            }
        }
    }

    /// Returns whether one name precedes another in a listing: by folded bytes, then by raw bytes.
    inline bool ComesBefore(char const * szFirst, char const * szSecond)
    {
        int const iFolded = CompareFolded(szFirst, szSecond);
        return iFolded != 0 ? iFolded < 0 : std::strcmp(szFirst, szSecond) < 0;
    }
}
