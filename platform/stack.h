// stack.h: the stack that a thread has left, and a further stack for a deep recursion.
#pragma once

#include <cstddef>

namespace plat
{
    /// Returns the number of bytes between the caller's frame and the end of the stack that the thread runs on. A
    /// thread's first call asks the system. Further calls cost a few instructions. If the system does not answer,
    /// returns 0, and the next call asks again.
    std::size_t StackLeft();

    /// Runs fnCall(pArgument) on a new stack of nBytes, frees the stack and returns true. The stack uses only the
    /// memory that the call touches. The thread stays the same. An exception passes through. Requires that nBytes
    /// is a multiple of 16, and that the call does not end the thread. Returns false, without a call, if the stack
    /// can't be allocated.
    bool StackCallOnFresh(std::size_t nBytes, void (*fnCall)(void * pArgument), void * pArgument);
}
