// hash_support.h: the SHA-1 of a text, for tests of services that hash.
#pragma once

#include "zqcore/csha1.h"

#include <string>

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
