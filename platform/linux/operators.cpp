#include "platform/operators.h"

#include <dlfcn.h>

namespace plat
{
    namespace
    {
// The letter for std::size_t in a mangled name (Itanium C++ ABI, section 5.1).
#if __SIZEOF_SIZE_T__ == 8
    #define OPERATORS_SIZE_LETTER "m"
#else
    #define OPERATORS_SIZE_LETTER "j"
#endif

        // Returns the start of the module of a function, or null if no module has it. Reads no symbol table.
        void const * ModuleOf(void * pFunction)
        {
            dl_find_object Module = {};
            ::_dl_find_object(pFunction, &Module);
            return Module.dlfo_map_start;
        }

        // Sets a pair to the functions that a scope has under two mangled names.
        template <typename... ALIGNMENT>
        void Find(OperatorPair_T<ALIGNMENT...> & Pair, void * hScope, char const * szNew, char const * szDelete)
        {
            constexpr void (*OWN_DELETE)(void *) noexcept = &::operator delete;
            void * const pNew = ::dlsym(hScope, szNew);
            void * const pDelete = ::dlsym(hScope, szDelete);
            Pair.fnNew = reinterpret_cast<decltype(Pair.fnNew)>(pNew);
            Pair.fnDelete = reinterpret_cast<decltype(Pair.fnDelete)>(pDelete);
            Pair.bOneModule = ModuleOf(pNew) == ModuleOf(pDelete);
            Pair.bOwnDelete = ModuleOf(pDelete) == ModuleOf(reinterpret_cast<void *>(OWN_DELETE));
        }

        Operators_t OperatorsOf(void * hScope)
        {
            Operators_t Operators;
            Find(Operators.Plain, hScope, "_Znw" OPERATORS_SIZE_LETTER, "_ZdlPv");
            Find(Operators.Array, hScope, "_Zna" OPERATORS_SIZE_LETTER, "_ZdaPv");
            Find(Operators.Aligned, hScope, "_Znw" OPERATORS_SIZE_LETTER "St11align_val_t", "_ZdlPvSt11align_val_t");
            Find(Operators.AlignedArray, hScope, "_Zna" OPERATORS_SIZE_LETTER "St11align_val_t",
                "_ZdaPvSt11align_val_t");
            return Operators;
        }
    }

    Operators_t OperatorsBound()
    {
        return OperatorsOf(RTLD_DEFAULT);
    }

    Operators_t OperatorsAfterOwn()
    {
        return OperatorsOf(RTLD_NEXT);
    }
}
