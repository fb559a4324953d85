// cmemory_operators.inl: the operators over a heap, whose source includes this after it defines HeapNew and HeapDelete.
// iBlockType selects the category, as in MemoryBlockWord.
//
//     void * HeapNew(std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * szFile, int iLine);
//     void HeapDelete(void * pBlock);
#pragma once

#include <algorithm>
#include <new>
#include <utility>

namespace
{
    /// Whether the calling thread is in a foreign operator that passes blocks on. The library's operators, which that
    /// one calls, then use the heap.
    ZQ_THREAD_LOCAL constinit bool t_bInForeign = false;

    /// Scope in which the library calls a foreign operator.
    class ForeignScope_c
    {
    public:
        ForeignScope_c() { t_bInForeign = g_bForeignPassesOn; }
        ~ForeignScope_c() { t_bInForeign = false; }
        ForeignScope_c(ForeignScope_c const &) = delete;
        ForeignScope_c & operator=(ForeignScope_c const &) = delete;
    };

    /// Allocates by the process's own operator, or by the heap if that operator passes this on, and returns the block.
    /// On failure does what MemoryOnExhausted does if the heap is tracked, and returns null.
    template <typename... ALIGNMENT>
    ZQ_COLD void * NewForeign(
        plat::OperatorPair_T<ALIGNMENT...> const & Pair, std::size_t nBytes, ALIGNMENT... nAlignment)
    {
        if (t_bInForeign)
        {
            std::size_t const nLeast = std::max({ MEMORY_ALIGNMENT, static_cast<std::size_t>(nAlignment)... });
            return HeapNew(nBytes, nLeast, MEMORY_NORMAL_BLOCK, nullptr, 0);
        }
        ForeignScope_c const Scope;
        try
        {
            return Pair.fnNew(nBytes, nAlignment...);
        }
        catch (std::bad_alloc const &)
        {
            if (g_MemoryInit)
            {
                MemoryOnExhausted(nBytes);
            }
            return nullptr;
        }
    }

    using AlignedPair_t = plat::OperatorPair_T<std::align_val_t>;

    /// Allocate a block by the process's own operator if there is one, else by the heap, and return it or null.
    ZQ_INLINE void * New(plat::OperatorPair_T<> const & Foreign, std::size_t nBytes,
        int iBlockType = MEMORY_NORMAL_BLOCK, char const * szFile = nullptr, int iLine = 0)
    {
        return Foreign.fnNew ? NewForeign(Foreign, nBytes)
                             : HeapNew(nBytes, MEMORY_ALIGNMENT, iBlockType, szFile, iLine);
    }
    ZQ_INLINE void * New(AlignedPair_t const & Foreign, std::size_t nBytes, std::align_val_t nAlignment,
        int iBlockType = MEMORY_NORMAL_BLOCK, char const * szFile = nullptr, int iLine = 0)
    {
        std::size_t const nHeapAlignment = std::max(static_cast<std::size_t>(nAlignment), MEMORY_ALIGNMENT);
        return Foreign.fnNew ? NewForeign(Foreign, nBytes, nAlignment)
                             : HeapNew(nBytes, nHeapAlignment, iBlockType, szFile, iLine);
    }

    /// Releases a block by the process's own operator, or by the heap if that operator has passed the block on.
    /// LANGUAGE is whether the language's `delete` releases it. The process's own `delete` may come first and pass on a
    /// block that it has moved, so any block of the heap counts as passed on. That is wrong only if the library itself
    /// deletes a block of the process's own heap that begins where one of this heap does.
    template <bool LANGUAGE, typename... ALIGNMENT>
    ZQ_COLD void DeleteForeign(plat::OperatorPair_T<ALIGNMENT...> const & Pair, void * pBlock, ALIGNMENT... nAlignment)
    {
        if (t_bInForeign || (LANGUAGE && g_bForeignPassesOn && MemoryIsOwnBlock(pBlock)))
        {
            HeapDelete(pBlock);
            return;
        }
        ForeignScope_c const Scope;
        Pair.fnDelete(pBlock, nAlignment...);
    }

    /// Releases a block of New. LANGUAGE is as for DeleteForeign.
    template <bool LANGUAGE, typename... ALIGNMENT>
    ZQ_INLINE void Delete(plat::OperatorPair_T<ALIGNMENT...> const & Foreign, void * pBlock, ALIGNMENT... nAlignment)
    {
        if (Foreign.fnNew)
        {
            DeleteForeign<LANGUAGE>(Foreign, pBlock, nAlignment...);
        }
        else
        {
            HeapDelete(pBlock);
        }
    }

    /// Does what New does, but returns null if the heap is exhausted.
    template <typename... ARGUMENTS>
    void * NewOrNull(ARGUMENTS const &... Arguments)
    {
        bool const bOuter = std::exchange(t_MemoryStack.bMayFail, true);
        void * const pBlock = New(Arguments...);
        t_MemoryStack.bMayFail = bOuter;
        return pBlock;
    }

    /// Returns the block, or throws if it is null: the language's contract, while the heap is not tracked.
    void * Require(void * pBlock)
    {
        if (!pBlock)
        {
            throw std::bad_alloc();
        }
        return pBlock;
    }
}

