// vector128.h: the type of a vector of four floats, `__m128`, which every compiler for x86 has.
#pragma once

#include <xmmintrin.h>
