#include "zqcore/cadsr.h"

#include <algorithm>

namespace
{
    // Returns the level at tNow on the line from fFrom at tStart to fTo at tEnd, never one outside of these levels.
    float Ramp(float fFrom, float fTo, float tStart, float tEnd, float tNow)
    {
        float const tLength = tEnd - tStart;
        if (tLength == 0.0f)
        {
            return tNow < tStart ? fFrom : fTo;
        }
        float const fLevel = fFrom + (fTo - fFrom) * (tNow - tStart) / tLength;
        return std::max(std::min(fFrom, fTo), std::min(fLevel, std::max(fFrom, fTo)));
    }
}

void ADSR_c::Copy(ADSR_c const & Other)
{
    fAttackLevel = Other.fAttackLevel;
    fSustainLevel = Other.fSustainLevel;
    tAttackEnd = Other.tAttackEnd;
    tDecayEnd = Other.tDecayEnd;
    tSustainEnd = Other.tSustainEnd;
    tReleaseEnd = Other.tReleaseEnd;
    tTime = Other.tTime;
}

void ADSR_c::SetLevels(float fAttack, float fSustain)
{
    fAttackLevel = fAttack;
    fSustainLevel = fSustain;
}

void ADSR_c::SetTimeIntervals(double tAttack, double tDecay, double tSustain, double tRelease)
{
    tAttackEnd = tAttack;
    tDecayEnd = tAttackEnd + tDecay;
    tSustainEnd = tDecayEnd + tSustain;
    tReleaseEnd = tSustainEnd + tRelease;
}

bool ADSR_c::SetLength(ADSR_Phase_e ePhase, double tLength)
{
    double dDurations[] = { GetAttack(), GetDecay(), GetSustain(), GetRelease() };
    double & tOwn = dDurations[ePhase - ADSR_PHASE_ATTACK];
    tOwn = 0.0;
    for (double const tOther : dDurations)
    {
        tLength -= tOther;
    }
    if (!(tLength >= 0.0))
    {
        return false;
    }
    tOwn = tLength;
    SetTimeIntervals(dDurations[0], dDurations[1], dDurations[2], dDurations[3]);
    return true;
}

ADSR_Phase_e ADSR_c::GetPhase() const
{
    if (tTime < 0.0 || tTime >= tReleaseEnd)
    {
        return ADSR_PHASE_NONE;
    }
    return tTime < tAttackEnd    ? ADSR_PHASE_ATTACK
           : tTime < tDecayEnd   ? ADSR_PHASE_DECAY
           : tTime < tSustainEnd ? ADSR_PHASE_SUSTAIN
                                 : ADSR_PHASE_RELEASE;
}

float ADSR_c::Get() const
{
    float const tNow = static_cast<float>(tTime);
    float const fAttackEnd = static_cast<float>(tAttackEnd);
    float const fDecayEnd = static_cast<float>(tDecayEnd);
    switch (GetPhase())
    {
    case ADSR_PHASE_ATTACK:
        return Ramp(0.0f, fAttackLevel, 0.0f, fAttackEnd, tNow);
    case ADSR_PHASE_DECAY:
        return Ramp(fAttackLevel, fSustainLevel, fAttackEnd, fDecayEnd, tNow);
    case ADSR_PHASE_SUSTAIN:
        return fSustainLevel;
    case ADSR_PHASE_RELEASE:
        return Ramp(fSustainLevel, 0.0f, static_cast<float>(tSustainEnd), static_cast<float>(tReleaseEnd), tNow);
    default:
        return 0.0f;
    }
}
