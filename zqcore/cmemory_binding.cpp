// Which heap the process's own `new` and `delete` reach.
//
// The library replaces both for the whole process. Another module's operators may come first: if the library is loaded
// through another library or a plugin, or if a checker has operators of its own. A foreign `delete` would then get the
// library's blocks. So the library tries each form of the operators when it is loaded. If a form is foreign, the
// library allocates with it too.
#include "zqcore/cmemory_internal.h"

#include <cerrno>
#include <string>
#include <system_error>

constinit plat::Operators_t g_ForeignOperators = {};

namespace
{
    constexpr std::size_t PROBE_BYTES = 24;

    // Stores the pair in Foreign and returns true if a part or a variant of it is foreign and no part is missing.
    // Replaces the library's own part by the next module's, because a program may contain a `new` of its own runtime
    // without the `delete`, or the reverse.
    template <typename... ALIGNMENT>
    bool TryPair(plat::OperatorPair_T<ALIGNMENT...> plat::Operators_t::*pPair, plat::Operators_t & Foreign,
        plat::Operators_t const & Bound, ALIGNMENT... nAlignment)
    {
        plat::OperatorPair_T<ALIGNMENT...> Pair = Bound.*pPair;
        if (!Pair.fnNew || !Pair.fnDelete)
        {
            return false;
        }
        void * const pBlock = Pair.fnNew(PROBE_BYTES, nAlignment...);
        bool const bOwnNew = MemoryIsOwnBlock(pBlock);
        if (!Pair.bOneModule)
        {
            plat::OperatorPair_T<ALIGNMENT...> const Next = plat::OperatorsAfterOwn().*pPair;
            Pair.fnNew = bOwnNew ? Next.fnNew : Pair.fnNew;
            Pair.fnDelete = Pair.bOwnDelete ? Next.fnDelete : Pair.fnDelete;
        }
        bool const bForeign = (!bOwnNew || !Pair.bOneModule) && Pair.fnNew && Pair.fnDelete;
        if (bForeign)
        {
            Foreign.*pPair = Pair;
        }
        if (bOwnNew)
        {
            aligned_free_dbg(pBlock);
        }
        else if (Pair.fnDelete)
        {
            Pair.fnDelete(pBlock, nAlignment...);
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

void MemoryBindOperators()
{
    constexpr std::align_val_t ALIGNMENT{ 64 };
    plat::Operators_t const Bound = plat::OperatorsBound();
    plat::Operators_t Found;
    bool bForeign = TryPair(&plat::Operators_t::Plain, Found, Bound);
    bForeign |= TryPair(&plat::Operators_t::Array, Found, Bound);
    bForeign |= TryPair(&plat::Operators_t::Aligned, Found, Bound, ALIGNMENT);
    bForeign |= TryPair(&plat::Operators_t::AlignedArray, Found, Bound, ALIGNMENT);
    if (!bForeign && IsRuntimeForeign())
    {
        bForeign = true;
        Found = plat::OperatorsAfterOwn();
    }
    g_ForeignOperators = Found;
    if (bForeign)
    {
        plat::HeapReport("zqcore: this process binds operator delete outside the library, so blocks of new are not "
                         "tracked. To track them, link the executable itself with zqcore, ahead of the C++ runtime; "
                         "under a checker, with the library's objects.\n");
    }
}
