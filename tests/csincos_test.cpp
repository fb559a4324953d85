#include "zqcore/csincos.h"

#include "tests/test_support.h"
#include "zqcore/ccrc.h"

#include <bit>

namespace
{
#include "tests/golden/sincos.inc"
}

TEST(SinCos, TheModuleFillsTheTableWithTheNearestFloats)
{
    ASSERT_TRUE(StartModule(ModuleSinCos_c::Get()));
    Module_c::ShutdownAllModules();
    std::uint32_t dwCrc = 0xFFFFFFFFu;
    for (float const fSine : g_dSinTable)
    {
        dwCrc = Crc32Feed4(dwCrc, std::bit_cast<std::uint32_t>(fSine));
    }
    EXPECT_EQ(~dwCrc, SINE_CRC);
    EXPECT_NE(g_dSinTable[2048], 0.0f);
    EXPECT_EQ(SinOfAngle(16384 + 15), 1.0f);
    EXPECT_EQ(SinOfAngle(-16384), -1.0f);
    EXPECT_EQ(CosOfAngle(65536), 1.0f);
}
