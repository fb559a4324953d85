// ccryptrnd_internal.h: the generator that ccryptrnd.h uses.
#pragma once

#include "platform/fork.h"
#include "platform/threads.h"
#include "zqcore/csha1.h"

#include <atomic>

/// A generator of random bytes from a pool of entropy. Any thread may use it.
class CryptoRandomGenerator_c
{
public:
    static constexpr std::size_t POOL_SIZE = 128;   // bytes; in a full pool new bytes replace the oldest

    /// Registration of a generator's locks for forks.
    class ForkLocks_c
    {
    public:
        explicit ForkLocks_c(CryptoRandomGenerator_c & Generator)
            : m_PoolLock(Generator.m_PoolLock)
            , m_OutputLock(Generator.m_OutputLock)
        {}

    private:
        plat::ForkLock_c const m_PoolLock, m_OutputLock;
    };

    /// Adds the low byte of the cycle counter to the pool.
    void PutNextRandom();

    /// Adds a byte to the pool.
    void Put(unsigned char cByte);

    /// Fills dOutput with nBytes bytes. Each block of output is used from its end. Unused bytes stay for the next call.
    void Get(unsigned char * dOutput, std::size_t nBytes);

    /// Returns the number of bytes of the pool in use.
    std::size_t GetPoolSize() const { return m_nPoolSize.load(std::memory_order_acquire); }

    /// Discards the unused output and adds the low 4 bytes of the cycle counter to the pool. A forked child calls it,
    /// so that its bytes differ from those of its parent and of the parent's other children. Requires that no other
    /// thread is in Get.
    void Diverge();

private:
    void PutLocked(unsigned char cByte);
    void MakeBlock();

    plat::Lock_c m_PoolLock;                                     // lock of writes to the pool
    plat::Lock_c m_OutputLock;                                   // lock of Get
    std::atomic<unsigned char> m_dEntropyPool[POOL_SIZE] = {};   // read without the lock: an old byte serves too
    unsigned char m_dRandomBytes[SHA1_HASH_SIZE] = {};           // latest block of output
    std::uint32_t m_dwCounter = 0;                               // blocks made
    std::uint32_t m_iWrite = 0;                                  // index in the pool of the next byte
    std::atomic<std::uint32_t> m_nPoolSize{ 0 };                 // bytes of the pool in use
    std::uint32_t m_nBytesLeft = 0;                              // unused bytes of m_dRandomBytes
};
