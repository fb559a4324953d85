// operators.h: the language's operators new and delete as a process binds them, which need not be the library's: another
// module's may come first, and a checker brings its own.
#pragma once

#include <cstddef>
#include <new>

namespace plat
{
    /// A form of new with its delete; null where there is none. ALIGNMENT is std::align_val_t or nothing.
    template <typename... ALIGNMENT>
    struct OperatorPair_T
    {
        void * (*fnNew)(std::size_t nBytes, ALIGNMENT... iAlignment) = nullptr;   // throws std::bad_alloc
        void (*fnDelete)(void * p, ALIGNMENT... iAlignment) = nullptr;
        bool bOneModule = true;    // both belong to one module
        bool bOwnDelete = false;   // fnDelete is the library's
    };

    struct Operators_t
    {
        OperatorPair_T<> Plain, Array;
        OperatorPair_T<std::align_val_t> Aligned, AlignedArray;
    };

    /// The operators that modules with the library's scope are bound to, and those after the library's in that scope.
    Operators_t OperatorsBound();
    Operators_t OperatorsAfterOwn();
}
