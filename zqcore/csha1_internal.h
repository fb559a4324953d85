// csha1_internal.h: the ways of hashing whole blocks. All give the same words for the same blocks.
#pragma once

#include "zqcore/cconfig.h"

inline constexpr std::size_t SHA1_BLOCK_SIZE = 64;

/// Works nBlocks blocks of SHA1_BLOCK_SIZE bytes into the five hash words.
using Sha1Kernel_t = void (*)(std::uint32_t * dHash, unsigned char const * pBlocks, std::size_t nBlocks);

/// Every processor.
void Sha1Plain(std::uint32_t * dHash, unsigned char const * pBlocks, std::size_t nBlocks);

/// The kernel on the processor's SHA instructions; null if it has none.
Sha1Kernel_t Sha1FindKernel();
