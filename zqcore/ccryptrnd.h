// ccryptrnd.h: random bytes from the moments at which application messages arrive, and the digest of a password.
//
// The pool holds the low bytes of the cycle counter at the last 128 messages; each 20 bytes of output are the SHA-1 of
// a block counter and the pool. This is no substitute for the system's generator and must make no key, token or salt
// that anyone has a reason to guess: a message adds a byte that is worth a few bits at most and may be caused from
// outside, nobody counts what has been gathered, an empty pool gives the same output in every run, and whoever learns
// the pool can work out the blocks before and after. It serves shuffles, seeds and games.
//
// One generator, built when the library is loaded. Any thread may add and take bytes; 20 bytes cost about 0.2 us. A
// forked process adds the moment of the fork and goes on with bytes of its own.
#pragma once

#include "zqcore/cmodule.h"
#include "zqcore/csha1.h"
#include "zqcore/cstring.h"

#include <array>

/// Fills dOutput with nBytes bytes, which must be above 0.
ZQ_API void GetRandomBytes(unsigned char * dOutput, int nBytes);

/// Adds the low byte of the cycle counter to the pool; for hosts with unforeseeable moments of their own.
ZQ_API void PutNextRandom();

/// Adds a byte to the pool for each application message while initialised.
class ZQ_API ModuleCryptRandom_c : public Module_c
{
public:
    constexpr ModuleCryptRandom_c()
        : Module_c("ModuleCryptRandom_c")
    {}
    ~ModuleCryptRandom_c() override;

    /// The instance.
    static ModuleCryptRandom_c * Get();

protected:
    bool Initialize() override;
    void Shutdown() override;
};

/// The digest of a password, or none; never the text. A plain value. The digest has no salt and is quick to compute:
/// it keeps honest people honest and does not withstand a search for the text.
struct Password_s
{
    using Hash_t = std::array<unsigned char, SHA1_HASH_SIZE>;

    Hash_t dHash{};   // all zero while unset
    bool bIsSet = false;

    Password_s() = default;
    explicit Password_s(Hash_t const & dDigest)
        : dHash(dDigest)
        , bIsSet(true)
    {}

    /// Takes the SHA-1 of one byte with the text's length, followed by the text.
    ZQ_API void Set(String_T<256> const & sText);

    /// Takes a digest as it is.
    void Set(Hash_t const & dDigest) { *this = Password_s(dDigest); }

    void Clear() { *this = Password_s(); }

    /// Both unset, or both set with one digest.
    bool operator==(Password_s const & Pass) const { return bIsSet == Pass.bIsSet && (!bIsSet || dHash == Pass.dHash); }

    /// XORs the other digest into this one; both must be set.
    ZQ_API void Xor(Password_s const & Pass);
};
