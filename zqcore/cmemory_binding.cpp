// Which heap the process's own `new` and `delete` reach.
//
// The library replaces both for the whole process. Another module's operators may come first: if the library is loaded
// through another library or a plugin, or if a checker has operators of its own. A foreign `delete` would then get the
// library's blocks. So the library tries each form of the operators when it is loaded. If a form is foreign, the
// library allocates with it too.
#include "zqcore/cmemory_internal.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>

constinit plat::Operators_t g_ForeignOperators = {};
constinit bool g_bForeignPassesOn = false;

namespace
{
    constexpr std::size_t PROBE_BYTES = 24;
    constexpr std::size_t LARGE_PROBE_BYTES = 1024 * 1024;

    void * g_pProbe = nullptr;   // block with which a delete is tried
    bool g_bReached = false;     // whether a call has reached the library's new, or its delete with the probe
    bool g_bPassesOn = false;    // whether a trial has found a foreign new that passes requests on to the library's

    // Serve as the library's operators while others are tried. The delete leaves the probe as it is.
    template <typename... ALIGNMENT>
    void * ProbeNew(std::size_t nBytes, ALIGNMENT... nAlignment)
    {
        g_bReached = true;
        std::size_t const nLeast = std::max({ MEMORY_ALIGNMENT, static_cast<std::size_t>(nAlignment)... });
        return aligned_malloc_dbg(nBytes, nLeast, MEMORY_NORMAL_BLOCK, nullptr, 0);
    }

    template <typename... ALIGNMENT>
    void ProbeDelete(void * pBlock, ALIGNMENT...)
    {
        if (pBlock && pBlock == g_pProbe)
        {
            g_bReached = true;
            return;
        }
        aligned_free_dbg(pBlock);
    }

    // Deletes a block by a function. Returns whether that reached the library's delete, which leaves the block alive.
    template <typename DELETE>
    bool TryDelete(void * pBlock, DELETE const & fnDelete)
    {
        g_pProbe = pBlock;
        g_bReached = false;
        fnDelete(pBlock);
        g_pProbe = nullptr;
        return g_bReached;
    }

    // Returns whether a foreign new passes requests of some sizes on to the library's. It may refuse a large one.
    template <typename... ALIGNMENT>
    bool PassesOn(plat::OperatorPair_T<ALIGNMENT...> const & Foreign, ALIGNMENT... nAlignment)
    {
        g_bReached = false;
        for (std::size_t const nBytes : { PROBE_BYTES, LARGE_PROBE_BYTES })
        {
            try
            {
                Foreign.fnDelete(Foreign.fnNew(nBytes, nAlignment...), nAlignment...);
            }
            catch (...)
            {}
        }
        return g_bReached;
    }

    // Returns whether the variants of Bound are the library's, as its main functions are. Other is another heap's pair.
    template <typename... ALIGNMENT>
    bool AreVariantsOwn(plat::OperatorPair_T<ALIGNMENT...> const & Bound,
        plat::OperatorPair_T<ALIGNMENT...> const & Other, ALIGNMENT... nAlignment)
    {
        auto const IsOwn = [&](auto const & fnDelete)
        {
            void * const pProbe = Other.fnNew(PROBE_BYTES, nAlignment...);
            bool const bReached = TryDelete(pProbe, fnDelete);
            if (bReached)
            {
                Other.fnDelete(pProbe, nAlignment...);
            }
            return bReached;
        };
        if (Bound.fnDeleteSized && !IsOwn([&](void * p) { Bound.fnDeleteSized(p, PROBE_BYTES, nAlignment...); }))
        {
            return false;
        }
        if (Bound.fnDeleteNothrow && !IsOwn([&](void * p) { Bound.fnDeleteNothrow(p, nAlignment..., std::nothrow); }))
        {
            return false;
        }
        void * const pBlock =
            Bound.fnNewNothrow ? Bound.fnNewNothrow(PROBE_BYTES, nAlignment..., std::nothrow) : nullptr;
        if (pBlock && !MemoryIsOwnBlock(pBlock))
        {
            Other.fnDelete(pBlock, nAlignment...);
            return false;
        }
        aligned_free_dbg(pBlock);
        return true;
    }

