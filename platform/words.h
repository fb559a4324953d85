// words.h: bits in a vector register.
//
// The folder of a compiler defines, in namespace plat:
//
// - Words_t has 128 bits and the bitwise operators.
// - Words_t WordsLoad(void const * pBytes) reads from any address.
// - void WordsStore(void * pBytes, Words_t) writes to any address.
// - bool WordsAny(Words_t) returns whether any bit is set.
#pragma once

#if defined(__GNUC__)
    #include "platform/gnu/words.h"
#else
    #error "No folder of platform/ is for this compiler: see docs/porting.md"
#endif
