// stack.h: how much stack a thread has left, and more of it for a deep recursion.
#pragma once

#include <cstddef>

namespace plat
{
    /// Bytes between the caller's frame and the end of the stack that the thread runs on. A thread's first call asks
    /// the system, further ones cost a few instructions.
    std::size_t StackLeft();

    /// Runs fnCall(pArgument) on a fresh stack of nBytes, which only takes the memory that is used of it, and frees it
    /// when the call has returned. The thread stays the same, and an exception passes through. False, without a call,
    /// if the stack can't be had.
    bool StackCallOnFresh(std::size_t nBytes, void (*fnCall)(void * pArgument), void * pArgument);
}
