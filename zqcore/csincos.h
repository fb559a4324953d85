// csincos.h: a table of sines for lookups by integer angle.
//
// g_dSinTable[i] is the sine of i * 2 pi / 4096, for one whole turn. An angle in 16 bits, 65,536 to the turn, has the
// entry [angle >> 4]. The cosine is the entry 1024 further, modulo 4096. ModuleSinCos_c, which the application
// registers (cmodule.h), fills the table.
//
// Ownership: the table is static.
// Threads: any thread may read it after the module has filled it.
// Cost: one table read. The table has 16 KiB.
// Failure: all entries are 0 until the module is initialised.
//
//     Module_c::Register(ModuleSinCos_c::Get());
//     if (Module_c::InitializeAllModules())
//     {
//         float const fSine = SinOfAngle(65536 / 4);     // of 90 degrees: 1
//         float const fCosine = CosOfAngle(65536 / 2);   // of 180 degrees: -1
//     }
//     Module_c::ShutdownAllModules();
#pragma once

#include "zqcore/cmodule.h"

#include <array>

/// Entries of the table for one whole turn.
inline constexpr int SIN_TABLE_SIZE = 4096;

/// Angles of a turn, and angles that share an entry of the table.
inline constexpr int SIN_ANGLES_OF_TURN = 65536;
inline constexpr int SIN_ANGLE_STEP = SIN_ANGLES_OF_TURN / SIN_TABLE_SIZE;

/// Table of sines. Each entry is the nearest float to the sine of the nearest float to its angle, with pi as a float.
extern ZQ_API std::array<float, SIN_TABLE_SIZE> g_dSinTable;

/// Module that fills the table when it is initialised. It depends on no other module.
class ZQ_API ModuleSinCos_c : public Module_c
{
public:
    constexpr ModuleSinCos_c()
        : Module_c("ModuleSinCos_c")
    {}
    ~ModuleSinCos_c() override;

    /// Returns the only instance.
    static ModuleSinCos_c * Get();

protected:
    bool Initialize() override;
};

/// Return the sine and the cosine of an angle in 65,536ths of a turn, rounded down to an entry of the table. Larger and
/// negative angles wrap.
inline float SinOfAngle(int iAngle)
{
    return g_dSinTable[static_cast<unsigned>(iAngle) / SIN_ANGLE_STEP & (SIN_TABLE_SIZE - 1)];
}
inline float CosOfAngle(int iAngle)
{
    return g_dSinTable[(static_cast<unsigned>(iAngle) / SIN_ANGLE_STEP + SIN_TABLE_SIZE / 4) & (SIN_TABLE_SIZE - 1)];
}
