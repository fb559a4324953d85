// words.h: bits in a vector register.
#pragma once

#include <cstdint>
#include <cstring>

namespace plat
{
    /// 128 bits, combined by the operators of words.
    typedef std::uint64_t Words_t __attribute__((vector_size(16)));

    inline Words_t WordsLoad(void const * pBytes)
    {
        Words_t Words;
        std::memcpy(&Words, pBytes, sizeof(Words));
        return Words;
    }

    inline void WordsStore(void * pBytes, Words_t Words)
    {
        std::memcpy(pBytes, &Words, sizeof(Words));
    }

    /// Whether any bit is set.
    inline bool WordsAny(Words_t Words)
    {
        return (Words[0] | Words[1]) != 0;
    }
}
