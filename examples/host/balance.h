// balance.h: how hard the game is. A sheet has a row for each level and a column for each factor.
#pragma once

#include "zqcore/cstring.h"

struct Bay_s;

/// Factors of a level.
struct Balance_s
{
    String_T<64> sLevel;
    float fPrices = 1.0f;
    float fSpoils = 1.0f;
    float fUpkeep = 1.0f;
    float fDues = 1.0f;
};

/// A column of the sheet and the factor that it holds.
struct BalanceColumn_s
{
    char const * szName;
    float Balance_s::*pFactor;
};

/// All columns of the sheet besides "level", which names the row.
inline constexpr BalanceColumn_s BALANCE_COLUMNS[] = {
    { "prices", &Balance_s::fPrices },
    { "spoils", &Balance_s::fSpoils },
    { "upkeep", &Balance_s::fUpkeep },
    { "dues", &Balance_s::fDues },
};

/// Logs errors in an existing sheet, and returns the factors of a level. A factor is 1 if:
/// - the sheet is missing or damaged.
/// - the row or the cell is missing.
/// - the cell is not a number from 0 to 10.
Balance_s BalanceRead(char const * szFile, char const * szLevel);

/// Multiplies prices, spoils, upkeep and dues of the bay by their factors, rounds them, and limits nSpoils to
/// MAX_SPOILS.
void BalanceApply(Balance_s const & Balance, Bay_s & Bay);
