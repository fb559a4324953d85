#include "zqcore/ccrc.h"

#include "zqcore/ccrc_internal.h"

#include "platform/bytes.h"

#include <atomic>

namespace
{
    // Returns the registers after each single byte, from a register of 0.
    constexpr std::array<std::uint32_t, 256> MakeCrc32Tab()
    {
        std::array<std::uint32_t, 256> dTab{};
        for (std::uint32_t iByte = 0; iByte < 256; ++iByte)
        {
            std::uint32_t dwRegister = iByte;
            for (int iBit = 0; iBit < 8; ++iBit)
            {
                dwRegister = (dwRegister >> 1) ^ ((dwRegister & 1) != 0 ? CRC32_POLYNOMIAL : 0);
            }
            dTab[iByte] = dwRegister;
        }
        return dTab;
    }

    // Returns the tables for the first seven of eight bytes, after M. E. Kounavis and F. L. Berry, "A Systematic
    // Approach to Building High Performance, Software-based, CRC Generators", ISCC 2005.
    constexpr std::array<std::array<std::uint32_t, 256>, 7> MakeCrc32FollowTab()
    {
        std::array<std::array<std::uint32_t, 256>, 7> dTab{};
        std::array<std::uint32_t, 256> const dFirst = MakeCrc32Tab();
        for (std::size_t iByte = 0; iByte < 256; ++iByte)
        {
            std::uint32_t dwRegister = dFirst[iByte];
            for (std::array<std::uint32_t, 256> & dRow : dTab)
            {
                dwRegister = (dwRegister >> 8) ^ dFirst[dwRegister & 0xFF];
                dRow[iByte] = dwRegister;
            }
        }
        return dTab;
    }

    // Returns the registers after each single byte, from a register of 0, with their two bytes swapped.
    constexpr std::array<std::uint16_t, 256> MakeCrc16Tab()
    {
        constexpr unsigned POLYNOMIAL = 0xA097;   // of CRC-16/TELEDISK in the RevEng catalogue of CRC algorithms
        std::array<std::uint16_t, 256> dTab{};
        for (unsigned iByte = 0; iByte < 256; ++iByte)
        {
            unsigned dwRegister = iByte << 8;
            for (int iBit = 0; iBit < 8; ++iBit)
            {
                dwRegister = ((dwRegister << 1) ^ ((dwRegister & 0x8000) != 0 ? POLYNOMIAL : 0)) & 0xFFFF;
            }
            dTab[iByte] = static_cast<std::uint16_t>((dwRegister >> 8) | (dwRegister << 8));
        }
        return dTab;
    }

    // Returns the product of two polynomials modulo CRC32_POLYNOMIAL, the lowest power in the highest bit.
    constexpr std::uint32_t Multiply(std::uint32_t dwA, std::uint32_t dwB)
    {
        std::uint32_t dwProduct = 0;
        for (; dwA != 0; dwA <<= 1)   // masks, because branches on the bits of a CRC are mispredicted
        {
            dwProduct ^= dwB & (0u - (dwA >> 31));
            dwB = (dwB >> 1) ^ (CRC32_POLYNOMIAL & (0u - (dwB & 1)));
        }
        return dwProduct;
    }

    // Returns a table of factors. Entry i moves a CRC over 2 to the power of i bytes (A. Kadatch, B. Jenkins,
    // Everything we know about CRC but afraid to forget, 2010).
    constexpr std::array<std::uint32_t, 64> MakeCrc32Moves()
    {
        constexpr std::uint32_t OVER_ONE_BYTE = 0x00800000;   // x^8
        std::array<std::uint32_t, 64> dMoves{};
        std::uint32_t dwFactor = OVER_ONE_BYTE;
        for (std::uint32_t & dwMove : dMoves)
        {
            dwMove = dwFactor;
            dwFactor = Multiply(dwFactor, dwFactor);
        }
        return dMoves;
    }

    constexpr std::array<std::uint32_t, 64> CRC32_MOVES = MakeCrc32Moves();

