// cadsr.h: an envelope over time with attack, decay, sustain and release, as a sound's or an effect's level follows it.
//
// The level rises from 0 to the attack level, goes to the sustain level, stays there, and falls to 0. Times are in the
// caller's unit and run from 0; they are kept as the ends of the phases, in double, while levels are computed in single
// precision, with the same bits everywhere. A phase of length 0 is skipped. A plain value.
#pragma once

#include "zqcore/cconfig.h"

enum ADSR_Phase_e
{
    ADSR_PHASE_NONE,
    ADSR_PHASE_ATTACK,
    ADSR_PHASE_DECAY,
    ADSR_PHASE_SUSTAIN,
    ADSR_PHASE_RELEASE
};

class ZQ_API ADSR_c
{
public:
    /// For hosts: the time of a phase that does not end, the largest float.
    static constexpr double tMAX_TIME = 3.4028234663852886e+38;

    /// One unit of attack to the level 1.
    ADSR_c() = default;
    ADSR_c(float fAttack, float fSustain) { SetLevels(fAttack, fSustain); }
    ADSR_c(ADSR_c const & Other) = default;

    /// Copies everything, the current time too.
    ADSR_c & operator=(ADSR_c const & Other)
    {
        Copy(Other);
        return *this;
    }

    void SetLevels(float fAttack, float fSustain);

    /// Sets the four durations, none of which may be negative.
    void SetTimeIntervals(double tAttack, double tDecay, double tSustain, double tRelease);

    /// Make the whole envelope tLength long by giving one phase what the other three leave. False, with no change, if
    /// they leave less than nothing.
    bool SetAttack(double tLength) { return SetLength(ADSR_PHASE_ATTACK, tLength); }
    bool SetDecay(double tLength) { return SetLength(ADSR_PHASE_DECAY, tLength); }
    bool SetSustain(double tLength) { return SetLength(ADSR_PHASE_SUSTAIN, tLength); }
    bool SetRelease(double tLength) { return SetLength(ADSR_PHASE_RELEASE, tLength); }

    /// Durations.
    double GetAttack() const { return tAttackEnd; }
    double GetDecay() const { return tDecayEnd - tAttackEnd; }
    double GetSustain() const { return tSustainEnd - tDecayEnd; }
    double GetRelease() const { return tReleaseEnd - tSustainEnd; }

    /// The attack level, and the sustain level, whichever is the larger.
    float GetMin() const { return fAttackLevel; }
    float GetMax() const { return fSustainLevel; }

    /// Puts the current time to 0, or moves it, which may take it below 0.
    void Restart() { tTime = 0.0; }
    void TimePass(double dt) { tTime += dt; }

    /// The phase at the current time; none below 0 and from the end on.
    ADSR_Phase_e GetPhase() const;

    /// The level at the current time; 0 where there is no phase.
    float Get() const;

    float fAttackLevel = 1.0f;    // at the end of the attack
    float fSustainLevel = 0.5f;   // of the sustain
    double tAttackEnd = 1.0;
    double tDecayEnd = 1.0;
    double tSustainEnd = 1.0;
    double tReleaseEnd = 1.0;   // the envelope's length
    double tTime = 0.0;         // now

protected:
    void Copy(ADSR_c const & Other);

private:
    bool SetLength(ADSR_Phase_e ePhase, double tLength);
};
