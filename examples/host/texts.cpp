#include "texts.h"

#include "zqcore/cfile.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath.h"

#include <algorithm>
#include <cstring>

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
    int iUnit = 0;
    for (; fBytes >= 1000.0 && iUnit < 4; ++iUnit)
    {
        fBytes /= 1000.0;
    }
    return NewString("%.*f %s", iUnit == 0 ? 0 : 1, fBytes, UNITS[iUnit]);
}

Text_t Duration(double tSeconds)
{
    return tSeconds < 1e-3  ? NewString("%.1f us", tSeconds * 1e6)
           : tSeconds < 1.0 ? NewString("%.2f ms", tSeconds * 1e3)
                            : NewString("%.2f s", tSeconds);
}

NoFile_s WhyNoFile(char const * szFile)
{
    if (!FileExists(szFile))
    {
        bool const bWhole = FileScanIsWhole(GetPQXMediaPath(false));
        return { NewString(bWhole ? "these media have no %s"
                                  : "%s was not found in media that can't be read whole; the log says what failed",
                     szFile),
            !bWhole };
    }
    File_c * const pFile = FileOpen(szFile);
    bool const bEmpty = pFile && pFile->iLength == 0;
    NoFile_s Why;
    Why.bFault = !pFile || bEmpty;
    Why.sWhy = bEmpty ? Va("%s is empty", szFile) : pFile ? "" : Va("%s can't be read; the log says why", szFile);
    FileClose(pFile);
    return Why;
}

Text_t BelowRoot(char const * szLocation)
{
    auto const nRoot = static_cast<std::size_t>(GetPQXMediaPath(false).Length());
    Text_t sBelow = std::strlen(szLocation) > nRoot ? szLocation + nRoot + 1 : szLocation;
    std::replace(sBelow.GetBuffer(), sBelow.GetBuffer() + sBelow.Length(), '\\', '/');
    return sBelow;
}

Text_t BelowRoot(File_c const & File)
{
    return BelowRoot(File.GetFullPath());
}
