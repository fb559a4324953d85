// cpoolallocator.h: pools as allocators of standard containers.
//
// A container that allocates node by node, such as std::list or std::map, runs fastest on a pool. Two kinds of
// pools serve containers:
// - PoolBlocks_c has blocks of all sizes and grows. Blocks of more than 1024 bytes, or with an alignment above 16, come
//   from the heap.
// - PoolElements_c has the elements of a GigaPoolStatic_c. If they lie in storage of the caller, it needs no heap.
//
// PoolAllocator_T is an allocator over a pool of either kind. PoolResource_T is a std::pmr::memory_resource over one,
// and exists if the standard library has <memory_resource>.
//
// Ownership: the caller owns the pool. A container requires that its pool outlives it.
// Threads: no lock: all containers of a pool belong to one thread at a time.
// Cost: a node costs a few nanoseconds. The first block of a size class allocates a chunk of at least 256 KiB, which is
// counted but not touched.
// Failure: a PoolElements_c without an element that suits a node, and an exhausted heap, end in Abort.
//
//     PoolBlocks_c Blocks("healths");
//     std::set<int, std::less<>, PoolAllocator_T<int>> Healths(Blocks);
//     Healths.insert(100);
#pragma once

#include "zqcore/cgigapool.h"
#include "zqcore/cgigaslab.h"
#include "zqcore/chwm.h"

#include <type_traits>
#include <version>

#ifdef __cpp_lib_memory_resource
    #include <memory_resource>
#endif

/// Blocks of any size.
class PoolBlocks_c
{
public:
    static constexpr std::size_t LARGEST = 1024;   // bytes of the largest block that comes from the pool
    static constexpr std::size_t ALIGNMENT = GigaSlab_c::ALIGNMENT;   // of a block from the pool
    static constexpr unsigned USUAL_BLOCKS = 1000;                    // nExpected if the caller names no number

    /// Makes an empty pool. sName is its name in messages of StaticMemoryPool_c (chwm.h). nExpected is the number of
    /// blocks of a size that the caller expects, and no limit. Asserts that sName is not null, and that nExpected is
    /// above 0. With 0, Allocate of a block from the pool ends in Abort.
    ZQ_API explicit PoolBlocks_c(char const * sName, unsigned nExpected = USUAL_BLOCKS);

    /// Allocates a block and returns it, never null. Requires that nAlignment is a power of 2.
    void * Allocate(std::size_t nBytes, std::size_t nAlignment)
    {
        bool const bPooled = nBytes <= LARGEST && nAlignment <= ALIGNMENT;
        return bPooled ? m_Pool.Alloc(static_cast<unsigned>(nBytes), false) : AllocateLarge(nBytes, nAlignment);
    }

    /// Frees a block. Requires the size and the alignment with which it was allocated.
    void Free(void * pBlock, std::size_t nBytes, std::size_t nAlignment)
    {
        if (nBytes <= LARGEST && nAlignment <= ALIGNMENT)
        {
            m_Pool.Free(pBlock, false);
        }
        else
        {
            FreeLarge(pBlock, nAlignment);
        }
    }

private:
    ZQ_API static void * AllocateLarge(std::size_t nBytes, std::size_t nAlignment);
    ZQ_API static void FreeLarge(void * pBlock, std::size_t nAlignment);

    StaticMemoryPool_c m_Pool;
};

/// Elements of a fixed pool, one for each allocation.
class PoolElements_c
{
public:
    /// Uses a pool. Requires that it outlives the object.
    explicit PoolElements_c(GigaPoolStatic_c & Pool)
        : m_Pool(Pool)
    {}

    /// Allocates an element and returns it, never null. Requires that nAlignment is a power of 2. Ends in Abort in
    /// these cases:
    /// - no element is left.
    /// - the block needs more bytes than an element has.
    /// - the alignment is above 16, or the size of an element is no multiple of it.
    void * Allocate(std::size_t nBytes, std::size_t nAlignment)
    {
        auto const nElement = static_cast<std::size_t>(m_Pool.ElementSize());
        bool const bFits = nBytes <= nElement && nAlignment <= PoolBlocks_c::ALIGNMENT && nElement % nAlignment == 0;
        void * const pElement = bFits ? m_Pool.Alloc(false) : nullptr;
        if (!pElement) [[unlikely]]
        {
            Refuse(nBytes, nAlignment);
        }
        return pElement;
    }

    /// Frees an element, whatever the size and the alignment. Requires that Allocate of this pool returned it.
    void Free(void * pElement, std::size_t, std::size_t) { m_Pool.Free(pElement, false); }

private:
    [[noreturn]] ZQ_API ZQ_COLD void Refuse(std::size_t nBytes, std::size_t nAlignment) const;

    GigaPoolStatic_c & m_Pool;
};

/// Allocator of a standard container. Allocators of one pool are equal. A move, a swap or a copy construction of a
/// container carries the pool along. A copy assignment does not.
template <typename T, typename POOL = PoolBlocks_c>
class PoolAllocator_T
{
public:
    /// Types of the standard's requirements for allocators.
    using value_type = T;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;

    /// Use a pool. Both convert implicitly, so that a container's constructor accepts the pool itself, or the allocator
    /// of another type. Require that the pool outlives the container.
    PoolAllocator_T(POOL & Pool) noexcept
        : m_pPool(&Pool)
    {}
    template <typename U>
    PoolAllocator_T(PoolAllocator_T<U, POOL> const & Other) noexcept
        : m_pPool(&Other.GetPool())
    {}

    /// Allocate and return storage of nElements elements, never null, and free it. deallocate requires the number with
    /// which the storage was allocated.
    T * allocate(std::size_t nElements)
    {
        return static_cast<T *>(m_pPool->Allocate(nElements * sizeof(T), alignof(T)));
    }
    void deallocate(T * pElements, std::size_t nElements) noexcept
    {
        m_pPool->Free(pElements, nElements * sizeof(T), alignof(T));
    }

    /// Returns the pool, for an allocator of another type.
    POOL & GetPool() const { return *m_pPool; }

    /// Returns whether both use the same pool.
    template <typename U>
    bool operator==(PoolAllocator_T<U, POOL> const & Other) const
    {
        return m_pPool == &Other.GetPool();
    }

private:
    POOL * m_pPool;
};

#ifdef __cpp_lib_memory_resource
/// Memory resource of the containers in std::pmr, over a pool.
template <typename POOL>
class PoolResource_T final : public std::pmr::memory_resource
{
public:
    /// Uses a pool. Requires that it outlives the object.
    explicit PoolResource_T(POOL & Pool)
        : m_Pool(Pool)
    {}

private:
    void * do_allocate(std::size_t nBytes, std::size_t nAlignment) override
    {
        return m_Pool.Allocate(nBytes, nAlignment);
    }
    void do_deallocate(void * pBlock, std::size_t nBytes, std::size_t nAlignment) override
    {
        m_Pool.Free(pBlock, nBytes, nAlignment);
    }
    bool do_is_equal(std::pmr::memory_resource const & Other) const noexcept override { return this == &Other; }

    POOL & m_Pool;
};
#endif
