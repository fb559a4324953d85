// balance.h: how hard the game is: a sheet with a row for each level and a column for each factor.
#pragma once

#include "zqcore/cstring.h"

struct Bay_s;

struct Balance_s
{
    String_T<64> sLevel;
    float fPrices = 1.0f;
    float fSpoils = 1.0f;
    float fUpkeep = 1.0f;
    float fDues = 1.0f;
};

struct BalanceColumn_s
{
    char const * szName;
    float Balance_s::*pFactor;
};

inline constexpr BalanceColumn_s BALANCE_COLUMNS[] = {
    { "prices", &Balance_s::fPrices },
    { "spoils", &Balance_s::fSpoils },
    { "upkeep", &Balance_s::fUpkeep },
    { "dues", &Balance_s::fDues },
};

/// The row of a level. Without the sheet, the row or a cell, and for a cell out of range, the factor is 1; what is
/// wrong with a sheet that is there is logged.
Balance_s BalanceRead(char const * szFile, char const * szLevel);

/// Multiplies what the tables say.
void BalanceApply(Balance_s const & Balance, Bay_s & Bay);
