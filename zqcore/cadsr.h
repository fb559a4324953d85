// cadsr.h: an envelope over time with attack, decay, sustain and release, for the level of a sound or an effect.
//
// The level rises from 0 to the attack level, changes to the sustain level, stays there, and falls to 0. Times are in
// the unit of the caller and begin at 0. They are stored as the ends of the phases, in double. Levels are computed in
// single precision, with the same bits on every machine. A phase of length 0 is skipped.
//
// Ownership: a plain value.
// Threads: one at a time for each envelope.
// Cost: a few operations. Nothing allocates.
// Failure: SetAttack, SetDecay, SetSustain and SetRelease return false and change nothing if the length is too short.
//
//     ADSR_c Envelope(1.0f, 0.5f);                      // levels of attack and sustain
//     Envelope.SetTimeIntervals(0.1, 0.2, 1.0, 0.5);    // seconds
//     Envelope.TimePass(0.05);
//     float const fLevel = Envelope.Get();              // 0.5, half-way up the attack
#pragma once

#include "zqcore/cconfig.h"

/// Phases of an envelope. NONE is before time 0 and from the end on.
enum ADSR_Phase_e
{
    ADSR_PHASE_NONE,
    ADSR_PHASE_ATTACK,
    ADSR_PHASE_DECAY,
    ADSR_PHASE_SUSTAIN,
    ADSR_PHASE_RELEASE
};

/// An envelope with its current time.
class ZQ_API ADSR_c
{
public:
    /// The largest float: for hosts, the length of a phase that does not end.
    static constexpr double tMAX_TIME = 3.4028234663852886e+38;

    /// Make an envelope of one unit of attack. The levels are 1 and 0.5, or as SetLevels sets them.
    ADSR_c() = default;
    ADSR_c(float fAttack, float fSustain) { SetLevels(fAttack, fSustain); }

    /// Copy levels, times and the current time.
    ADSR_c(ADSR_c const & Other) = default;
    ADSR_c & operator=(ADSR_c const & Other)
    {
        Copy(Other);
        return *this;
    }

    /// Sets the levels at the end of the attack and during the sustain.
    void SetLevels(float fAttack, float fSustain);

    /// Sets the four durations. Requires that none is negative.
    void SetTimeIntervals(double tAttack, double tDecay, double tSustain, double tRelease);

    /// Set the duration of one phase so that the whole envelope lasts tLength. Return false and change nothing if the
    /// other three together are longer than tLength.
    bool SetAttack(double tLength) { return SetLength(ADSR_PHASE_ATTACK, tLength); }
    bool SetDecay(double tLength) { return SetLength(ADSR_PHASE_DECAY, tLength); }
    bool SetSustain(double tLength) { return SetLength(ADSR_PHASE_SUSTAIN, tLength); }
    bool SetRelease(double tLength) { return SetLength(ADSR_PHASE_RELEASE, tLength); }

    /// Return the durations.
    double GetAttack() const { return tAttackEnd; }
    double GetDecay() const { return tDecayEnd - tAttackEnd; }
    double GetSustain() const { return tSustainEnd - tDecayEnd; }
    double GetRelease() const { return tReleaseEnd - tSustainEnd; }

    /// Return the attack level as the minimum and the sustain level as the maximum, even if the attack level is larger.
    float GetMin() const { return fAttackLevel; }
    float GetMax() const { return fSustainLevel; }

    /// Set the current time to 0, and move it by tDelta, which may be negative.
    void Restart() { tTime = 0.0; }
    void TimePass(double tDelta) { tTime += tDelta; }

    /// Returns the phase at the current time. Returns ADSR_PHASE_NONE below 0 and from the end on.
    ADSR_Phase_e GetPhase() const;

    /// Returns the level at the current time, or 0 in ADSR_PHASE_NONE.
    float Get() const;

    float fAttackLevel = 1.0f;    // at the end of the attack
    float fSustainLevel = 0.5f;   // from the end of the decay to that of the sustain
    double tAttackEnd = 1.0;      // end of the attack; all four ends are since the start
    double tDecayEnd = 1.0;       // when the sustain begins
    double tSustainEnd = 1.0;     // when the release begins
    double tReleaseEnd = 1.0;     // length of the envelope
    double tTime = 0.0;           // current time

protected:
    /// Copies levels, times and the current time.
    void Copy(ADSR_c const & Other);

private:
    bool SetLength(ADSR_Phase_e ePhase, double tLength);
};
