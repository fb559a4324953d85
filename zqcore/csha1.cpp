#include "zqcore/csha1.h"

#include "zqcore/csha1_internal.h"

#include "platform/bytes.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

namespace
{
    // Returns the function of round ROUND plus its constant (FIPS 180-4, 4.1.1 and 4.2.1).
    template <std::size_t ROUND>
    std::uint32_t Mix(std::uint32_t dwB, std::uint32_t dwC, std::uint32_t dwD)
    {
        if constexpr (ROUND < 20)
        {
            return (dwD ^ (dwB & (dwC ^ dwD))) + 0x5A827999u;
        }
        else if constexpr (ROUND < 40)
        {
            return (dwB ^ dwC ^ dwD) + 0x6ED9EBA1u;
        }
        else if constexpr (ROUND < 60)
        {
            return ((dwB & dwC) | (dwD & (dwB | dwC))) + 0x8F1BBCDCu;
        }
        else
        {
            return (dwB ^ dwC ^ dwD) + 0xCA62C1D6u;
        }
    }

    // Runs one round. The variables stay where they are and change their roles: a is at (80 - ROUND) % 5. dWords holds
    // the last 16 words of the schedule.
    template <std::size_t ROUND>
    ZQ_INLINE void RunRound(std::uint32_t * dVars, std::uint32_t * dWords, unsigned char const * pBlock)
    {
        constexpr std::size_t A = (80 - ROUND) % 5;
        std::uint32_t & dwWord = dWords[ROUND % 16];
        if constexpr (ROUND < 16)
        {
            dwWord = plat::WordFromBig(pBlock + 4 * ROUND);
        }
        else
        {
            dwWord =
                std::rotl(dwWord ^ dWords[(ROUND + 2) % 16] ^ dWords[(ROUND + 8) % 16] ^ dWords[(ROUND + 13) % 16], 1);
        }
        std::uint32_t & dwB = dVars[(A + 1) % 5];
        dVars[(A + 4) % 5] += std::rotl(dVars[A], 5) + Mix<ROUND>(dwB, dVars[(A + 2) % 5], dVars[(A + 3) % 5]) + dwWord;
        dwB = std::rotl(dwB, 30);
    }

    template <std::size_t... ROUNDS>
    inline void RunAllRounds(std::uint32_t * dVars, unsigned char const * pBlock, std::index_sequence<ROUNDS...>)
    {
        std::uint32_t dWords[16];
        (RunRound<ROUNDS>(dVars, dWords, pBlock), ...);
    }

    void ChooseAndRun(std::uint32_t * dHash, unsigned char const * pBlocks, std::size_t nBlocks);

    // The first call, which may come before any constructor, chooses the kernel. Threads that choose at the same time
    // store the same one.
    constinit std::atomic<Sha1Kernel_t> g_fnKernel{ ChooseAndRun };

    void ChooseAndRun(std::uint32_t * dHash, unsigned char const * pBlocks, std::size_t nBlocks)
    {
        Sha1Kernel_t const fnFound = Sha1FindKernel();
        Sha1Kernel_t const fnKernel = fnFound != nullptr ? fnFound : Sha1HashPlain;
        g_fnKernel.store(fnKernel, std::memory_order_relaxed);
        fnKernel(dHash, pBlocks, nBlocks);
    }

    void HashBlocks(SHA1Context & Context, unsigned char const * pBlocks, std::size_t nBlocks)
    {
        g_fnKernel.load(std::memory_order_relaxed)(Context.dHash, pBlocks, nBlocks);
    }

    int Fail(SHA1Context & Context, int iStatus)
    {
        Context.Corrupted = iStatus;
        return iStatus;
    }

    // Adds nBytes to the length, which counts bits. Returns false and adds nothing if it would reach 2^64.
    bool AddLength(SHA1Context & Context, std::size_t nBytes)
    {
        std::uint64_t const nBits = static_cast<std::uint64_t>(Context.dwLengthHigh) << 32 | Context.dwLengthLow;
        if (nBytes > (std::numeric_limits<std::uint64_t>::max() - nBits) / 8)
        {
            return false;
        }
        std::uint64_t const nSum = nBits + static_cast<std::uint64_t>(nBytes) * 8;
        Context.dwLengthLow = static_cast<std::uint32_t>(nSum);
        Context.dwLengthHigh = static_cast<std::uint32_t>(nSum >> 32);
        return true;
    }

