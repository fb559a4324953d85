// early.cpp: a library without zqcore, whose global allocates before zqcore is initialised.
#include "platform/compiler.h"

namespace
{
    struct Early_s
    {
        int * pBlock = new int[25000];   // the 100,000 bytes that startup_order.cpp looks for
    };
    Early_s g_Early;
}

extern "C" ZQ_API int * EarlyBlock()
{
    return g_Early.pBlock;
}
