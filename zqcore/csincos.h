// csincos.h: a table of sines for lookups by integer angle.
//
// g_dSinTable[i] is the sine of i * 2 pi / 4096: one whole turn. Of an angle in 16 bits, 65,536 to the turn, the entry
// is [angle >> 4]; a quarter further on, modulo 4096, lies the cosine. The module fills the table; until then it is
// zero. Afterwards any thread may read it.
#pragma once

#include "zqcore/cmodule.h"

#include <array>

/// Entries of the table, to the whole turn.
inline constexpr int SIN_TABLE_SIZE = 4096;

/// Each entry is the nearest float to the sine of the nearest float to its angle, with pi as a float.
extern ZQ_API std::array<float, SIN_TABLE_SIZE> g_dSinTable;

/// The entry of an angle in 65,536ths of a turn, and the cosine's. Larger and negative angles wrap.
inline float SinOfAngle(int iAngle)
{
    return g_dSinTable[static_cast<unsigned>(iAngle) >> 4 & (SIN_TABLE_SIZE - 1)];
}
inline float CosOfAngle(int iAngle)
{
    return g_dSinTable[((static_cast<unsigned>(iAngle) >> 4) + SIN_TABLE_SIZE / 4) & (SIN_TABLE_SIZE - 1)];
}

/// Fills the table.
class ZQ_API ModuleSinCos_c : public Module_c
{
public:
    constexpr ModuleSinCos_c()
        : Module_c("ModuleSinCos_c")
    {}
    ~ModuleSinCos_c() override;

    /// The instance.
    static ModuleSinCos_c * Get();

protected:
    bool Initialize() override;
};
