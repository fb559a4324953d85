// faultstack.h: the stack of the one thread that runs the filter.
//
// The thread's own stack may be full. Its alternate stack may be another runtime's, of a few kilobytes.
#pragma once

namespace plat
{
    /// Allocates the stack, so that a fault finds it ready, and protects its guard pages. If it exists, only protects
    /// them again. Requires that no other call of this function is active. Without memory FaultStackCall uses the
    /// present stack.
    void FaultStackPrepare();

    /// Runs fnCall(pArgument) on that stack, or on the present one without it. On that stack, the thread's alternate
    /// stack is another one of the library's. So signals that arrive leave the interrupted handler's frames alone. An
    /// overflow in the call is a fault like any other. The change of stacks uses less than 1 KiB of the present one.
    /// Requires that no other call is active.
    void FaultStackCall(void (*fnCall)(void * pArgument), void * pArgument);
}
