#include "mission.h"

#include "bay.h"

#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cscript.h"
#include "zqcore/ctexterror.h"

namespace
{
    // Reads the goal after the word "deliver". Adds it to the mission, or logs that it is left out.
    void ReadGoal(Script_c & Script, Bay_s & Bay)
    {
        char szGood[Script_c::TOKEN_SIZE];
        Script.GetToken(szGood, false);
        Goal_s Goal;
        Goal.pGood = FindByIdent(Bay.dGoods, szGood);
        Goal.nCrates = Script.GetInt("crates");
        Goal.nDays = Script.GetInt("days");
        Goal.iPay = Script.GetInt("pays");
        if (MissionGoalIsSound(Goal))
        {
            Bay.Mission.dGoals.Add(Goal);
        }
        else
        {
            LogEscaped("%s: the goal of \"%s\" makes no sense and is left out", Script.m_sName, szGood);
        }
    }
}

void MissionRead(char const * szFile, Bay_s & Bay)
{
    Script_c Script;
    if (!Script.OpenFile(szFile))
    {
        return;
    }
    char szToken[Script_c::TOKEN_SIZE];
    for (Script.GetToken(szToken, false); szToken[0]; Script.GetToken(szToken, false))
    {
        if (StrCompareNoCase(szToken, "mission") == 0)
        {
            std::string sTitle;   // of any length, while the mission's is cut
            Script.GetString(sTitle, '"');
            Bay.Mission.sTitle = sTitle;
        }
        else if (StrCompareNoCase(szToken, "deliver") == 0)
        {
            ReadGoal(Script, Bay);
        }
    }
    Script.CloseFile();
}

bool MissionGoalIsSound(Goal_s const & Goal)
{
    bool bSound = Goal.pGood != nullptr && Goal.eState >= GOAL_OPEN && Goal.eState <= GOAL_MISSED;
    for (int nNumber : { Goal.nCrates, Goal.nDays, Goal.iPay })
    {
        bSound = bSound && nNumber > 0 && nNumber <= MAX_NUMBER;
    }
    return bSound;
}

void MissionCheck(Bay_s & Bay)
{
    for (Goal_s & Goal : Bay.Mission.dGoals)
    {
        if (Goal.eState != GOAL_OPEN)
        {
            continue;
        }
        if (Goal.pGood->nTraded >= Goal.nCrates)
        {
            Goal.eState = GOAL_MET;
            AddMarks(g_House.iPurse, Goal.iPay);
            Logf(HARBOUR_LOG, "day %3i  the house pays %i marks for %i crates of %s", Bay.nHours / HOURS, Goal.iPay,
                Goal.nCrates, TextForLog(Goal.pGood->sName));
        }
        else if (Bay.nHours >= Goal.nDays * HOURS)
        {
            Goal.eState = GOAL_MISSED;
        }
    }
}
