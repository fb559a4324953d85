#include "zqcore/csincos.h"

#include "zqcore/ccrc.h"

#include <bit>
#include <gtest/gtest.h>

namespace
{
#include "tests/golden/sincos.inc"
}

TEST(SinCos, TheModuleFillsTheTableWithTheNearestFloats)
{
    Module_c::Register(ModuleSinCos_c::Get());
    ASSERT_TRUE(Module_c::InitializeAllModules());
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
