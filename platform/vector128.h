// vector128.h: the type of a vector of four floats, `__m128`.
#pragma once

#include <xmmintrin.h>
