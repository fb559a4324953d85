// words.h: the type and functions of platform/words.h for GCC and Clang.
#pragma once

#include <cstdint>
#include <cstring>

namespace plat
{
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

    inline bool WordsAny(Words_t Words)
    {
        return (Words[0] | Words[1]) != 0;
    }
}
