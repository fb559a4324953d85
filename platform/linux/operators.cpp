#include "platform/operators.h"

#include <dlfcn.h>

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

// Mangled names of the functions of a pair, in its order.
#define OPERATORS_NAMES(NEW, DELETE, ALIGNMENT)                                                                        \
    {                                                                                                                  \
        NEW OPERATORS_SIZE ALIGNMENT, NEW OPERATORS_SIZE ALIGNMENT OPERATORS_NOTHROW, DELETE ALIGNMENT,                \
            DELETE OPERATORS_SIZE ALIGNMENT, DELETE ALIGNMENT OPERATORS_NOTHROW                                        \
    }

        // Sets fnFunction to the function that a scope has under a mangled name, or to null.
        template <typename FUNCTION>
        void Find(FUNCTION *& fnFunction, void * hScope, char const * szName)
        {
            fnFunction = reinterpret_cast<FUNCTION *>(::dlsym(hScope, szName));
        }

        // Sets a pair to the functions that a scope has under mangled names, in the order of OPERATORS_NAMES.
        template <typename... ALIGNMENT>
        void FindPair(OperatorPair_T<ALIGNMENT...> & Pair, void * hScope, char const * const (&dNames)[5])
        {
            Find(Pair.fnNew, hScope, dNames[0]);
            Find(Pair.fnNewNothrow, hScope, dNames[1]);
            Find(Pair.fnDelete, hScope, dNames[2]);
            Find(Pair.fnDeleteSized, hScope, dNames[3]);
            Find(Pair.fnDeleteNothrow, hScope, dNames[4]);
        }

        // Returns the functions that a scope has. Those that it lacks are null.
        Operators_t OperatorsOf(void * hScope)
        {
            Operators_t Operators;
            FindPair(Operators.Plain, hScope, OPERATORS_NAMES("_Znw", "_ZdlPv", ""));
            FindPair(Operators.Array, hScope, OPERATORS_NAMES("_Zna", "_ZdaPv", ""));
            FindPair(Operators.Aligned, hScope, OPERATORS_NAMES("_Znw", "_ZdlPv", OPERATORS_ALIGNMENT));
            FindPair(Operators.AlignedArray, hScope, OPERATORS_NAMES("_Zna", "_ZdaPv", OPERATORS_ALIGNMENT));
            return Operators;
        }
    }

    Operators_t OperatorsBound()
    {
        return OperatorsOf(RTLD_DEFAULT);
    }

    Operators_t OperatorsAfterOwn()
    {
        Operators_t const Operators = OperatorsOf(RTLD_NEXT);
        ::dlerror();   // clears the error of a missing function, so that the program does not read it
        return Operators;
    }
}
