// ccrc_internal.h: the implementations of CRC-32, and the CRC-32 of a text.
//
// All implementations return the same value for the same bytes.
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/ccrc.h"

#include <cstring>

/// The reflected polynomial of IEEE 802.3.
inline constexpr std::uint32_t CRC32_POLYNOMIAL = 0xEDB88320u;

/// Bytes of the shortest run that the kernels accept. Shorter runs use the tables.
inline constexpr std::size_t CRC32_KERNEL_MIN = 16;

/// Function that returns the CRC-32 of a run from the register before it. Requires at least CRC32_KERNEL_MIN bytes.
using Crc32Kernel_t = std::uint32_t (*)(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister);

/// The kernels that this processor can run, the fastest one last. A kernel is null if the processor lacks its
/// instructions.
struct Crc32Kernels_t
{
    Crc32Kernel_t fnPclmul;    // PCLMULQDQ, registers of 16 bytes
    Crc32Kernel_t fnPairs;     // VPCLMULQDQ with AVX2, registers of 32 bytes
    Crc32Kernel_t fnVpclmul;   // VPCLMULQDQ with AVX-512, registers of 64 bytes
};

/// Returns the CRC-32 of a run of any length from the register before it. Uses the tables, eight bytes at a time, and
/// works on every processor.
std::uint32_t Crc32ByTables(unsigned char const * pData, std::size_t nBytes, std::uint32_t dwRegister);

/// Returns the CRC-32 of a text, such as the name of a chunk.
inline std::uint32_t Crc32OfText(char const * szText)
{
    return GetCrc32Polynomial(szText, static_cast<int>(std::strlen(szText)));
}

/// Returns the kernels of the processor that runs the call.
Crc32Kernels_t Crc32FindKernels();
