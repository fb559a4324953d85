// csha1_internal.h: the implementations that hash whole blocks. All compute the same words for the same blocks.
#pragma once

#include "zqcore/csha1.h"

/// Bytes of a block (FIPS 180-4).
inline constexpr std::size_t SHA1_BLOCK_SIZE = sizeof SHA1Context::dBlock;

/// Function that updates the five hash words with nBlocks blocks of SHA1_BLOCK_SIZE bytes.
using Sha1Kernel_t = void (*)(std::uint32_t * dHash, unsigned char const * pBlocks, std::size_t nBlocks);

/// Hashes blocks as a Sha1Kernel_t, on every processor.
void Sha1HashPlain(std::uint32_t * dHash, unsigned char const * pBlocks, std::size_t nBlocks);

/// Returns the kernel that uses the SHA instructions of the processor, or null if the processor or the build has none.
Sha1Kernel_t Sha1FindKernel();
