// Which heap the process's own `new` and `delete` reach.
//
// The library replaces both for the whole process. Another module's operators may come first: if the library is loaded
// through another library or a plugin, or if a checker has operators of its own. A foreign `delete` would then get the
// library's blocks. So the library tries each form of the operators when it is loaded. If a form is foreign, the
// library allocates with it too.
#include "zqcore/cmemory_internal.h"

#include <atomic>
#include <cerrno>
#include <string>
#include <system_error>
#include <type_traits>

constinit plat::Operators_t g_ForeignOperators = {};

namespace
{
    constexpr std::size_t PROBE_BYTES = 24;

    constinit std::atomic<bool> g_bNullDeleted{ false };

    // Returns whether a variant of delete is missing or reaches the library's. Deletes null to find out. Its address
    // does not show it: it may be the program's stub for the function.
    template <typename... ARGUMENTS>
    bool ReachesOwn(void (*fnDelete)(void *, ARGUMENTS...), std::type_identity_t<ARGUMENTS>... Arguments)
    {
        g_bNullDeleted = false;
        if (fnDelete)
        {
            fnDelete(nullptr, Arguments...);
        }
        return !fnDelete || g_bNullDeleted;
    }

    // Stores a pair in Foreign and returns true if a function of Bound is foreign, unless a part of the pair would be
    // missing. Replaces the library's own part by that of Next, because a program may contain a `new` of its own
    // runtime without the `delete`, or the reverse, or one variant of them.
    template <typename... ALIGNMENT>
    bool TryPair(plat::OperatorPair_T<ALIGNMENT...> & Foreign, plat::OperatorPair_T<ALIGNMENT...> const & Bound,
        plat::OperatorPair_T<ALIGNMENT...> const & Next, ALIGNMENT... nAlignment)
    {
        if (!Bound.fnNew || !Bound.fnDelete)
        {
            return false;
        }
        void * const pBlock = Bound.fnNew(PROBE_BYTES, nAlignment...);
        void * const pOther =
            Bound.fnNewNothrow ? Bound.fnNewNothrow(PROBE_BYTES, nAlignment..., std::nothrow) : nullptr;
        bool const bOwnNew = MemoryIsOwnBlock(pBlock);
        bool const bOwnDelete = ReachesOwn(Bound.fnDelete, nAlignment...);
        bool const bOwnVariants = (!pOther || MemoryIsOwnBlock(pOther))
                                  && ReachesOwn(Bound.fnDeleteSized, PROBE_BYTES, nAlignment...)
                                  && ReachesOwn(Bound.fnDeleteNothrow, nAlignment..., std::nothrow);
        plat::OperatorPair_T<ALIGNMENT...> Pair;
        Pair.fnNew = bOwnNew ? Next.fnNew : Bound.fnNew;
        Pair.fnDelete = bOwnDelete ? Next.fnDelete : Bound.fnDelete;
        bool const bForeign = !(bOwnNew && bOwnDelete && bOwnVariants) && Pair.fnNew && Pair.fnDelete;
        if (bForeign)
        {
            Foreign = Pair;
        }
        for (void * const pProbe : { pBlock, pOther })
        {
            if (MemoryIsOwnBlock(pProbe))
            {
                aligned_free_dbg(pProbe);
            }
            else if (pProbe && Pair.fnDelete)
            {
                Pair.fnDelete(pProbe, nAlignment...);
            }
        }
        return bForeign;
    }

    // Returns whether the C++ runtime's compiled code is bound to foreign operators. It may be bound separately. The
    // block of a text that it returns shows which operators it uses.
    bool IsRuntimeForeign()
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
        if (auto const fnDelete = plat::OperatorsAfterOwn().Plain.fnDelete)
        {
            fnDelete(pBlock);
        }
        return true;
    }
}

void MemoryNoteNullDeleted()
{
    g_bNullDeleted.store(true, std::memory_order_relaxed);
}

// The C++ runtime's functions for arrays call those for objects by name, which may lead back to the library. So the
// latter serve both.
void MemoryBindOperators()
{
    constexpr std::align_val_t ALIGNMENT{ 64 };
    plat::Operators_t const Bound = plat::OperatorsBound(), Next = plat::OperatorsAfterOwn();
    plat::Operators_t Found;
    bool bForeign = TryPair(Found.Plain, Bound.Plain, Next.Plain);
    bForeign |= TryPair(Found.Array, Bound.Array, Next.Plain);
    bForeign |= TryPair(Found.Aligned, Bound.Aligned, Next.Aligned, ALIGNMENT);
    bForeign |= TryPair(Found.AlignedArray, Bound.AlignedArray, Next.Aligned, ALIGNMENT);
    if (!bForeign && IsRuntimeForeign())
    {
        bForeign = true;
        Found = { Next.Plain, Next.Plain, Next.Aligned, Next.Aligned };
    }
    g_ForeignOperators = Found;
    if (bForeign)
    {
        plat::HeapReport("zqcore: this process binds operator delete outside the library, so blocks of new are not "
                         "tracked. To track them, link the executable itself with zqcore, ahead of the C++ runtime; "
                         "under a checker, with the library's objects.\n");
    }
}
