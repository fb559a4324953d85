// ccrc_internal.h: the ways of computing a CRC-32. All give the same value for the same bytes.
#pragma once

#include "zqcore/cconfig.h"

/// The reflected polynomial of IEEE 802.3.
inline constexpr std::uint32_t CRC32_POLYNOMIAL = 0xEDB88320u;

/// The shortest run that the kernels take; shorter ones go through the tables.
inline constexpr std::size_t CRC32_KERNEL_MIN = 16;

/// The CRC-32 of a run of at least CRC32_KERNEL_MIN bytes.
using Crc32Kernel_t = std::uint32_t (*)(unsigned char const * pData, std::size_t nBytes);

/// The tables, eight bytes at a time: every processor. Takes any length.
std::uint32_t Crc32Tables(unsigned char const * pData, std::size_t nBytes);

/// The kernels that this processor can run, best last; null where there is none.
struct Crc32Kernels_t
{
    Crc32Kernel_t fnPclmul;    // PCLMULQDQ, 16 bytes a step
    Crc32Kernel_t fnPairs;     // VPCLMULQDQ with AVX2, 32 bytes a step
    Crc32Kernel_t fnVpclmul;   // VPCLMULQDQ with AVX-512, 64 bytes a step
};
Crc32Kernels_t Crc32FindKernels();
