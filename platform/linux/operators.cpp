#include "platform/operators.h"

#include <algorithm>
#include <dlfcn.h>
#include <initializer_list>

namespace plat
{
    namespace
    {
// Parts of mangled names (Itanium C++ ABI, section 5.1).
#if __SIZEOF_SIZE_T__ == 8
    #define OPERATORS_SIZE "m"
#else
    #define OPERATORS_SIZE "j"
#endif
#define OPERATORS_ALIGNMENT "St11align_val_t"
#define OPERATORS_NOTHROW "RKSt9nothrow_t"

// Mangled names of all variants of a form of new and of its delete.
#define OPERATORS_NAMES(NEW, DELETE, ALIGNMENT)                                                                        \
    { NEW OPERATORS_SIZE ALIGNMENT, NEW OPERATORS_SIZE ALIGNMENT OPERATORS_NOTHROW },                                  \
    {                                                                                                                  \
        DELETE ALIGNMENT, DELETE OPERATORS_SIZE ALIGNMENT, DELETE ALIGNMENT OPERATORS_NOTHROW                          \
    }

        // Returns the start of the module of a function, or null if no module has it. Reads no symbol table.
        void const * ModuleOf(void * pFunction)
        {
            dl_find_object Module = {};
            ::_dl_find_object(pFunction, &Module);
            return Module.dlfo_map_start;
        }

        // Returns whether all functions that a scope has under these names belong to one module.
        bool AreOfModule(void const * pModule, void * hScope, std::initializer_list<char const *> const & dNames)
        {
            return std::all_of(dNames.begin(), dNames.end(),
                [pModule, hScope](char const * szName)
                {
                    void * const pFunction = ::dlsym(hScope, szName);
                    return pFunction == nullptr || ModuleOf(pFunction) == pModule;
                });
        }

        // Sets a pair to the functions that a scope has under mangled names: the first of each list.
        template <typename... ALIGNMENT>
        void Find(OperatorPair_T<ALIGNMENT...> & Pair, void * hScope, std::initializer_list<char const *> const & dNew,
            std::initializer_list<char const *> const & dDelete)
        {
            constexpr void (*OWN_DELETE)(void *) noexcept = &::operator delete;
            void * const pNew = ::dlsym(hScope, *dNew.begin());
            void * const pDelete = ::dlsym(hScope, *dDelete.begin());
            Pair.fnNew = reinterpret_cast<decltype(Pair.fnNew)>(pNew);
            Pair.fnDelete = reinterpret_cast<decltype(Pair.fnDelete)>(pDelete);
            void const * const pModule = ModuleOf(pDelete);
            Pair.bOneModule = AreOfModule(pModule, hScope, dNew) && AreOfModule(pModule, hScope, dDelete);
            Pair.bOwnDelete = pModule == ModuleOf(reinterpret_cast<void *>(OWN_DELETE));
        }

        Operators_t OperatorsOf(void * hScope)
        {
            Operators_t Operators;
            Find(Operators.Plain, hScope, OPERATORS_NAMES("_Znw", "_ZdlPv", ""));
            Find(Operators.Array, hScope, OPERATORS_NAMES("_Zna", "_ZdaPv", ""));
            Find(Operators.Aligned, hScope, OPERATORS_NAMES("_Znw", "_ZdlPv", OPERATORS_ALIGNMENT));
            Find(Operators.AlignedArray, hScope, OPERATORS_NAMES("_Zna", "_ZdaPv", OPERATORS_ALIGNMENT));
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
