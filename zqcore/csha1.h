// csha1.h: SHA-1 (FIPS 180-4), for fingerprints of media and for spreading entropy.
//
// It does not serve signatures, because an attacker can make messages with equal digests. A digest requires
// SHA1Reset, then SHA1Input any number of times, then SHA1Result.
//
// Ownership: the caller owns the context, which holds a copy of an incomplete block.
// Threads: a context belongs to one thread at a time.
// Cost: about 2 GB a second with the processor's SHA instructions, 0.8 without. Nothing allocates.
// Failure: each call returns a Sha1Status_e. The context remembers a failure until SHA1Reset.
//
//     SHA1Context Context;
//     unsigned char dDigest[SHA1_HASH_SIZE];
//     unsigned char const dMessage[] = { 'a', 'b', 'c' };
//     SHA1Reset(&Context);
//     SHA1Input(&Context, dMessage, sizeof dMessage);
//     bool const bDone = SHA1Result(&Context, dDigest) == shaSuccess;   // A9 99 3E 36 ...
#pragma once

#include "zqcore/cconfig.h"

/// Bytes of a digest.
inline constexpr std::size_t SHA1_HASH_SIZE = 20;

/// Results of the functions.
enum Sha1Status_e : int
{
    shaSuccess = 0,
    shaNull = 1,           // a null argument
    shaInputTooLong = 2,   // the message would reach 2^64 bits
    shaStateError = 3      // Input of bytes after Result, or either of these after a failure
};

/// State of a message between SHA1Reset and SHA1Result.
struct SHA1Context
{
    std::uint32_t dHash[5];       // the hash words
    std::uint32_t dwLengthLow;    // low word of the message length in bits
    std::uint32_t dwLengthHigh;   // high word
    std::int16_t iBlockIndex;     // bytes in dBlock, 0 to 63
    unsigned char dBlock[64];     // the incomplete block
    int Computed;                 // 1 after the digest is computed
    int Corrupted;                // the status of the last failure, else shaSuccess
};

/// Starts a message, discards what the context holds and returns shaSuccess. Returns shaNull for a null context.
ZQ_API int SHA1Reset(SHA1Context * pContext);

/// Adds bytes to the message and returns a Sha1Status_e. Succeeds for 0 bytes with any context, even null. On failure
/// adds nothing. The context then accepts only SHA1Reset, and inputs of 0 bytes.
ZQ_API int SHA1Input(SHA1Context * pContext, unsigned char const * dBytes, std::size_t nBytes);

/// Writes the digest of SHA1_HASH_SIZE bytes, wipes the message from the context and returns a Sha1Status_e. The hash
/// words are in big-endian order. A further call writes the same digest. On failure writes nothing.
ZQ_API int SHA1Result(SHA1Context * pContext, unsigned char * dOutput);
