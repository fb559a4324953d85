// stackcall.h: a call on memory of the caller's choice as the stack.
#pragma once

#include <cstddef>

namespace plat
{
    /// Runs fnCall(pArgument) on the calling thread, with the nBytes of memory at pStack as its stack. An exception
    /// passes through. Without an exception, uses less than 512 bytes of the present stack, no heap and no lock.
    /// Requires that the end of the memory is aligned to 16 bytes, and that the call does not end the thread. The
    /// caller keeps the memory.
    void StackCallOn(void * pStack, std::size_t nBytes, void (*fnCall)(void * pArgument), void * pArgument);
}