    // Returns the CRC of a run from the register before its last nBytes. Requires nBytes below 8.
    inline std::uint32_t FinishTables(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister)
    {
        if (nBytes >= 4)
        {
            dwRegister = Crc32Feed4(dwRegister, plat::WordFromLittle(pData));
            pData += 4;
            nBytes -= 4;
        }
        for (; nBytes > 0; --nBytes, ++pData)
        {
            dwRegister = (dwRegister >> 8) ^ g_dCrc32Tab[(dwRegister ^ *pData) & 0xFF];
        }
        return ~dwRegister;
    }

    // Replaces itself in g_fnKernel by the best kernel for the processor. Returns that kernel's result.
    std::uint32_t ChooseAndRun(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister);

    // The kernel for CRC32_KERNEL_MIN bytes and more. The first call chooses it. That call may come before any
    // constructor. Threads that choose at the same time store the same kernel.
    constinit std::atomic<Crc32Kernel_t> g_fnKernel{ ChooseAndRun };

    std::uint32_t ChooseAndRun(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister)
    {
        Crc32Kernels_t const Kernels = Crc32FindKernels();
        Crc32Kernel_t fnKernel = Crc32ByTables;
        for (Crc32Kernel_t const fnBetter : { Kernels.fnPclmul, Kernels.fnPairs, Kernels.fnVpclmul })
        {
            fnKernel = fnBetter != nullptr ? fnBetter : fnKernel;
        }
        g_fnKernel.store(fnKernel, std::memory_order_relaxed);
        return fnKernel(pData, nBytes, dwRegister);
    }

    // Returns the CRC of a run from the register before it.
    ZQ_INLINE std::uint32_t Run(unsigned char const * pBytes, std::size_t nBytes, std::uint32_t dwRegister)
    {
        if (nBytes >= CRC32_KERNEL_MIN)
        {
            return g_fnKernel.load(std::memory_order_relaxed)(pBytes, nBytes, dwRegister);
        }
        if (nBytes >= 8)
        {
            dwRegister = Crc32Feed8(dwRegister, plat::WordFromLittle(pBytes), plat::WordFromLittle(pBytes + 4));
            return FinishTables(pBytes + 8, nBytes - 8, dwRegister);
        }
        return FinishTables(pBytes, nBytes, dwRegister);
    }
}

constexpr std::array<std::uint32_t, 256> g_dCrc32Tab = MakeCrc32Tab();
constexpr std::array<std::array<std::uint32_t, 256>, 7> g_dCrc32FollowTab = MakeCrc32FollowTab();
constexpr std::array<std::uint16_t, 256> g_dCrc16Tab = MakeCrc16Tab();

std::uint32_t Crc32ByTables(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister)
{
    for (; nBytes >= 8; nBytes -= 8, pData += 8)
    {
        dwRegister = Crc32Feed8(dwRegister, plat::WordFromLittle(pData), plat::WordFromLittle(pData + 4));
    }
    return FinishTables(pData, nBytes, dwRegister);
}

std::uint32_t GetCrc32Polynomial(char const * pData, int nLength)
{
    return Run(reinterpret_cast<unsigned char const *>(pData), nLength > 0 ? static_cast<std::size_t>(nLength) : 0,
        CRC32_PRESET);
}

std::uint32_t Crc32(void const * pBytes, std::size_t nBytes, std::uint32_t dwFirst)
{
    return Run(static_cast<unsigned char const *>(pBytes), nBytes, ~dwFirst);
}

std::uint32_t Crc32Join(std::uint32_t dwFirst, std::uint32_t dwSecond, std::uint64_t nSecond)
{
    for (std::size_t i = 0; nSecond != 0; ++i, nSecond >>= 1)
    {
        dwFirst = (nSecond & 1) != 0 ? Multiply(CRC32_MOVES[i], dwFirst) : dwFirst;
    }
    return dwFirst ^ dwSecond;
}
