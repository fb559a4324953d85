#include "zqcore/cpoolallocator.h"

#include "zqcore/cdebug.h"

#include <iterator>
#include <new>

PoolBlocks_c::PoolBlocks_c(char const * sName, unsigned nExpected)
    : m_Pool(sName)
{
    static constexpr unsigned SIZES[] = { 16, 32, 48, 64, 80, 96, 128, 192, 256, 384, 512, LARGEST };
    static_assert(std::size(SIZES) <= StaticMemoryPool_c::MAX_GROUPS);
    for (unsigned const nSize : SIZES)
    {
        m_Pool.AddGroup(nSize, nExpected);
    }
}

void * PoolBlocks_c::AllocateLarge(std::size_t nBytes, std::size_t nAlignment)
{
    return ::operator new(nBytes, std::align_val_t(nAlignment));
}

void PoolBlocks_c::FreeLarge(void * pBlock, std::size_t nAlignment)
{
    ::operator delete(pBlock, std::align_val_t(nAlignment));
}

void PoolElements_c::Refuse(std::size_t nBytes, std::size_t nAlignment) const
{
    Abort("PoolElements_c: no element for %zu bytes aligned to %zu: they have %i bytes, and %i are in use", nBytes,
        nAlignment, m_Pool.ElementSize(), m_Pool.WaterMark());
}
