#include "texts.h"

#include "zqcore/cfile.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/ctexterror.h"

#include <algorithm>
#include <cstring>
#include <iterator>

Text_t Shown(char const * szText)
{
    return Text_t(TextForLog(szText));
}

Text_t Grouped(long long iNumber)
{
    Text_t const sDigits = NewString("%lld", iNumber);
    Text_t sGrouped;
    for (int i = 0; i < sDigits.Length(); ++i)
    {
        bool const bComma = i > 0 && (sDigits.Length() - i) % 3 == 0 && sDigits[i - 1] != '-';
        sGrouped += bComma ? "," : "";
        sGrouped += sDigits.SubStr(i, 1);
    }
    return sGrouped;
}

Text_t Size(double fBytes)
{
    static constexpr char const * UNITS[] = { "bytes", "KB", "MB", "GB", "TB" };
    constexpr int LAST_UNIT = static_cast<int>(std::size(UNITS)) - 1;
    constexpr double STEP = 1000.0;                          // from a unit to the next
    constexpr double NEXT_UNIT_FROM[] = { 999.5, 999.95 };   // prints as a whole step, without and with a decimal
    int iUnit = 0;
    for (; fBytes >= NEXT_UNIT_FROM[iUnit > 0] && iUnit < LAST_UNIT; ++iUnit)
    {
        fBytes /= STEP;
    }
    return NewString("%.*f %s", iUnit == 0 ? 0 : 1, fBytes, UNITS[iUnit]);
}

Text_t Duration(double tSeconds)
{
    constexpr double MS_FROM = 0.99995e-3, S_FROM = 0.999995;   // prints as a whole step in the smaller unit
    return tSeconds < MS_FROM  ? NewString("%.1f us", tSeconds * 1e6)
           : tSeconds < S_FROM ? NewString("%.2f ms", tSeconds * 1e3)
                               : NewString("%.2f s", tSeconds);
}

Text_t BelowRoot(char const * szLocation)
{
    auto const nRoot = static_cast<std::size_t>(GetPQXMediaPath(false).Length());
    Text_t sBelow = std::strlen(szLocation) > nRoot ? szLocation + nRoot + 1 : szLocation;
    std::replace(sBelow.GetBuffer(), sBelow.GetBuffer() + sBelow.Length(), '\\', '/');
    return Shown(sBelow);
}

Text_t BelowRoot(File_c const & File)
{
    return BelowRoot(File.GetFullPath());
}