    // Stores a pair in Foreign and returns true if a function of Bound is foreign, unless a part of the pair would be
    // missing. Replaces the library's own part by that of Next, because a program may contain a `new` of its own
    // runtime without the `delete`, or the reverse, or one variant of them. Tries each function with a block, because
    // its address does not show whose it is: it may be in the program and lead to the library.
    // - A `new` that returns another address than the library's is foreign.
    // - A pair whose `new` allocates from the library's heap without the library's operator is not foreign: its
    //   `delete` releases the blocks in the same way.
    // - Variants beside a foreign part are not tried: they may be those of a third module.
    // Requires that the library's operators are those above.
    template <typename... ALIGNMENT>
    bool TryPair(plat::OperatorPair_T<ALIGNMENT...> & Foreign, plat::OperatorPair_T<ALIGNMENT...> const & Bound,
        plat::OperatorPair_T<ALIGNMENT...> const & Next, ALIGNMENT... nAlignment)
    {
        if (!Bound.fnNew || !Bound.fnDelete)
        {
            return false;
        }
        g_bReached = false;
        void * pBlock = Bound.fnNew(PROBE_BYTES, nAlignment...);
        bool const bOwnNew = MemoryIsOwnBlock(pBlock);
        if (bOwnNew && !g_bReached)
        {
            aligned_free_dbg(pBlock);
            return false;
        }
        plat::OperatorPair_T<ALIGNMENT...> Pair;
        Pair.fnNew = bOwnNew ? Next.fnNew : Bound.fnNew;
        if (bOwnNew)
        {
            aligned_free_dbg(pBlock);
            if (!Next.fnNew || !Next.fnDelete)
            {
                return false;
            }
            pBlock = Pair.fnNew(PROBE_BYTES, nAlignment...);
        }
        bool bOwn = TryDelete(pBlock, [&](void * p) { Bound.fnDelete(p, nAlignment...); });
        Pair.fnDelete = bOwn ? Next.fnDelete : Bound.fnDelete;
        auto const fnRelease = bOwnNew ? Next.fnDelete : Pair.fnDelete;
        if (!fnRelease)   // the probe is lost
        {
            return false;
        }
        if (bOwn)
        {
            fnRelease(pBlock, nAlignment...);
        }
        bOwn = bOwn && bOwnNew && AreVariantsOwn(Bound, Pair, nAlignment...);
        if (!bOwn)
        {
            Foreign = Pair;
            g_bPassesOn |= PassesOn(Pair, nAlignment...);
        }
        return !bOwn;
    }

    // Sets the foreign pairs. Clears the new of the others. Leaves their delete, which a thread may be about to call.
    void SetForeign(plat::Operators_t const & Found)
    {
        auto const SetPair = [](auto & Live, auto const & Pair)
        {
            if (Pair.fnNew)
            {
                Live.fnDelete = Pair.fnDelete;
            }
            Live.fnNew = Pair.fnNew;
        };
        SetPair(g_ForeignOperators.Plain, Found.Plain);
        SetPair(g_ForeignOperators.Array, Found.Array);
        SetPair(g_ForeignOperators.Aligned, Found.Aligned);
        SetPair(g_ForeignOperators.AlignedArray, Found.AlignedArray);
    }

    // Returns whether the C++ runtime's compiled code is bound to foreign operators. It may be bound separately. The
    // block of a text that it returns shows which operators it uses. Next are those after the library's.
    bool IsRuntimeForeign(plat::Operators_t const & Next)
    {
        alignas(std::string) unsigned char dRoom[sizeof(std::string)];
        auto * const pText = new (dRoom) std::string(std::generic_category().message(ENOENT));
        void * const pBlock = pText->data();
        bool const bInside = pBlock >= dRoom && pBlock < dRoom + sizeof dRoom;   // too short for a block
        if (bInside || MemoryIsOwnBlock(pBlock))
        {
            pText->~basic_string();
            return false;
        }
        if (Next.Plain.fnDelete)
        {
            Next.Plain.fnDelete(pBlock);
        }
        return true;
    }
}

// The C++ runtime's functions for arrays call those for objects by name, which may lead back to the library. So the
// functions for objects serve both.
void MemoryBindOperators()
{
    constexpr std::align_val_t ALIGNMENT{ 64 };   // any above MEMORY_ALIGNMENT
    plat::Operators_t const Bound = plat::OperatorsBound(), Next = plat::OperatorsAfterOwn();
    plat::Operators_t Probe, Found;
    Probe.Plain.fnNew = Probe.Array.fnNew = ProbeNew<>;
    Probe.Plain.fnDelete = Probe.Array.fnDelete = ProbeDelete<>;
    Probe.Aligned.fnNew = Probe.AlignedArray.fnNew = ProbeNew<std::align_val_t>;
    Probe.Aligned.fnDelete = Probe.AlignedArray.fnDelete = ProbeDelete<std::align_val_t>;
    g_ForeignOperators = Probe;
    bool bForeign = TryPair(Found.Plain, Bound.Plain, Next.Plain);
    bForeign |= TryPair(Found.Array, Bound.Array, Next.Plain);
    bForeign |= TryPair(Found.Aligned, Bound.Aligned, Next.Aligned, ALIGNMENT);
    bForeign |= TryPair(Found.AlignedArray, Bound.AlignedArray, Next.Aligned, ALIGNMENT);
    SetForeign({});
    if (!bForeign && IsRuntimeForeign(Next))
    {
        bForeign = true;
        Found = { Next.Plain, Next.Plain, Next.Aligned, Next.Aligned };
    }
    SetForeign(Found);
    g_bForeignPassesOn = g_bPassesOn;
    if (bForeign)
    {
        plat::HeapReport("zqcore: this process binds operator delete outside the library, so blocks of new are not "
                         "tracked. To track them, link the executable itself with zqcore, before the C++ runtime; "
                         "under a checker, with the library's objects.\n");
    }
}
