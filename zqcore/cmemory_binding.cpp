// Which heap the process's own `new` and `delete` reach.
//
// The library replaces both for the whole process. Where another module's come first (the library arrives through
// another library or a plugin, or a checker has its own), a block of the library would reach a foreign `delete`. So each
// form of them is tried while the library is loaded, and one that does not lead here serves the library's blocks, too.
#include "zqcore/cmemory_internal.h"

#include <cerrno>
#include <string>
#include <system_error>

constinit plat::Operators_t g_ForeignOperators = {};

namespace
{
    constexpr std::size_t PROBE_BYTES = 24;

    bool IsOwnBlock(void const * p)
    {
        plat::HeapBlock_t Block;
        return plat::HeapFindBlock(p, Block);
    }

    // Keeps the pair if it is a foreign one.
    template <typename PAIR, typename... ALIGNMENT>
    bool TryPair(PAIR const & Bound, PAIR & Foreign, ALIGNMENT... iAlignment)
    {
        if (!Bound.fnNew || !Bound.fnDelete)
        {
            return false;
        }
        void * const p = Bound.fnNew(PROBE_BYTES, iAlignment...);
        bool const bForeign = !IsOwnBlock(p);
        if (bForeign)
        {
            Bound.fnDelete(p, iAlignment...);
            Foreign = Bound;
        }
        else
        {
            aligned_free_dbg(p);
        }
        return bForeign;
    }

    // The C++ runtime's compiled code may be bound apart from the rest. A text that it returns shows where to.
    bool IsRuntimeForeign()
    {
        alignas(std::string) unsigned char Room[sizeof(std::string)];
        auto * const pText = new (Room) std::string(std::generic_category().message(ENOENT));
        void * const p = pText->data();
        bool const bInside = p >= Room && p < Room + sizeof Room;   // too short for a block
        if (bInside || IsOwnBlock(p))
        {
            pText->~basic_string();
            return false;
        }
        if (auto const fnDelete = plat::OperatorsAfterOwn().Plain.fnDelete)
        {
            fnDelete(p);
        }
        return true;
    }
}

void MemoryBindOperators()
{
    constexpr std::align_val_t ALIGNMENT{ 64 };
    plat::Operators_t const Bound = plat::OperatorsBound();
    plat::Operators_t Found;
    bool bForeign = TryPair(Bound.Plain, Found.Plain);
    bForeign |= TryPair(Bound.Array, Found.Array);
    bForeign |= TryPair(Bound.Aligned, Found.Aligned, ALIGNMENT);
    bForeign |= TryPair(Bound.AlignedArray, Found.AlignedArray, ALIGNMENT);
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
