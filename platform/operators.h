// operators.h: the language's operators new and delete that a process is bound to.
//
// They may be those of another module that comes first, or of a checker, instead of the library's.
#pragma once

#include <cstddef>
#include <new>

namespace plat
{
    /// A form of new with its delete, and their variants. A pointer is null if there is no such function. ALIGNMENT is
    /// std::align_val_t or nothing.
    template <typename... ALIGNMENT>
    struct OperatorPair_T
    {
        void * (*fnNew)(std::size_t nBytes, ALIGNMENT... nAlignment) = nullptr;   // throws std::bad_alloc
        void * (*fnNewNothrow)(std::size_t nBytes, ALIGNMENT... nAlignment, std::nothrow_t const &) = nullptr;
        void (*fnDelete)(void * pMemory, ALIGNMENT... nAlignment) = nullptr;
        void (*fnDeleteSized)(void * pMemory, std::size_t nBytes, ALIGNMENT... nAlignment) = nullptr;
        void (*fnDeleteNothrow)(void * pMemory, ALIGNMENT... nAlignment, std::nothrow_t const &) = nullptr;
    };

    /// The four forms of the operators: for an object and for an array, each with and without an alignment.
    struct Operators_t
    {
        OperatorPair_T<> Plain, Array;
        OperatorPair_T<std::align_val_t> Aligned, AlignedArray;
    };

    /// Return the operators that the dynamic linker binds modules to in the library's lookup scope, and those that come
    /// after the library's in that scope.
    Operators_t OperatorsBound();
    Operators_t OperatorsAfterOwn();
}
