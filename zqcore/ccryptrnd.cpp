#include "zqcore/ccryptrnd.h"

#include "platform/clock.h"
#include "zqcore/ccallback.h"
#include "zqcore/ccryptrnd_internal.h"
#include "zqcore/cdebug.h"

#include <algorithm>

namespace
{
    constinit CryptoRandomGenerator_c g_Generator;
    CryptoRandomGenerator_c::ForkLocks_c const g_ForkLocks(g_Generator);
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, [] { g_Generator.Diverge(); } });
    constinit ModuleCryptRandom_c g_Module;

    void CollectEntropy(MessageData_s)
    {
        PutNextRandom();
    }
}

void CryptoRandomGenerator_c::PutNextRandom()
{
    plat::LockScope_c const Scope(m_PoolLock);
    PutLocked(static_cast<unsigned char>(plat::CycleCounter()));
}

void CryptoRandomGenerator_c::Put(unsigned char cByte)
{
    plat::LockScope_c const Scope(m_PoolLock);
    PutLocked(cByte);
}

void CryptoRandomGenerator_c::Diverge()
{
    m_nBytesLeft = 0;
    auto const nMoment = static_cast<std::uint64_t>(plat::CycleCounter());
    for (int iByte = 0; iByte < 4; ++iByte)
    {
        Put(static_cast<unsigned char>(nMoment >> 8 * iByte));
    }
}

void CryptoRandomGenerator_c::PutLocked(unsigned char cByte)
{
    m_dEntropyPool[m_iWrite].store(cByte, std::memory_order_relaxed);
    m_iWrite = (m_iWrite + 1) % POOL_SIZE;
    std::uint32_t const nPoolSize = m_nPoolSize.load(std::memory_order_relaxed);
    if (nPoolSize < POOL_SIZE)
    {
        m_nPoolSize.store(nPoolSize + 1, std::memory_order_release);
    }
}

void CryptoRandomGenerator_c::Get(unsigned char * dOutput, std::size_t nBytes)
{
    plat::LockScope_c const Scope(m_OutputLock);
    for (std::size_t i = 0; i < nBytes; ++i)
    {
        if (m_nBytesLeft == 0)
        {
            MakeBlock();
        }
        dOutput[i] = m_dRandomBytes[--m_nBytesLeft];
    }
}

// Makes the next block: the SHA-1 of the counter, low byte first, and the bytes of the pool in use.
void CryptoRandomGenerator_c::MakeBlock()
{
    constexpr std::size_t COUNTER_SIZE = sizeof m_dwCounter;
    unsigned char dInput[COUNTER_SIZE + POOL_SIZE];
    for (std::size_t i = 0; i < COUNTER_SIZE; ++i)
    {
        dInput[i] = static_cast<unsigned char>(m_dwCounter >> 8 * i);
    }
    std::size_t const nPoolSize = GetPoolSize();
    std::transform(m_dEntropyPool, m_dEntropyPool + nPoolSize, dInput + COUNTER_SIZE,
        [](std::atomic<unsigned char> const & cByte) { return cByte.load(std::memory_order_relaxed); });
    SHA1Context Context;
    SHA1Reset(&Context);
    SHA1Input(&Context, dInput, COUNTER_SIZE + nPoolSize);
    SHA1Result(&Context, m_dRandomBytes);
    m_nBytesLeft = SHA1_HASH_SIZE;
    ++m_dwCounter;
}

void GetRandomBytes(unsigned char * dOutput, int nBytes)
{
    ZQ_ASSERT(dOutput != nullptr);
    ZQ_ASSERT(nBytes > 0);
    if (dOutput != nullptr && nBytes > 0)
    {
        g_Generator.Get(dOutput, static_cast<std::size_t>(nBytes));
    }
}

void PutNextRandom()
{
    g_Generator.PutNextRandom();
}

ModuleCryptRandom_c::~ModuleCryptRandom_c() = default;

ModuleCryptRandom_c * ModuleCryptRandom_c::Get()
{
    return &g_Module;
}

bool ModuleCryptRandom_c::Initialize()
{
    g_ApplicationMessages.Add(CollectEntropy, false);
    return Module_c::Initialize();
}

void ModuleCryptRandom_c::Shutdown()
{
    g_ApplicationMessages.Remove(CollectEntropy);
    Module_c::Shutdown();
}

void Password_s::Set(String_T<256> const & sText)
{
    char const * const szText = sText;
    int const nLength = sText.Length();
    unsigned char const cLength = static_cast<unsigned char>(nLength);
    Hash_t dDigest;
    SHA1Context Context;
    SHA1Reset(&Context);
    SHA1Input(&Context, &cLength, 1);
    SHA1Input(&Context, reinterpret_cast<unsigned char const *>(szText), static_cast<std::size_t>(nLength));
    SHA1Result(&Context, dDigest.data());
    Set(dDigest);
}

void Password_s::Xor(Password_s const & Pass)
{
    ZQ_ASSERT(bIsSet && Pass.bIsSet);
    std::transform(dHash.begin(), dHash.end(), Pass.dHash.begin(), dHash.begin(),
        [](unsigned char cOwn, unsigned char cOther) { return static_cast<unsigned char>(cOwn ^ cOther); });
}
