// mission.h: the house's goals, read from a script.
//
// A script has a title and goals. A goal is a number of crates of a good that must be landed by the end of a day:
//
//     mission "Bread before the ice"
//     deliver flour crates 800 days 14 pays 300
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cstring.h"

struct Bay_s;
struct Good_s;

/// State of a goal. Only an open goal changes.
enum GoalState_e : int
{
    GOAL_OPEN,
    GOAL_MET,
    GOAL_MISSED
};

/// A goal: crates to land, the days for it and the pay.
struct Goal_s
{
    Good_s * pGood = nullptr;
    int nCrates = 0;
    int nDays = 0;   // from the start of the game
    int iPay = 0;    // marks
    GoalState_e eState = GOAL_OPEN;
};

/// Title and goals of the script. Both are empty without a script.
struct Mission_s
{
    String_T<128> sTitle;
    Array_T<Goal_s, 16, 0> dGoals;
};

/// Reads a script: sets the title of the bay's mission and adds goals. Skips and logs a goal that is not sound. Cuts a
/// title that does not fit in sTitle. If the script is missing or can't be read, the mission stays as it is.
void MissionRead(char const * szFile, Bay_s & Bay);

/// Returns whether a goal has a good, a state, and numbers from 1 to MAX_NUMBER (bay.h).
bool MissionGoalIsSound(Goal_s const & Goal);

/// Settles the goals that are met or whose time is over, and pays for those that are met.
void MissionCheck(Bay_s & Bay);
