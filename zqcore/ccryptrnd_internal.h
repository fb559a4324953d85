// ccryptrnd_internal.h: the generator behind ccryptrnd.h.
#pragma once

#include "platform/fork.h"
#include "platform/threads.h"
#include "zqcore/csha1.h"

#include <atomic>

class CryptoRandomGenerator_c
{
public:
    static constexpr std::size_t POOL_SIZE = 128;   // bytes; new ones then replace the oldest

    /// Adds the low byte of the cycle counter.
    void PutNextRandom();

    /// Adds a byte.
    void Put(unsigned char Byte);

    /// Fills dOutput. A block of output is given from its end; what is left of it stays for the next call.
    void Get(unsigned char * dOutput, std::size_t nBytes);

    /// Bytes of the pool in use.
    std::size_t GetPoolSize() const { return m_nPoolSize.load(std::memory_order_acquire); }

    /// In the child of a fork: drops what is left of the block and adds the moment to the pool, so that the child gives
    /// other bytes than its parent and the parent's other children.
    void Part();

    /// Registers a generator's locks for forks.
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

private:
    void PutLocked(unsigned char Byte);
    void MakeBlock();

    plat::Lock_c m_PoolLock;                                     // guards the writing of the pool
    plat::Lock_c m_OutputLock;                                   // guards Get
    std::atomic<unsigned char> m_dEntropyPool[POOL_SIZE] = {};   // read without the lock: a late byte is as good
    unsigned char m_dRandomBytes[SHA1_HASH_SIZE] = {};           // the latest block of output
    std::uint32_t m_dwCounter = 0;                               // blocks made
    std::uint32_t m_iWrite = 0;                                  // where the pool's next byte goes
    std::atomic<std::uint32_t> m_nPoolSize{ 0 };                 // bytes of the pool in use
    std::uint32_t m_nBytesLeft = 0;                              // of m_dRandomBytes, not yet given
};
