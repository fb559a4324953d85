#include "platform/operators.h"

#include <dlfcn.h>

namespace plat
{
    namespace
    {
// The letter of std::size_t in a symbol's name.
#if __SIZEOF_SIZE_T__ == 8
    #define SIZE_LETTER "m"
#else
    #define SIZE_LETTER "j"
#endif

        template <typename PAIR>
        void Find(PAIR & Pair, void * hScope, char const * szNew, char const * szDelete)
        {
            Pair.fnNew = reinterpret_cast<decltype(Pair.fnNew)>(::dlsym(hScope, szNew));
            Pair.fnDelete = reinterpret_cast<decltype(Pair.fnDelete)>(::dlsym(hScope, szDelete));
        }

        Operators_t OperatorsOf(void * hScope)
        {
            Operators_t Operators;
            Find(Operators.Plain, hScope, "_Znw" SIZE_LETTER, "_ZdlPv");
            Find(Operators.Array, hScope, "_Zna" SIZE_LETTER, "_ZdaPv");
            Find(Operators.Aligned, hScope, "_Znw" SIZE_LETTER "St11align_val_t", "_ZdlPvSt11align_val_t");
            Find(Operators.AlignedArray, hScope, "_Zna" SIZE_LETTER "St11align_val_t", "_ZdaPvSt11align_val_t");
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