    // Fills the incomplete block and hashes it when it is full. Returns the number of bytes used.
    std::size_t FillBlock(SHA1Context & Context, unsigned char const * pBytes, std::size_t nBytes)
    {
        std::size_t const iFrom = static_cast<std::size_t>(Context.iBlockIndex);
        std::size_t const nTaken = std::min(nBytes, SHA1_BLOCK_SIZE - iFrom);
        std::memcpy(Context.dBlock + iFrom, pBytes, nTaken);
        Context.iBlockIndex = static_cast<std::int16_t>((iFrom + nTaken) % SHA1_BLOCK_SIZE);
        if (Context.iBlockIndex == 0)
        {
            HashBlocks(Context, Context.dBlock, 1);
        }
        return nTaken;
    }

    // Adds the bit 1, zeros up to 8 bytes before the end of a block, and the length. Hashes the blocks that this fills.
    void Pad(SHA1Context & Context)
    {
        constexpr std::size_t LENGTH_AT = SHA1_BLOCK_SIZE - 8;
        std::size_t iFrom = static_cast<std::size_t>(Context.iBlockIndex);
        Context.dBlock[iFrom++] = 0x80;
        if (iFrom > LENGTH_AT)
        {
            std::memset(Context.dBlock + iFrom, 0, SHA1_BLOCK_SIZE - iFrom);
            HashBlocks(Context, Context.dBlock, 1);
            iFrom = 0;
        }
        std::memset(Context.dBlock + iFrom, 0, LENGTH_AT - iFrom);
        plat::WordToBig(Context.dBlock + LENGTH_AT, Context.dwLengthHigh);
        plat::WordToBig(Context.dBlock + LENGTH_AT + 4, Context.dwLengthLow);
        HashBlocks(Context, Context.dBlock, 1);
    }

    // Computes the digest and wipes the message.
    void Compute(SHA1Context & Context)
    {
        Pad(Context);
        std::memset(Context.dBlock, 0, sizeof(Context.dBlock));
        Context.dwLengthLow = 0;
        Context.dwLengthHigh = 0;
        Context.iBlockIndex = 0;
        Context.Computed = 1;
    }
}

void Sha1HashPlain(std::uint32_t * dHash, unsigned char const * pBlocks, std::size_t nBlocks)
{
    for (; nBlocks > 0; --nBlocks, pBlocks += SHA1_BLOCK_SIZE)
    {
        std::uint32_t dVars[5] = { dHash[0], dHash[1], dHash[2], dHash[3], dHash[4] };
        RunAllRounds(dVars, pBlocks, std::make_index_sequence<80>());
        for (std::size_t i = 0; i < std::size(dVars); ++i)
        {
            dHash[i] += dVars[i];
        }
    }
}

int SHA1Reset(SHA1Context * pContext)
{
    if (pContext == nullptr)
    {
        return shaNull;
    }
    // FIPS 180-4, 5.3.1, defines the initial hash words.
    *pContext = SHA1Context{ { 0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u }, 0, 0, 0, {}, 0, 0 };
    return shaSuccess;
}

int SHA1Input(SHA1Context * pContext, unsigned char const * dBytes, std::size_t nBytes)
{
    if (nBytes == 0)
    {
        return shaSuccess;
    }
    if (pContext == nullptr)
    {
        return shaNull;
    }
    if (pContext->Computed != 0 || pContext->Corrupted != shaSuccess)
    {
        return Fail(*pContext, shaStateError);
    }
    if (dBytes == nullptr)
    {
        return Fail(*pContext, shaNull);
    }
    if (!AddLength(*pContext, nBytes))
    {
        return Fail(*pContext, shaInputTooLong);
    }
    if (pContext->iBlockIndex != 0)
    {
        std::size_t const nTaken = FillBlock(*pContext, dBytes, nBytes);
        dBytes += nTaken;
        nBytes -= nTaken;
    }
    if (nBytes >= SHA1_BLOCK_SIZE)
    {
        HashBlocks(*pContext, dBytes, nBytes / SHA1_BLOCK_SIZE);
        dBytes += nBytes - nBytes % SHA1_BLOCK_SIZE;
        nBytes %= SHA1_BLOCK_SIZE;
    }
    std::memcpy(pContext->dBlock + pContext->iBlockIndex, dBytes, nBytes);
    pContext->iBlockIndex = static_cast<std::int16_t>(pContext->iBlockIndex + static_cast<int>(nBytes));
    return shaSuccess;
}

int SHA1Result(SHA1Context * pContext, unsigned char * dOutput)
{
    if (pContext == nullptr)
    {
        return shaNull;
    }
    if (pContext->Corrupted != shaSuccess)
    {
        return Fail(*pContext, shaStateError);
    }
    if (dOutput == nullptr)
    {
        return Fail(*pContext, shaNull);
    }
    if (pContext->Computed == 0)
    {
        Compute(*pContext);
    }
    for (std::size_t i = 0; i < SHA1_HASH_SIZE / 4; ++i)
    {
        plat::WordToBig(dOutput + 4 * i, pContext->dHash[i]);
    }
    return shaSuccess;
}
