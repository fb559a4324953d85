// ccryptrnd.h: random bytes from the moments at which messages arrive, and the digest of a password.
//
// The pool holds the low byte of the cycle counter at each of the last 128 messages and calls of PutNextRandom. Each 20
// bytes of output are the SHA-1 of a block counter and the pool, last byte first. The bytes serve shuffles, seeds and
// games. Keys, tokens, salts and all other secrets require the system's generator, for these reasons:
// - a message adds a byte that holds a few bits of entropy at most. An attacker may cause the message.
// - the entropy of the pool is not measured. An empty pool produces the same output in every run.
// - earlier and later output can be computed from the pool and the counter.
//
// Ownership: the one generator exists from load to unload. A Password_s is a plain value.
// Threads: any thread may add and get bytes. A forked child adds the cycle counter, so its bytes differ from its
// parent's.
// Cost: 20 bytes cost about 0.2 us. Nothing allocates but the module's initialisation, which adds a receiver.
// Failure: GetRandomBytes and Xor assert. The module's initialisation asserts if the receiver added last to
// g_ApplicationMessages is exclusive (ccallback.h). Nothing else fails.
//
//     PutNextRandom();   // at an unpredictable moment, such as a key press
//     unsigned char dSeed[4];
//     GetRandomBytes(dSeed, 4);
//     Password_s Kept, Typed;
//     Kept.Set("sesame");
//     Typed.Set("Sesame");
//     bool const bOpen = Typed == Kept;   // false
#pragma once

#include "zqcore/cmodule.h"
#include "zqcore/csha1.h"
#include "zqcore/cstring.h"

#include <array>

/// Fills dOutput with nBytes bytes. Asserts that dOutput is not null and nBytes above 0, and writes nothing otherwise.
ZQ_API void GetRandomBytes(unsigned char * dOutput, int nBytes);

/// Adds the low byte of the cycle counter to the pool. It is for hosts that have unpredictable events besides messages.
ZQ_API void PutNextRandom();

/// Module that adds a byte to the pool for each message of g_ApplicationMessages that it receives while it is
/// initialised. It depends on no other module.
class ZQ_API ModuleCryptRandom_c : public Module_c
{
public:
    constexpr ModuleCryptRandom_c()
        : Module_c("ModuleCryptRandom_c")
    {}
    ~ModuleCryptRandom_c() override;

    /// Returns the only instance.
    static ModuleCryptRandom_c * Get();

protected:
    bool Initialize() override;
    void Shutdown() override;
};

/// The digest of a password, or none. It does not hold the text. The digest has no salt and is quick to compute, so it
/// does not withstand a search for the text.
struct Password_s
{
    using Hash_t = std::array<unsigned char, SHA1_HASH_SIZE>;   // a digest

    Hash_t dHash{};        // all 0 while unset, unless Xor changed it
    bool bIsSet = false;   // whether dHash is a digest

    Password_s() = default;

    /// Makes a set password of a digest.
    explicit Password_s(Hash_t const & dDigest)
        : dHash(dDigest)
        , bIsSet(true)
    {}

    /// Sets the digest of a text: the SHA-1 of one byte with the text's length, followed by the text.
    ZQ_API void Set(String_T<256> const & sText);

    /// Makes this a set password with the digest dDigest.
    void Set(Hash_t const & dDigest) { *this = Password_s(dDigest); }

    /// Unsets the digest.
    void Clear() { *this = Password_s(); }

    /// Returns whether both are unset, or both are set and equal.
    bool operator==(Password_s const & Pass) const { return bIsSet == Pass.bIsSet && (!bIsSet || dHash == Pass.dHash); }

    /// Combines this digest with the other one by exclusive or. Asserts that both are set, and combines them in any
    /// case.
    ZQ_API void Xor(Password_s const & Pass);
};
