#include "zqcore/csincos.h"

#include <cmath>

constinit std::array<float, SIN_TABLE_SIZE> g_dSinTable{};

namespace
{
    constinit ModuleSinCos_c g_Module;
    constexpr double FLOAT_PI = 3.1415927410125732;   // pi, rounded to a float
    constexpr int HALF_TURN = SIN_ANGLES_OF_TURN / 2;
}

ModuleSinCos_c::~ModuleSinCos_c() = default;

ModuleSinCos_c * ModuleSinCos_c::Get()
{
    return &g_Module;
}

bool ModuleSinCos_c::Initialize()
{
    for (std::size_t i = 0; i < g_dSinTable.size(); ++i)
    {
        float const fAngle = static_cast<float>(static_cast<double>(i * SIN_ANGLE_STEP) * FLOAT_PI / HALF_TURN);
        g_dSinTable[i] = static_cast<float>(std::sin(static_cast<double>(fAngle)));
    }
    return Module_c::Initialize();
}
