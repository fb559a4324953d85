#include "zqcore/csincos.h"

#include "tests/test_support.h"
#include "zqcore/ccrc.h"

#include <bit>

namespace
{
#include "tests/golden/sincos.inc"
}

TEST(SinCos, TheTableHasTheNearestFloatsAndAnglesRoundDown)
{
    constexpr int TURN = 65536;
    ASSERT_TRUE(StartModule(ModuleSinCos_c::Get()));
    Module_c::ShutdownAllModules();
    std::uint32_t dwCrc = CRC32_PRESET;
    for (float const fSine : g_dSinTable)
    {
        dwCrc = Crc32Feed4(dwCrc, std::bit_cast<std::uint32_t>(fSine));
    }
    EXPECT_EQ(~dwCrc, SINE_CRC);
    EXPECT_NE(g_dSinTable[SIN_TABLE_SIZE / 2], 0.0f) << "pi as a float is not pi";
    EXPECT_EQ(SinOfAngle(TURN / 4 + 15), 1.0f) << "an angle is rounded down to an entry";
    EXPECT_EQ(SinOfAngle(-TURN / 4), -1.0f);
    EXPECT_EQ(CosOfAngle(TURN), 1.0f);
}
