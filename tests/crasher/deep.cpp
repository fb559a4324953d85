// deep.cpp: a fault in a recursion whose frames know their arguments only from those of their callers.
// This part of the crasher is optimised.
#include "tests/crasher/deep.h"

#include "tests/notinlined.h"

namespace
{
    int * volatile g_pNowhere = nullptr;

    NOT_INLINED int Deepen(int nMore, int iSum, int iDifference)
    {
        int const iResult = nMore == 0 ? *g_pNowhere : Deepen(nMore - 1, iSum + iDifference, iSum - iDifference);
        __asm__ volatile("");   // not the last call
        return iResult;
    }
}

void FaultInDepth()
{
    Deepen(25, 1, 3);
    __asm__ volatile("");
}
