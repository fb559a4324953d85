// The registry of allocators that live apart from the heap.
#include "zqcore/cmemory_internal.h"

#include <algorithm>

namespace mem
{
    namespace
    {
        constinit UserAllocatorInfo_i * g_dAllocators[MAX_USER_ALLOCATORS] = {};   // under g_CategoryLock

        // Replaces the first entry that is pOld by pNew and returns true. A free entry is null. Returns false if no
        // entry is pOld.
        bool Replace(UserAllocatorInfo_i * pOld, UserAllocatorInfo_i * pNew)
        {
            CategoryLockScope_c const Scope;
            auto * const ppSlot = std::find(std::begin(g_dAllocators), std::end(g_dAllocators), pOld);
            if (ppSlot == std::end(g_dAllocators))
            {
                return false;
            }
            *ppSlot = pNew;
            return true;
        }
    }

    bool UserAllocatorInfo_c::GetInfo(UserAllocatorInfo_t & Info)
    {
        Info = { m_dwInfo0, m_dwInfo1, m_dwInfo2 };
        return true;
    }

    bool RegisterUserAllocator(UserAllocatorInfo_i & Allocator)
    {
        return Replace(nullptr, &Allocator);
    }

    bool UnRegisterUserAllocator(UserAllocatorInfo_i & Allocator)
    {
        return Replace(&Allocator, nullptr);
    }

    unsigned GetUserAllocators(UserAllocatorInfo_i ** pOut, unsigned nMax)
    {
        CategoryLockScope_c const Scope;
        unsigned nFound = 0;
        for (UserAllocatorInfo_i * const pAllocator : g_dAllocators)
        {
            if (!pAllocator)
            {
                continue;
            }
            if (pOut && nFound == nMax)
            {
                break;
            }
            if (pOut)
            {
                pOut[nFound] = pAllocator;
            }
            ++nFound;
        }
        return nFound;
    }
}