namespace CoreMemory
{
    void * operator_new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine)
    {
        return New(g_ForeignOperators.Plain, nBytes, iBlockType, sFile, iLine);
    }

    void * operator_new_array(std::size_t nBytes, int iBlockType, char const * sFile, int iLine)
    {
        return New(g_ForeignOperators.Array, nBytes, iBlockType, sFile, iLine);
    }

    void operator_delete(void * p)
    {
        Delete<false>(g_ForeignOperators.Plain, p);
    }

    void operator_delete_array(void * p)
    {
        Delete<false>(g_ForeignOperators.Array, p);
    }

    void * operator_new_aligned(
        std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine)
    {
        return New(g_ForeignOperators.Aligned, nBytes, std::align_val_t{ nAlignment }, iBlockType, sFile, iLine);
    }

    void * operator_new_array_aligned(
        std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine)
    {
        return New(g_ForeignOperators.AlignedArray, nBytes, std::align_val_t{ nAlignment }, iBlockType, sFile, iLine);
    }

    void operator_delete_aligned(void * p, std::size_t nAlignment)
    {
        Delete<false>(g_ForeignOperators.Aligned, p, std::align_val_t{ nAlignment });
    }

    void operator_delete_array_aligned(void * p, std::size_t nAlignment)
    {
        Delete<false>(g_ForeignOperators.AlignedArray, p, std::align_val_t{ nAlignment });
    }
}

/// Replace the language's operators for the whole process, so that a plain `new` is tracked too.
// clang-format off
ZQ_API void * operator new(std::size_t nBytes) { return Require(New(g_ForeignOperators.Plain, nBytes)); }
ZQ_API void * operator new[](std::size_t nBytes) { return Require(New(g_ForeignOperators.Array, nBytes)); }
ZQ_API void * operator new(std::size_t nBytes, std::nothrow_t const &) noexcept
{ return NewOrNull(g_ForeignOperators.Plain, nBytes); }
ZQ_API void * operator new[](std::size_t nBytes, std::nothrow_t const &) noexcept
{ return NewOrNull(g_ForeignOperators.Array, nBytes); }
ZQ_API void * operator new(std::size_t nBytes, std::align_val_t nAlignment)
{ return Require(New(g_ForeignOperators.Aligned, nBytes, nAlignment)); }
ZQ_API void * operator new[](std::size_t nBytes, std::align_val_t nAlignment)
{ return Require(New(g_ForeignOperators.AlignedArray, nBytes, nAlignment)); }
ZQ_API void * operator new(std::size_t nBytes, std::align_val_t nAlignment, std::nothrow_t const &) noexcept
{ return NewOrNull(g_ForeignOperators.Aligned, nBytes, nAlignment); }
ZQ_API void * operator new[](std::size_t nBytes, std::align_val_t nAlignment, std::nothrow_t const &) noexcept
{ return NewOrNull(g_ForeignOperators.AlignedArray, nBytes, nAlignment); }

ZQ_API void operator delete(void * pBlock) noexcept { Delete<true>(g_ForeignOperators.Plain, pBlock); }
ZQ_API void operator delete[](void * pBlock) noexcept { Delete<true>(g_ForeignOperators.Array, pBlock); }
ZQ_API void operator delete(void * pBlock, std::nothrow_t const &) noexcept
{ Delete<true>(g_ForeignOperators.Plain, pBlock); }
ZQ_API void operator delete[](void * pBlock, std::nothrow_t const &) noexcept
{ Delete<true>(g_ForeignOperators.Array, pBlock); }
ZQ_API void operator delete(void * pBlock, std::size_t) noexcept { Delete<true>(g_ForeignOperators.Plain, pBlock); }
ZQ_API void operator delete[](void * pBlock, std::size_t) noexcept { Delete<true>(g_ForeignOperators.Array, pBlock); }
ZQ_API void operator delete(void * pBlock, std::align_val_t nAlignment) noexcept
{ Delete<true>(g_ForeignOperators.Aligned, pBlock, nAlignment); }
ZQ_API void operator delete[](void * pBlock, std::align_val_t nAlignment) noexcept
{ Delete<true>(g_ForeignOperators.AlignedArray, pBlock, nAlignment); }
ZQ_API void operator delete(void * pBlock, std::align_val_t nAlignment, std::nothrow_t const &) noexcept
{ Delete<true>(g_ForeignOperators.Aligned, pBlock, nAlignment); }
ZQ_API void operator delete[](void * pBlock, std::align_val_t nAlignment, std::nothrow_t const &) noexcept
{ Delete<true>(g_ForeignOperators.AlignedArray, pBlock, nAlignment); }
ZQ_API void operator delete(void * pBlock, std::size_t, std::align_val_t nAlignment) noexcept
{ Delete<true>(g_ForeignOperators.Aligned, pBlock, nAlignment); }
ZQ_API void operator delete[](void * pBlock, std::size_t, std::align_val_t nAlignment) noexcept
{ Delete<true>(g_ForeignOperators.AlignedArray, pBlock, nAlignment); }
// clang-format on
