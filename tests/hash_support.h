// hash_support.h: the SHA-1 of a text, for tests of services that hash.
#pragma once

#include "zqcore/csha1.h"

#include <string>

/// SHA-1 of "abc" in hexadecimal digits (FIPS 180-1, appendix A).
inline constexpr char ABC_SHA1[] = "a9993e364706816aba3e25717850c26c9cd0d89d";

/// Returns the SHA1_HASH_SIZE bytes of a text's hash.
inline std::string Sha1Of(std::string const & sText)
{
    SHA1Context Context;
    unsigned char dHash[SHA1_HASH_SIZE];
    SHA1Reset(&Context);
    SHA1Input(&Context, reinterpret_cast<unsigned char const *>(sText.data()), sText.size());
    SHA1Result(&Context, dHash);
    return std::string(std::begin(dHash), std::end(dHash));
}
