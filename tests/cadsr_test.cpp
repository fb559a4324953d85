#include "tests/test_support.h"
#include "zqcore/cadsr.h"

#include <bit>

namespace
{
    struct EnvelopeRow_s
    {
        float dLevels[2];
        double dDurations[4], tTime;
        std::uint32_t dwLevel;   // the bits of a float
    };
#include "tests/golden/adsr.inc"
}

TEST(Adsr, MatchesTheBitsOfTheGoldenTable)
{
    for (EnvelopeRow_s const & Row : ENVELOPE_ROWS)
    {
        ADSR_c Envelope(Row.dLevels[0], Row.dLevels[1]);
        Envelope.SetTimeIntervals(Row.dDurations[0], Row.dDurations[1], Row.dDurations[2], Row.dDurations[3]);
        Envelope.TimePass(5.0);
        Envelope.Restart();
        Envelope.TimePass(Row.tTime);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(Envelope.Get()), Row.dwLevel) << Envelope.Get() << " at " << Row.tTime;
    }
}

TEST(Adsr, StretchesOnePhaseAndReportsThePhaseOfEachTime)
{
    ADSR_c Envelope;
    EXPECT_EQ(std::tuple(Envelope.Get(), Envelope.GetMin(), Envelope.GetMax()), std::tuple(0.0f, 1.0f, 0.5f));
    using Durations_t = std::vector<double>;
    for (auto const & [fnSet, tLength, bExpected, dDurations] :
        Rows_t<bool (ADSR_c::*)(double), double, bool, Durations_t>{
            { &ADSR_c::SetRelease, 0.5, false, { 1, 0, 0, 0 } }, { &ADSR_c::SetRelease, 3.0, true, { 1, 0, 0, 2 } },
            { &ADSR_c::SetDecay, 3.5, true, { 1, 0.5, 0, 2 } }, { &ADSR_c::SetSustain, 3.25, false, { 1, 0.5, 0, 2 } },
            { &ADSR_c::SetSustain, 4.5, true, { 1, 0.5, 1, 2 } }, { &ADSR_c::SetAttack, 3.5, true, { 0, 0.5, 1, 2 } },
            { &ADSR_c::SetAttack, 4.0, true, { 0.5, 0.5, 1, 2 } } })
    {
        EXPECT_EQ((Envelope.*fnSet)(tLength), bExpected) << tLength;
        EXPECT_EQ(
            (Durations_t{ Envelope.GetAttack(), Envelope.GetDecay(), Envelope.GetSustain(), Envelope.GetRelease() }),
            dDurations);
    }
    for (auto const & [tTime, ePhase] : { std::pair(-0.1, ADSR_PHASE_NONE), { 0.0, ADSR_PHASE_ATTACK },
             { 0.5, ADSR_PHASE_DECAY }, { 1.0, ADSR_PHASE_SUSTAIN }, { 2.0, ADSR_PHASE_RELEASE },
             { 3.99, ADSR_PHASE_RELEASE }, { 4.0, ADSR_PHASE_NONE } })
    {
        ADSR_c Copy(0.0f, 0.0f);
        Envelope.Restart();
        Envelope.TimePass(tTime);
        Copy = Envelope;
        EXPECT_EQ(Copy.GetPhase(), ePhase) << tTime;
        EXPECT_EQ(Copy.Get(), Envelope.Get()) << tTime;
    }
}
