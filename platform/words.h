// words.h: bits in a vector register.
//
// The folder of a compiler defines, in namespace plat:
//
// - Words_t: 128 bits, with the bitwise operators.
// - Words_t WordsLoad(void const * pBytes) and void WordsStore(void * pBytes, Words_t), for any address.
// - bool WordsAny(Words_t) returns whether any bit is set.
#pragma once

#if defined(__GNUC__)
    #include "platform/gnu/words.h"
#else
    #error "No folder of platform/ is for this compiler: see docs/porting.md"
#endif
