// csha1.h: SHA-1 (FIPS 180-4), for fingerprints of media and for spreading entropy. Not for signatures: messages with
// equal digests can be made on purpose.
//
// A context belongs to the caller and to one thread at a time; nothing is allocated. Reset, then any number of Input,
// then Result. The processor's own SHA instructions are used where they are had: about 2 GB a second, else 0.8.
#pragma once

#include "zqcore/cconfig.h"

/// Bytes of a digest.
inline constexpr std::size_t SHA1_HASH_SIZE = 20;

/// What the operations answer.
enum Sha1Status_e : int
{
    shaSuccess = 0,
    shaNull = 1,           // a null argument
    shaInputTooLong = 2,   // the message reached 2^64 bits
    shaStateError = 3      // Input after Result, or anything but Reset after a failure
};

/// A message on its way to its digest.
struct SHA1Context
{
    std::uint32_t dHash[5];       // the hash words
    std::uint32_t dwLengthLow;    // message length in bits, its low word
    std::uint32_t dwLengthHigh;   // and its high word
    std::int16_t iBlockIndex;     // bytes waiting in dBlock, 0 to 63
    unsigned char dBlock[64];     // the block under way
    int Computed;                 // 1 once the digest is made
    int Corrupted;                // the status of the first failure, else shaSuccess
};

/// Starts a message; whatever the context held is gone. shaNull for a null context.
ZQ_API int SHA1Reset(SHA1Context * pContext);

/// Adds bytes to the message. No bytes succeed at once, whatever the context's state. A call that fails adds nothing
/// and leaves the context good for SHA1Reset only.
ZQ_API int SHA1Input(SHA1Context * pContext, unsigned char const * dBytes, std::size_t nBytes);

/// Gives the digest, hash words in big-endian order, and wipes the message from the context. May be asked again.
ZQ_API int SHA1Result(SHA1Context * pContext, unsigned char * dOutput);
