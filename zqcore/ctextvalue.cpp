#include "zqcore/ctextvalue.h"

#include "zqcore/cnumbertext_internal.h"

WholeNumber_e WholeFromText(char const * szText, WholeRange_t const & Range, std::uint64_t & iBits)
{
    long long iSigned = 0;
    NumberEnd_t End = TextToInteger(szText, iSigned);
    if (End.pEnd == szText || *End.pEnd != '\0')
    {
        return WholeNumber_e::NoNumber;
    }
    auto iValue = static_cast<unsigned long long>(iSigned);
    if (!End.bInRange && iSigned > 0)
    {
        End = TextToInteger(szText, iValue);
    }
    bool const bFits = iSigned < 0 ? iSigned >= Range.iMin : iValue <= Range.iMax;
    if (!End.bInRange || !bFits)
    {
        return WholeNumber_e::OutOfRange;
    }
    iBits = iValue;
    return WholeNumber_e::Good;
}
