#include "balance.h"

#include "bay.h"

#include "zqcore/cfile.h"
#include "zqcore/clog.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/ctexterror.h"

#include <algorithm>
#include <cmath>

namespace
{
    constexpr float MAX_FACTOR = 10.0f;

    void ReadFactor(Spreadsheet_c & Sheet, BalanceColumn_s const & Column, Balance_s & Balance)
    {
        double fFactor = 0.0;   // as a float, a text would count as 0
        if (Sheet.Get(Column.szName, fFactor) && fFactor >= 0.0 && fFactor <= double{ MAX_FACTOR })
        {
            Balance.*Column.pFactor = static_cast<float>(fFactor);
        }
        else
        {
            Log("balance: level \"%s\" has no factor from 0 to %.0f for %s", TextForLog(Balance.sLevel),
                static_cast<double>(MAX_FACTOR), Column.szName);
        }
    }

    void Scale(int & iNumber, float fFactor)
    {
        iNumber = static_cast<int>(std::lround(static_cast<double>(iNumber) * static_cast<double>(fFactor)));
    }
}

Balance_s BalanceRead(char const * szFile, char const * szLevel)
{
    Balance_s Balance;
    Balance.sLevel = szLevel;
    Spreadsheet_c Sheet;
    if (!FileExists(szFile) || !Sheet.Open(szFile))
    {
        return Balance;
    }
    if (!Sheet.FindFirstCell("level", szLevel))
    {
        LogEscaped("balance: %s has no level \"%s\"", szFile, szLevel);
        return Balance;
    }
    for (BalanceColumn_s const & Column : BALANCE_COLUMNS)
    {
        ReadFactor(Sheet, Column, Balance);
    }
    return Balance;
}

void BalanceApply(Balance_s const & Balance, Bay_s & Bay)
{
    for (Good_s & Good : Bay.dGoods)
    {
        Scale(Good.iLowest, Balance.fPrices);
        Scale(Good.iHighest, Balance.fPrices);
        Scale(Good.nSpoils, Balance.fSpoils);
        Good.nSpoils = std::min(Good.nSpoils, MAX_SPOILS);
    }
    for (ShipType_s & Type : Bay.dTypes)
    {
        Scale(Type.iUpkeep, Balance.fUpkeep);
    }
    Scale(Bay.nDues, Balance.fDues);
}
